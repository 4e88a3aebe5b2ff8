// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"
#include "opcua/tag.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace PullappOpcUa {

/// What a value is, as the end of an error text: " type should be int16", " type unsupported".
[[nodiscard]] std::string_view describeVariantType(const UA_Variant& variant) noexcept;

/// Whether a scalar value fits the tag. @return empty, or why not
[[nodiscard]] std::string checkTagType(const Tag& tag, const UA_Variant& variant);

/// The text for a value that does not have the tag's type.
[[nodiscard]] std::string wrongType(const Tag& tag, const UA_Variant& variant);

/**
 * Appends the line of a value batch for a tag: its id, "=", a scalar value as text, a line feed.
 *
 * @return false if the value has not the tag's type or is a null string; something may have been
 * appended then
 */
[[nodiscard]] bool appendLine(std::string& batch, const Tag& tag, const UA_Variant& variant);

/// The text of the value alone; nothing if it cannot be had.
[[nodiscard]] std::optional<std::string> formatValue(const Tag& tag, const UA_Variant& variant);

/// A text with its length in front, cut to the limit (0 for none), line breaks become blanks.
[[nodiscard]] std::string formatString(std::string_view text, std::uint32_t maxStringLength);

}  // namespace PullappOpcUa
