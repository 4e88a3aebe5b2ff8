// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/free_memory.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/asio/buffer.hpp>

namespace Orvik::PushInterface::Detail {

/**
 * The lines to be written on one connection, in order, each with its line feed. Limits what the
 * data source may add while the server does not read, and counts what is lost.
 */
class SendQueue {
  public:
    SendQueue() = default;
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;
    ~SendQueue() {
        lines_.clear();
        returnMemory();
    }

    [[nodiscard]] bool empty() const noexcept { return lines_.empty(); }
    [[nodiscard]] const std::string& front() const noexcept { return lines_.front(); }

    void push(std::string line) {
        backlog_ += costOf(line);
        peak_ = std::max(peak_, backlog_);
        lines_.push_back(std::move(line));
    }

    /**
     * Adds a value batch or named value. While the backlog is full, a value batch is dropped
     * whole, and a named value takes the place of the last line if that has the same name: then
     * only the latest state counts. An empty queue accepts a line of any size.
     *
     * @return what is to be reported; empty for nothing
     */
    [[nodiscard]] std::string pushValue(std::string line) {
        const bool isFull = !lines_.empty() && backlog_ + costOf(line) > backlogLimit;
        if (isFull && !isNamedValue(line)) {
            return droppedBatches_++ == 0
                       ? "Dropping value batches because the server does not read"
                       : "";
        }
        if (isFull && lines_.size() > 1 && lines_.back().starts_with(nameOf(line))) {
            backlog_ -= costOf(lines_.back());
            lines_.pop_back();
        }
        push(std::move(line));
        return {};
    }

    /// The bytes to send next; they stay in the queue.
    [[nodiscard]] std::vector<boost::asio::const_buffer> unsent() const {
        constexpr std::size_t linesAtOnce = 16;
        std::vector<boost::asio::const_buffer> buffers;
        buffers.reserve(std::min(lines_.size(), linesAtOnce));
        for (const auto& line : lines_) {
            if (buffers.size() == linesAtOnce) {
                break;
            }
            buffers.push_back(boost::asio::buffer(line));
        }
        buffers.front() += sentOfFront_;
        return buffers;
    }

    /// Notes how many more bytes were sent; `popSent` then gives the completely sent lines.
    void addSent(std::size_t bytes) noexcept { sentOfFront_ += bytes; }

    /// Takes the front line if it was sent as a whole.
    [[nodiscard]] std::optional<std::string> popSent() {
        if (lines_.empty() || sentOfFront_ < lines_.front().size()) {
            return std::nullopt;
        }
        auto line = std::move(lines_.front());
        lines_.pop_front();
        sentOfFront_ -= line.size();
        backlog_ -= costOf(line);
        if (lines_.empty()) {
            returnMemory();
        }
        return line;
    }

    /// Whether the backlog is below half the limit, where a loss ends (hysteresis).
    [[nodiscard]] bool isRelieved() const noexcept { return backlog_ < backlogLimit / 2; }

    /// Resets the count of lost batches. @return the report; empty if nothing was lost
    [[nodiscard]] std::string takeLoss() {
        const auto count = std::exchange(droppedBatches_, 0);
        if (count == 0) {
            return {};
        }
        return "Dropped " + std::to_string(count) +
               (count == 1 ? " value batch" : " value batches") +
               " because the server did not read";
    }

  private:
    /// Largest backlog, in bytes of memory, with which a new batch is still queued.
    static constexpr std::size_t backlogLimit = 64'000'000;

    /// In memory: the line, its object in the queue, plus the allocator's overhead.
    static std::size_t costOf(const std::string& line) noexcept {
        return 2 * sizeof(std::string) + line.capacity();
    }

    /// With its "="; the whole line where there is none.
    static std::string_view nameOf(std::string_view line) noexcept {
        const auto end = line.find('=');
        return end == std::string_view::npos ? line : line.substr(0, end + 1);
    }

    void returnMemory() noexcept {
        if (std::exchange(peak_, 0) > backlogLimit / 4) {
            returnFreeMemory();
        }
    }

    std::deque<std::string> lines_;
    std::size_t sentOfFront_ = 0;  ///< bytes
    std::size_t backlog_ = 0;
    std::size_t peak_ = 0;            ///< largest backlog since the memory was last returned
    std::size_t droppedBatches_ = 0;  ///< since the backlog was full; not reported yet
};

}  // namespace Orvik::PushInterface::Detail
