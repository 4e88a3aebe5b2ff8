// SPDX-License-Identifier: MIT
#include "steward-simulator/output.hpp"

#include "steward-simulator/descriptor.hpp"

#include <chrono>
#include <utility>

#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>

namespace StewardSimulator {
namespace {

constexpr std::size_t mostWaiting = 1U << 20U;

}  // namespace

Output::Output(boost::asio::io_context& context)
    : stream_{standardStream(context, STDOUT_FILENO)}, deadline_{context} {}

void Output::write(std::string_view text) {
    if (waiting_.size() + text.size() > mostWaiting) {
        ++dropped_;
        return;
    }
    waiting_ += text;
    start();
}

void Output::finish(std::string_view text, std::function<void()> onFinished) {
    onFinished_ = std::move(onFinished);
    deadline_.expires_after(std::chrono::seconds{1});
    deadline_.async_wait([this](const boost::system::error_code&) { reportFinished(); });
    waiting_ += text;
    start();
}

void Output::start() {
    if (!isIdle()) {
        return;
    }
    if (waiting_.empty() || !stream_.is_open()) {
        waiting_.clear();
        return reportFinished();
    }
    if (const auto dropped = std::exchange(dropped_, 0); dropped != 0) {
        waiting_ += "(" + std::to_string(dropped) + " updates dropped for a slow reader)\n";
    }
    std::swap(waiting_, writing_);
    boost::asio::async_write(
        stream_, boost::asio::buffer(writing_),
        [this](const boost::system::error_code& error, std::size_t) { onWritten(error); });
}

void Output::onWritten(const boost::system::error_code& error) {
    writing_.clear();
    if (error) {  // the reader is gone; keep serving the device
        boost::system::error_code ignored;
        stream_.close(ignored);
    }
    start();
}

void Output::reportFinished() const {
    if (onFinished_) {
        onFinished_();
    }
}

}  // namespace StewardSimulator
