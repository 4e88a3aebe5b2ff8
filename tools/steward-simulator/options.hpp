// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <boost/asio/ip/tcp.hpp>

namespace StewardSimulator {

enum class ViewKind { Table, Lines, None };

/// What the command line asks for.
struct Options {
    boost::asio::ip::tcp::endpoint listen;  ///< port 0: one that the system chooses
    std::string deviceId;                   ///< empty: any
    std::string deviceKey;                  ///< empty: any
    std::string description;                ///< a file; empty: none is served
    std::string portFile;                   ///< a file; empty: none is written
    std::string report;                     ///< a file; empty: none is written
    ViewKind view = ViewKind::Lines;
    std::uint64_t batches = 0;  ///< 0: does not end by itself
    std::optional<double> seconds = std::nullopt;
};

/**
 * Reads the command line.
 *
 * @return nothing after printing the help text
 * @throws std::exception saying what is wrong with it
 */
[[nodiscard]] std::optional<Options> readOptions(int argc, char** argv);

}  // namespace StewardSimulator
