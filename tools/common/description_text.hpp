// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace Tools {

/// A device description as readable text: one key or tag per line, in the original order.
/// @throws std::exception if a text in it is not UTF-8
[[nodiscard]] std::string descriptionText(const nlohmann::ordered_json& description);

}  // namespace Tools
