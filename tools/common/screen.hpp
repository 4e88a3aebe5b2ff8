// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Tools {

/// Size of a terminal in characters.
struct TerminalSize {
    std::size_t rows = 24;
    std::size_t columns = 80;

    friend bool operator==(const TerminalSize&, const TerminalSize&) = default;
};

/// Size of the terminal on the standard output; the usual size if it is not a terminal.
[[nodiscard]] TerminalSize terminalSize();

/// Draws pictures in place on a terminal's alternate screen. Makes the bytes for it; the caller
/// writes them.
class Screen {
  public:
    static constexpr std::string_view enter = "\x1b[?1049h\x1b[2J";
    static constexpr std::string_view leave = "\x1b[?1049l";

    /// @param lines none wider than the terminal, whose last row stays free for typing
    [[nodiscard]] std::string draw(const std::vector<std::string>& lines, TerminalSize size);

  private:
    TerminalSize size_{.rows = 0, .columns = 0};  ///< at the last picture
};

}  // namespace Tools
