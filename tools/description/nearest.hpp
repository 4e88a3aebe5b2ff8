// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Tools {

/// Number of letters to insert, remove, replace or swap with a neighbour to turn one text into the
/// other.
[[nodiscard]] std::size_t editDistance(std::string_view left, std::string_view right);

/// ASCII letters in lower case.
[[nodiscard]] std::string lowerCase(std::string_view text);

/**
 * The known word that was most likely meant: the same in another case, a prefix of it, or one that
 * is a few letters away.
 *
 * @return nothing if no word is close enough to be worth suggesting
 */
[[nodiscard]] std::optional<std::string_view> nearest(std::string_view word,
                                                      std::span<const std::string_view> known);

}  // namespace Tools
