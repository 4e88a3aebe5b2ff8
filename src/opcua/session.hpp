// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"
#include "opcua/stack_hooks.hpp"

#include <chrono>
#include <memory>
#include <string>

namespace PullappOpcUa {

/// Longest wait for an answer of the server, and for a whole connect.
inline constexpr std::chrono::milliseconds requestTimeout{5000};

/// What kind of session to open.
struct SessionSettings {
    const char* username = nullptr;  ///< null logs in anonymously
    const char* password = nullptr;
    /// How long the server keeps an unused session. Longer than every pause; afterwards the server
    /// removes a session that a broken connection or a refused log-in has left there.
    std::chrono::milliseconds timeout{60000};
    bool isLogged = true;  ///< whether the stack logs to the standard output
};

/// A session with one server, over a connection of its own. Used by one thread.
class Session {
  public:
    Session() = default;
    ~Session() { close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /**
     * Connects and opens the session in at most the request time-out, whatever the peer sends or
     * does not send. Closes the previous one first.
     *
     * @param endpointUrl is connected to as it is, also where the server advertises other names
     * @return Good, or why no session could be opened
     */
    [[nodiscard]] UA_StatusCode open(const std::string& endpointUrl,
                                     const SessionSettings& settings);

    // Each service ends within the request time-out. A lost connection or a closed session gives a
    // bad service result (BadNotConnected where no session is open); it does not reconnect. The
    // request is a shallow copy whose header the stack fills in; the caller owns what it points to.

    [[nodiscard]] ReadResponse read(UA_ReadRequest request);
    [[nodiscard]] BrowseResponse browse(UA_BrowseRequest request);
    [[nodiscard]] BrowseNextResponse browseNext(UA_BrowseNextRequest request);

    /// Closes the session and its connection in at most a second. May be called at any time.
    void close() noexcept;

  private:
    [[nodiscard]] UA_StatusCode connect(const std::string& endpointUrl);
    [[nodiscard]] bool isOpen() const noexcept;
    void closeOnServer() noexcept;
    void deleteClient() noexcept;

    template <typename Response, typename Request>
    [[nodiscard]] Response call(Request& request, const UA_DataType& requestType);

    std::unique_ptr<StackHooks> hooks_;  // must outlive the client
    ClientPtr client_;
};

}  // namespace PullappOpcUa
