// SPDX-License-Identifier: MIT
#include "opcua-commission/csv.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <fmt/format.h>

namespace OpcUaCommission {

void printCsvRow(std::FILE* output, const std::vector<std::string>& cells) {
    const char* separator = "";
    for (auto cell : cells) {
        if (cell.find_first_of(",\"\r\n") != std::string::npos) {
            boost::algorithm::replace_all(cell, "\"", "\"\"");
            cell.insert(cell.begin(), '"');
            cell += '"';
        }
        fmt::print(output, "{}{}", separator, cell);
        separator = ",";
    }
    fmt::print(output, "\n");
}

}  // namespace OpcUaCommission
