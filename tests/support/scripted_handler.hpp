// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/datasource/protocol_handler.hpp"
#include "orvik/pushinterface/client.hpp"
#include "orvik/pushinterface/device.hpp"
#include "orvik/pushinterface/tag.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace TestSupport {

struct FakeTag : Orvik::PushInterface::Tag {};

/// Accepts everything, and keeps the tags; a test sets what it refuses.
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

/// What handler and push client see of a run, in one order: "connect", "write: @…".
class Calls {
  public:
    void add(const std::string& call) {
        {
            const std::lock_guard lock{mutex_};
            calls_.push_back(call);
        }
        changed_.notify_all();
    }
    [[nodiscard]] std::vector<std::string> all() const {
        const std::lock_guard lock{mutex_};
        return calls_;
    }
    /// Waits until the call was made so many times.
    [[nodiscard]] bool await(const std::string& call, std::ptrdiff_t times = 1) {
        std::unique_lock lock{mutex_};
        const bool came = changed_.wait_for(lock, std::chrono::seconds{20}, [&] {
            return std::count(calls_.begin(), calls_.end(), call) >= times;
        });
        EXPECT_TRUE(came) << "no '" << call << "' in " << testing::PrintToString(calls_);
        return came;
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> calls_;
};

/// A push client that only notes what is written.
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
