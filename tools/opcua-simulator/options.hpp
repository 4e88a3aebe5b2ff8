// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/fault.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace OpcUaSimulator {

struct Options {
    std::string listen = "127.0.0.1";
    std::uint16_t port = 0;  ///< 0 lets the system choose
    std::string portFile;
    std::string description;       ///< file; empty if tags are made up
    std::uint16_t tags = 0;        ///< how many to make up
    std::string writeDescription;  ///< file
    std::string deviceId = "0123456789AB";
    std::optional<std::uint16_t> pullDelay;  ///< milliseconds, for the written description
    std::string user;                        ///< empty allows everybody
    std::string password;
    std::string advertise;  ///< host in the endpoint URLs; empty for the address
    std::uint16_t maxSessions = 1000;
    std::uint16_t sessionTimeout = 3600;  ///< seconds
    std::uint16_t channelLifetime = 600;  ///< seconds
    std::uint16_t maxNodes = 0;           ///< in a Read or Browse request; 0 for any number
    std::uint16_t maxReferences = 0;      ///< in a Browse result; 0 for any number
    bool odd = false;                     ///< also serve nodes that cannot be pulled
    std::vector<Fault> faults;
    bool verbose = false;
};

/// Reads the command line; prints the help text and returns nothing if that is asked for.
/// @throws std::runtime_error for wrong use, with one line that says what is wrong
[[nodiscard]] std::optional<Options> readOptions(int argc, char** argv);

}  // namespace OpcUaSimulator
