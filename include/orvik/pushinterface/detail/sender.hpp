// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"
#include "orvik/pushinterface/detail/connection.hpp"
#include "orvik/pushinterface/detail/event_loop.hpp"
#include "orvik/pushinterface/detail/notifier.hpp"

#include <string>
#include <utility>

#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>

namespace Orvik::PushInterface::Detail {

/// Sends lines on a connection, in order, and reports what was sent or lost. Used on the client
/// thread only.
class Sender {
  public:
    Sender(Notifier& notifier, EventLoop& loop) : notifier_{notifier}, loop_{loop} {}

    enum class Origin { client, dataSource };

    /// Queues a line, and sends it as soon as the socket accepts it. @param message without last
    /// line feed @param origin lines of the data source are limited, see `SendQueue`
    void send(const ConnectionPtr& connection, std::string message,
              Origin origin = Origin::client) {
        if (!connection || connection->disconnecting) {
            notifier_.report(connection ? "Cannot write when already disconnecting"
                                        : "Cannot write without an active connection");
            return;
        }
        auto& queue = connection->sendQueue;
        const bool isFirst = queue.empty();
        message += '\n';
        if (origin == Origin::dataSource) {
            notifier_.report(queue.pushValue(std::move(message)));
        } else {
            queue.push(std::move(message));
        }
        if (isFirst) {  // posted, so that a batch and the error value after it go out in one packet
            loop_.post([=, this] { startWrite(connection); });
        }
    }

  private:
    using ErrorCode = boost::system::error_code;
    using Socket = boost::asio::ip::tcp::socket;

    /// Sends as many waiting lines as the socket accepts without blocking.
    void startWrite(const ConnectionPtr& connection) {
        ErrorCode error;
        const auto sent = connection->socket.send(connection->sendQueue.unsent(), 0, error);
        connection->sendQueue.addSent(sent);
        const bool isFailure = error && error != boost::asio::error::would_block &&
                               error != boost::asio::error::interrupted;
        handleWrite(connection, isFailure ? error : ErrorCode{});
    }

    void handleWrite(const ConnectionPtr& connection, ErrorCode error) {
        auto& queue = connection->sendQueue;
        if (error) {
            // The failed line stays at the front: a queue that is not empty starts no write
            notifier_.report("Write failed - socket error: '" + queue.front() + "'");
            // Ends the read side too: after ENOBUFS, for example, the connection itself is intact
            ErrorCode ignored;
            connection->socket.shutdown(Socket::shutdown_both, ignored);
            return;
        }
        while (auto line = queue.popSent()) {
            notifier_.post("onWrite", &ClientHandler::onWrite, std::move(*line));
        }
        if (queue.isRelieved()) {
            notifier_.report(queue.takeLoss());
        }
        if (!queue.empty()) {
            awaitRoom(connection);
        }
    }

    void awaitRoom(const ConnectionPtr& connection) {
        connection->socket.async_wait(Socket::wait_write, [=, this](ErrorCode error) {
            error ? handleWrite(connection, error) : startWrite(connection);
        });
    }

    Notifier& notifier_;
    EventLoop& loop_;
};

}  // namespace Orvik::PushInterface::Detail
