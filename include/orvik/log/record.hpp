// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/current_sink.hpp"

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
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
 * level passes. The text is always built. For a single statement; not to be kept.
 *
 *     Log::Record{Log::info} << "Push interface server: " << text;
 */
class Record {
  public:
    explicit Record(Level level) : sink_{sink()}, level_{level} {}

    /// A record that begins with where it comes from: "path:line: ".
    Record(Level level, const Location& origin) : Record{level} {
        text_.append(origin.path).append(":").append(std::to_string(origin.line)).append(": ");
    }

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    ~Record() {
        if (sink_ && level_ <= sink_->level()) {
            sink_->write(static_cast<std::uint32_t>(level_), stream_ ? stream_->str() : text_);
        }
    }

    /// Takes whatever a stream takes. Text is appended directly, since creating a stream costs more
    /// than all the rest.
    template <typename Value>
    Record& operator<<(const Value& value) {
        if constexpr (std::convertible_to<const Value&, std::string_view>) {
            if (!stream_) {
                text_ += value;
                return *this;
            }
        }
        if (!stream_) {
            stream_.emplace(text_, std::ios::in | std::ios::out | std::ios::ate);
        }
        *stream_ << value;
        return *this;
    }

  private:
    std::unique_ptr<Sink>& sink_;
    std::int32_t level_;
    std::string text_;
    std::optional<std::stringstream> stream_;  // created by the first value that is not a text
};

}  // namespace Orvik::Log
