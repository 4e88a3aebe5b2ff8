// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/message_guard.hpp"
#include "opcua/stack.hpp"

#include <open62541/plugin/eventloop.h>

namespace PullappOpcUa {

/**
 * What our client needs and the OPC UA stack has no setting for.
 *
 * - The log does not wait for a reader. The stack's own logger waits for ever for somebody to read
 *   a full pipe, and every pull waits with it. Uses only the stack's interface; remove it when the
 *   stack's logger drops messages or limits the wait.
 * - A guard sees what arrives before the stack does, see `MessageGuard`. Replaces the function that
 *   opens connections, in order to put its own in front of the one that receives. Remove it when
 *   every stack that we support checks the type of an answer before it uses the answer.
 * - Sending has a time-out. The stack waits for ever for a server that reads nothing from its
 *   socket. Set in the same place; remove it when the stack has such a time-out.
 * - A connect opens only a few connections. The stack reconnects by itself as long as a peer
 *   accepts and closes. Remove it when the stack has such a limit.
 */
class StackHooks {
  public:
    StackHooks() = default;
    StackHooks(const StackHooks&) = delete;
    StackHooks& operator=(const StackHooks&) = delete;

    /// Fills in the stack's default configuration with the hooks in place. They must outlive the
    /// client that is made with it.
    /// @param isLogged whether the stack logs to the standard output
    [[nodiscard]] UA_StatusCode configure(UA_ClientConfig& config, bool isLogged);

    /// Whether the guard has refused a message of the client and ended its connection.
    [[nodiscard]] bool hasRefused() const noexcept { return hasRefused_; }

  private:
    using Open = decltype(UA_ConnectionManager::openConnection);
    using Receive = UA_ConnectionManager_connectionCallback;

    static UA_StatusCode open(UA_ConnectionManager* manager, const UA_KeyValueMap* parameters,
                              void* client, void* context, Receive receive) noexcept;
    static void receive(UA_ConnectionManager* manager, uintptr_t connection, void* client,
                        void** context, UA_ConnectionState state, const UA_KeyValueMap* parameters,
                        UA_ByteString bytes) noexcept;
    [[nodiscard]] bool accepts(std::string_view bytes) noexcept;

    Open open_ = nullptr;        // the stack's own
    Receive receive_ = nullptr;  // likewise
    int connections_ = 0;
    MessageGuard guard_;  // of the current connection
    bool hasRefused_ = false;
};

}  // namespace PullappOpcUa
