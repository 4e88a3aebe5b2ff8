// SPDX-License-Identifier: MIT
#include "opcua-commission/interrupt.hpp"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace OpcUaCommission {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds pollInterval{50};
constexpr milliseconds gracePeriod{500};

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);  // a signal handler may use no other

}  // namespace

void watchForInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = true; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

bool isInterrupted() noexcept {
    return interrupted;
}

std::mutex* InterruptWatchdog::lock_ = nullptr;

InterruptWatchdog::InterruptWatchdog(std::function<int()> finish) : finish_{std::move(finish)} {
    mutex_.lock();
    lock_ = &mutex_;
    watcher_ = std::thread{[this] { watch(); }};
}

InterruptWatchdog::~InterruptWatchdog() {
    lock_ = nullptr;
    isOver_ = true;
    mutex_.unlock();
    watcher_.join();
}

void InterruptWatchdog::watch() {
    while (!isOver_ && !interrupted) {
        std::this_thread::sleep_for(pollInterval);
    }
    for (milliseconds waited{0}; !isOver_ && waited < gracePeriod; waited += pollInterval) {
        std::this_thread::sleep_for(pollInterval);
    }
    const std::lock_guard lock{mutex_};
    if (!isOver_) {
        std::_Exit(finish_());
    }
}

InterruptWatchdog::Unlocked::Unlocked() {
    if (lock_ != nullptr) {
        lock_->unlock();
    }
}

InterruptWatchdog::Unlocked::~Unlocked() {
    if (lock_ != nullptr) {
        lock_->lock();
    }
}

}  // namespace OpcUaCommission
