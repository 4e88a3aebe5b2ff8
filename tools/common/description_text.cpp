// SPDX-License-Identifier: MIT
#include "common/description_text.hpp"

#include <utility>

#include <nlohmann/json.hpp>

namespace Tools {
namespace {

using Json = nlohmann::ordered_json;

std::string listText(const Json& list) {
    std::string text = "[";
    const char* separator = "\n    ";
    for (const auto& element : list) {
        text += std::exchange(separator, ",\n    ") + element.dump();
    }
    return text + (list.empty() ? "]" : "\n  ]");
}

}  // namespace

std::string descriptionText(const Json& description) {
    std::string text = "{";
    const char* separator = "\n  ";
    for (const auto& [key, value] : description.items()) {
        text += std::exchange(separator, ",\n  ") + Json(key).dump() + ": ";
        text += key == "tags" ? listText(value) : value.dump();
    }
    return text + "\n}\n";
}

}  // namespace Tools
