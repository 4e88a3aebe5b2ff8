// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/detail/send_queue.hpp"

#include <cstddef>
#include <memory>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/streambuf.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * One TCP connection to the steward, made anew for every attempt and never reused. Used on the
 * client thread only. Every pending operation on it shares its ownership, so it is destroyed, and
 * its socket closed, when the last one has completed.
 */
struct Connection {
    template <typename Executor>
    explicit Connection(const Executor& executor) : socket{executor} {
        constexpr std::size_t initialCapacity = 128;
        readBuffer.prepare(initialCapacity);
    }

    boost::asio::ip::tcp::socket socket;
    SendQueue sendQueue;                ///< lines with their line feed; the front is being written
    boost::asio::streambuf readBuffer;  ///< received and not yet consumed; grows as needed
    std::size_t droppedBatches = 0;     ///< since the backlog was full; not reported yet
    bool helloReceived = false;
    bool disconnecting = false;  ///< "EXIT" is queued; nothing may follow it
    bool readEnded = false;      ///< lost or closed by the steward; a write may still be pending
};

using ConnectionPtr = std::shared_ptr<Connection>;

}  // namespace Orvik::PushInterface::Detail
