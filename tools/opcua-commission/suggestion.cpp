// SPDX-License-Identifier: MIT
#include "opcua-commission/suggestion.hpp"

#include "description/nearest.hpp"
#include "opcua-commission/address_space.hpp"
#include "opcua-commission/interrupt.hpp"
#include "opcua-commission/progress.hpp"
#include "opcua/tag.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

constexpr std::size_t mostNodes = 3;

/// A part of an address, such as that after "ns=".
std::string_view partOf(std::string_view address, std::string_view prefix) {
    while (!address.empty()) {
        const auto part = address.substr(0, address.find(';'));
        if (part.starts_with(prefix)) {
            return part.substr(prefix.size());
        }
        address.remove_prefix(std::min(part.size() + 1, address.size()));
    }
    return {};
}

/// The identifier without its kind: "s=5" may stand for "i=5".
std::string identifierOf(std::string_view address) {
    for (const std::string_view prefix : {"s=", "i=", "g="}) {
        if (const auto part = partOf(address, prefix); !part.empty()) {
            return Tools::lowerCase(part);
        }
    }
    return {};
}

std::string lastName(std::string_view path) {
    const auto name = path.substr(path.rfind('/') + 1);
    return Tools::lowerCase(name.substr(name.find(':') + 1));
}

/// What an address is compared with.
struct Candidate {
    const Variable* variable;
    std::string_view namespaceIndex;
    std::string identifier;
    std::string name;
};

std::vector<Candidate> candidatesOf(const std::vector<Variable>& variables) {
    std::vector<Candidate> candidates;
    candidates.reserve(variables.size());
    for (const auto& variable : variables) {
        candidates.push_back({&variable, partOf(variable.address, "ns="),
                              identifierOf(variable.address), lastName(variable.path)});
    }
    return candidates;
}

/// How far a variable is from an address: by identifier or by its name, whichever is closer.
std::size_t distance(const std::string& identifier, const Candidate& candidate) {
    return std::min(Tools::editDistance(identifier, candidate.identifier),
                    Tools::editDistance(identifier, candidate.name) + 1);
}

/// @throws Interrupted, since comparing thousands of addresses takes a while
std::vector<std::string> likeliest(const std::string& address,
                                   const std::vector<Candidate>& candidates) {
    if (isInterrupted()) {
        throw Interrupted{};
    }
    const auto identifier = identifierOf(address);
    std::vector<std::pair<std::size_t, const Variable*>> ranked;
    for (const auto& candidate : candidates) {
        if (candidate.namespaceIndex == partOf(address, "ns=")) {
            ranked.emplace_back(distance(identifier, candidate), candidate.variable);
        }
    }
    const auto count = std::min(mostNodes, ranked.size());
    std::ranges::partial_sort(ranked, ranked.begin() + static_cast<std::ptrdiff_t>(count));
    std::vector<std::string> nodes;
    for (std::size_t i = 0; i < count; ++i) {
        const auto& variable = *ranked[i].second;
        nodes.push_back(fmt::format("{}  {}  {}", variable.address, variable.path, variable.type));
    }
    return nodes;
}

}  // namespace

void suggestNodes(Connection& connection, const std::vector<TagCheck>& tags,
                  std::vector<Suggestion>& suggestions) {
    if (std::ranges::none_of(tags, &TagCheck::isUnknown)) {
        return;
    }
    BrowseSettings settings;
    settings.isAll = std::ranges::any_of(tags, [](const TagCheck& tag) {
        return tag.isUnknown && partOf(tag.address, "ns=") == "0";
    });
    BrowseResult result;
    Progress progress;
    Services services{connection};
    browse(services, settings, progress, result);
    const auto candidates = candidatesOf(result.variables);
    for (const auto& tag : tags) {
        if (tag.isUnknown) {
            suggestions.push_back({tag.name, likeliest(tag.address, candidates)});
        }
    }
}

}  // namespace OpcUaCommission
