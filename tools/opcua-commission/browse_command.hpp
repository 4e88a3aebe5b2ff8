// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/subcommand.hpp"

namespace OpcUaCommission {

/// Lists the variables of a server, and writes or updates the description of a device with them.
[[nodiscard]] ExitStatus runBrowse(int argc, char** argv);

}  // namespace OpcUaCommission
