// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"

#include <chrono>
#include <optional>
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

/// What makes a session ours, on whichever channel.
struct SessionToken {
    Owned<UA_NodeId, UA_TYPES_NODEID> id;
    Owned<UA_ByteString, UA_TYPES_BYTESTRING> nonce;
};

/**
 * A session with one server, of which the server never has to count more than one.
 *
 * What cannot be closed there, for example because the cable is cut, is taken up again by the next
 * `open`. What can neither be closed nor taken up, since the connection broke while the session
 * was being made, is waited for: the server ends it after the time-out that it was asked for.
 */
class Session {
  public:
    Session() = default;
    ~Session() { close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /**
     * Opens the session in at most the request time-out, whatever the peer sends or does not send.
     *
     * @param endpointUrl is connected to as it is, also where the server advertises other names
     * @return Good, or why no session could be opened; the last reason, at once and without a
     * connection, while a broken attempt may still count on the server
     */
    [[nodiscard]] UA_StatusCode open(const std::string& endpointUrl,
                                     const SessionSettings& settings);

    /// Reads in at most the request time-out. A lost connection, which is not made anew, is a bad
    /// status of the whole. The request is a copy whose header the stack fills in; its entries are
    /// the caller's.
    [[nodiscard]] ReadResponse read(UA_ReadRequest request);

    /// Closes the session and its connection in at most a second. May be called at any time.
    void close() noexcept;

  private:
    [[nodiscard]] bool isOpen() const noexcept;

    ClientPtr client_;
    std::optional<SessionToken> resumable_;  // activated, and perhaps still alive on the server
    std::chrono::steady_clock::time_point waitUntil_;
    UA_StatusCode lastFailure_ = UA_STATUSCODE_GOOD;
};

}  // namespace PullappOpcUa
