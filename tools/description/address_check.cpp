// SPDX-License-Identifier: MIT
#include "description/checks.hpp"
#include "description/nearest.hpp"
#include "opcua/tag.hpp"

#include <algorithm>
#include <string>
#include <vector>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <fmt/format.h>

namespace Tools {
namespace {

using PullappOpcUa::IdentifierType;
using PullappOpcUa::Tag;

using Parts = std::vector<std::string>;

Parts partsOf(const std::string& address) {
    Parts parts;
    boost::algorithm::split(parts, address, boost::algorithm::is_any_of(";"));
    return parts;
}

bool isAddress(const std::string& address) {
    Tag tag;
    tag.address = address;
    return tag.parseAddress().empty();
}

/// Without blanks around it, with its prefix in lower case, or with its missing prefix.
std::string repaired(std::string part) {
    boost::algorithm::trim(part);
    const auto equals = part.find('=');
    if (equals == std::string::npos) {
        const bool isNumber =
            !part.empty() && std::ranges::all_of(part, boost::algorithm::is_digit());
        return (isNumber ? "i=" : "s=") + part;
    }
    return lowerCase(part.substr(0, equals)) + part.substr(equals);
}

/// How the daemon understands an address that it accepts, if that is not what it looks like.
std::string unexpectedMeaning(const Tag& tag) {
    constexpr std::size_t guidPartSize = 2 + 36;
    if (tag.namespaceIndex > 0xffffU) {
        return fmt::format("the daemon takes namespace {} for it", tag.namespaceIndex & 0xffffU);
    }
    for (const auto& part : partsOf(tag.address)) {
        if (part.starts_with("i=-")) {
            return fmt::format("the daemon takes identifier {} for it", tag.numericIdentifier);
        }
        if (part.starts_with("g=") && part.size() > guidPartSize) {
            return "the daemon ignores what follows the GUID";
        }
    }
    if (tag.identifierType == IdentifierType::String &&
        tag.stringIdentifier.find('\0') != std::string::npos) {
        return "the daemon ends the identifier at the zero byte";
    }
    return {};
}

}  // namespace

/// Most faults of an address are faults of its form, which can be repaired.
std::string adviceForAddress(const std::string& address) {
    auto parts = partsOf(address);
    std::ranges::transform(parts, parts.begin(), repaired);
    if (parts.size() == 1) {
        parts.insert(parts.begin(), "ns=0");
    }
    if (const auto candidate = fmt::format("{}", fmt::join(parts, ";")); isAddress(candidate)) {
        return fmt::format("write \"{}\"", candidate);
    }
    const bool isText = parts.size() > 2 && address.find("s=") != std::string::npos;
    return isText ? "a string identifier that holds \";\" cannot be addressed"
                  : "write for example \"ns=2;i=1001\", \"ns=2;s=NAME\" or "
                    "\"ns=2;g=72962b91-fa75-4ae6-8d28-b404dc7daf63\"";
}

std::string unexpectedMeaningOf(const std::string& address) {
    Tag tag;
    tag.address = address;
    if (!tag.parseAddress().empty()) {
        return {};
    }
    const auto text = unexpectedMeaning(tag);
    return text.empty() ? text : address + ": " + text;
}

}  // namespace Tools
