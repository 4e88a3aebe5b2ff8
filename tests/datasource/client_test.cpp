// SPDX-License-Identifier: MIT
#include "orvik/datasource/client.hpp"

#include "support/recording_sink.hpp"
#include "support/scripted_handler.hpp"

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace TestSupport;
using namespace std::chrono_literals;
using Orvik::DataSource::Detail::Settings;
using DataSource = Orvik::DataSource::Client<ScriptedHandler, RecordingPushClient>;

constexpr std::uint32_t hour = 3'600'000;
constexpr Settings longDelays{
    .reconnectDelay = hour, .verifyFailDelay = hour, .keepAliveInterval = hour};

class DataSourceClientTest : public testing::Test {
  protected:
    std::shared_ptr<ScriptedHandler> newHandler() {
        return std::make_shared<ScriptedHandler>(calls);
    }
    void start(const std::shared_ptr<ScriptedHandler>& handler) {
        source.start(handler, device, client);
    }
    /// Fails when a stop takes long. The limit is generous: delays are hours here.
    void stopInTime() {
        const auto begin = std::chrono::steady_clock::now();
        source.stop();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    }

    RecordingSink sink{3};
    std::shared_ptr<Calls> calls = std::make_shared<Calls>();
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    std::shared_ptr<RecordingPushClient> client = std::make_shared<RecordingPushClient>(calls);
    DataSource source{longDelays};
};

TEST_F(DataSourceClientTest, RefusesNullPointersInOrder) {
    const auto text = [this](const auto& handler, const auto& aDevice, const auto& aClient) {
        try {
            source.start(handler, aDevice, aClient);
        } catch (const std::domain_error& error) {
            return std::string{error.what()};
        }
        return std::string{};
    };
    const std::string prefix = "Orvik::DataSource::Client::start: ";
    const std::string suffix = " must be a valid pointer";
    EXPECT_EQ(prefix + "handler" + suffix, text(nullptr, nullptr, nullptr));
    EXPECT_EQ(prefix + "device" + suffix, text(newHandler(), nullptr, nullptr));
    EXPECT_EQ(prefix + "client" + suffix, text(newHandler(), device, nullptr));
    EXPECT_TRUE(calls->all().empty());
}

TEST_F(DataSourceClientTest, StopsAtOnceInEveryWait) {
    struct Case {
        std::map<std::string, std::vector<std::string>> results;
        std::string last;  // call before the wait
        std::vector<std::string> tail;
    };
    const std::string failed = "write: @__nimbara_error_msg__=1,x";
    const std::vector<Case> cases{
        {{{"connect", {"x"}}}, failed, {failed, "deinit"}},
        {{{"verifyTags", {"x"}}}, "disconnect", {"disconnect", "deinit"}},
        {{}, "write: @__nimbara_error_msg__=0,", {"disconnect", "deinit"}},
    };
    device->pullDelay = 65535;
    for (const auto& [results, last, tail] : cases) {
        SCOPED_TRACE(last);
        calls = std::make_shared<Calls>();
        client = std::make_shared<RecordingPushClient>(calls);
        auto handler = newHandler();
        handler->results = results;
        start(handler);
        ASSERT_TRUE(calls->await(last));
        stopInTime();
        const auto all = calls->all();
        EXPECT_EQ(tail, std::vector(all.end() - 2, all.end()));
    }
}

TEST_F(DataSourceClientTest, AStopDuringACallTakesEffectWhenItReturns) {
    for (const std::string operation : {"connect", "verifyTags", "pullData", "disconnect"}) {
        SCOPED_TRACE(operation);
        calls = std::make_shared<Calls>();
        client = std::make_shared<RecordingPushClient>(calls);
        auto handler = newHandler();
        std::promise<void> entered;
        std::promise<void> release;
        handler->during = [&, once = false](const std::string& called) mutable {
            if (called == operation && !std::exchange(once, true)) {
                entered.set_value();
                release.get_future().wait();
            }
        };
        handler->results["pullData"] = {"x", "x"};  // leads to a disconnect
        start(handler);
        entered.get_future().wait();
        auto stopping = std::async(std::launch::async, [this] { stopInTime(); });
        EXPECT_EQ(std::future_status::timeout, stopping.wait_for(20ms));
        release.set_value();
        stopping.get();
        const auto all = calls->all();
        EXPECT_EQ("deinit", all.back());
        EXPECT_EQ(std::count(all.begin(), all.end(), "connect"),
                  std::count(all.begin(), all.end(), "disconnect"));
    }
}

TEST_F(DataSourceClientTest, AStopEndsTheWaitAfterAnException) {
    auto handler = newHandler();
    handler->during = [](const std::string& called) {
        if (called == "connect") {
            throw std::runtime_error{"x"};
        }
    };
    start(handler);
    ASSERT_TRUE(calls->await("deinit"));
    stopInTime();
    EXPECT_EQ((std::vector<std::string>{"3 x"}), sink.records());
    EXPECT_EQ("deinit", calls->all().back());
    EXPECT_EQ(4U, calls->all().size());  // with init, connect and the text; no second run
}

TEST_F(DataSourceClientTest, ANewStartEndsTheOldRunFirst) {
    device->pullDelay = 65535;
    start(newHandler());
    ASSERT_TRUE(calls->await("pullData"));
    start(newHandler());
    ASSERT_TRUE(calls->await("pullData", 2));
    const auto all = calls->all();
    const auto ended = std::find(all.begin(), all.end(), "deinit");
    ASSERT_NE(all.end(), ended);
    EXPECT_EQ("disconnect", *(ended - 1));
    EXPECT_EQ("init", *(ended + 1));
}  // and the end of the source ends the second run

TEST_F(DataSourceClientTest, AStopOfWhatHasEndedIsHarmless) {
    source.stop();
    std::optional<DataSource> limited{std::in_place, Settings{.maxConnectRetries = 1}};
    auto handler = newHandler();
    handler->results["connect"] = {"x"};
    limited->start(handler, device, client);
    ASSERT_TRUE(calls->await("deinit"));
    limited->stop();
    limited->stop();
    limited->start(newHandler(), device, client);
    limited.reset();
}

TEST_F(DataSourceClientTest, StartsAndStopsTenThousandTimes) {
    device->pullDelay = 65535;
    for (int i = 0; i < 10'000; ++i) {
        start(newHandler());
        if (i % 3 == 0) {
            ASSERT_TRUE(calls->await("pullData"));
            const auto later = std::chrono::steady_clock::now() + std::chrono::microseconds{i % 97};
            while (std::chrono::steady_clock::now() < later) {
                // The stop lands in ever another place
            }
        } else if (i % 3 == 1) {
            std::thread other{[this] { source.stop(); }};
            source.stop();
            other.join();
        }
        stopInTime();
        if (i % 100 == 0) {
            calls = std::make_shared<Calls>();
            client = std::make_shared<RecordingPushClient>(calls);
        }
    }
}

}  // namespace
