// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/detail/send_queue.hpp"

#include <cstddef>
#include <memory>
#include <optional>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/system/error_code.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * One TCP connection to the steward, made anew for every attempt and never reused. Used on the
 * client thread only. Every pending operation on it shares its ownership, so it is destroyed, and
 * its socket closed, when the last one has completed.
 */
struct Connection {
    template <typename Executor>
    explicit Connection(const Executor& executor) : socket{executor} {
        renewReadBuffer();
    }

    /// A connect can meet itself when nobody listens and the system picks the steward's port as the
    /// local one. It must not hold that port, not even for the time that a closed connection does.
    [[nodiscard]] bool closeIfConnectedToItself() {
        boost::system::error_code ignored;
        if (socket.local_endpoint(ignored) != socket.remote_endpoint(ignored)) {
            return false;
        }
        socket.set_option(boost::asio::socket_base::linger{true, 0}, ignored);
        socket.close(ignored);
        return true;
    }

    /// Sets up the socket once it is connected.
    void configureSocket() {
        boost::system::error_code ignored;
        socket.non_blocking(true, ignored);
        static constexpr struct {
            int level;
            int name;
            int value;
        } options[] = {
            // Else the short line after each batch would wait for the batch to be acknowledged
            {IPPROTO_TCP, TCP_NODELAY, 1},
            // A host that vanishes is noticed after two minutes, whether or not lines are on the
            // way
            {SOL_SOCKET, SO_KEEPALIVE, 1},
            {IPPROTO_TCP, TCP_KEEPIDLE, 60},   // seconds without traffic
            {IPPROTO_TCP, TCP_KEEPINTVL, 10},  // seconds, and so often:
            {IPPROTO_TCP, TCP_KEEPCNT, 6},
            {IPPROTO_TCP, TCP_USER_TIMEOUT, 120'000},  // milliseconds
        };
        for (const auto& [level, name, value] : options) {
            ::setsockopt(socket.native_handle(), level, name, &value, sizeof value);
        }
    }

    /// Makes it small again. It must be empty.
    void renewReadBuffer() {
        constexpr std::size_t initialCapacity = 128;
        readBuffer.emplace().prepare(initialCapacity);
    }

    /// Sends what the system takes of the front line, once. Tells it when another line follows, so
    /// that both can leave in one packet. @return success once the line is sent as a whole
    [[nodiscard]] boost::system::error_code sendFront() {
        boost::system::error_code error;
        const auto rest = boost::asio::buffer(sendQueue.front()) + sentOfFront;
        sentOfFront += socket.send(rest, sendQueue.size() > 1 ? MSG_MORE : 0, error);
        if (!error && sentOfFront < sendQueue.front().size()) {
            return boost::asio::error::would_block;
        }
        if (!error) {
            sentOfFront = 0;
        }
        return error;
    }

    boost::asio::ip::tcp::socket socket;
    SendQueue sendQueue;          ///< lines with their line feed; the front is being written
    std::size_t sentOfFront = 0;  ///< bytes
    /// Received and not yet consumed; grows as needed. Always there.
    std::optional<boost::asio::streambuf> readBuffer;
    std::size_t droppedBatches = 0;  ///< since the backlog was full; not reported yet
    bool helloReceived = false;
    bool disconnecting = false;  ///< "EXIT" is queued; nothing may follow it
    bool readEnded = false;      ///< lost or closed by the steward; a write may still be pending
};

using ConnectionPtr = std::shared_ptr<Connection>;

}  // namespace Orvik::PushInterface::Detail
