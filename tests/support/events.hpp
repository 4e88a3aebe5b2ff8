// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace TestSupport {

/// Events in order; any thread may add to them.
class Events {
  public:
    void add(const std::string& event) {
        {
            const std::lock_guard lock{mutex_};
            events_.push_back(event);
        }
        changed_.notify_all();
    }

    [[nodiscard]] std::vector<std::string> all() const {
        const std::lock_guard lock{mutex_};
        return events_;
    }

    /// Waits until an event was added that many times. @return false at the limit
    [[nodiscard]] bool await(const std::string& event, std::ptrdiff_t times = 1) {
        std::unique_lock lock{mutex_};
        const bool came = changed_.wait_for(lock, std::chrono::seconds{20}, [&] {
            return std::count(events_.begin(), events_.end(), event) >= times;
        });
        EXPECT_TRUE(came) << "no '" << event << "' in " << testing::PrintToString(events_);
        seen_ = events_.rend() - std::find(events_.rbegin(), events_.rend(), event);
        return came;
    }

    /// Waits for `count` events after the last that this or `await` has seen. @return them
    [[nodiscard]] std::vector<std::string> next(std::ptrdiff_t count) {
        std::unique_lock lock{mutex_};
        const auto first = std::exchange(seen_, seen_ + count);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds{20},
                                      [&] { return std::ssize(events_) >= seen_; }));
        seen_ = std::min(seen_, std::ssize(events_));
        return {events_.begin() + first, events_.begin() + seen_};
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
    std::ptrdiff_t seen_ = 0;
};

}  // namespace TestSupport
