// SPDX-License-Identifier: MIT
#include "steward-simulator/value_check.hpp"

#include "description/tag_type.hpp"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <system_error>

namespace StewardSimulator {
namespace {

using Orvik::PushInterface::TagType;

/// A number is well-formed if parsing and formatting it again gives the same text.
template <typename Number, typename... Format>
bool isWritten(std::string_view text, Format... format) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc{} || read.ptr != end) {
        return false;
    }
    char again[64];
    const auto* const written =
        std::to_chars(std::begin(again), std::end(again), number, format...).ptr;
    return text == std::string_view{again, static_cast<std::size_t>(written - again)};
}

bool isScalar(TagType type, std::string_view text) {
    switch (type) {
        case TagType::Bool:
            return text == "t" || text == "f";
        case TagType::Float:
            return isWritten<float>(text, std::chars_format::general, 10);
        case TagType::Double:
            return isWritten<double>(text, std::chars_format::general, 18);
        case TagType::Int8:
            return isWritten<std::int8_t>(text);
        case TagType::Int16:
            return isWritten<std::int16_t>(text);
        case TagType::Int32:
            return isWritten<std::int32_t>(text);
        case TagType::Int64:
            return isWritten<std::int64_t>(text);
        case TagType::UInt8:
            return isWritten<std::uint8_t>(text);
        case TagType::UInt16:
            return isWritten<std::uint16_t>(text);
        case TagType::UInt32:
            return isWritten<std::uint32_t>(text);
        case TagType::UInt64:
            return isWritten<std::uint64_t>(text);
        case TagType::String:
        case TagType::Unknown:
            break;
    }
    return false;
}

std::string checkString(const Tag& tag, std::string_view text) {
    const auto value = decodeString(text);
    if (!value) {
        return "not a string with its byte count";
    }
    if (tag.maxStringLength != 0 && value->size() > tag.maxStringLength) {
        return "longer than " + std::to_string(tag.maxStringLength) + " bytes";
    }
    return value->find('\r') == std::string_view::npos ? "" : "carriage return in a string";
}

}  // namespace

std::optional<std::string_view> decodeString(std::string_view text) {
    const auto comma = text.find(',');
    if (comma == std::string_view::npos) {
        return std::nullopt;
    }
    const auto value = text.substr(comma + 1);
    if (text.substr(0, comma) != std::to_string(value.size())) {
        return std::nullopt;
    }
    return value;
}

std::string checkValue(const Tag& tag, std::string_view text) {
    if (tag.tagType == TagType::String) {
        return checkString(tag, text);
    }
    if (isScalar(tag.tagType, text)) {
        return {};
    }
    std::string reason{"not a value of type "};
    reason += Tools::typeName(tag.tagType);
    return reason;
}

}  // namespace StewardSimulator
