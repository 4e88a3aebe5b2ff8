// SPDX-License-Identifier: MIT
#include "description/problem_list.hpp"

#include <algorithm>
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

}  // namespace Tools
