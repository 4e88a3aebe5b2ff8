// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <open62541/plugin/eventloop.h>

namespace OpcUaSimulator {

/**
 * Looks into all that the server sends, just before it leaves: the stack neither counts requests
 * over all sessions, nor names another host than the one by which a client knows it.
 */
class SentMessages {
  public:
    /// Of one event loop of the process, with which it must live.
    void watch(UA_EventLoop& loop);

    /// @param url to be replaced in everything sent
    /// @param replacement no longer than the URL, and filled up with an empty path
    void replace(std::string url, std::string replacement);

    /// How many Read requests were answered with results.
    [[nodiscard]] std::uint64_t reads() const noexcept { return reads_; }

    /// How many sessions were made, whether or not they were activated then.
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
