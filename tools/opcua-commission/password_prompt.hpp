// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace OpcUaCommission {

/// Asks the terminal of the process for a password, which does not appear there.
/// @throws Tools::UsageError if there is no terminal; Interrupted
[[nodiscard]] std::string promptForPassword(const std::string& username);

}  // namespace OpcUaCommission
