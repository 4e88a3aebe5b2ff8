// SPDX-License-Identifier: MIT
#pragma once

#include "common/table.hpp"
#include "opcua-commission/checked_description.hpp"
#include "opcua-commission/server_options.hpp"
#include "opcua-commission/tag_check.hpp"

#include <cstdio>
#include <string>
#include <vector>

namespace OpcUaCommission {

/// Existing nodes that an unknown address may stand for.
struct Suggestion {
    std::string tag;                 ///< its name
    std::vector<std::string> nodes;  ///< such as "ns=2;i=5  /Line/Speed  bool", the likeliest first
};

/// Everything that a check has found out.
struct CheckReport {
    const CheckedDescription& description;
    const DeviceCheck* device = nullptr;  ///< null without a server
    std::vector<Suggestion> suggestions{};
};

/// Prints a report; as CSV only the tags, with everything else on the standard error, or without a
/// server the problems.
void print(std::FILE* output, Format format, const CheckReport& report);

/// A problem as compilers print theirs, with the line of the file where the syntax is wrong.
[[nodiscard]] std::string problemText(const CheckedDescription& description,
                                      const Tools::Problem& problem);

/// A row for each tag.
[[nodiscard]] Tools::Table tagTable(const DeviceCheck& device);

/// "the daemon publishes no error", or which.
[[nodiscard]] std::string publishedText(const CheckReport& report);

/// "20 tags: 14 good, 6 with problems".
[[nodiscard]] std::string summaryText(const DeviceCheck& device);

/// Whether there is nothing to correct.
[[nodiscard]] bool isGood(const CheckReport& report);

}  // namespace OpcUaCommission
