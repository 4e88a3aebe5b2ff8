// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/free_memory.hpp"
#include "orvik/pushinterface/client_handler.hpp"
#include "orvik/pushinterface/detail/connection.hpp"
#include "orvik/pushinterface/detail/dispatcher.hpp"
#include "orvik/pushinterface/detail/event_loop.hpp"
#include "orvik/pushinterface/detail/name_lookup.hpp"
#include "orvik/pushinterface/detail/notifier.hpp"
#include "orvik/pushinterface/detail/sender.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>
#include <boost/thread/exceptions.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * The state of a client: the steps of a connection, in the order in which they run.
 *
 *     connect ─▶ resolve ─▶ connectNext ─▶ startRead ─▶ handleRead ─▶ Dispatcher ─▶ Sender
 *        ▲                       │             │
 *        └── scheduleReconnect ◀─┴─────────────┘
 *
 * All steps run on the client thread. Pending operations capture `this`: the event loop is a
 * member, so it cannot outlive the state. Only a name look-up shares the ownership.
 */
class ClientState : public std::enable_shared_from_this<ClientState> {
  public:
    using ErrorCode = boost::system::error_code;
    using Tcp = boost::asio::ip::tcp;
    using EndpointIterator = Tcp::resolver::results_type::const_iterator;

    /// @param handler not owned; null skips every notification
    /// @param delayUnit unit of the reconnect delay: one second, except in tests
    ClientState(ClientHandler* handler, std::chrono::nanoseconds delayUnit)
        : notifier_{handler, loop_}, delayUnit_{delayUnit} {}

    void run() { loop_.run(); }

    /// Queues work on the client thread. May be called from any thread.
    template <typename Work>
    void post(Work&& work) {
        loop_.post(std::forward<Work>(work));
    }

    // Operations of the client, on the strand

    void setDevice(std::string id, std::string key) {
        dispatcher_.setDevice(std::move(id), std::move(key));
        if (current_ && current_->helloReceived) {
            sender_.send(current_, dispatcher_.identification());
        }
    }

    void setServer(std::string host, std::uint32_t port, std::int32_t reconnectDelay) {
        host_ = std::move(host);
        port_ = port;
        reconnectDelay_ = reconnectDelay;
    }

    void disconnect() {
        autoReconnect_ = false;
        reconnectTimer_.cancel();
        abandonAttempt();
        opened_.closeIf([this](const Connection& other) {
            return other.readEnded || (&other != current_.get() && !other.disconnecting);
        });
        if (current_) {
            notifier_.report(current_->sendQueue.takeLoss());
            sender_.send(current_, std::string{MessageType::exit});
            current_->disconnecting = true;
        }
    }

    void connect() {
        autoReconnect_ = reconnectDelay_ > 0;
        abandonAttempt();
        attempt_ = std::make_shared<Connection>(loop_.strand());
        resolve(attempt_);
    }

    /// Queues a value batch or named value.
    void push(std::string message) {
        sender_.send(current_, std::move(message), Sender::Origin::dataSource);
    }

  private:
    // Resolving

    void resolve(const ConnectionPtr& connection) {
        resolving_.emplace(loop_.guard());
        // Not the connection itself: the look-up may be the last owner of the state, whose loop has
        // to outlive every socket
        const auto done = [this, self = shared_from_this(), waiting = std::weak_ptr{connection}](
                              ErrorCode error, const auto& endpoints) {
            post([=, this, first = endpoints.begin()] {
                handleResolve(waiting.lock(), error, first);
            });
        };
        try {
            lookUp(host_, std::to_string(port_), done);
        } catch (const boost::thread_resource_error&) {  // not a failed resolution: try again later
            resolving_.reset();
            connectNext(connection, {});
        }
    }

    void handleResolve(const ConnectionPtr& connection, ErrorCode error,
                       const EndpointIterator& first) {
        if (!connection || connection != attempt_) {
            return;
        }
        resolving_.reset();
        if (error) {
            attempt_.reset();
            notifier_.report("Address resolve error");
            return;
        }
        connectNext(connection, first);
    }

