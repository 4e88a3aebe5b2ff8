// SPDX-License-Identifier: MIT
#include "description/object_check.hpp"

#include "common/text.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace Tools {

ObjectCheck::ObjectCheck(ProblemList& list, const Document& description, Scope scope,
                         const Keys& keys)
    : list_{list},
      description_{description},
      scope_{std::move(scope)},
      misspelt_{checkKeys(list, scope_, keys)} {}

std::string ObjectCheck::writeInstead(std::string_view key, const Member& member) const {
    return fmt::format("write \"{}\" instead of {}", key, member.keyRange.of(description_.json));
}

std::string ObjectCheck::describe(const Member& member) const {
    return fmt::format("\"{}\": {}", member.key, shortened(member.range.of(description_.json), 40));
}

void ObjectCheck::repair(std::string_view key, std::string_view value) {
    repairs_.insert(repairs_.begin(), fmt::format("\"{}\":{}", key, value));
}

const Member* ObjectCheck::member(std::string_view key) const {
    const auto meant = misspelt_.find(key);
    return meant == misspelt_.end() ? scope_.object.find(key) : meant->second;
}

void ObjectCheck::reportUnreadable(const KeyForm& form, const std::string& text) {
    const auto* there = member(form.key);
    const auto* written = scope_.object.find(form.key);
    const bool isRepaired = std::ranges::any_of(repairs_, [&](const std::string& repair) {
        return repair.starts_with(fmt::format("\"{}\":", form.key));
    });
    if (there != nullptr && written == nullptr && !isRepaired) {
        list_.add(scope_, there, text, writeInstead(form.key, *there));
        repair(form.key, there->range.of(description_.json));
        return;
    }
    list_.add(scope_, there, text, (there == nullptr ? "add " : "write ") + std::string{form.form});
    repair(form.key, form.value);
}

bool ObjectCheck::reportMisspelt(std::string_view key, const std::string& consequence) {
    const auto meant = misspelt_.find(key);
    if (meant == misspelt_.end()) {
        return false;
    }
    const auto& member = *meant->second;
    list_.add(scope_, &member, fmt::format("\"{}\" is ignored, so {}", member.key, consequence),
              writeInstead(key, member));
    return true;
}

std::string ObjectCheck::repaired(const std::vector<std::string_view>& leftOut) const {
    auto members = repairs_;
    for (const auto& member : scope_.object.members) {
        if (std::ranges::find(leftOut, std::string_view{member.key}) == leftOut.end()) {
            const Range whole{member.keyRange.begin, member.range.end};
            members.emplace_back(whole.of(description_.json));
        }
    }
    return fmt::format("{{{}}}", fmt::join(members, ","));
}

}  // namespace Tools
