// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace StewardSimulator {

/// Bytes as printable ASCII: anything else, and the backslash, as \xHH; cut behind @p limit bytes.
[[nodiscard]] std::string escaped(std::string_view bytes, std::size_t limit);

/**
 * A text for one line of a terminal: control characters become dots, and what is wider than
 * @p width columns is cut. UTF-8 passes, with one column per code point.
 */
[[nodiscard]] std::string fitted(std::string_view text, std::size_t width);

/// The same, filled up with blanks to exactly @p width columns.
[[nodiscard]] std::string padded(std::string_view text, std::size_t width);

}  // namespace StewardSimulator
