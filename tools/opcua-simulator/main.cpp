// SPDX-License-Identifier: MIT
#include "common/file.hpp"
#include "opcua-simulator/command_input.hpp"
#include "opcua-simulator/description.hpp"
#include "opcua-simulator/options.hpp"
#include "opcua-simulator/server.hpp"

#include <csignal>
#include <exception>
#include <iostream>
#include <string>

namespace {

using namespace OpcUaSimulator;

volatile std::sig_atomic_t ended = 0;

/// Interrupts the wait for requests, too.
void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { ended = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

/// Called last: whoever reads this may connect at once, and read the other files.
void announce(const Options& options, std::uint16_t port) {
    if (!options.portFile.empty()) {
        Tools::writeFile(options.portFile, std::to_string(port) + '\n');
    }
    std::cout << "listening on " << options.listen << ':' << port << std::endl;
}

void serve(const Options& options) {
    const auto device = makeDevice(options);
    Server server{options, *device};
    if (!options.writeDescription.empty()) {
        writeDescription(*device, options, server.port());
    }
    announce(options, server.port());
    CommandInput input{server};
    while (ended == 0) {
        server.iterate();
        input.poll();
    }
    std::cout << server.statistics() << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int couldNotStart = 2;
    endOnSignals();
    try {
        if (const auto options = readOptions(argc, argv)) {
            serve(*options);
        }
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << std::endl;
        return couldNotStart;
    }
    return 0;
}
