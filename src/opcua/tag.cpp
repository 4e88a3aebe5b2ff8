// SPDX-License-Identifier: MIT
#include "opcua/tag.hpp"

#include <cstdio>
#include <vector>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>

namespace PullappOpcUa {
namespace {

/// Lenient, like sscanf: shorter fields, leading blanks and trailing text are accepted.
bool parseGuid(const char* text, UA_Guid& guid) {
    auto& last = guid.data4;
    // NOLINTNEXTLINE(cert-err34-c): no number of these widths is too large
    return std::sscanf(text, "%8x-%4hx-%4hx-%2hhx%2hhx-%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx", &guid.data1,
                       &guid.data2, &guid.data3, &last[0], &last[1], &last[2], &last[3], &last[4],
                       &last[5], &last[6], &last[7]) == 11;
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
        if (part.starts_with("ns=")) {
            if (!boost::conversion::try_lexical_convert(part.substr(3), namespaceIndex)) {
                return "Invalid namespace for tag: " + address;
            }
            namespaceFound = true;
        } else if (auto error = parseIdentifier(part, identifierFound); !error.empty()) {
            return error;
        }
    }
    if (!namespaceFound) {
        return "Invalid address, namespace index not found for tag: " + address;
    }
    if (!identifierFound) {
        return "Invalid address, identifier not found for tag: " + address;
    }
    return {};
}

std::string Tag::parseIdentifier(const std::string& part, bool& found) {
    found = true;
    if (part.starts_with("i=")) {
        identifierType = IdentifierType::Numeric;
        if (!boost::conversion::try_lexical_convert(part.substr(2), numericIdentifier)) {
            return "Invalid numeric identifier for tag: " + address;
        }
    } else if (part.starts_with("s=")) {
        identifierType = IdentifierType::String;
        stringIdentifier = part.substr(2);
    } else if (part.starts_with("g=")) {
        identifierType = IdentifierType::Guid;
        if (!parseGuid(part.c_str() + 2, guidIdentifier)) {
            return "Error parsing GUID identifier";
        }
    } else {
        found = false;
    }
    return {};
}

}  // namespace PullappOpcUa
