// SPDX-License-Identifier: MIT
#include "opcua/value.hpp"

#include "orvik/pushinterface/protocol.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <iterator>

namespace PullappOpcUa {
namespace {

using Orvik::PushInterface::TagType;

// One writer for each type. @return false, with nothing appended, if the value has no text

bool appendBoolean(std::string& text, const void* value, const Tag& /*tag*/) {
    text += *static_cast<const UA_Boolean*>(value) ? 't' : 'f';
    return true;
}

template <typename Integer>
bool appendInteger(std::string& text, const void* value, const Tag& /*tag*/) {
    Orvik::PushInterface::appendDecimal(text, *static_cast<const Integer*>(value));
    return true;
}

/// As "%.<precision>g" prints it in the C locale.
template <typename Float, int precision>
bool appendFloat(std::string& text, const void* value, const Tag& /*tag*/) {
    std::array<char, 32> digits;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    const auto* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(),
                      *static_cast<const Float*>(value), std::chars_format::general, precision)
            .ptr;
    text.append(std::string_view{digits.data(), end});
    return true;
}

/// Up to its first zero byte, with its length in front; line breaks become blanks.
bool appendString(std::string& text, const void* value, const Tag& tag) {
    const auto& string = *static_cast<const UA_String*>(value);
    if (string.data == nullptr) {
        return false;
    }
    const auto bytes = bytesOf(string);
    const auto begin = static_cast<std::ptrdiff_t>(text.size());
    Orvik::PushInterface::appendStringValue(text, bytes.substr(0, bytes.find('\0')),
                                            tag.maxStringLength);
    const auto contains = [bytes](char c) { return bytes.find(c) != std::string_view::npos; };
    if (contains('\n') || contains('\r')) {  // one search for both takes three times as long
        const auto isLineBreak = [](char c) { return c == '\n' || c == '\r'; };
        std::replace_if(std::next(text.begin(), begin), text.end(), isLineBreak, ' ');
    }
    return true;
}

struct TypeRow {
    TagType tagType;
    std::size_t variantType;  // index into the stack's type descriptions
    std::string_view description;
    bool (*append)(std::string& text, const void* value, const Tag& tag);
};

constexpr std::array<TypeRow, 12> typeRows{{
    {TagType::Bool, UA_TYPES_BOOLEAN, " type should be boolean", appendBoolean},
    {TagType::Int8, UA_TYPES_SBYTE, " type should be int8", appendInteger<UA_SByte>},
    {TagType::UInt8, UA_TYPES_BYTE, " type should be uint8", appendInteger<UA_Byte>},
    {TagType::Int16, UA_TYPES_INT16, " type should be int16", appendInteger<UA_Int16>},
    {TagType::UInt16, UA_TYPES_UINT16, " type should be uint16", appendInteger<UA_UInt16>},
    {TagType::Int32, UA_TYPES_INT32, " type should be int32", appendInteger<UA_Int32>},
    {TagType::UInt32, UA_TYPES_UINT32, " type should be uint32", appendInteger<UA_UInt32>},
    {TagType::Int64, UA_TYPES_INT64, " type should be int64", appendInteger<UA_Int64>},
    {TagType::UInt64, UA_TYPES_UINT64, " type should be uint64", appendInteger<UA_UInt64>},
    {TagType::Float, UA_TYPES_FLOAT, " type should be float", appendFloat<UA_Float, 10>},
    {TagType::Double, UA_TYPES_DOUBLE, " type should be double", appendFloat<UA_Double, 18>},
    {TagType::String, UA_TYPES_STRING, " type should be string", appendString},
}};

/// @return null for `Unknown` and unassigned numbers
const TypeRow* rowOf(TagType type) noexcept {
    const auto* const row = std::ranges::find(typeRows, type, &TypeRow::tagType);
    return row != typeRows.end() ? row : nullptr;
}

bool hasType(const UA_Variant& variant, const TypeRow& row) noexcept {
    return variant.type == &UA_TYPES[row.variantType];
}

}  // namespace

const UA_DataType* dataTypeOf(TagType type) noexcept {
    const auto* const row = rowOf(type);
    return row != nullptr ? &UA_TYPES[row->variantType] : nullptr;
}

std::string_view describeVariantType(const UA_Variant& variant) noexcept {
    const auto* const row = std::ranges::find_if(
        typeRows, [&](const TypeRow& candidate) { return hasType(variant, candidate); });
    return row != typeRows.end() ? row->description : " type unsupported";
}

std::string checkTagType(const Tag& tag, const UA_Variant& variant) {
    if (tag.tagType == TagType::Unknown) {
        return "unsupported tag type: " + tag.address;
    }
    const auto* const row = rowOf(tag.tagType);
    return row == nullptr || hasType(variant, *row) ? std::string{} : wrongType(tag, variant);
}

std::string wrongType(const Tag& tag, const UA_Variant& variant) {
    return "Wrong type for tag: " + tag.address + std::string{describeVariantType(variant)};
}

bool appendValue(std::string& text, const Tag& tag, const UA_Variant& variant) {
    if (const auto* const row = rowOf(tag.tagType)) {
        return hasType(variant, *row) && row->append(text, variant.data, tag);
    }
    if (tag.tagType == TagType::Unknown) {
        text += '?';
    }
    return true;  // an unassigned number has no text
}

std::optional<std::string> formatValue(const Tag& tag, const UA_Variant& variant) {
    std::string text;
    return appendValue(text, tag, variant) ? std::optional{std::move(text)} : std::nullopt;
}

}  // namespace PullappOpcUa
