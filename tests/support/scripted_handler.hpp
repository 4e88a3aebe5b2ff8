// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/datasource/protocol_handler.hpp"
#include "orvik/pushinterface/client.hpp"
#include "orvik/pushinterface/device.hpp"
#include "orvik/pushinterface/tag.hpp"
#include "support/events.hpp"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

struct FakeTag : Orvik::PushInterface::Tag {};

/// Accepts everything and keeps the tags; a test sets what to refuse.
struct FakeDevice : Orvik::PushInterface::Device {
    std::string setProtocolOption(const std::string& key, const std::string& value) override {
        options.emplace_back(key, value);
        return key == refuse ? "no " + key : "";
    }
    std::string parseTag(FakeTag& tag) const { return tag.address == refuse ? "no address" : ""; }
    std::string addTag(const std::shared_ptr<FakeTag>& tag) {
        tags.push_back(tag);
        return tags.size() > maxTags ? "no room" : "";
    }
    std::string parseDevice() const { return refuse == "device" ? "no device" : ""; }

    std::string refuse = "nothing";
    std::size_t maxTags = 100'000;
    std::vector<std::pair<std::string, std::string>> options;
    std::vector<std::shared_ptr<FakeTag>> tags;
};

/// Calls to handler and push client in a run, in order: "connect", "write: @…".
using Calls = Events;

/// A push client that only records what is written.
class RecordingPushClient final : public Orvik::PushInterface::Client {
  public:
    explicit RecordingPushClient(std::shared_ptr<Calls> calls)
        : Client{nullptr}, calls_{std::move(calls)} {}
    void write(std::string message) override { calls_->add("write: " + message); }

  private:
    std::shared_ptr<Calls> calls_;
};

/// Answers each operation with the next of its results, then with success.
class ScriptedHandler final : public Orvik::DataSource::ProtocolHandler<FakeDevice, FakeTag> {
  public:
    explicit ScriptedHandler(std::shared_ptr<Calls> calls) : calls_{std::move(calls)} {}

    std::map<std::string, std::vector<std::string>> results;  ///< by operation
    /// Called inside every operation; may throw.
    std::function<void(const std::string& operation)> during = [](const std::string&) {};

    void init() override { next("init"); }
    void deinit() override { next("deinit"); }
    std::string connect(FakeDevice& /*device*/) override { return next("connect"); }
    void disconnect(FakeDevice& /*device*/) override { next("disconnect"); }
    std::string verifyTags(FakeDevice& /*device*/) override { return next("verifyTags"); }
    std::string pullData(FakeDevice& /*device*/,
                         Orvik::PushInterface::Client& /*client*/) override {
        return next("pullData");
    }
    std::string keepAlive(FakeDevice& /*device*/) override { return next("keepAlive"); }

  private:
    std::string next(const std::string& operation) {
        calls_->add(operation);
        during(operation);
        const auto index = used_[operation]++;
        const auto& script = results[operation];
        return index < script.size() ? script[index] : "";
    }

    std::shared_ptr<Calls> calls_;
    std::map<std::string, std::size_t> used_;
};

}  // namespace TestSupport
