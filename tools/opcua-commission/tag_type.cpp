// SPDX-License-Identifier: MIT
#include "opcua-commission/tag_type.hpp"

#include "opcua/tag.hpp"
#include "opcua/value.hpp"

#include <algorithm>
#include <array>
#include <iterator>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

struct Row {
    TagType tagType;
    const char* type;
    bool isSigned;
    unsigned width;  // 0 for none
};

constexpr std::array<Row, 12> rows{{
    {TagType::Bool, "bool", false, 0},
    {TagType::String, "string", false, 0},
    {TagType::Float, "float", false, 32},
    {TagType::Double, "float", false, 64},
    {TagType::Int8, "int", true, 8},
    {TagType::Int16, "int", true, 16},
    {TagType::Int32, "int", true, 32},
    {TagType::Int64, "int", true, 64},
    {TagType::UInt8, "int", false, 8},
    {TagType::UInt16, "int", false, 16},
    {TagType::UInt32, "int", false, 32},
    {TagType::UInt64, "int", false, 64},
}};

bool isInteger(const Row& row) {
    return row.type == std::string_view{"int"};
}

const Row* rowOf(TagType type) {
    const auto* row = std::ranges::find(rows, type, &Row::tagType);
    return row != rows.end() ? row : nullptr;
}

// In the order of the stack's kinds
constexpr std::array<std::string_view, 25> builtInNames{
    "Boolean",       "SByte",     "Byte",           "Int16",      "UInt16",
    "Int32",         "UInt32",    "Int64",          "UInt64",     "Float",
    "Double",        "String",    "DateTime",       "Guid",       "ByteString",
    "XmlElement",    "NodeId",    "ExpandedNodeId", "StatusCode", "QualifiedName",
    "LocalizedText", "structure", "DataValue",      "Variant",    "DiagnosticInfo",
};

}  // namespace

TagType tagTypeFor(const UA_DataType* type) {
    UA_Variant variant;
    UA_Variant_init(&variant);
    variant.type = type;
    PullappOpcUa::Tag tag;
    const auto* row = std::ranges::find_if(rows, [&](const Row& candidate) {
        tag.tagType = candidate.tagType;
        return PullappOpcUa::checkTagType(tag, variant).empty();
    });
    return row != rows.end() ? row->tagType : TagType::Unknown;
}

std::string typeText(TagType type) {
    const auto* row = rowOf(type);
    if (row == nullptr) {
        return {};
    }
    const char* const sign = isInteger(*row) ? row->isSigned ? ", signed" : ", unsigned" : "";
    return row->width == 0 ? row->type : fmt::format("{}{}, {}", row->type, sign, row->width);
}

nlohmann::ordered_json typeKeys(TagType type) {
    nlohmann::ordered_json keys;
    if (const auto* row = rowOf(type)) {
        keys["type"] = row->type;
        if (isInteger(*row)) {
            keys["signed"] = row->isSigned;
        }
        if (row->width != 0) {
            keys["width"] = row->width;
        }
    }
    return keys;
}

std::string_view typeName(const UA_DataType& type) {
    return type.typeKind < std::size(builtInNames) ? builtInNames[type.typeKind] : "structure";
}

}  // namespace OpcUaCommission
