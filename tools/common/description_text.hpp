// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace Tools {

/// A device description as a text for people: one key a line, one tag a line, the order kept.
/// @throws std::exception if a text in it is no UTF-8
[[nodiscard]] std::string descriptionText(const nlohmann::ordered_json& description);

}  // namespace Tools
