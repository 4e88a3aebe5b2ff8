// SPDX-License-Identifier: MIT
#include "orvik/datasource/client.hpp"

#include "support/recording_sink.hpp"
#include "support/scripted_handler.hpp"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

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

TEST_F(DataSourceClientTest, ANewStartEndsTheOldRunFirstAlsoInALongPause) {
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
}  // the destructor of the source ends the second run

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
                // Each stop hits another point of the run
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
