// SPDX-License-Identifier: MIT
#include "opcua-commission/subcommand.hpp"

namespace OpcUaCommission {

std::string introductionOf(const std::string& usage, const std::string& text) {
    return "Usage: opcua-commission " + usage + "\n\n" + text + "\nOptions";
}

const char* const exitStatusText = R"(
Exit status:
  0  all good
  1  there are problems
  2  wrong use, or a file cannot be read or written
  3  the server cannot be reached, refuses, or does not answer
)";

}  // namespace OpcUaCommission
