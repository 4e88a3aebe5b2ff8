// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace OpcUaCommission {

/// Prints a row of CSV: cells with a comma, a quotation mark or a line break are enclosed in
/// quotation marks.
void printCsvRow(std::FILE* output, const std::vector<std::string>& cells);

}  // namespace OpcUaCommission
