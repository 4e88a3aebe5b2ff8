// SPDX-License-Identifier: MIT
#include "orvik/datasource/detail/client.hpp"
#include "support/recording_sink.hpp"
#include "support/scripted_handler.hpp"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestSupport;
using Orvik::DataSource::Detail::Settings;
using Orvik::PushInterface::Client;
using testing::ElementsAreArray;
using SourceRun = Orvik::DataSource::Detail::Client<ScriptedHandler, FakeDevice, Client>;
using Texts = std::vector<std::string>;

const std::string cleared = "write: @__nimbara_error_msg__=0,";
const std::string failed = "write: @__nimbara_error_msg__=1,x";

/// One run that ends by itself, on the test's own thread.
class RunTest : public testing::Test {
  protected:
    void renew() {
        calls = std::make_shared<Calls>();
        handler = std::make_shared<ScriptedHandler>(calls);
        client = std::make_shared<RecordingPushClient>(calls);
    }

    std::vector<std::string> runToEnd(const Settings& settings, std::uint16_t pullDelay = 0) {
        device->pullDelay = pullDelay;
        SourceRun{settings, handler, device, client}.work();
        return calls->all();
    }

    /// A run that is stopped by the record with this number.
    void runStoppedAfter(int place, const Settings& settings, std::uint16_t pullDelay) {
        device->pullDelay = pullDelay;
        SourceRun run{settings, handler, device, client};
        sink.during = [&run, place, records = 0](const std::string& /*record*/) mutable {
            if (++records == place) {
                run.stop();
            }
        };
        run.work();
        sink.during = [](const std::string&) {};
    }

    /// Records of a level, without level and path.
    [[nodiscard]] Texts logged(char level) const {
        const std::string path = "include/orvik/datasource/detail/client:";
        Texts texts;
        for (const auto& record : sink.records()) {
            if (record[0] == level) {
                const auto begin = record.find(path);
                texts.push_back(begin == 2 ? record.substr(2 + path.size()) : record.substr(2));
            }
        }
        return texts;
    }

    RecordingSink sink;
    std::shared_ptr<Calls> calls = std::make_shared<Calls>();
    std::shared_ptr<ScriptedHandler> handler = std::make_shared<ScriptedHandler>(calls);
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    std::shared_ptr<Client> client = std::make_shared<RecordingPushClient>(calls);
};

TEST_F(RunTest, CallsHandlerAndPublishesErrorsInSequence) {
    struct Limits {
        std::uint8_t connects;
        std::uint8_t pulls;
        std::uint16_t pullDelay;
    };
    struct Case {
        Limits limits;
        std::map<std::string, Texts> results;
        Texts expected;  // between init and deinit
    };
    const std::vector<Case> cases{
        {{3, 255, 0},
         {{"connect", {"x", "x", "x"}}},
         {"connect", failed, "connect", failed, "connect", failed}},
        {{2, 1, 0},
         {{"verifyTags", {"x"}}},
         {"connect", "verifyTags", failed, "disconnect", "connect", "verifyTags", "pullData",
          cleared, "disconnect"}},
        {{1, 1, 0}, {{"verifyTags", {"x"}}}, {"connect", "verifyTags", failed, "disconnect"}},
        {{2, 2, 0},
         {{"pullData", {"x"}}},
         {"connect", "verifyTags", "pullData", failed, "disconnect", "connect", "verifyTags",
          "pullData", cleared, "pullData", cleared, "disconnect"}},
        {{1, 1, 0},
         {{"pullData", {"x"}}},
         {"connect", "verifyTags", "pullData", failed, "disconnect"}},
        {{2, 2, 15},
         {{"keepAlive", {"x"}}},
         {"connect", "verifyTags", "pullData", cleared, "keepAlive", failed, "disconnect",
          "connect", "verifyTags", "pullData", cleared, "keepAlive", "pullData", cleared,
          "disconnect"}},
        {{3, 1, 0},
         {},
         {"connect", "verifyTags", "pullData", cleared, "disconnect", "connect", "verifyTags",
          "pullData", cleared, "disconnect", "connect", "verifyTags", "pullData", cleared,
          "disconnect"}},
    };
    std::ptrdiff_t errors = 0;
    for (const auto& [limits, results, between] : cases) {
        renew();
        handler->results = results;
        Texts expected{"init"};
        expected.insert(expected.end(), between.begin(), between.end());
        expected.emplace_back("deinit");

        EXPECT_EQ(expected, runToEnd({.maxConnectRetries = limits.connects,
                                      .maxPullsPerConnection = limits.pulls,
                                      .reconnectDelay = 1,
                                      .verifyFailDelay = 1,
                                      .keepAliveInterval = 10,
                                      .minTimerDelay = 1},
                                     limits.pullDelay));
        errors += std::ranges::count(expected, failed);
        EXPECT_EQ(Texts(static_cast<std::size_t>(errors), "x"), logged('3'));
    }
}

