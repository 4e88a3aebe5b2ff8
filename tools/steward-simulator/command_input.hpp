// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

namespace StewardSimulator {

/// Lines of the standard input, until it ends or cannot be read.
class CommandInput {
  public:
    CommandInput(boost::asio::io_context& context,
                 std::function<void(std::string_view line)> onLine);

    void read();

  private:
    boost::asio::posix::stream_descriptor stream_;
    const std::function<void(std::string_view line)> onLine_;
    std::string buffer_;
};

}  // namespace StewardSimulator
