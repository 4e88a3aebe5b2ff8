// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/current_sink.hpp"
#include "orvik/log/detail/text_stream.hpp"

#include <cstdint>
#include <memory>
#include <string_view>

namespace Orvik::Log {

/**
 * Origin of a record as operators know it from the log. It is part of what the log promises: path
 * and line stay as they are when code moves.
 */
struct Location {
    std::string_view path;
    int line;
};

/**
 * One log statement: insert the text, and the destructor hands it to the current sink if the
 * level passes. The text is always built. Lives on the stack of the logging function only.
 *
 *     Log::Record{Log::info} << "Push interface server: " << text;
 */
class Record {
  public:
    explicit Record(Level level) : sink_{sink()}, level_{level} {}

    /// A record that begins with where it comes from: "path:line: ".
    Record(Level level, const Location& origin) : Record{level} {
        *text_ << origin.path << ':' << origin.line << ": ";
    }

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    ~Record() {
        if (sink_ && level_ <= sink_->level()) {
            sink_->write(static_cast<std::uint32_t>(level_), text_->str());
        }
    }

    template <typename Value>
    Record& operator<<(const Value& value) {
        *text_ << value;
        return *this;
    }

  private:
    std::unique_ptr<Sink>& sink_;
    std::int32_t level_;
    Detail::TextStream text_;
};

}  // namespace Orvik::Log
