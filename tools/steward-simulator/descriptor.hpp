// SPDX-License-Identifier: MIT
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace StewardSimulator {

/// Opens the null device for each standard stream that is closed, so that no socket gets its
/// number.
void occupyStandardStreams();

/**
 * A standard stream for asynchronous use. Reopened where the system allows it: non-blocking mode
 * belongs to the open description and would affect every other program on the same terminal or
 * pipe.
 *
 * @param number 0 or 1
 * @return closed if it cannot be opened
 */
[[nodiscard]] boost::asio::posix::stream_descriptor standardStream(boost::asio::io_context& context,
                                                                   int number);

}  // namespace StewardSimulator
