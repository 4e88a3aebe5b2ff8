// SPDX-License-Identifier: MIT
#pragma once

#include "description/problem_list.hpp"

#include <string>

/// The checks that `findProblems` consists of.
namespace Tools {

/// Problems of the device and its options.
void checkDevice(ProblemList& list, const Document& description);

/// Problems of the tags. @param isAccepted whether the daemon accepts them all
void checkTags(ProblemList& list, const Document& description, bool isAccepted);

/// What to write instead of an address that the daemon does not accept.
[[nodiscard]] std::string adviceForAddress(const std::string& address);

/// How the daemon understands an address that it accepts, if that is not what it looks like.
/// @return empty if there is nothing to say
[[nodiscard]] std::string unexpectedMeaningOf(const std::string& address);

}  // namespace Tools
