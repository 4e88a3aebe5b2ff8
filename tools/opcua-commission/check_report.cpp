// SPDX-License-Identifier: MIT
#include "opcua-commission/check_report.hpp"

#include "common/text.hpp"
#include "opcua-commission/csv.hpp"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace OpcUaCommission {
namespace {

using Json = nlohmann::ordered_json;
using Tools::Problem;
using Tools::Severity;

std::string_view severityName(const Problem& problem) {
    return problem.severity == Severity::Note ? "note" : "problem";
}

/// The line at an offset, with a mark below it; of a long line, the part around it.
std::string excerpt(std::string_view json, std::size_t offset) {
    constexpr std::size_t most = 60;  // bytes on either side
    const auto lineBegin = offset == 0 ? 0 : json.rfind('\n', offset - 1) + 1;
    const auto lineEnd = std::min(json.find('\n', offset), json.size());
    const auto begin = std::max(lineBegin, offset - std::min(offset, most));
    const auto before = Tools::fitted(json.substr(begin, offset - begin), most);
    const auto after = Tools::fitted(json.substr(offset, std::min(lineEnd - offset, most)), most);
    return fmt::format("    {}{}\n    {:>{}}\n", before, after, '^', Tools::columns(before) + 1);
}

std::string verdictText(const CheckedDescription& description) {
    return description.verdict.empty()
               ? "the daemon accepts the description"
               : fmt::format("the daemon refuses the description and ends: {}",
                             description.verdict);
}

std::string verdictOf(const TagCheck& tag) {
    if (tag.isGood()) {
        return "good";
    }
    if (tag.problems.size() == 1 && tag.rightType) {
        return tag.advice;
    }
    const auto text = fmt::format("{}", fmt::join(tag.problems, "; "));
    return tag.advice.empty() ? text : text + "; " + tag.advice;
}

void printFindings(std::FILE* output, const CheckedDescription& description) {
    for (const auto& problem : description.problems) {
        fmt::print(output, "{}", problemText(description, problem));
    }
    fmt::print(output, "{}: {}\n", description.file, verdictText(description));
}

void printConclusion(std::FILE* output, const CheckReport& report) {
    for (const auto& [tag, nodes] : report.suggestions) {
        fmt::print(
            output, "\n{}: {}\n", tag,
            nodes.empty() ? "its namespace has no variables" : "the nearest that the server has");
        for (const auto& node : nodes) {
            fmt::print(output, "    {}\n", node);
        }
    }
    fmt::print(output, "\n{}\n{}\n", publishedText(report), summaryText(*report.device));
}

void printTable(std::FILE* output, const CheckReport& report) {
    printFindings(output, report.description);
    if (report.device == nullptr) {
        return;
    }
    fmt::print(output, "\n");
    const auto table = tagTable(*report.device);
    for (const auto& line : table.draw(Tools::Table::anyWidth, Tools::Table::Styles::LeftOut)) {
        fmt::print(output, "{}\n", line);
    }
    printConclusion(output, report);
}

void printCsv(std::FILE* output, const CheckReport& report) {
    if (report.device == nullptr) {
        printCsvRow(output, {"severity", "line", "column", "tag", "key", "text", "advice"});
        for (const auto& problem : report.description.problems) {
            const auto& place = problem.place;
            printCsvRow(output, {std::string{severityName(problem)}, std::to_string(place.line),
                                 std::to_string(place.column), place.tag, place.pointer,
                                 problem.text, problem.advice});
        }
        return;
    }
    printFindings(stderr, report.description);  // the rows have only those of the tags
    printCsvRow(output,
                {"id", "address", "expected", "found", "status", "value", "problem", "advice"});
    for (const auto& tag : report.device->tags) {
        printCsvRow(output, {tag.id, tag.address, tag.expected, tag.found, tag.status, tag.value,
                             fmt::format("{}", fmt::join(tag.problems, "; ")), tag.advice});
    }
    printConclusion(stderr, report);
}

Json jsonOf(const Problem& problem) {
    return {{"severity", severityName(problem)}, {"line", problem.place.line},
            {"column", problem.place.column},    {"tag", problem.place.tag},
            {"key", problem.place.pointer},      {"text", problem.text},
            {"advice", problem.advice}};
}

Json jsonOf(const TagCheck& tag) {
    return {{"id", tag.id},         {"address", tag.address},   {"expected", tag.expected},
            {"found", tag.found},   {"status", tag.status},     {"value", tag.value},
            {"good", tag.isGood()}, {"problems", tag.problems}, {"advice", tag.advice}};
}

void printJson(std::FILE* output, const CheckReport& report) {
    Json json{{"file", report.description.file},
              {"accepted", report.description.verdict.empty()},
              {"verdict", report.description.verdict},
              {"problems", Json::array()}};
    for (const auto& problem : report.description.problems) {
        json["problems"].push_back(jsonOf(problem));
    }
    if (report.device != nullptr) {
        json["published"] = report.device->published;
        auto& tags = json["tags"] = Json::array();
        for (const auto& tag : report.device->tags) {
            tags.push_back(jsonOf(tag));
        }
        auto& suggestions = json["suggestions"] = Json::array();
        for (const auto& [tag, nodes] : report.suggestions) {
            suggestions.push_back({{"tag", tag}, {"nodes", nodes}});
        }
    }
    constexpr auto onBadUtf8 = Json::error_handler_t::replace;
    fmt::print(output, "{}\n", json.dump(2, ' ', false, onBadUtf8));
}

}  // namespace

