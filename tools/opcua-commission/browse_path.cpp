// SPDX-License-Identifier: MIT
#include "opcua-commission/browse_path.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view withoutNamespace(std::string_view element) {
    const auto* const end = std::ranges::find_if_not(element, isDigit);
    const bool isQualified = end != element.begin() && end != element.end() && *end == ':';
    return isQualified ? element.substr(static_cast<std::size_t>(end - element.begin()) + 1)
                       : element;
}

}  // namespace

std::string pathElement(const UA_QualifiedName& name) {
    std::string element = name.namespaceIndex == 0 ? "" : fmt::format("{}:", name.namespaceIndex);
    for (const char c : PullappOpcUa::bytesOf(name.name)) {
        if (c == '/' || c == '&') {
            element += '&';
        }
        element += c;
    }
    return element;
}

std::vector<std::string> splitPath(std::string_view path) {
    std::vector<std::string> elements;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '/') {
            elements.emplace_back();
            continue;
        }
        if (elements.empty()) {
            elements.emplace_back();
        }
        elements.back() += path[i];
        if (path[i] == '&' && i + 1 < path.size()) {
            elements.back() += path[++i];
        }
    }
    return elements;
}

std::string withoutNamespaces(std::string_view path) {
    std::string result;
    for (const auto& element : splitPath(path)) {
        result.append("/").append(withoutNamespace(element));
    }
    return result;
}

}  // namespace OpcUaCommission
