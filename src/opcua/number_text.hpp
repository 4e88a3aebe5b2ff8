// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace PullappOpcUa {

/// Appends a number as "%.<precision>g" does in the C locale: rounded to so many digits, exact ties
/// to even. @param precision 10 to 18
void appendGeneral(std::string& text, double value, int precision);

}  // namespace PullappOpcUa
