// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"
#include "orvik/pushinterface/detail/connection.hpp"
#include "orvik/pushinterface/detail/free_memory.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/system/error_code.hpp>
#include <boost/thread/exceptions.hpp>
#include <boost/thread/thread.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * The client behind its front: everything that happens on the client thread, in running order.
 *
 *     connect ─▶ resolve ─▶ connectNext ─▶ startRead ─▶ handleRead ─▶ dispatch ─▶ write
 *        ▲                       │                          │
 *        └─── scheduleReconnect ◀┴──────────────────────────┘
 *
 * All steps run on the strand, so nothing is locked. Pending operations capture `this`: the event
 * loop is a member, so it cannot outlive the state. Only a name look-up shares the ownership.
 */
class ClientState : public std::enable_shared_from_this<ClientState> {
  public:
    using ErrorCode = boost::system::error_code;
    using Tcp = boost::asio::ip::tcp;
    using EndpointIterator = Tcp::resolver::results_type::const_iterator;

    /// @param handler not owned; null skips every notification
    /// @param delayUnit what one unit of the reconnect delay is; a second but for tests
    ClientState(ClientHandler* handler, std::chrono::nanoseconds delayUnit)
        : handler_{handler}, delayUnit_{delayUnit} {}

    void run() { loop_.run(); }

    /// Queues work on the client thread. May be called from any thread.
    template <typename Work>
    void post(Work&& work) {
        // To the loop, which counts it at once: a strand would take it first, and where nothing
        // else is pending in between, `run` would end
        boost::asio::post(loop_, boost::asio::bind_executor(strand_, std::forward<Work>(work)));
    }

    // What the front object asks for; on the strand

