// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <ios>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

namespace Orvik::Log::Detail {

/// An empty string stream for one record. Making one costs more than all else about most records,
/// so each thread keeps its last one, and the memory of its text.
class TextStream {
  public:
    TextStream() : stream_{take()} {}
    TextStream(const TextStream&) = delete;
    TextStream& operator=(const TextStream&) = delete;
    ~TextStream() {
        if (stream_->view().size() <= maxKeptSize) {
            kept() = std::move(stream_);
        }
    }

    std::stringstream& operator*() const noexcept { return *stream_; }
    std::stringstream* operator->() const noexcept { return stream_.get(); }

  private:
    using Pointer = std::unique_ptr<std::stringstream>;

    static constexpr std::size_t maxKeptSize = 1U << 21U;

    static Pointer& kept() {
        thread_local Pointer stream;
        return stream;
    }

    static Pointer take() {
        static const std::string empty;
        auto stream = std::move(kept());
        if (!stream) {  // the first one, or inside the statement of another record
            return std::make_unique<std::stringstream>();
        }
        stream->str(empty);
        stream->clear();
        stream->flags(std::ios_base::skipws | std::ios_base::dec);
        stream->precision(6);
        stream->width(0);
        stream->fill(' ');
        return stream;
    }

    Pointer stream_;
};

}  // namespace Orvik::Log::Detail