void print(std::FILE* output, Format format, const CheckReport& report) {
    switch (format) {
        case Format::Table:
            return printTable(output, report);
        case Format::Csv:
            return printCsv(output, report);
        case Format::Json:
            return printJson(output, report);
    }
}

std::string problemText(const CheckedDescription& description, const Problem& problem) {
    const auto& place = problem.place;
    std::string text = fmt::format("{}:{}:{}: {}: ", description.file, place.line, place.column,
                                   severityName(problem));
    text += place.tag.empty() ? "" : place.tag + ": ";
    text += place.pointer.empty() ? "" : place.pointer + ": ";
    text += problem.text + "\n";
    if (description.document.syntaxError) {
        text += excerpt(description.json, place.offset);
    }
    return problem.advice.empty() ? text : text + "    " + problem.advice + "\n";
}

Tools::Table tagTable(const DeviceCheck& device) {
    using Tools::Column;
    Tools::Table table{{{.title = "ID", .align = Column::Align::Right},
                        {.title = "ADDRESS", .most = 60, .cut = Column::Cut::Middle},
                        {.title = "EXPECTED"},
                        {.title = "FOUND"},
                        {.title = "STATUS"},
                        {.title = "VALUE", .most = 40},
                        {.title = "VERDICT", .givesWay = true}}};
    for (const auto& tag : device.tags) {
        table.add(
            {tag.id, tag.address, tag.expected, tag.found, tag.status, tag.value, verdictOf(tag)},
            tag.isGood() ? Tools::Style::Plain : Tools::Style::Bad);
    }
    return table;
}

std::string publishedText(const CheckReport& report) {
    if (!report.description.verdict.empty()) {
        return "the daemon publishes nothing: it refuses the description";
    }
    const auto& text = report.device->published;
    return text.empty() ? "the daemon publishes the values, and no error"
                        : fmt::format("the daemon publishes the error \"{}\"", text);
}

std::string summaryText(const DeviceCheck& device) {
    const auto good = std::ranges::count_if(device.tags, &TagCheck::isGood);
    const auto all = static_cast<std::ptrdiff_t>(device.tags.size());
    return fmt::format("{} tags: {} good, {} with problems", all, good, all - good);
}

bool isGood(const CheckReport& report) {
    const auto& description = report.description;
    const bool hasProblem = std::ranges::any_of(description.problems, [](const Problem& problem) {
        return problem.severity == Severity::Problem;
    });
    return !hasProblem && description.verdict.empty() &&
           (report.device == nullptr ||
            (report.device->published.empty() &&
             std::ranges::all_of(report.device->tags, &TagCheck::isGood)));
}

}  // namespace OpcUaCommission