    void setDevice(std::string id, std::string key) {
        deviceId_ = std::move(id);
        deviceKey_ = std::move(key);
        if (current_ && current_->helloReceived) {
            write(current_, encodeDevc(deviceId_, deviceKey_));
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
        closeConnections([this](const Connection& other) {
            return other.readEnded || (&other != current_.get() && !other.disconnecting);
        });
        if (current_) {
            reportLoss(*current_);
            write(current_, std::string{MessageType::exit});
            current_->disconnecting = true;
        }
    }

    void connect() {
        autoReconnect_ = reconnectDelay_ > 0;
        abandonAttempt();
        attempt_ = std::make_shared<Connection>(strand_);
        resolve(attempt_);
    }

    /// Queues what the data source has to say. A steward that stops reading costs value batches,
    /// not ever more memory.
    void push(std::string message) {
        if (current_ && !current_->disconnecting && !admit(*current_, message)) {
            return;
        }
        write(nullptr, std::move(message));
    }

    /// Queues a line. @param connection null for the current one @param message without line feed
    void write(const ConnectionPtr& connection, std::string message) {
        const auto& target = connection ? connection : current_;
        if (!target) {
            notifyClientError("Cannot write without an active connection");
            return;
        }
        if (target->disconnecting) {
            notifyClientError("Cannot write when already disconnecting");
            return;
        }
        message += '\n';
        target->sendQueue.push(std::move(message));
        if (target->sendQueue.size() == 1) {
            // Behind what is queued already, as the short line that follows each batch
            post([this, target = target] { startWrite(target); });
        }
    }

  private:
    static inline const auto lookUpFlags = Tcp::resolver::passive | Tcp::resolver::numeric_service;

    // Resolving

    void resolve(const ConnectionPtr& connection) {
        const auto numeric = lookUpFlags | Tcp::resolver::numeric_host;
        const auto port = std::to_string(port_);
        ErrorCode error;
        const auto endpoints = resolver_.resolve(host_, port, numeric, error);
        if (error) {  // not an address but a name
            lookUp(connection, port);
        } else {
            post([=, this] { handleResolve(connection, error, endpoints.begin()); });
        }
    }

    /// On a thread of its own, which may take as long as it wants: the system's look-up cannot be
    /// interrupted, and `disconnect` must not wait for it.
    void lookUp(const ConnectionPtr& connection, const std::string& port) {
        resolving_.emplace(loop_.get_executor());
        try {
            boost::thread{[=, this, host = host_, self = shared_from_this()] {
                boost::asio::io_context unused;
                ErrorCode error;
                const auto endpoints =
                    Tcp::resolver{unused}.resolve(host, port, lookUpFlags, error);
                post([=, this] { handleResolve(connection, error, endpoints.begin()); });
            }}.detach();
        } catch (const boost::thread_resource_error&) {  // for now: the name may well exist
            resolving_.reset();
            connectNext(connection, {});
        }
    }

    void handleResolve(const ConnectionPtr& connection, ErrorCode error,
                       const EndpointIterator& first) {
        if (connection != attempt_) {
            return;
        }
        resolving_.reset();
        if (error) {
            attempt_.reset();
            notifyClientError("Address resolve error");
            return;
        }
        connectNext(connection, first);
    }

    // Connecting

    void connectNext(const ConnectionPtr& connection, const EndpointIterator& next) {
        if (next == EndpointIterator{}) {
            attempt_.reset();
            notifyClientError("Could not connect to server");
            if (autoReconnect_) {
                scheduleReconnect("connecting failed");
            }
            return;
        }
        ErrorCode ignored;
        connection->socket.close(ignored);  // the last endpoint may be of another family
        const auto endpoint = next->endpoint();
        connection->socket.async_connect(endpoint,
                                         [=, this, rest = std::next(next)](ErrorCode error) {
                                             handleConnect(connection, rest, error);
                                         });
    }

    void handleConnect(const ConnectionPtr& connection, const EndpointIterator& rest,
                       ErrorCode error) {
        if (connection != attempt_) {
            return;
        }
        if (error || connection->closeIfConnectedToItself()) {
            connectNext(connection, rest);
            return;
        }
        attempt_.reset();
        connection->configureSocket();
        notify("onConnected", &ClientHandler::onConnected);
        closeConnections([](const Connection& other) { return other.readEnded; });
        connections_.push_back(connection);
        current_ = connection;
        startRead(connection);
    }

    void abandonAttempt() {
        resolving_.reset();
        if (attempt_) {
            ErrorCode ignored;
            attempt_->socket.close(ignored);
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
            handleEnd(*connection);
            return;
        }
        auto& buffer = *connection->readBuffer;
        const std::string line{static_cast<const char*>(buffer.data().data()), length - 1};
        buffer.consume(length);
        notify("onRead", &ClientHandler::onRead, line);
        dispatch(connection, line);
        constexpr std::size_t large = 131072;
        if (buffer.size() == 0 && buffer.capacity() > large) {
            releaseMemory(*connection);
        }
        if (connection->socket.is_open()) {
            startRead(connection);
        }
    }

    /// A description is large and comes once. Its last copy goes with the notification.
    void releaseMemory(Connection& connection) {
        connection.renewReadBuffer();
        post(returnFreeMemory);
    }

    void handleEnd(Connection& connection) {
        connection.readEnded = true;
        reportLoss(connection);
        notify("onDisconnected", &ClientHandler::onDisconnected);
        current_.reset();  // deliberately whichever is current, not only this one
        if (autoReconnect_) {
            scheduleReconnect("auto reconnect");
        }
    }

    // Dispatching

    void dispatch(const ConnectionPtr& connection, const std::string& line) {
        const auto message = splitLine(line);
        if (!message) {
            notifyClientError("Unexpected server message: " + line);
            return;
        }
        const auto type = message->type;
        const std::string payload{message->payload};
        if (type == MessageType::helo) {
            handleHelo(connection, payload);
        } else if (type == MessageType::devc) {
            handleDevc(connection, payload);
        } else if (type == MessageType::info) {
            call("onInfo", [&] { handler_->onInfo(payload); });
        } else if (type == MessageType::ifch) {
            handleIfch(connection, payload);
        } else if (type == MessageType::rtch) {
            call("onRtch", [&] { handler_->onRtch(payload.starts_with('1')); });
        } else if (type == MessageType::eror) {
            call("onEror", [&] { handler_->onEror(payload); });
        } else if (type == MessageType::tgnf) {
            call("onTgnf", [&] { handler_->onTgnf(payload); });
        } else if (type == MessageType::invl) {
            call("onInvl", [&] { handler_->onInvl(payload); });
        } else if (type == MessageType::toof) {
            call("onToof", [&] { handler_->onToof(payload); });
        } else {
            notifyClientError("Unexpected server message type: " + std::string{type});
        }
    }

    void handleHelo(const ConnectionPtr& connection, const std::string& text) {
        bool sendDevc = !deviceId_.empty();
        call("onHelo", [&] { handler_->onHelo(text, sendDevc); });
        if (sendDevc && !deviceId_.empty()) {
            write(connection, encodeDevc(deviceId_, deviceKey_));
        }
        connection->helloReceived = true;
    }

    void handleDevc(const ConnectionPtr& connection, const std::string& answer) {
        const bool accepted = answer == "OK";
        bool requestInfo = accepted;
        call("onDevc", [&] { handler_->onDevc(accepted, requestInfo); });
        if (requestInfo && accepted) {
            write(connection, std::string{MessageType::info});
        }
    }

    void handleIfch(const ConnectionPtr& connection, const std::string& argument) {
        bool requestInfo = true;
        call("onIfch", [&] {
            if (argument.empty()) {
                handler_->onIfch(requestInfo);
            } else {
                handler_->onIfch(argument, requestInfo);
            }
        });
        if (requestInfo) {
            write(connection, std::string{MessageType::info});
        }
    }

    // Writing

    /// While the backlog is full, value batches are dropped whole, and of a named value only the
    /// newest is kept.
    [[nodiscard]] bool admit(Connection& connection, const std::string& message) {
        auto& queue = connection.sendQueue;
        if (queue.hasRoomFor(message)) {
            return true;
        }
        if (isNamedValue(message)) {
            return !queue.replaceLast(message + '\n');
        }
        if (connection.droppedBatches++ == 0) {
            notifyClientError("Dropping value batches because the server does not read");
        }
        return false;
    }

    void reportLoss(Connection& connection) {
        if (const auto count = std::exchange(connection.droppedBatches, 0); count != 0) {
            notifyClientError("Dropped " + std::to_string(count) +
                              (count == 1 ? " value batch" : " value batches") +
                              " because the server did not read");
        }
    }

    /// Writes line by line what the system takes at once, and the rest when it has room again.
    void startWrite(const ConnectionPtr& connection) {
        constexpr int linesPerStep = 16;  // a long queue must not keep all else waiting
        for (int i = 0; i < linesPerStep && !connection->sendQueue.empty(); ++i) {
            const auto error = connection->sendFront();
            if (error == boost::asio::error::would_block ||
                error == boost::asio::error::interrupted) {
                awaitRoom(connection);
                return;
            }
            handleWrite(*connection, error);
            if (error) {
                return;
            }
        }
        if (!connection->sendQueue.empty()) {
            post([=, this] { startWrite(connection); });
        }
    }

    void awaitRoom(const ConnectionPtr& connection) {
        connection->socket.async_wait(Tcp::socket::wait_write, [=, this](ErrorCode error) {
            if (error) {
                handleWrite(*connection, error);
            } else {
                startWrite(connection);
            }
        });
    }

    void handleWrite(Connection& connection, ErrorCode error) {
        auto& queue = connection.sendQueue;
        if (error) {  // the line stays where it is, so that nothing more is written
            notifyClientError("Write failed - socket error: '" + queue.front() + "'");
            ErrorCode ignored;  // the read side then notices; not every failure breaks a connection
            connection.socket.shutdown(Tcp::socket::shutdown_both, ignored);
            return;
        }
        notify("onWrite", &ClientHandler::onWrite, queue.pop());
        if (queue.backlog() < SendQueue::backlogLimit / 2) {  // not with every batch that just fits
            reportLoss(connection);
        }
    }

    // Reconnecting

    void scheduleReconnect(const std::string& reason) {
        reconnectTimer_.expires_after(reconnectDelay_ * delayUnit_);
        reconnectTimer_.async_wait([=, this](ErrorCode error) {
            if (error || !autoReconnect_) {
                return;
            }
            notify("onReconnecting", &ClientHandler::onReconnecting, reason);
            connect();
        });
    }

    /// Closes connections that nobody will close otherwise, so that `run` can end.
    template <typename Predicate>
    void closeConnections(Predicate predicate) {
        std::erase_if(connections_, [](const auto& weak) { return weak.expired(); });
        for (const auto& weak : connections_) {
            if (const auto connection = weak.lock(); connection && predicate(*connection)) {
                ErrorCode ignored;
                connection->socket.close(ignored);
            }
        }
    }

    // Notifying

    /// Queues a handler operation; it runs after the current step has returned.
    template <typename... Parameters, typename... Arguments>
    void notify(std::string_view name, void (ClientHandler::*operation)(Parameters...),
                Arguments... arguments) {
        if (handler_ != nullptr) {
            post([=, this, ... arguments = std::move(arguments)] {
                call(name, [&] { (handler_->*operation)(arguments...); });
            });
        }
    }

    void notifyClientError(std::string message) {
        notify("onClientError", &ClientHandler::onClientError, std::move(message));
    }

    /// Runs a handler operation; nothing that it throws goes further.
    template <typename Operation>
    void call(std::string_view name, Operation&& operation) {
        if (handler_ == nullptr) {
            return;
        }
        try {
            operation();
        } catch (const std::exception& exception) {
            reportException(name, exception.what());
        } catch (...) {
            reportException(name, "<no exception info>");
        }
    }

    void reportException(std::string_view operation, const std::string& text) {
        try {
            handler_->onClientError("Exception during ClientHandler::" + std::string{operation} +
                                    ": " + text);
        } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to report this to
        }
    }

    ClientHandler* handler_;
    std::chrono::nanoseconds delayUnit_;
    std::string host_;
    std::uint32_t port_ = 0;
    std::int32_t reconnectDelay_ = 0;
    std::string deviceId_;
    std::string deviceKey_;
    bool autoReconnect_ = false;
    boost::asio::io_context loop_{1};  // run by one thread
    boost::asio::strand<boost::asio::io_context::executor_type> strand_{loop_.get_executor()};
    Tcp::resolver resolver_{strand_};
    boost::asio::steady_timer reconnectTimer_{strand_};
    /// Keeps the loop running during a look-up, which is not the loop's own work.
    std::optional<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>>
        resolving_;
    ConnectionPtr attempt_;  ///< being opened; a completion for another one is out of date
    ConnectionPtr current_;
    std::vector<std::weak_ptr<Connection>> connections_;  ///< all that were opened and still live
};

}  // namespace Orvik::PushInterface::Detail
