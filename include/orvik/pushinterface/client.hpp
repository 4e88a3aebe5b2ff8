// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"
#include "orvik/pushinterface/detail/client_state.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Orvik::PushInterface {

/**
 * Keeps the application connected to the steward: connects, logs on, hands every received message
 * to a handler, and reconnects after failures.
 *
 * All operations but `run` may be called from any thread: they queue their work for the client
 * thread, in call order, and return at once. No failure ends the client; it reports through
 * `ClientHandler::onClientError` and, where it can, tries again.
 */
class Client {
  public:
    /**
     * @param handler receives all notifications; not owned, may be null
     * @param delayUnit unit of the reconnect delay; anything but a second is for tests
     */
    explicit Client(ClientHandler* handler,
                    std::chrono::nanoseconds delayUnit = std::chrono::seconds{1})
        : state_{std::make_shared<Detail::ClientState>(handler, delayUnit)} {}
    virtual ~Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /**
     * Sends a value batch, or a named value, on the current connection. Unread lines are kept, up
     * to 64 MB. Beyond that value batches are dropped, the loss is reported, and of consecutive
     * named values with the same name only the newest is kept. A connection whose server has read
     * nothing for 120 s is given up.
     *
     * @param message without last line feed
     */
    virtual void write(std::string message) {
        state_->post([state = state_.get(), message = std::move(message)]() mutable {
            state->push(std::move(message));
        });
    }

    /// Identifies the device: at once if the steward has sent its greeting, otherwise after the
    /// next one.
    void setDevice(const std::string& id, const std::string& key) {
        state_->post([=, state = state_.get()] { state->setDevice(id, key); });
    }

    /// Leaves the current server and connects to another.
    /// @param reconnectDelay seconds; 0 or less: no reconnecting
    void connect(const std::string& host, std::uint32_t port, std::int32_t reconnectDelay) {
        // One task, not four: after `disconnect` alone nothing might be pending, and `run` would
        // return
        state_->post([=, state = state_.get()] {
            state->disconnect();
            state->setServer(host, port, reconnectDelay);
            state->connect();
        });
    }

    /// Logs off and ends all reconnecting; the server then closes the connection.
    void disconnect() {
        state_->post([state = state_.get()] { state->disconnect(); });
    }

    /// Body of the client thread: returns as soon as nothing is pending, after `disconnect` or when
    /// reconnecting is over. @throws what the event loop throws
    void run() { state_->run(); }

  private:
    std::shared_ptr<Detail::ClientState> state_;  // shared with a name look-up in progress
};

/// Publishes a value under a tag name. @param maxLength longest value in bytes; 0 means no limit
inline void pushNamedValue(Client& client, std::string_view name, std::string_view value,
                           std::size_t maxLength) {
    client.write(encodeNamedValue(name, value, maxLength));
}

/// Publishes the data source's current fault; empty clears it.
inline void pushErrorMessage(Client& client, std::string_view message) {
    pushNamedValue(client, errorMessageName, message, maxErrorMessageLength);
}

}  // namespace Orvik::PushInterface
