// SPDX-License-Identifier: MIT
#include "opcua-commission/subcommand.hpp"

#include <cerrno>
#include <cstdio>
#include <system_error>

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

void printOut(const std::function<void()>& print) {
    try {
        print();
        if (std::fflush(stdout) != 0) {
            throw std::system_error{errno, std::generic_category(), "cannot write the result"};
        }
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::broken_pipe) {
            throw;
        }
    }
}

}  // namespace OpcUaCommission
