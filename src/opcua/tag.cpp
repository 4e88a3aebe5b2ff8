// SPDX-License-Identifier: MIT
#include "opcua/tag.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
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

/// Takes so many hexadecimal digits from the front, and the "-" behind them where one is due.
template <typename Number>
bool takeHex(std::string_view& text, std::size_t digits, bool dash, Number& number) {
    const auto field = text.substr(0, digits);
    const auto end = field.data() + field.size();
    const auto result = std::from_chars(field.data(), end, number, 16);
    if (field.size() != digits || result.ec != std::errc{} || result.ptr != end) {
        return false;
    }
    text.remove_prefix(digits);
    if (dash && !text.starts_with('-')) {
        return false;
    }
    text.remove_prefix(dash ? 1 : 0);
    return true;
}

/// 8-4-4-4-12 hexadecimal digits; what follows them is not looked at.
bool parseGuid(std::string_view text, Guid& guid) {
    bool read = takeHex(text, 8, true, guid.data1) && takeHex(text, 4, true, guid.data2) &&
                takeHex(text, 4, true, guid.data3);
    for (std::size_t i = 0; read && i < guid.data4.size(); ++i) {
        read = takeHex(text, 2, i == 1, guid.data4[i]);
    }
    return read;
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
        if (!parseGuid(value, guidIdentifier)) {
            return "Error parsing GUID identifier";
        }
    }
    return {};
}

}  // namespace PullappOpcUa
