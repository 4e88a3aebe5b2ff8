// SPDX-License-Identifier: MIT
#include "common/screen.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

namespace Tools {
namespace {

constexpr std::string_view clearScreen = "\x1b[2J";
constexpr std::string_view saveCursorAndGoHome = "\x1b\x37\x1b[H";
constexpr std::string_view restoreCursor = "\x1b\x38";
constexpr std::string_view endLine = "\x1b[K\r\n";

}  // namespace

TerminalSize terminalSize() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {.rows = size.ws_row, .columns = size.ws_col};
}

std::string Screen::draw(const std::vector<std::string>& lines, TerminalSize size) {
    std::string picture;
    if (size != size_) {  // what is typed appears in the last row
        picture += clearScreen;
        picture += fmt::format("\x1b[{};1H", size.rows);
        size_ = size;
    }
    picture += saveCursorAndGoHome;
    for (std::size_t i = 0; i + 1 < size.rows; ++i) {
        picture += i < lines.size() ? lines[i] : "";
        picture += endLine;
    }
    picture += restoreCursor;
    return picture;
}

}  // namespace Tools
