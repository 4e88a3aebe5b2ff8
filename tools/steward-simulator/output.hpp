// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

namespace StewardSimulator {

/// Standard output that never waits for its reader: what a slow reader leaves no room for is
/// dropped.
class Output {
  public:
    explicit Output(boost::asio::io_context& context);

    /// Queues a text, or drops it whole if too much is waiting already.
    void write(std::string_view text);

    /// True if nothing waits; a view that can skip an update asks before it makes one.
    [[nodiscard]] bool isIdle() const noexcept { return writing_.empty(); }

    /**
     * Queues the last text however much is waiting, and gives the reader one second to read it.
     *
     * @param onFinished called when everything is written or the time is over
     */
    void finish(std::string_view text, std::function<void()> onFinished);

  private:
    void start();
    void onWritten(const boost::system::error_code& error);
    void reportFinished() const;

    boost::asio::posix::stream_descriptor stream_;
    boost::asio::steady_timer deadline_;
    std::string waiting_;
    std::string writing_;
    std::uint64_t dropped_ = 0;
    std::function<void()> onFinished_;
};

}  // namespace StewardSimulator
