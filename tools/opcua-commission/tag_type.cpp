// SPDX-License-Identifier: MIT
#include "opcua-commission/tag_type.hpp"

#include "description/tag_type.hpp"
#include "opcua/tag.hpp"
#include "opcua/value.hpp"

#include <array>
#include <iterator>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

// In the order of the stack's type kinds
constexpr std::array<std::string_view, 25> builtInNames{
    "Boolean",       "SByte",     "Byte",           "Int16",      "UInt16",
    "Int32",         "UInt32",    "Int64",          "UInt64",     "Float",
    "Double",        "String",    "DateTime",       "Guid",       "ByteString",
    "XmlElement",    "NodeId",    "ExpandedNodeId", "StatusCode", "QualifiedName",
    "LocalizedText", "structure", "DataValue",      "Variant",    "DiagnosticInfo",
};

constexpr auto lastTagType = static_cast<unsigned>(TagType::UInt64);

}  // namespace

TagType tagTypeFor(const UA_DataType* type) {
    UA_Variant variant;
    UA_Variant_init(&variant);
    variant.type = type;
    PullappOpcUa::Tag tag;
    for (unsigned number = 1; number <= lastTagType; ++number) {
        tag.tagType = static_cast<TagType>(number);
        const bool isAssigned = !Tools::typeKeys(tag.tagType).empty();
        if (isAssigned && PullappOpcUa::checkTagType(tag, variant).empty()) {
            return tag.tagType;
        }
    }
    return TagType::Unknown;
}

std::string typeText(TagType type) {
    const auto keys = typeKeys(type);
    auto text = keys.value("type", "");
    if (keys.contains("signed")) {
        text += keys["signed"] ? ", signed" : ", unsigned";
    }
    return keys.contains("width") ? fmt::format("{}, {}", text, keys["width"].get<int>()) : text;
}

nlohmann::ordered_json typeKeys(TagType type) {
    return nlohmann::ordered_json::parse("{" + Tools::typeKeys(type) + "}");
}

std::string_view typeName(const UA_DataType& type) {
    return type.typeKind < std::size(builtInNames) ? builtInNames[type.typeKind] : "structure";
}

}  // namespace OpcUaCommission
