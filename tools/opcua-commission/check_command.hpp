// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/subcommand.hpp"

namespace OpcUaCommission {

/// Lists all problems of a description, of the file alone and compared with the server.
[[nodiscard]] ExitStatus runCheck(int argc, char** argv);

}  // namespace OpcUaCommission
