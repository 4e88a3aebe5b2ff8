// SPDX-License-Identifier: MIT
#include "steward-simulator/descriptor.hpp"
#include "steward-simulator/options.hpp"
#include "steward-simulator/steward.hpp"

#include <csignal>
#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    constexpr int couldNotStart = 2;
    StewardSimulator::occupyStandardStreams();
    std::signal(SIGPIPE, SIG_IGN);  // a reader of the output that exits ends nothing
    std::signal(SIGTTIN, SIG_IGN);  // in the background of a terminal there is no input
    try {
        const auto options = StewardSimulator::readOptions(argc, argv);
        return options ? StewardSimulator::Steward{*options}.run() : 0;
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << std::endl;
        return couldNotStart;
    }
}
