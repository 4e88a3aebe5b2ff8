// SPDX-License-Identifier: MIT
#include "description/problem_list.hpp"

#include "description/nearest.hpp"

#include <algorithm>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace Tools {
namespace {

Place placeOf(const Scope& scope, const Member* member) {
    const auto pointer = member == nullptr ? scope.pointer : scope.pointer / member->key;
    // Points at a key that is wrong or occurs twice, not at its value
    const auto offset = member == nullptr ? scope.object.range.begin : member->keyRange.begin;
    return {.offset = offset,
            .pointer = pointer.to_string(),
            .tag = scope.tag,
            .tagIndex = scope.tagIndex};
}

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

/// Fills in lines and columns. The problems must be sorted.
void locate(std::vector<Problem>& problems, std::string_view json) {
    std::size_t at = json.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    std::size_t line = 1;
    std::size_t column = 1;
    for (auto& problem : problems) {
        for (; at < std::min(problem.place.offset, json.size()); ++at) {
            const bool isLineEnd = json[at] == '\n';
            line += isLineEnd ? 1 : 0;
            column = isLineEnd ? 1 : column + (continuesCharacter(json[at]) ? 0 : 1);
        }
        problem.place.line = line;
        problem.place.column = column;
    }
}

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
            list.note(scope, &member, fmt::format("\"{}\" stands twice", member.key));
        } else {
            list.add(scope, &member,
                     fmt::format("\"{}\" stands twice, and this one is ignored", member.key),
                     "remove one of them");
        }
    }
}

}  // namespace

void ProblemList::add(const Scope& scope, const Member* member, std::string text,
                      std::string advice) {
    problems_.push_back({.severity = Severity::Problem,
                         .place = placeOf(scope, member),
                         .text = std::move(text),
                         .advice = std::move(advice)});
}

void ProblemList::note(const Scope& scope, const Member* member, const std::string& text) {
    auto& note = notes_[text];
    if (note.count++ == 0) {
        note.place = placeOf(scope, member);
    }
}

bool ProblemList::hasProblems() const {
    return !problems_.empty();
}

std::vector<Problem> ProblemList::finish() && {
    for (const auto& [text, note] : notes_) {
        const auto times = note.count > 1 ? fmt::format(" ({} times)", note.count) : "";
        problems_.push_back(
            {.severity = Severity::Note, .place = note.place, .text = text + times, .advice = {}});
    }
    std::ranges::stable_sort(problems_, {},
                             [](const Problem& problem) { return problem.place.offset; });
    locate(problems_, json_);
    return std::move(problems_);
}

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