TEST_F(RunTest, CountsLimitsDownFromTwoHundredFiftyFour) {
    const auto actual =
        runToEnd({.maxConnectRetries = 254, .maxPullsPerConnection = 254, .minTimerDelay = 1});
    EXPECT_EQ(254, std::count(actual.begin(), actual.end(), "connect"));
    EXPECT_EQ(254 * 254, std::count(actual.begin(), actual.end(), "pullData"));
}

TEST_F(RunTest, NeverReachesALimitThatIsNone) {
    constexpr int manyRecords = 1200;  // of at most four per call of the handler
    handler->results["connect"] = Texts(manyRecords, "x");
    runStoppedAfter(manyRecords, {.reconnectDelay = 0}, 0);
    EXPECT_GT(std::ranges::count(calls->all(), "connect"), Settings::unlimited);

    renew();
    runStoppedAfter(manyRecords, {}, 0);
    EXPECT_GT(std::ranges::count(calls->all(), "pullData"), Settings::unlimited);
    EXPECT_EQ(1, std::ranges::count(calls->all(), "connect"));
}

TEST_F(RunTest, SpreadsThePause) {
    struct Case {
        std::uint16_t pullDelay;
        Texts steps;  // between two pulls
    };
    // An interval of 100 ms, and 3 ms instead of 25
    const std::string expired = "150: postDelayTimerHandler(expired, ...)";
    const std::string step = "73: step(\"\")";
    const std::vector<Case> cases{
        {0, {}},
        {2, {"264: doPullDelay(2)"}},
        {3, {"264: doPullDelay(3)", expired}},
        {100, {"264: doPullDelay(100)", expired}},
        {101,
         {"264: doPullDelay(101)", expired, "327: doPullDelayKeepAlive(51)", step,
          "264: doPullDelay(51)", expired}},
        {150,
         {"264: doPullDelay(150)", expired, "327: doPullDelayKeepAlive(75)", step,
          "264: doPullDelay(75)", expired}},
        {201,
         {"264: doPullDelay(201)", expired, "327: doPullDelayKeepAlive(101)", step,
          "264: doPullDelay(101)", expired, "327: doPullDelayKeepAlive(51)", step,
          "264: doPullDelay(51)", expired}},
        {300,
         {"264: doPullDelay(300)", expired, "327: doPullDelayKeepAlive(200)", step,
          "264: doPullDelay(200)", expired, "327: doPullDelayKeepAlive(100)", step,
          "264: doPullDelay(100)", expired}},
    };
    for (const auto& [pullDelay, steps] : cases) {
        SCOPED_TRACE(pullDelay);
        const auto before = logged('8').size();
        const auto begin = std::chrono::steady_clock::now();

        runToEnd({.maxConnectRetries = 1,
                  .maxPullsPerConnection = 2,
                  .keepAliveInterval = 100,
                  .minTimerDelay = 3},
                 pullDelay);

        EXPECT_GE(std::chrono::steady_clock::now() - begin,
                  std::chrono::milliseconds{pullDelay < 3 ? 0 : pullDelay});
        Texts expected{"40: run() start",
                       "159: doConnect()",
                       step,
                       "196: doVerifyTags()",
                       step,
                       "209: doPullData()",
                       step};
        expected.insert(expected.end(), steps.begin(), steps.end());
        for (const auto* text :
             {"209: doPullData()", "73: step(\"\")", "182: doDisconnect()", "52: run() stop"}) {
            expected.emplace_back(text);
        }
        auto actual = logged('8');
        actual.erase(actual.begin(), actual.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_EQ(expected, actual);
    }
}

TEST_F(RunTest, StartsOverAfterAnException) {
    struct Case {
        std::string operation;
        Texts expected;
    };
    const std::string thrown = "write: @__nimbara_error_msg__=4,oops";
    const Texts whole{"init", "connect", "verifyTags", "pullData", cleared, "disconnect", "deinit"};
    const std::vector<Case> cases{
        {"init", {"init", thrown, "deinit"}},
        {"connect", {"init", "connect", thrown, "deinit"}},
        {"pullData", {"init", "connect", "verifyTags", "pullData", thrown, "disconnect", "deinit"}},
        {"disconnect",
         {"init", "connect", "verifyTags", "pullData", cleared, "disconnect", thrown, "disconnect",
          "deinit"}},
        {"deinit",
         {"init", "connect", "verifyTags", "pullData", cleared, "disconnect", "deinit", thrown,
          "deinit"}},
    };
    for (const auto& [operation, expected] : cases) {
        SCOPED_TRACE(operation);
        renew();
        handler->during = [throwing = operation, times = 0](const std::string& called) mutable {
            if (called == throwing && times++ == 0) {
                throw std::runtime_error{"oops"};
            }
        };
        auto all = expected;
        all.insert(all.end(), whole.begin(), whole.end());
        const auto begin = std::chrono::steady_clock::now();

        EXPECT_THAT(
            runToEnd({.maxConnectRetries = 1, .maxPullsPerConnection = 1, .reconnectDelay = 30}),
            ElementsAreArray(all));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{30});
    }
    EXPECT_EQ(Texts(cases.size(), "oops"), logged('3'));
}

