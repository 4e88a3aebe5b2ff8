// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/description.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace StewardSimulator {

/// A line, or the place of a missing one, that a conforming device does not send.
struct Fault {
    std::string_view line;  ///< points into the checked text; empty for what is missing
    std::string reason;
};

/// The values of one batch by the position of their tags; empty where none was sent.
struct DecodedBatch {
    std::vector<std::string_view> values;  ///< pointing into the batch
    std::vector<Fault> faults;
};

/**
 * Checks a batch: one well-written value for every tag, in the order of the description. A missing
 * line is one fault, however many good ones follow it.
 *
 * @param lines of the batch, each with its line feed, without the closing empty one
 */
[[nodiscard]] DecodedBatch decodeBatch(std::string_view lines, const Description& description);

}  // namespace StewardSimulator
