// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/tag.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace Tools {

/// Name of a tag type, as the daemon's texts have it: "uint32", "double".
[[nodiscard]] std::string_view typeName(Orvik::PushInterface::TagType type);

/// The keys of a tag of this type in a description: `"type": "int", "signed": false, "width": 32`.
[[nodiscard]] std::string typeKeys(Orvik::PushInterface::TagType type);

/// The type that a name means elsewhere, for example in a PLC program: "UINT32", "LREAL".
[[nodiscard]] std::optional<Orvik::PushInterface::TagType> typeNamed(std::string_view name);

}  // namespace Tools
