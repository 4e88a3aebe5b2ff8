// SPDX-License-Identifier: MIT
#pragma once

#include "description/problem_list.hpp"

#include <map>
#include <string_view>
#include <vector>

namespace Tools {

/// What an object of the description may hold.
struct Keys {
    std::vector<std::string_view> read;     ///< by the daemon, in this object
    std::vector<std::string_view> ignored;  ///< known, but not read here
};

/// For a known key that is missing, the member that was most likely meant.
using Misspelt = std::map<std::string_view, const Member*>;

/// Reports keys that occur twice and keys that the daemon does not read, and finds misspelt ones.
[[nodiscard]] Misspelt checkKeys(ProblemList& list, const Scope& scope, const Keys& keys);

}  // namespace Tools
