// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace PullappOpcUa {

/// The most characters of a number with up to 18 digits: sign, point, exponent.
inline constexpr std::size_t generalSize = 32;

/// Writes a number as "%.<precision>g" does in the C locale: rounded to so many digits, exact ties
/// to even. @param out room for `generalSize` characters @param precision 10 to 18
/// @return behind the last character
char* writeGeneral(char* out, double value, int precision);

}  // namespace PullappOpcUa
