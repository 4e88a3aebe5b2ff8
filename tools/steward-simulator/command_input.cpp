// SPDX-License-Identifier: MIT
#include "steward-simulator/command_input.hpp"

#include "steward-simulator/descriptor.hpp"

#include <cstddef>
#include <utility>

#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/system/error_code.hpp>

namespace StewardSimulator {

CommandInput::CommandInput(boost::asio::io_context& context,
                           std::function<void(std::string_view line)> onLine)
    : stream_{standardStream(context, STDIN_FILENO)}, onLine_{std::move(onLine)} {}

void CommandInput::read() {
    if (!stream_.is_open()) {
        return;
    }
    boost::asio::async_read_until(
        stream_, boost::asio::dynamic_buffer(buffer_), '\n',
        [this](const boost::system::error_code& error, std::size_t length) {
            if (error) {
                return;
            }
            const auto line = buffer_.substr(0, length - 1);
            buffer_.erase(0, length);
            onLine_(line);
            read();
        });
}

}  // namespace StewardSimulator
