// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"
#include "orvik/pushinterface/tag.hpp"

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace OpcUaCommission {

using Orvik::PushInterface::TagType;

/// The type of a tag for a scalar of a type of the stack; Unknown if no tag has it.
[[nodiscard]] TagType tagTypeFor(const UA_DataType* type);

/// "int, signed, 32", "float, 64", "bool", "string".
[[nodiscard]] std::string typeText(TagType type);

/// The keys of a description: "type", and "signed" and "width" where the type has them.
[[nodiscard]] nlohmann::ordered_json typeKeys(TagType type);

/// The name of a built-in type, "structure" for all others.
[[nodiscard]] std::string_view typeName(const UA_DataType& type);

}  // namespace OpcUaCommission
