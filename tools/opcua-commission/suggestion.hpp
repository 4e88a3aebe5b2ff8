// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/check_report.hpp"
#include "opcua-commission/services.hpp"

#include <vector>

namespace OpcUaCommission {

/// Searches the whole server for nodes that are similar to the unknown ones of a description.
/// @throws ServerError, Interrupted; the suggestions found before are kept
void suggestNodes(Connection& connection, const std::vector<TagCheck>& tags,
                  std::vector<Suggestion>& suggestions);

}  // namespace OpcUaCommission
