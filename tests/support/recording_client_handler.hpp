// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace TestSupport {

/// Records what a client reports, as "operation: text". May throw or clear flags on demand.
class RecordingClientHandler final : public Orvik::PushInterface::ClientHandler {
  public:
    /// Called inside every operation, behind the record; may throw.
    std::function<void(const std::string& operation)> during = [](const std::string&) {};
    bool clearFlags = false;  ///< decline every automatic answer

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

    void onConnected() override { record("onConnected"); }
    void onReconnecting(const std::string& reason) override { record("onReconnecting", reason); }
    void onDisconnected() override { record("onDisconnected"); }
    void onRead(const std::string& line) override { record("onRead", line); }
    void onWrite(const std::string& line) override { record("onWrite", line); }
    void onClientError(const std::string& text) override { record("onClientError", text); }
    void onHelo(const std::string& text, bool& sendDevc) override {
        clear(sendDevc);
        record("onHelo", text);
    }
    void onDevc(bool accepted, bool& requestInfo) override {
        clear(requestInfo);
        record("onDevc", accepted ? "accepted" : "refused");
    }
    void onInfo(const std::string& info) override { record("onInfo", info); }
    void onIfch(bool& requestInfo) override {
        clear(requestInfo);
        record("onIfch");
    }
    void onIfch(const std::string& argument, bool& requestInfo) override {
        clear(requestInfo);
        record("onIfch", argument);
    }
    void onRtch(bool on) override { record("onRtch", on ? "on" : "off"); }
    void onEror(const std::string& text) override { record("onEror", text); }
    void onTgnf(const std::string& text) override { record("onTgnf", text); }
    void onInvl(const std::string& text) override { record("onInvl", text); }
    void onToof(const std::string& text) override { record("onToof", text); }

  private:
    void clear(bool& flag) const { flag = flag && !clearFlags; }

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
};

}  // namespace TestSupport
