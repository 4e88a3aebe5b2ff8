// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace TestSupport {

/// Records what a client reports, as "operation: text". May throw or clear flags on demand.
class RecordingClientHandler final : public Orvik::PushInterface::ClientHandler {
  public:
    /// Called inside every operation, after it was recorded; may throw.
    std::function<void(const std::string& operation)> during = [](const std::string&) {};
    std::optional<bool> answers;  ///< what every flag is set to: decline or insist

    [[nodiscard]] std::vector<std::string> events() const {
        const std::lock_guard lock{mutex_};
        return events_;
    }

    /// Waits until an event was recorded so many times. @return false at the limit
    [[nodiscard]] bool await(const std::string& event, std::ptrdiff_t times = 1) {
        std::unique_lock lock{mutex_};
        const bool came = changed_.wait_for(lock, std::chrono::seconds{20}, [&] {
            return std::count(events_.begin(), events_.end(), event) >= times;
        });
        EXPECT_TRUE(came) << "no '" << event << "' in " << testing::PrintToString(events_);
        return came;
    }

    /// Waits for so many events after those that this returned before. @return them
    [[nodiscard]] std::vector<std::string> next(std::ptrdiff_t count) {
        std::unique_lock lock{mutex_};
        const auto first = std::exchange(seen_, seen_ + count);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds{20},
                                      [&] { return std::ssize(events_) >= seen_; }));
        seen_ = std::min(seen_, std::ssize(events_));
        return {events_.begin() + first, events_.begin() + seen_};
    }

    void onConnected() override { record("onConnected"); }
    void onReconnecting(const std::string& reason) override { record("onReconnecting", reason); }
    void onDisconnected() override { record("onDisconnected"); }
    void onRead(const std::string& line) override { record("onRead", line); }
    void onWrite(const std::string& line) override { record("onWrite", line); }
    void onClientError(const std::string& text) override { record("onClientError", text); }
    void onHelo(const std::string& text, bool& sendDevc) override {
        decide(sendDevc);
        record("onHelo", text);
    }
    void onDevc(bool accepted, bool& requestInfo) override {
        decide(requestInfo);
        record("onDevc", accepted ? "accepted" : "refused");
    }
    void onInfo(const std::string& info) override { record("onInfo", info); }
    void onIfch(bool& requestInfo) override {
        decide(requestInfo);
        record("onIfch");
    }
    void onIfch(const std::string& argument, bool& requestInfo) override {
        decide(requestInfo);
        record("onIfch", argument);
    }
    void onRtch(bool on) override { record("onRtch", on ? "on" : "off"); }
    void onEror(const std::string& text) override { record("onEror", text); }
    void onTgnf(const std::string& text) override { record("onTgnf", text); }
    void onInvl(const std::string& text) override { record("onInvl", text); }
    void onToof(const std::string& text) override { record("onToof", text); }

  private:
    void decide(bool& flag) const { flag = answers.value_or(flag); }

    void record(const std::string& operation) { add(operation, operation); }
    void record(const std::string& operation, const std::string& text) {
        add(operation, operation + ": " + text);
    }
    void add(const std::string& operation, const std::string& event) {
        {
            const std::lock_guard lock{mutex_};
            events_.push_back(event);
        }
        changed_.notify_all();
        during(operation);
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
    std::ptrdiff_t seen_ = 0;  ///< by `next`
};

}  // namespace TestSupport
