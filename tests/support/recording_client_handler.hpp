// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client_handler.hpp"
#include "support/events.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

/// Records what a client reports, as "operation: text". May throw or clear flags on demand.
class RecordingClientHandler final : public Orvik::PushInterface::ClientHandler {
  public:
    /// Called inside every operation, after it was recorded; may throw.
    std::function<void(const std::string& operation)> during = [](const std::string&) {};
    std::optional<bool> answers;  ///< the value for every flag

    [[nodiscard]] std::vector<std::string> events() const { return events_.all(); }
    [[nodiscard]] bool await(const std::string& event, std::ptrdiff_t times = 1) {
        return events_.await(event, times);
    }
    [[nodiscard]] std::vector<std::string> next(std::ptrdiff_t count) {
        return events_.next(count);
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
        events_.add(event);
        during(operation);
    }

    Events events_;
};

}  // namespace TestSupport
