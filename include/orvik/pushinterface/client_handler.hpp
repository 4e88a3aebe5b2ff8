// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Orvik::PushInterface {

/**
 * Receives what happens on the push interface. All operations run on the client thread, one at a
 * time, and must not wait for that thread. What an operation throws is reported as a client error.
 *
 * The flags passed by reference are preset by the client; clear one to suppress the client's own
 * answer.
 */
class ClientHandler {
  public:
    ClientHandler() = default;
    virtual ~ClientHandler() = default;
    ClientHandler(const ClientHandler&) = delete;
    ClientHandler& operator=(const ClientHandler&) = delete;

    /// The connection is established.
    virtual void onConnected() = 0;
    /// The wait before a reconnection is over; a new attempt begins.
    virtual void onReconnecting(const std::string& reason) = 0;
    /// The connection is lost or closed.
    virtual void onDisconnected() = 0;
    /// A line arrived; called before the line is interpreted. @param line without line feed
    virtual void onRead(const std::string& line) = 0;
    /// A line was written. @param line with its line feed
    virtual void onWrite(const std::string& line) = 0;
    /// The client itself failed, or a handler operation has thrown.
    virtual void onClientError(const std::string& message) = 0;
    /// The server's greeting. @param sendDevc identify the device now
    virtual void onHelo(const std::string& text, bool& sendDevc) = 0;
    /// The server accepted or refused the device. @param requestInfo ask for the description now
    virtual void onDevc(bool accepted, bool& requestInfo) = 0;
    /// The device description. @param info JSON text
    virtual void onInfo(const std::string& info) = 0;
    /// The description has changed. @param requestInfo ask for it now
    virtual void onIfch(bool& requestInfo) = 0;
    /// The same, when the server gave a text with it.
    virtual void onIfch(const std::string& argument, bool& requestInfo) = 0;
    /// A switch of the server.
    virtual void onRtch(bool on) = 0;
    /// The server reports an error.
    virtual void onEror(const std::string& message) = 0;
    /// A pushed tag was not found.
    virtual void onTgnf(const std::string& argument) = 0;
    /// A pushed value was invalid.
    virtual void onInvl(const std::string& argument) = 0;
    /// Values are posted too often.
    virtual void onToof(const std::string& argument) = 0;
};

}  // namespace Orvik::PushInterface
