// SPDX-License-Identifier: MIT
#include "common/text.hpp"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <vector>

#include <locale.h>  // newlocale

#include <fmt/format.h>

namespace Tools {
namespace {

/// A character as a terminal shows it.
struct Glyph {
    std::string_view bytes;
    std::size_t columns;
};

/// Sets UTF-8 for the calling thread, whatever the environment says, until it is destroyed.
class Utf8 {
  public:
    Utf8() : before_{::uselocale(locale())} {}
    Utf8(const Utf8&) = delete;
    Utf8& operator=(const Utf8&) = delete;
    ~Utf8() { ::uselocale(before_); }

  private:
    static locale_t locale() {
        static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return utf8;  // null, and so without effect, on a system without it
    }

    locale_t before_;
};

std::vector<Glyph> glyphsOf(std::string_view text) {
    const Utf8 utf8;
    std::vector<Glyph> glyphs;
    while (!text.empty()) {
        wchar_t character = 0;
        std::mbstate_t state{};
        const auto length = std::mbrtowc(&character, text.data(), text.size(), &state);
        // 0 stands for a zero byte, and huge numbers for errors
        const bool isWhole = length != 0 && length <= text.size();
        const int width = isWhole ? ::wcwidth(character) : -1;
        const auto taken = isWhole ? length : 1;
        glyphs.push_back(width < 0 ? Glyph{".", 1}
                                   : Glyph{text.substr(0, taken), static_cast<std::size_t>(width)});
        text.remove_prefix(taken);
    }
    return glyphs;
}

std::size_t columnsOf(const std::vector<Glyph>& glyphs) {
    std::size_t sum = 0;
    for (const auto& glyph : glyphs) {
        sum += glyph.columns;
    }
    return sum;
}

/// Takes as many glyphs as fit. @return the columns that they need
template <typename Iterator>
std::size_t take(Iterator& at, Iterator end, std::size_t width) {
    std::size_t used = 0;
    while (at != end && used + at->columns <= width) {
        used += at++->columns;
    }
    return used;
}

template <typename Iterator>
void append(std::string& result, Iterator begin, Iterator end) {
    std::for_each(begin, end, [&result](const Glyph& glyph) { result += glyph.bytes; });
}

}  // namespace

std::string escaped(std::string_view bytes, std::size_t limit) {
    std::string text;
    for (const char byte : bytes.substr(0, limit)) {
        if (byte < ' ' || byte > '~' || byte == '\\') {
            text += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
        } else {
            text += byte;
        }
    }
    if (bytes.size() > limit) {
        text += fmt::format("... ({} bytes)", bytes.size());
    }
    return text;
}

std::size_t columns(std::string_view text) {
    return columnsOf(glyphsOf(text));
}

std::string fitted(std::string_view text, std::size_t width) {
    const auto glyphs = glyphsOf(text);
    auto end = glyphs.begin();
    take(end, glyphs.end(), width);
    std::string result;
    append(result, glyphs.begin(), end);
    return result;
}

std::string shortened(std::string_view text, std::size_t width) {
    const auto glyphs = glyphsOf(text);
    if (width == 0 || columnsOf(glyphs) <= width) {
        return fitted(text, width);
    }
    auto front = glyphs.begin();
    auto back = glyphs.rbegin();
    const auto used = take(back, glyphs.rend(), (width - 1) / 2);
    take(front, glyphs.end(), width - 1 - used);
    std::string result;
    append(result, glyphs.begin(), front);
    result += "…";
    append(result, back.base(), glyphs.end());
    return result;
}

std::string padded(std::string_view text, std::size_t width) {
    auto result = fitted(text, width);
    result.append(width - std::min(width, columns(result)), ' ');
    return result;
}

}  // namespace Tools
