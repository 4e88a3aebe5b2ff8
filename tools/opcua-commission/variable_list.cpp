// SPDX-License-Identifier: MIT
#include "opcua-commission/variable_list.hpp"

#include "common/table.hpp"
#include "opcua-commission/csv.hpp"

#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace OpcUaCommission {
namespace {

using Row = std::vector<std::string>;

Row rowOf(const Variable& variable) {
    return {variable.path,  variable.address, variable.type, variable.isReadable ? "yes" : "no",
            variable.value, variable.obstacle};
}

void printJson(std::FILE* output, const std::vector<Variable>& variables) {
    const char* separator = "\n";
    fmt::print(output, "[");
    for (const auto& variable : variables) {
        nlohmann::ordered_json json{{"path", variable.path}, {"address", variable.address}};
        if (variable.tagType == TagType::Unknown) {
            json["opcUaType"] = variable.type;
        } else {
            json.update(typeKeys(variable.tagType));
        }
        json["readable"] = variable.isReadable;
        if (variable.isPullable()) {
            json["value"] = variable.value;
        } else {
            json["obstacle"] = variable.obstacle;
        }
        constexpr auto onBadUtf8 = nlohmann::ordered_json::error_handler_t::replace;
        fmt::print(output, "{}  {}", separator, json.dump(-1, ' ', false, onBadUtf8));
        separator = ",\n";
    }
    fmt::print(output, "\n]\n");
}

void printTable(std::FILE* output, const std::vector<Variable>& variables) {
    using Cut = Tools::Column::Cut;
    Tools::Table table{{{.title = "PATH", .most = 60, .cut = Cut::Middle},
                        {.title = "ADDRESS", .most = 60, .cut = Cut::Middle},
                        {.title = "TYPE"},
                        {.title = "READABLE"},
                        {.title = "VALUE", .most = 40},
                        {.title = "CANNOT BE PULLED"}}};
    for (const auto& variable : variables) {
        table.add(rowOf(variable));
    }
    for (const auto& line : table.draw(Tools::Table::anyWidth, Tools::Table::Styles::LeftOut)) {
        fmt::print(output, "{}\n", line);
    }
}

void printCsv(std::FILE* output, const std::vector<Variable>& variables) {
    printCsvRow(output, {"path", "address", "type", "readable", "value", "obstacle"});
    for (const auto& variable : variables) {
        printCsvRow(output, rowOf(variable));
    }
}

}  // namespace

void print(std::FILE* output, Format format, const std::vector<Variable>& variables) {
    switch (format) {
        case Format::Table:
            return printTable(output, variables);
        case Format::Csv:
            return printCsv(output, variables);
        case Format::Json:
            return printJson(output, variables);
    }
}

}  // namespace OpcUaCommission
