// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/detail/send_queue.hpp"

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/socket_base.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/system/error_code.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * One TCP connection to the steward, created for one attempt and never reused. Used on the
 * client thread only. Every pending operation on it shares its ownership, so it is destroyed, and
 * its socket closed, when the last one has completed.
 */
struct Connection {
    template <typename Executor>
    explicit Connection(const Executor& executor) : socket{executor} {
        renewReadBuffer();
    }

    /// TCP self-connect: with nobody listening, the system may choose the steward's port as the
    /// local port. Closed with a reset, since TIME_WAIT would keep that port busy.
    [[nodiscard]] bool closeIfConnectedToItself() {
        boost::system::error_code ignored;
        if (socket.local_endpoint(ignored) != socket.remote_endpoint(ignored)) {
            return false;
        }
        socket.set_option(boost::asio::socket_base::linger{true, 0}, ignored);
        close();
        return true;
    }

    /// Every pending operation completes with an error.
    void close() {
        boost::system::error_code ignored;
        socket.close(ignored);
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
            // Otherwise the short line after each batch would wait for the batch to be acknowledged
            // (Nagle)
            {IPPROTO_TCP, TCP_NODELAY, 1},
            // A host that vanishes is noticed after two minutes, whether or not lines are unsent
            {SOL_SOCKET, SO_KEEPALIVE, 1},
            {IPPROTO_TCP, TCP_KEEPIDLE, 60},           // seconds without traffic
            {IPPROTO_TCP, TCP_KEEPINTVL, 10},          // seconds between probes
            {IPPROTO_TCP, TCP_KEEPCNT, 6},             // probes
            {IPPROTO_TCP, TCP_USER_TIMEOUT, 120'000},  // milliseconds
        };
        for (const auto& [level, name, value] : options) {
            ::setsockopt(socket.native_handle(), level, name, &value, sizeof value);
        }
    }

    /// Releases the memory of a large line unless received bytes are unconsumed. @return whether it
    /// did
    bool shrinkReadBuffer() {
        constexpr std::size_t worthwhile = 131072;  // bytes: far more than other lines ever need
        if (readBuffer->size() != 0 || readBuffer->capacity() <= worthwhile) {
            return false;
        }
        renewReadBuffer();
        return true;
    }

    boost::asio::ip::tcp::socket socket;
    SendQueue sendQueue;
    /// Received and not yet consumed; grows as needed. Optional only so that it can be
    /// replaced; never empty.
    std::optional<boost::asio::streambuf> readBuffer;
    bool helloReceived = false;  ///< greeted by the steward
    bool disconnecting = false;  ///< "EXIT" is queued; nothing may follow it
    bool readEnded = false;      ///< lost or closed by the steward; a write may still be pending

  private:
    void renewReadBuffer() {
        constexpr std::size_t initialCapacity = 128;
        readBuffer.emplace().prepare(initialCapacity);
    }
};

using ConnectionPtr = std::shared_ptr<Connection>;

/// Connections still alive, so that those which are no longer current can be closed and the loop
/// can end.
class OpenedConnections {
  public:
    void add(const ConnectionPtr& connection) {
        std::erase_if(connections_, [](const auto& weak) { return weak.expired(); });
        connections_.push_back(connection);
    }

    template <typename Predicate>
    void closeIf(Predicate predicate) {
        for (const auto& weak : connections_) {
            if (const auto connection = weak.lock(); connection && predicate(*connection)) {
                connection->close();
            }
        }
    }

  private:
    std::vector<std::weak_ptr<Connection>> connections_;
};

}  // namespace Orvik::PushInterface::Detail
