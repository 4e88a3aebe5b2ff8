// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/progress.hpp"
#include "opcua-commission/services.hpp"
#include "opcua-commission/variable.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace OpcUaCommission {

/// Which part of an address space, and which of its variables.
struct BrowseSettings {
    std::string root;                  ///< an address, or "/Path/Of/Names"; empty: Objects folder
    std::vector<std::string> match;    ///< globs of browse paths; empty: all
    std::vector<std::string> exclude;  ///< the same; overrides `match`
    std::optional<std::size_t> depth;  ///< levels below the root; none: all
    bool isAll = false;                ///< also namespace 0
};

/// What has been found, also if the search was cut short.
struct BrowseResult {
    std::vector<Variable> variables;   ///< breadth first, each once
    std::size_t nodes = 0;             ///< that were seen
    std::vector<std::string> refused;  ///< nodes that could not be browsed, and why
};

/**
 * Follows the hierarchical references, and reads the variables that are wanted.
 *
 * @param result empty; filled as the search goes on, complete when this returns
 * @throws ServerError, Interrupted; the result has what was found before
 * @throws Tools::UsageError if there is no such root
 */
void browse(Services& services, const BrowseSettings& settings, Progress& progress,
            BrowseResult& result);

/// Whether a variable of that path passes the globs of the settings. They are tried with the
/// namespaces of its names ("/2:Line/2:Speed") and without ("/Line/Speed").
[[nodiscard]] bool isWanted(const BrowseSettings& settings, const std::string& path);

}  // namespace OpcUaCommission