    // Connecting

    void connectNext(const ConnectionPtr& connection, const EndpointIterator& next) {
        if (next == EndpointIterator{}) {
            attempt_.reset();
            notifier_.report("Could not connect to server");
            if (autoReconnect_) {
                scheduleReconnect("connecting failed");
            }
            return;
        }
        connection->close();  // the last endpoint may be of another family
        connection->socket.async_connect(*next, [=, this, rest = std::next(next)](ErrorCode error) {
            handleConnect(connection, rest, error);
        });
    }

    void handleConnect(const ConnectionPtr& connection, const EndpointIterator& rest,
                       ErrorCode error) {
        if (connection != attempt_) {
            return;
        }
        if (error || connection->closeIfConnectedToItself()) {
            return connectNext(connection, rest);
        }
        attempt_.reset();
        connection->configureSocket();
        notifier_.post("onConnected", &ClientHandler::onConnected);
        opened_.closeIf([](const Connection& other) { return other.readEnded; });
        opened_.add(connection);
        current_ = connection;
        startRead(connection);
    }

    void abandonAttempt() {
        resolving_.reset();
        if (attempt_) {
            attempt_->close();
            attempt_.reset();
        }
    }

    // Reading

    void startRead(const ConnectionPtr& connection) {
        boost::asio::async_read_until(connection->socket, *connection->readBuffer, '\n',
                                      [=, this](ErrorCode error, std::size_t length) {
                                          handleRead(connection, error, length);
                                      });
    }

    void handleRead(const ConnectionPtr& connection, ErrorCode error, std::size_t length) {
        if (error) {
            return handleEnd(*connection);
        }
        auto& buffer = *connection->readBuffer;
        std::string line{static_cast<const char*>(buffer.data().data()), length - 1};
        buffer.consume(length);
        const bool wasLarge = connection->shrinkReadBuffer();
        notifier_.post("onRead", &ClientHandler::onRead, line);
        if (auto answer = dispatcher_.dispatch(std::move(line), connection->helloReceived);
            !answer.empty()) {
            sender_.send(connection, std::move(answer));
        }
        if (wasLarge) {
            post(returnFreeMemory);  // after the notification, which holds the last copy
        }
        if (connection->socket.is_open()) {
            startRead(connection);
        }
    }

    void handleEnd(Connection& connection) {
        connection.readEnded = true;
        notifier_.report(connection.sendQueue.takeLoss());
        if (!connection.socket.is_open()) {  // closed by `disconnect`: no loss of the current one
            return;
        }
        notifier_.post("onDisconnected", &ClientHandler::onDisconnected);
        // Deliberately whichever is current: after a `connect` while connected, the steward closes
        // the old connection, and everything starts over
        current_.reset();
        if (autoReconnect_) {
            scheduleReconnect("auto reconnect");
        }
    }

    // Reconnecting

    void scheduleReconnect(const std::string& reason) {
        reconnectTimer_.expires_after(reconnectDelay_ * delayUnit_);
        reconnectTimer_.async_wait([=, this](ErrorCode error) {
            if (!error && autoReconnect_) {
                notifier_.post("onReconnecting", &ClientHandler::onReconnecting, reason);
                connect();
            }
        });
    }

    EventLoop loop_;
    Notifier notifier_;
    Dispatcher dispatcher_{notifier_};
    Sender sender_{notifier_, loop_};
    std::chrono::nanoseconds delayUnit_;
    std::string host_;
    std::uint32_t port_ = 0;
    std::int32_t reconnectDelay_ = 0;
    bool autoReconnect_ = false;
    boost::asio::steady_timer reconnectTimer_{loop_.strand()};
    std::optional<EventLoop::WorkGuard> resolving_;  ///< keeps `run` going during a look-up
    ConnectionPtr attempt_;  ///< being opened; a completion for another one is out of date
    ConnectionPtr current_;
    OpenedConnections opened_;
};

}  // namespace Orvik::PushInterface::Detail
