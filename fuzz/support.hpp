// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/device.hpp"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

[[nodiscard]] inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Ends the process, as a finding, if a promise is broken.
inline void require(bool kept, const char* promise) {
    if (!kept) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// Removes and returns the text before a separator; removes the separator too.
[[nodiscard]] inline std::string_view takeUntil(std::string_view& text, char separator) {
    const auto field = text.substr(0, text.find(separator));
    text.remove_prefix(field.size() < text.size() ? field.size() + 1 : field.size());
    return field;
}

[[nodiscard]] inline bool isValueText(const PullappOpcUa::Tag& tag, std::string_view text) {
    using Orvik::PushInterface::TagType;
    if (tag.tagType == TagType::Bool) {
        return text == "t" || text == "f";
    }
    if (tag.tagType == TagType::String) {
        const auto count = takeUntil(text, ',');
        return std::to_string(text.size()) == count && text.find('\r') == text.npos &&
               (tag.maxStringLength == 0 || text.size() <= tag.maxStringLength);
    }
    double number = 0;  // its format includes integers
    const auto end = text.data() + text.size();
    return std::from_chars(text.data(), end, number).ptr == end && !text.empty();
}

/// One line for each tag, in their order, with a text of its type.
inline void requireWellFormed(std::string_view batch, const PullappOpcUa::Device& device) {
    for (const auto& tag : device.tags) {
        require(batch.find('\n') != batch.npos, "every line of a batch ends");
        auto line = takeUntil(batch, '\n');
        require(takeUntil(line, '=') == std::to_string(tag->id), "a line has its tag's id");
        require(isValueText(*tag, line), "a line has a value of its tag's type");
    }
    require(batch.empty(), "a batch ends with its last tag");
}

}  // namespace Fuzz
