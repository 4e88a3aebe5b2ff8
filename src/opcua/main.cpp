// SPDX-License-Identifier: MIT
#include "orvik/pullapplication/command_line.hpp"

#include <iostream>
#include <string>

int main(int argc, char** argv) {
    const std::string notice = "Copyright (c) 2026 The Orvik contributors. MIT License.";
    const std::string version = "0.2.0";
    const std::string protocolName = "opc-ua";
    namespace App = Orvik::PullApplication;
    const auto settings = App::parseCommandLine(argc, argv, std::cerr);
    return App::acceptSettings(settings, argv[0], {protocolName, version, notice}, std::cout,
                               std::cerr)
               ? 0
               : 1;
}
