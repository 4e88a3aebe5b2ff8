// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/detail/free_memory.hpp"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>

namespace Orvik::PushInterface::Detail {

/// The lines that wait to be written on one connection, in order, with what they take in memory.
class SendQueue {
  public:
    /// How much may wait, in bytes of memory, when another value batch comes.
    static constexpr std::size_t backlogLimit = 64'000'000;

    SendQueue() = default;
    SendQueue(const SendQueue&) = delete;
    SendQueue& operator=(const SendQueue&) = delete;
    ~SendQueue() {
        lines_.clear();
        returnMemory();
    }

    [[nodiscard]] bool empty() const noexcept { return lines_.empty(); }
    [[nodiscard]] std::size_t size() const noexcept { return lines_.size(); }
    [[nodiscard]] const std::string& front() const noexcept { return lines_.front(); }
    [[nodiscard]] std::size_t backlog() const noexcept { return backlog_; }

    /// A batch that finds nothing waiting is never too large.
    [[nodiscard]] bool hasRoomFor(const std::string& batch) const noexcept {
        return lines_.empty() || backlog_ + costOf(batch) <= backlogLimit;
    }

    /// Puts a named value in the place of the last line if that has the same name and is not being
    /// written yet. @return whether it did
    [[nodiscard]] bool replaceLast(const std::string& line) {
        const auto name = line.substr(0, line.find('=') + 1);
        if (lines_.size() < 2 || !lines_.back().starts_with(name)) {
            return false;
        }
        backlog_ -= costOf(lines_.back());
        lines_.pop_back();
        push(line);
        return true;
    }

    void push(std::string line) {
        backlog_ += costOf(line);
        peak_ = std::max(peak_, backlog_);
        lines_.push_back(std::move(line));
    }

    [[nodiscard]] std::string pop() {
        auto line = std::move(lines_.front());
        lines_.pop_front();
        backlog_ -= costOf(line);
        if (lines_.empty()) {
            returnMemory();
        }
        return line;
    }

  private:
    /// The line, its object in the queue, and at most as much again for the memory's management.
    static std::size_t costOf(const std::string& line) noexcept {
        return 2 * sizeof(std::string) + line.size();
    }

    void returnMemory() noexcept {
        if (std::exchange(peak_, 0) > backlogLimit / 4) {
            returnFreeMemory();
        }
    }

    std::deque<std::string> lines_;
    std::size_t backlog_ = 0;
    std::size_t peak_ = 0;  ///< largest backlog since the memory was last returned
};

}  // namespace Orvik::PushInterface::Detail
