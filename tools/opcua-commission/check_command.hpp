// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/subcommand.hpp"

namespace OpcUaCommission {

/// Tells every problem of a description, by itself and beside the server.
[[nodiscard]] ExitStatus runCheck(int argc, char** argv);

}  // namespace OpcUaCommission
