// SPDX-License-Identifier: MIT
#include "common/command_line.hpp"
#include "opcua-commission/browse_command.hpp"
#include "opcua-commission/check_command.hpp"
#include "opcua-commission/connection.hpp"
#include "opcua-commission/interrupt.hpp"
#include "opcua-commission/subcommand.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <iostream>
#include <string_view>

#include <fmt/format.h>

namespace {

using namespace OpcUaCommission;

constexpr std::array subcommands{
    Subcommand{"browse", "list the variables of a server, write a description of them", runBrowse},
    Subcommand{"check", "list every problem of a description at once", runCheck},
};

void printHelp() {
    fmt::print(
        "Usage: opcua-commission SUBCOMMAND [OPTION]...\n\n"
        "Helps to commission a device: shows what an OPC UA server offers and what the\n"
        "daemon would do with it.\n\n"
        "Subcommands:\n");
    for (const auto& subcommand : subcommands) {
        fmt::print("  {:<8}  {}\n", subcommand.name, subcommand.summary);
    }
    fmt::print("\nopcua-commission SUBCOMMAND --help lists its options.\n{}", exitStatusText);
}

ExitStatus run(int argc, char** argv) {
    const std::string_view word{argc > 1 ? argv[1] : ""};
    const auto* subcommand = std::ranges::find(subcommands, word, &Subcommand::name);
    if (subcommand != subcommands.end()) {
        return subcommand->run(argc - 1, argv + 1);
    }
    if (word == "--help") {
        printHelp();
        return allGood;
    }
    if (word == "--version") {
        fmt::print("{}\n", Tools::versionText("opcua-commission"));
        return allGood;
    }
    throw Tools::UsageError{word.empty() ? std::string{"a subcommand is missing"}
                                         : fmt::format("there is no subcommand '{}'", word)};
}

}  // namespace

int main(int argc, char** argv) {
    watchForInterrupt();
    std::signal(SIGPIPE, SIG_IGN);  // the session is closed even if a reader of the output exits
    try {
        return run(argc, argv);
    } catch (const Interrupted&) {
        std::cerr << "interrupted" << std::endl;
        return problemsFound;
    } catch (const ServerError& error) {
        std::cerr << "opcua-commission: " << error.what() << std::endl;
        return serverRefused;
    } catch (const Tools::UsageError& error) {
        std::cerr << "opcua-commission: " << error.what() << "; see opcua-commission --help"
                  << std::endl;
    } catch (const std::exception& error) {
        std::cerr << "opcua-commission: " << error.what() << std::endl;
    }
    return wrongUse;
}
