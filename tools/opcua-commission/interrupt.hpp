// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace OpcUaCommission {

/// From now on SIGINT, SIGTERM and SIGHUP only set a flag, and interrupt waits for the terminal.
void watchForInterrupt();

/// Whether one of them came. Work stops then and prints what there is.
[[nodiscard]] bool isInterrupted() noexcept;

/**
 * Ends the process soon after an interrupt, also while the server lets us wait for seconds.
 *
 * The creating thread holds a lock, except inside `await`. If it is still in there half a second
 * after an interrupt, another thread takes the lock, prints what there is and ends the process.
 */
class ImpatientEnd {
  public:
    /// @param finish prints what there is; returns the exit status
    explicit ImpatientEnd(std::function<int()> finish);
    ~ImpatientEnd();
    ImpatientEnd(const ImpatientEnd&) = delete;
    ImpatientEnd& operator=(const ImpatientEnd&) = delete;

    /// Calls what waits for the server.
    template <typename Call>
    static auto await(Call call) {
        const Unlocked unlocked;
        return call();
    }

  private:
    struct Unlocked {
        Unlocked();
        ~Unlocked();
        Unlocked(const Unlocked&) = delete;
        Unlocked& operator=(const Unlocked&) = delete;
    };

    void watch();

    static std::mutex* lock_;  // of the only instance

    std::function<int()> finish_;
    std::mutex mutex_;
    std::atomic<bool> isOver_ = false;
    std::thread watcher_;
};

}  // namespace OpcUaCommission
