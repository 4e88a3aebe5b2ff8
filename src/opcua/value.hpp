// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"
#include "opcua/tag.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace PullappOpcUa {

/// The OPC UA type that a tag's values must have; null for `Unknown` and unassigned numbers.
[[nodiscard]] const UA_DataType* dataTypeOf(Orvik::PushInterface::TagType type) noexcept;

/// What a value is, as the end of an error text: " type should be int16", " type unsupported".
[[nodiscard]] std::string_view describeVariantType(const UA_Variant& variant) noexcept;

/// Whether a scalar value fits the tag. @return empty, or why not
[[nodiscard]] std::string checkTagType(const Tag& tag, const UA_Variant& variant);

/// The text for a value that does not have the tag's type.
[[nodiscard]] std::string wrongType(const Tag& tag, const UA_Variant& variant);

/**
 * Appends a value as the steward receives it.
 *
 * @param variant a scalar
 * @return false, with nothing appended, if it does not have the tag's type or is a null string
 */
[[nodiscard]] bool appendValue(std::string& text, const Tag& tag, const UA_Variant& variant);

/// The same, returned as a string; nothing where `appendValue` returns false.
[[nodiscard]] std::optional<std::string> formatValue(const Tag& tag, const UA_Variant& variant);

}  // namespace PullappOpcUa
