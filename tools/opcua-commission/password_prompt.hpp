// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace OpcUaCommission {

/// Asks for a password on the terminal of the process, without echo.
/// @throws Tools::UsageError if there is no terminal; Interrupted
[[nodiscard]] std::string promptForPassword(const std::string& username);

}  // namespace OpcUaCommission
