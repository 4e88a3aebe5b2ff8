// SPDX-License-Identifier: MIT
#include "description/tag_type.hpp"

#include "description/nearest.hpp"

#include <algorithm>
#include <array>

namespace Tools {
namespace {

using Orvik::PushInterface::TagType;

struct Row {
    TagType type;
    std::string_view name;
    std::string_view keys;
};

constexpr std::array rows{
    Row{TagType::Bool, "boolean", R"("type": "bool")"},
    Row{TagType::Int8, "int8", R"("type": "int", "signed": true, "width": 8)"},
    Row{TagType::UInt8, "uint8", R"("type": "int", "signed": false, "width": 8)"},
    Row{TagType::Int16, "int16", R"("type": "int", "signed": true, "width": 16)"},
    Row{TagType::UInt16, "uint16", R"("type": "int", "signed": false, "width": 16)"},
    Row{TagType::Int32, "int32", R"("type": "int", "signed": true, "width": 32)"},
    Row{TagType::UInt32, "uint32", R"("type": "int", "signed": false, "width": 32)"},
    Row{TagType::Int64, "int64", R"("type": "int", "signed": true, "width": 64)"},
    Row{TagType::UInt64, "uint64", R"("type": "int", "signed": false, "width": 64)"},
    Row{TagType::Float, "float", R"("type": "float", "width": 32)"},
    Row{TagType::Double, "double", R"("type": "float", "width": 64)"},
    Row{TagType::String, "string", R"("type": "string")"},
};

struct OtherName {
    std::string_view name;
    TagType type;
};

constexpr std::array otherNames{
    OtherName{"sbyte", TagType::Int8},    OtherName{"byte", TagType::UInt8},
    OtherName{"word", TagType::UInt16},   OtherName{"dword", TagType::UInt32},
    OtherName{"lword", TagType::UInt64},  OtherName{"real", TagType::Float},
    OtherName{"float32", TagType::Float}, OtherName{"lreal", TagType::Double},
    OtherName{"text", TagType::String},   OtherName{"float64", TagType::Double},
};

}  // namespace

std::string_view typeName(TagType type) {
    const auto row = std::ranges::find(rows, type, &Row::type);
    return row == rows.end() ? "unknown" : row->name;
}

std::string typeKeys(TagType type) {
    const auto row = std::ranges::find(rows, type, &Row::type);
    return std::string{row == rows.end() ? "" : row->keys};
}

std::optional<TagType> typeNamed(std::string_view name) {
    const auto lower = lowerCase(name);
    if (const auto row = std::ranges::find(rows, lower, &Row::name); row != rows.end()) {
        return row->type;
    }
    const auto other = std::ranges::find(otherNames, lower, &OtherName::name);
    return other == otherNames.end() ? std::nullopt : std::optional{other->type};
}

}  // namespace Tools
