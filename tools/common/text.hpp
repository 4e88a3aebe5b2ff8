// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Tools {

/// Bytes as printable ASCII: all others, and the backslash, as \xHH. After @p limit bytes comes
/// the total number.
[[nodiscard]] std::string escaped(std::string_view bytes, std::size_t limit);

/// Columns that a text needs on a terminal; one for each byte that is not printable UTF-8.
[[nodiscard]] std::size_t columns(std::string_view text);

/// A text for one line of a terminal: what is not printable UTF-8 becomes dots, and what is wider
/// than @p width columns is cut at the end.
[[nodiscard]] std::string fitted(std::string_view text, std::size_t width);

/// The same, but cut in the middle, with "…" in its place.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t width);

/// A fitted text, filled up with blanks to exactly @p width columns.
[[nodiscard]] std::string padded(std::string_view text, std::size_t width);

}  // namespace Tools
