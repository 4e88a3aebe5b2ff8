// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace StewardSimulator {

/// Cuts a stream of bytes into lines. Each byte is examined once, however the stream is split.
class LineSplitter {
  public:
    /// @param onLine called with each line that is complete, without its line feed
    template <typename OnLine>
    void feed(std::string_view chunk, OnLine&& onLine) {
        for (auto end = chunk.find('\n'); end != std::string_view::npos; end = chunk.find('\n')) {
            if (rest_.empty()) {
                onLine(chunk.substr(0, end));
            } else {
                rest_.append(chunk, 0, end);
                line_.swap(rest_);
                rest_.clear();
                onLine(std::string_view{line_});
            }
            chunk.remove_prefix(end + 1);
        }
        rest_ += chunk;
    }

    /// What came after the last line feed.
    [[nodiscard]] std::string_view rest() const noexcept { return rest_; }

  private:
    std::string rest_;
    std::string line_;  ///< a line that arrived in pieces, while it is passed on
};

}  // namespace StewardSimulator
