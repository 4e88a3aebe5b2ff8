// SPDX-License-Identifier: MIT
#include "description/key_check.hpp"

#include "description/nearest.hpp"

#include <algorithm>
#include <iterator>
#include <optional>

#include <fmt/format.h>

namespace Tools {
namespace {

bool contains(const std::vector<std::string_view>& keys, std::string_view key) {
    return std::ranges::find(keys, key) != keys.end();
}

void checkRepetitions(ProblemList& list, const Scope& scope) {
    std::map<std::string_view, const Member*> first;
    for (const auto& member : scope.object.members) {
        const auto [known, isNew] = first.try_emplace(member.key, &member);
        if (isNew || !scope.object.isObject) {
            continue;
        }
        if (member.text == known->second->text && !member.isNested) {
            list.note(scope, &member, fmt::format("\"{}\" occurs twice", member.key));
        } else {
            list.add(scope, &member,
                     fmt::format("\"{}\" occurs twice, and this one is ignored", member.key),
                     "remove one of them");
        }
    }
}

}  // namespace

Misspelt checkKeys(ProblemList& list, const Scope& scope, const Keys& keys) {
    checkRepetitions(list, scope);
    std::vector<std::string_view> missing;
    std::ranges::copy_if(keys.read, std::back_inserter(missing),
                         [&](auto key) { return scope.object.find(key) == nullptr; });
    Misspelt misspelt;
    for (const auto& member : scope.object.members) {
        if (contains(keys.read, member.key)) {
            continue;
        }
        const bool isOther = contains(keys.ignored, member.key);
        const auto meant = isOther ? std::nullopt : nearest(member.key, missing);
        if (!meant || !misspelt.try_emplace(*meant, &member).second) {
            list.note(scope, &member, fmt::format("\"{}\" is ignored", member.key));
        }
    }
    return misspelt;
}

}  // namespace Tools
