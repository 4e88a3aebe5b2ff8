// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/detail/send_queue.hpp"

#include <cstddef>
#include <memory>
#include <optional>

#include <sys/socket.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
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
