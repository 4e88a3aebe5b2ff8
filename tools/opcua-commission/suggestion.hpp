// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/check_report.hpp"
#include "opcua-commission/services.hpp"

#include <vector>

namespace OpcUaCommission {

/// Looks for nodes that are like the unknown ones of a description, all over the server.
/// @throws ServerError, Interrupted: the suggestions that were found before stay
void suggestNodes(Connection& connection, const std::vector<TagCheck>& tags,
                  std::vector<Suggestion>& suggestions);

}  // namespace OpcUaCommission
