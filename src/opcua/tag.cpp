// SPDX-License-Identifier: MIT
#include "opcua/tag.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>

namespace PullappOpcUa {
namespace {

constexpr std::size_t prefixLength = 2;

constexpr std::string_view namespacePrefix = "ns=";

bool hasIdentifierPrefix(std::string_view part) {
    return part.starts_with("i=") || part.starts_with("s=") || part.starts_with("g=");
}

/// As the format reads it: a width is the most that a field takes, blanks before a field are
/// skipped, and what follows the last is not looked at.
bool parseGuid(const char* text, Guid& guid) {
    std::array<unsigned int, 11> fields{};
    const auto data4 = fields.begin() + 3;
    // NOLINTNEXTLINE(cert-err34-c): no number of these widths is too large
    const int count = std::sscanf(text, "%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x", &fields[0],
                                  &fields[1], &fields[2], &data4[0], &data4[1], &data4[2],
                                  &data4[3], &data4[4], &data4[5], &data4[6], &data4[7]);
    guid.data1 = fields[0];
    guid.data2 = static_cast<std::uint16_t>(fields[1]);
    guid.data3 = static_cast<std::uint16_t>(fields[2]);
    std::transform(data4, fields.end(), guid.data4.begin(),
                   [](unsigned int field) { return static_cast<std::uint8_t>(field); });
    return count == static_cast<int>(fields.size());
}

}  // namespace

std::string Tag::parseAddress() {
    std::vector<std::string> parts;
    boost::algorithm::split(parts, address, boost::algorithm::is_any_of(";"));
    if (parts.size() != 2) {
        return "Invalid address: " + address;
    }
    bool namespaceFound = false;
    bool identifierFound = false;
    for (const auto& part : parts) {
        if (part.starts_with(namespacePrefix)) {
            const auto index = std::string_view{part}.substr(namespacePrefix.size());
            if (!boost::conversion::try_lexical_convert(index, namespaceIndex)) {
                return "Invalid namespace for tag: " + address;
            }
            namespaceFound = true;
            continue;
        }
        if (auto error = parseIdentifier(part); !error.empty()) {
            return error;
        }
        identifierFound = hasIdentifierPrefix(part);
    }
    if (!namespaceFound) {
        return "Invalid address, namespace index not found for tag: " + address;
    }
    if (!identifierFound) {
        return "Invalid address, identifier not found for tag: " + address;
    }
    return {};
}

std::string Tag::parseIdentifier(const std::string& part) {
    const auto value = std::string_view{part}.substr(std::min(prefixLength, part.size()));
    if (part.starts_with("i=")) {
        if (!boost::conversion::try_lexical_convert(value, numericIdentifier)) {
            return "Invalid numeric identifier for tag: " + address;
        }
        identifierType = IdentifierType::Numeric;
    } else if (part.starts_with("s=")) {
        stringIdentifier = value;
        identifierType = IdentifierType::String;
    } else if (part.starts_with("g=")) {
        identifierType = IdentifierType::Guid;
        if (!parseGuid(part.c_str() + prefixLength, guidIdentifier)) {
            return "Error parsing GUID identifier";
        }
    }
    return {};
}

}  // namespace PullappOpcUa
