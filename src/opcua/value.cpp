// SPDX-License-Identifier: MIT
#include "opcua/value.hpp"

#include "opcua/number_text.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <iterator>

namespace PullappOpcUa {
namespace {

using Orvik::PushInterface::TagType;

struct TypeRow {
    TagType tagType;
    std::size_t variantType;  // index into the stack's type descriptions
    std::string_view description;
};

constexpr std::array<TypeRow, 12> typeRows{{
    {TagType::Bool, UA_TYPES_BOOLEAN, " type should be boolean"},
    {TagType::Int8, UA_TYPES_SBYTE, " type should be int8"},
    {TagType::UInt8, UA_TYPES_BYTE, " type should be uint8"},
    {TagType::Int16, UA_TYPES_INT16, " type should be int16"},
    {TagType::UInt16, UA_TYPES_UINT16, " type should be uint16"},
    {TagType::Int32, UA_TYPES_INT32, " type should be int32"},
    {TagType::UInt32, UA_TYPES_UINT32, " type should be uint32"},
    {TagType::Int64, UA_TYPES_INT64, " type should be int64"},
    {TagType::UInt64, UA_TYPES_UINT64, " type should be uint64"},
    {TagType::Float, UA_TYPES_FLOAT, " type should be float"},
    {TagType::Double, UA_TYPES_DOUBLE, " type should be double"},
    {TagType::String, UA_TYPES_STRING, " type should be string"},
}};

bool hasType(const UA_Variant& variant, std::size_t type) {
    return variant.type == &UA_TYPES[type];
}

/// The most characters of a value that is not a text.
constexpr std::size_t scalarSize = generalSize;

char* write(char* out, bool value) {
    *out = value ? 't' : 'f';
    return out + 1;
}

template <std::integral Integer>
char* write(char* out, Integer value) {
    return Orvik::PushInterface::writeDecimal(out, value);
}

template <std::floating_point Float>
char* write(char* out, Float value) {
    return writeGeneral(out, value, std::same_as<Float, float> ? 10 : 18);
}

template <typename T>
char* writeTyped(char* out, const UA_Variant& variant, std::size_t type) {
    if (!hasType(variant, type) || !UA_Variant_isScalar(&variant)) {
        return nullptr;
    }
    return write(out, *static_cast<const T*>(variant.data));
}

/// Writes any value but a text. @param out room for `scalarSize` characters
/// @return behind the last one; null if the value has not the tag's type
char* writeScalar(char* out, TagType type, const UA_Variant& variant) {
    switch (type) {
        case TagType::Unknown:
            *out = '?';
            return out + 1;
        case TagType::Bool:
            return writeTyped<UA_Boolean>(out, variant, UA_TYPES_BOOLEAN);
        case TagType::Int8:
            return writeTyped<UA_SByte>(out, variant, UA_TYPES_SBYTE);
        case TagType::UInt8:
            return writeTyped<UA_Byte>(out, variant, UA_TYPES_BYTE);
        case TagType::Int16:
            return writeTyped<UA_Int16>(out, variant, UA_TYPES_INT16);
        case TagType::UInt16:
            return writeTyped<UA_UInt16>(out, variant, UA_TYPES_UINT16);
        case TagType::Int32:
            return writeTyped<UA_Int32>(out, variant, UA_TYPES_INT32);
        case TagType::UInt32:
            return writeTyped<UA_UInt32>(out, variant, UA_TYPES_UINT32);
        case TagType::Int64:
            return writeTyped<UA_Int64>(out, variant, UA_TYPES_INT64);
        case TagType::UInt64:
            return writeTyped<UA_UInt64>(out, variant, UA_TYPES_UINT64);
        case TagType::Float:
            return writeTyped<UA_Float>(out, variant, UA_TYPES_FLOAT);
        case TagType::Double:
            return writeTyped<UA_Double>(out, variant, UA_TYPES_DOUBLE);
        case TagType::String:
            break;
    }
    return out;  // an unassigned number: no text
}

void appendString(std::string& text, std::string_view value, std::uint32_t maxStringLength) {
    const auto begin = static_cast<std::ptrdiff_t>(text.size());
    Orvik::PushInterface::appendStringValue(text, value, maxStringLength);
    const auto contains = [value](char c) { return value.find(c) != std::string_view::npos; };
    if (contains('\n') || contains('\r')) {
        const auto isLineBreak = [](char c) { return c == '\n' || c == '\r'; };
        std::replace_if(std::next(text.begin(), begin), text.end(), isLineBreak, ' ');
    }
}

bool appendStringScalar(std::string& text, const Tag& tag, const UA_Variant& variant) {
    if (!hasType(variant, UA_TYPES_STRING) || !UA_Variant_isScalar(&variant)) {
        return false;
    }
    const auto& value = *static_cast<const UA_String*>(variant.data);
    if (value.data == nullptr) {
        return false;
    }
    const auto bytes = bytesOf(value);
    appendString(text, bytes.substr(0, bytes.find('\0')), tag.maxStringLength);
    return true;
}

}  // namespace

std::string_view describeVariantType(const UA_Variant& variant) noexcept {
    const auto row = std::ranges::find_if(typeRows, [&](const TypeRow& candidate) {
        return hasType(variant, candidate.variantType);
    });
    return row != typeRows.end() ? row->description : " type unsupported";
}

std::string checkTagType(const Tag& tag, const UA_Variant& variant) {
    if (tag.tagType == TagType::Unknown) {
        return "unsupported tag type: " + tag.address;
    }
    const auto row = std::ranges::find(typeRows, tag.tagType, &TypeRow::tagType);
    if (row == typeRows.end() || hasType(variant, row->variantType)) {
        return {};
    }
    return wrongType(tag, variant);
}

std::string wrongType(const Tag& tag, const UA_Variant& variant) {
    return "Wrong type for tag: " + tag.address + std::string{describeVariantType(variant)};
}

bool appendLine(std::string& batch, const Tag& tag, const UA_Variant& variant) {
    std::array<char, Orvik::PushInterface::tagIdSize + scalarSize + 1>
        line;  // NOLINT: filled below
    char* end = Orvik::PushInterface::writeTagId(line.data(), tag.id);
    if (tag.tagType == TagType::String) {
        batch.append(std::string_view{line.data(), end});
        const bool fits = appendStringScalar(batch, tag, variant);
        batch += '\n';
        return fits;
    }
    end = writeScalar(end, tag.tagType, variant);
    if (end == nullptr) {
        return false;
    }
    *end++ = '\n';
    batch.append(std::string_view{line.data(), end});
    return true;
}

std::optional<std::string> formatValue(const Tag& tag, const UA_Variant& variant) {
    std::string line;
    if (!appendLine(line, tag, variant)) {
        return std::nullopt;
    }
    line.pop_back();
    return line.substr(line.find('=') + 1);
}

std::string formatString(std::string_view text, std::uint32_t maxStringLength) {
    std::string result;
    appendString(result, text, maxStringLength);
    return result;
}

}  // namespace PullappOpcUa
