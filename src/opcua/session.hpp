// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"

#include <chrono>
#include <string>

namespace PullappOpcUa {

/// Longest wait for an answer of the server, and for a whole connect.
inline constexpr std::chrono::milliseconds requestTimeout{5000};

/// What kind of session to open.
struct SessionSettings {
    const char* username = nullptr;  ///< null logs in anonymously
    const char* password = nullptr;
    /// How long the server may keep a session that is not used, as after a cut cable.
    std::chrono::milliseconds timeout{60000};
};

/**
 * Opens a session in at most the request time-out, whatever the peer sends or does not send.
 *
 * @param endpointUrl is connected to as it is, also where the server advertises other names
 * @param client receives the open session
 * @return Good, or why no session could be opened; nothing is left of it then
 */
[[nodiscard]] UA_StatusCode openSession(const std::string& endpointUrl,
                                        const SessionSettings& settings, ClientPtr& client);

/// Whether a service can be called without the stack connecting anew by itself.
[[nodiscard]] bool isSessionOpen(UA_Client& client) noexcept;

}  // namespace PullappOpcUa