TEST_F(RunTest, DropsThePlannedConnectWhenTheDisconnectThrows) {
    handler->results = {{"verifyTags", {"x"}}};
    handler->during = [times = 0](const std::string& called) mutable {
        if (called == "disconnect" && times++ < 2) {
            throw 1;  // also from the run's recovering disconnect
        }
    };
    const auto actual = runToEnd({.maxConnectRetries = 2,
                                  .maxPullsPerConnection = 1,
                                  .reconnectDelay = 30,
                                  .verifyFailDelay = 1});
    EXPECT_EQ(3, std::count(actual.begin(), actual.end(), "connect"));
    EXPECT_EQ(2, std::count(actual.begin(), actual.end(), "init"));
}

TEST_F(RunTest, AStopAfterAnyRecordEndsTheRun) {
    // Log records mark every point of a run: both back-offs, a pause and a failed pull
    for (int place = 1; place <= 40; ++place) {
        SCOPED_TRACE(place);
        renew();
        handler->results = {{"connect", {"x"}}, {"verifyTags", {"x"}}, {"pullData", {"", "x"}}};
        runStoppedAfter(place,
                        {.reconnectDelay = 25, .verifyFailDelay = 25, .keepAliveInterval = 25}, 30);

        const auto all = calls->all();
        EXPECT_EQ("deinit", all.back());
        const auto connects = std::count(all.begin(), all.end(), "connect") -
                              (place > 2 ? 1 : 0);  // the first connect fails
        EXPECT_EQ(connects, std::count(all.begin(), all.end(), "disconnect"));
    }
}

TEST_F(RunTest, AStopJustBeforeAWaitCutsItShort) {
    struct Case {
        int places;  // records until the worker waits
        std::map<std::string, Texts> results;
        std::string throwing;
    };
    constexpr std::uint16_t minute = 60'000;
    const std::vector<Case> cases{{4, {{"connect", {"x"}}}, {}},
                                  {7, {{"verifyTags", {"x"}}}, {}},
                                  {8, {}, {}},
                                  {3, {}, "connect"}};
    for (const auto& [places, results, throwing] : cases) {
        for (int place = 1; place <= places; ++place) {
            SCOPED_TRACE(testing::Message() << "place " << place << " of " << places);
            renew();
            handler->results = results;
            handler->during = [&name = throwing](const std::string& called) {
                if (called == name) {
                    throw std::runtime_error{"x"};
                }
            };
            const auto begin = std::chrono::steady_clock::now();
            runStoppedAfter(
                place,
                {.reconnectDelay = minute, .verifyFailDelay = minute, .keepAliveInterval = minute},
                minute);
            ASSERT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{20});
            EXPECT_EQ(1, std::ranges::count(calls->all(), "init"));
        }
    }
}

}  // namespace
