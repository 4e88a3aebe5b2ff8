// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/message_guard.hpp"
#include "opcua/stack.hpp"

#include <open62541/plugin/eventloop.h>

namespace PullappOpcUa {

/**
 * What our client does where no setting of the OPC UA stack reaches.
 *
 * - The log does not wait for a reader. The stack's own logger waits without limit for somebody to
 *   read a full pipe, and every pull with it. Needs the stack's interface only; may go when the
 *   stack's logger drops or limits by itself.
 * - A guard sees what arrives before the stack does, see `MessageGuard`. Takes the place of the
 *   function that opens connections, to put its own in front of the one that receives. May go when
 *   every stack that we support checks the type of an answer before it uses the answer.
 * - Sending has a limit. The stack waits without limit for a server that takes nothing off its
 *   socket. Set on the same occasion; may go when the stack has such a time-out.
 * - An attempt to connect opens a few connections only. The stack connects again by itself as long
 *   as a peer accepts and closes. May go when the stack has such a limit.
 */
class StackHooks {
  public:
    StackHooks() = default;
    StackHooks(const StackHooks&) = delete;
    StackHooks& operator=(const StackHooks&) = delete;

    /// Fills in the stack's default configuration with the hooks in place. They must outlive the
    /// client that is made of it.
    /// @param isLogged whether the stack's notes go to the standard output
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
