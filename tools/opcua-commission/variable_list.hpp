// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/server_options.hpp"
#include "opcua-commission/variable.hpp"

#include <cstdio>
#include <vector>

namespace OpcUaCommission {

/// Prints variables: as a table, as CSV with a header, or as a JSON array with one object per
/// line.
void print(std::FILE* output, Format format, const std::vector<Variable>& variables);

}  // namespace OpcUaCommission
