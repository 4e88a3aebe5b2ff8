// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace OpcUaCommission {

/// How the program ends.
enum ExitStatus { allGood = 0, problemsFound = 1, wrongUse = 2, serverRefused = 3 };

/// A word of the command line with options of its own.
struct Subcommand {
    const char* name;
    const char* summary;  ///< one line of the help text

    /// @param argv from the subcommand's own name on
    /// @throws Tools::UsageError, ServerError, or another std::exception for a file
    ExitStatus (*run)(int argc, char** argv);
};

/// The part of a subcommand's help text before the options.
[[nodiscard]] std::string introductionOf(const std::string& usage, const std::string& text);

/// The part after them: the exit status, the same for all.
extern const char* const exitStatusText;

/// Calls what prints the result, and flushes it. A reader that stops reading is no error.
/// @throws std::system_error
void printOut(const std::function<void()>& print);

}  // namespace OpcUaCommission
