// SPDX-License-Identifier: MIT
#include "text.hpp"

#include <algorithm>

namespace StewardSimulator {
namespace {

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
}

bool continuesCodePoint(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

std::size_t columns(std::string_view text) {
    return text.size() -
           static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continuesCodePoint));
}

void appendHex(std::string& text, char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    text += "\\x";
    text += digits[value >> 4U];
    text += digits[value & 0xfU];
}

}  // namespace

std::string escaped(std::string_view bytes, std::size_t limit) {
    std::string text;
    for (const char byte : bytes.substr(0, limit)) {
        if (byte < ' ' || byte > '~' || byte == '\\') {
            appendHex(text, byte);
        } else {
            text += byte;
        }
    }
    if (bytes.size() > limit) {
        text += "... (" + std::to_string(bytes.size()) + " bytes)";
    }
    return text;
}

std::string fitted(std::string_view text, std::size_t width) {
    std::string result;
    std::size_t used = 0;
    for (const char byte : text) {
        if (!continuesCodePoint(byte) && used++ == width) {
            break;
        }
        result += isControl(byte) ? '.' : byte;
    }
    return result;
}

std::string padded(std::string_view text, std::size_t width) {
    auto result = fitted(text, width);
    result.append(width - std::min(width, columns(result)), ' ');
    return result;
}

}  // namespace StewardSimulator
