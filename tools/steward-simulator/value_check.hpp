// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/description.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace StewardSimulator {

/// The bytes of "<count>,<bytes>"; nothing unless the count is exact and without leading zeros.
[[nodiscard]] std::optional<std::string_view> decodeString(std::string_view text);

/// @return empty if the text is exactly how a value of the tag's type is written, otherwise why not
[[nodiscard]] std::string checkValue(const Tag& tag, std::string_view text);

}  // namespace StewardSimulator
