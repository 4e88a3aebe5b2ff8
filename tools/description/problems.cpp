// SPDX-License-Identifier: MIT
#include "description/problems.hpp"

#include "description/checks.hpp"
#include "description/document.hpp"
#include "description/problem_list.hpp"
#include "opcua/device.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace Tools {
namespace {

/// What is most likely wrong where the reader meets something unexpected.
std::string syntaxAdvice(std::string_view text) {
    const auto contains = [text](std::string_view part) {
        return text.find(part) != std::string_view::npos;
    };
    if (contains("unexpected end of input") || contains("empty input")) {
        return "close every quote, bracket and brace";
    }
    if (contains("unexpected '}'") || contains("unexpected ']'")) {
        return "remove the comma before it, or add what is missing";
    }
    if (contains("; expected '}'") || contains("; expected ']'")) {
        return "add a comma before it";
    }
    return {};
}

}  // namespace

std::vector<Problem> findProblems(const Document& description) {
    ProblemList list{description.json};
    if (const auto& error = description.syntaxError) {
        list.add({.place = {.offset = error->offset},
                  .text = error->text,
                  .advice = syntaxAdvice(error->text)});
        return std::move(list).finish();
    }
    const auto verdict = daemonVerdict(description.json, std::make_shared<PullappOpcUa::Device>());
    checkDevice(list, description);
    checkTags(list, description, verdict.empty());
    if (!verdict.empty() && !list.hasProblems()) {
        list.add({.place = {.offset = description.device.range.begin}, .text = verdict});
    }
    return std::move(list).finish();
}

std::vector<Problem> findProblems(std::string_view json) {
    return findProblems(readDocument(json));
}

std::string oneLine(const Problem& problem) {
    const auto& place = problem.place;
    std::string line = fmt::format("{}:{}", place.line, place.column);
    for (const auto& part : {place.tag, place.pointer}) {
        line += part.empty() ? "" : ", " + part;
    }
    line += ": " + problem.text;
    return problem.advice.empty() ? line : line + "; " + problem.advice;
}

std::string daemonVerdict(std::string_view json,
                          const std::shared_ptr<PullappOpcUa::Device>& device) {
    // The steward sends a description on one line
    std::string line{json};
    std::ranges::replace(line, '\n', ' ');
    using Parser = Orvik::PushInterface::InfoParser<PullappOpcUa::Device, PullappOpcUa::Tag>;
    return Parser::parse(line, device);
}

}  // namespace Tools
