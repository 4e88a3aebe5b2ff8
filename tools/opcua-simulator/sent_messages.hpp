// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include <open62541/plugin/eventloop.h>

namespace OpcUaSimulator {

/**
 * Inspects everything that the server sends: the stack cannot count requests over all sessions,
 * nor advertise a host other than the one that the client has used.
 */
class SentMessages {
  public:
    /// Watches an event loop. This object must live as long as the loop.
    void watch(UA_EventLoop& loop);

    /// @param url to be replaced in everything sent
    /// @param replacement no longer than the URL, and filled up with an empty path
    void replace(std::string url, std::string replacement);

    /// How many Read requests were answered with results.
    [[nodiscard]] std::uint64_t reads() const noexcept { return reads_; }

    /// How many sessions were created, activated or not.
    [[nodiscard]] std::uint64_t sessions() const noexcept { return sessions_; }

  private:
    static UA_StatusCode send(UA_ConnectionManager* manager, uintptr_t connection,
                              const UA_KeyValueMap* parameters, UA_ByteString* message);
    void inspect(char* data, std::size_t size);

    static inline SentMessages* watching = nullptr;

    decltype(UA_ConnectionManager::sendWithConnection) original_ = nullptr;
    std::uint64_t reads_ = 0;
    std::uint64_t sessions_ = 0;
    std::string url_;
    std::string replacement_;
};

}  // namespace OpcUaSimulator
