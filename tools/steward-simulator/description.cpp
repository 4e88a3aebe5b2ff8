// SPDX-License-Identifier: MIT
#include "steward-simulator/description.hpp"

#include "orvik/pushinterface/info_parser.hpp"

#include <algorithm>
#include <utility>

namespace StewardSimulator {

using Orvik::PushInterface::TagType;

std::string Description::addTag(std::shared_ptr<Tag> tag) {
    positions.emplace(tag->id, tags.size());
    tags.push_back(std::move(tag));
    return {};
}

std::string joinLines(std::string_view json) {
    std::string line{json.substr(0, json.find_last_not_of(" \r\n") + 1)};
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

std::string parseDescription(std::string json, const std::shared_ptr<Description>& description) {
    description->json = std::move(json);
    return Orvik::PushInterface::InfoParser<Description, Tag>::parse(description->json,
                                                                     description);
}

std::string_view typeName(TagType type) {
    switch (type) {
        case TagType::Bool:
            return "bool";
        case TagType::String:
            return "string";
        case TagType::Float:
            return "float";
        case TagType::Double:
            return "double";
        case TagType::Int8:
            return "int8";
        case TagType::Int16:
            return "int16";
        case TagType::Int32:
            return "int32";
        case TagType::Int64:
            return "int64";
        case TagType::UInt8:
            return "uint8";
        case TagType::UInt16:
            return "uint16";
        case TagType::UInt32:
            return "uint32";
        case TagType::UInt64:
            return "uint64";
        case TagType::Unknown:
            break;
    }
    return "unknown";
}

}  // namespace StewardSimulator
