// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace PullappOpcUa {

/// The name of an OPC UA status code, in capital letters, or "UNKNOWN_ERROR". Exact: additional
/// info bits make a code unknown, and Good has no name.
[[nodiscard]] std::string_view statusCodeName(std::uint32_t code) noexcept;

}  // namespace PullappOpcUa
