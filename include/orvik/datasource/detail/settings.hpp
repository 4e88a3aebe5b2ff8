// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace Orvik::DataSource::Detail {

/// The fixed numbers of every run; delays in milliseconds. Tests shorten them.
struct Settings {
    static constexpr std::uint8_t unlimited = 255;

    std::uint8_t maxConnectRetries = unlimited;
    std::uint8_t maxPullsPerConnection = unlimited;  ///< pulls before a planned reconnect
    std::uint32_t reconnectDelay = 10000;            ///< after a failed connect
    std::uint32_t verifyFailDelay = 15000;           ///< after tags that cannot be read
    std::uint32_t keepAliveInterval = 1000;  ///< longest wait between two calls of the handler
    std::uint32_t minTimerDelay = 25;        ///< shorter delays are not timed
};

}  // namespace Orvik::DataSource::Detail
