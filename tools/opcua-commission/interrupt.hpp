// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace OpcUaCommission {

/// From now on SIGINT, SIGTERM and SIGHUP only set a flag, and interrupt reads from the terminal.
void watchForInterrupt();

/// Whether one of them came. Then work stops, and what has been found is printed.
[[nodiscard]] bool isInterrupted() noexcept;

/**
 * Ends the process soon after an interrupt, also during a call that waits seconds for the server.
 *
 * The creating thread holds a lock, except inside `await`. If it is still there half a second after
 * an interrupt, another thread takes the lock, prints what has been found and ends the process.
 */
class InterruptWatchdog {
  public:
    /// @param finish prints what has been found; returns the exit status
    explicit InterruptWatchdog(std::function<int()> finish);
    ~InterruptWatchdog();
    InterruptWatchdog(const InterruptWatchdog&) = delete;
    InterruptWatchdog& operator=(const InterruptWatchdog&) = delete;

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
