// SPDX-License-Identifier: MIT
// An OPC UA server that goes away, freezes, refuses or answers wrongly; connections that break.
#include "support/opcua_server.hpp"

#include "support/daemon.hpp"
#include "support/proxy.hpp"

#include <cstdlib>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestSupport;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Gt;
using testing::Lt;
using testing::Matches;
using testing::MatchesRegex;
using Clock = std::chrono::steady_clock;
using Options = std::vector<std::string>;

// Time limits: for an immediate event, and for one after a back-off
constexpr auto atOnce = isSanitized ? 40s : 8s;
constexpr auto afterTimeOut = 5s + atOnce;
constexpr auto afterConnect = 10s + atOnce;
constexpr auto afterVerify = 15s + atOnce;

/// A daemon, whose steward the test plays, and a server reached through a proxy.
class Plant {
  public:
    explicit Plant(const Options& options = {}) : server_{start(options)} {}

    ~Plant() {
        EXPECT_LT(daemon_.process().residentBytes(), 16'000'000U);
        EXPECT_LT(daemon_.process().cpuTime(), 2s);
        endInOrder(daemon_, connection_);
    }

    void describe(std::uint16_t port, const std::string& logIn = {}, int pullDelay = 100) {
        const auto tags = boolTag + "," + textTag + "," + intTag;
        connection_.send("INFO " + description(port, tags, pullDelay).insert(1, logIn) + "\n");
    }

    /// Values flow, each with its tag's id, and the daemon uses the same resources as at first.
    void expectValues(milliseconds limit = atOnce) {
        expectBatch(limit);
        const auto usage = [this] {
            return std::pair{daemon_.process().count("fd"), daemon_.process().count("task")};
        };
        usage_ = usage_.value_or(usage());
        for (int batch = 0; batch < 50 && usage() != usage_; ++batch) {  // a log file may be open
            expectBatch(atOnce);
        }
        EXPECT_EQ(*usage_, usage());
    }

    /// Skips values and other errors.
    void expectError(const std::string& pattern, milliseconds limit = atOnce) {
        const auto deadline = Clock::now() + limit;
        const auto expected = MatchesRegex("@__nimbara_error_msg__=[0-9]+," + pattern);
        std::string errors;
        std::string line;
        while (!Matches(expected)(line = connection_.readLine(limit))) {
            errors += line.starts_with("@") && line != cleared ? line + "\n" : "";
            ASSERT_LT(Clock::now(), deadline) << "no " << pattern << ", but " << errors << line;
        }
    }

    /// Waits, since the server may still be closing a session.
    void expectStatistics(const std::string& pattern) {
        const auto deadline = Clock::now() + atOnce;
        std::string line;
        do {
            line = server_->statistics();
        } while (!Matches(MatchesRegex(pattern))(line) && Clock::now() < deadline);
        EXPECT_THAT(line, MatchesRegex(pattern));
    }

    /// Starts another server for the next connections and ends the old one.
    void replaceServer(const Options& options = {}) {
        auto next = start(options);
        proxy.connectTo(next->port());
        server_->kill();
        server_ = std::move(next);
    }

    void restartServer() { server_ = start({}, server_->port()); }

    OpcUaServer& server() { return *server_; }
    PeerConnection& connection() { return connection_; }

  private:
    static std::unique_ptr<OpcUaServer> start(Options options, std::uint16_t port = 0) {
        if (options.empty() || !options[0].starts_with("--tags=")) {
            options.emplace_back("--tags=5");
        }
        return std::make_unique<OpcUaServer>(std::move(options), port);
    }

    void expectBatch(milliseconds limit) {
        const auto deadline = Clock::now() + limit;
        std::string line;
        do {
            line = connection_.readLine(limit);
        } while (line.starts_with("@") && Clock::now() < deadline);
        ASSERT_THAT(line, MatchesRegex("1=[tf]"));
        EXPECT_EQ("65535=4,item", connection_.readLine());
        EXPECT_THAT(connection_.readLine(), MatchesRegex("7=-?[0-9]+"));
        EXPECT_EQ("", connection_.readLine());
        EXPECT_EQ(cleared, connection_.readLine());
    }

    std::unique_ptr<OpcUaServer> server_;
    ScriptedPeer steward_;
    Daemon daemon_{steward_.port()};
    PeerConnection connection_ = logOn(steward_);
    std::optional<std::pair<std::ptrdiff_t, std::ptrdiff_t>> usage_;

  public:
    Proxy proxy{server_->port()};
};

/// Runs every row at the same time, since most of it is waiting.
template <typename Rows, typename Run>
void runAll(const Rows& rows, const Run& run) {
    std::vector<std::future<void>> runs;
    for (const auto& row : rows) {
        runs.push_back(std::async(std::launch::async, [&] {
            SCOPED_TRACE(row.name);
            run(row);
        }));
    }
}

TEST(OpcUaServerTest, AFailedReadIsFollowedByANewConnectionAtOnce) {
    using namespace std::string_literals;
    const std::string lost = "BAD(CONNECTIONCLOSED|SECURECHANNELCLOSED|NOTCONNECTED)";
    const std::string wrongNumber = "BADUNEXPECTEDERROR";
    const auto t = "\x01\x01\x01"s;  // true
    const struct {
        std::string name;
        Action action;
        std::string error;
    } rows[]{
        {"closed", {Action::Close}, lost},
        {"reset", {Action::Reset}, lost},
        {"echoed", {Action::Reply}, "BAD.*"},
        {"garbage", {Action::Reply, std::string(100, '\xA5')}, "BAD.*"},
        {"no results", {Action::Results, "\0\0\0\0"s}, wrongNumber},
        {"no array", {Action::Results, "\xFF\xFF\xFF\xFF"}, wrongNumber},
        {"fewer", {Action::Results, "\x02\0\0\0"s + t + t}, wrongNumber},
        {"more", {Action::Results, "\x04\0\0\0"s + t + t + t + t}, wrongNumber},
        {"no value", {Action::Results, "\x03\0\0\0\0"s + t + t}, wrongNumber},
        {"array of length -1",
         {Action::Results, "\x03\0\0\0\x01\x81\xFF\xFF\xFF\xFF"s + t + t},
         "UAvariant type not supported for tag: ns=1;i=4"},
        {"string of length -1",
         {Action::Results, "\x03\0\0\0\x01\x0C\xFF\xFF\xFF\xFF"s + t + t},
         "Wrong type for tag: ns=1;i=4 type should be string"},
        {"without end", {Action::Flood}, "BADTIMEOUT"},  // and its memory is returned
        {"dropped silently", {Action::Drop}, "BADTIMEOUT"},
    };
    Plant plant;
    plant.describe(plant.proxy.port());
    plant.proxy.delayAnswers(10ms);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        plant.expectValues();
        plant.proxy.at(Message::Read, row.action);
        plant.expectError(row.error, afterTimeOut);
    }
    plant.expectValues();
    for (int cut = 0; cut < 5; ++cut) {
        plant.proxy.at(Message::Read, {Action::Reset});
        plant.expectError(lost);
        plant.expectValues();
    }
}

/// Each fault lasts for a whole attempt, in which the stack may connect more than once.
TEST(OpcUaServerTest, AConnectMayFailInAnyPhase) {
    using enum Message;
    const std::string garbage(100, '\xA5');
    const struct {
        std::string name;
        Message message;
        Action action;
        std::string error = "BAD.*";
    } rows[]{
        {"closed", Hello, {Action::Close}},
        {"echoed", Hello, {Action::Reply}, "BADTCPMESSAGETYPEINVALID"},
        {"garbage", Hello, {Action::Reply, garbage}, "BADTCPMESSAGETOOLARGE"},
        {"silence", Hello, {Action::Drop}, "BADTIMEOUT"},
        {"half a hello", Hello, {Action::HalfAnswer}, "BADTIMEOUT"},
        {"channel reset", Channel, {Action::Reset}},
        {"channel echoed", Channel, {Action::Reply}, "(BAD.*|UNKNOWN_ERROR)"},
        {"session reset", Create, {Action::Reset}},
        {"half a session", Create, {Action::HalfAnswer}, "BADTIMEOUT"},
        {"activation closed", Activate, {Action::Close}},
        {"activation lost", Activate, {Action::Drop}, "BADTIMEOUT"},
    };
    runAll(rows, [](const auto& row) {
        constexpr int maxConnections = 4;
        Plant plant;
        auto action = row.action;
        action.times = maxConnections;
        plant.proxy.at(row.message, action);
        plant.describe(plant.proxy.port());
        plant.expectError("Error: " + row.error, afterTimeOut);
        const auto failed = Clock::now();
        EXPECT_LE(plant.proxy.count(Hello), maxConnections);
        plant.proxy.at(row.message, {});
        plant.expectValues(afterConnect);
        EXPECT_THAT(Clock::now() - failed,
                    AllOf(Gt(isSanitized ? 9s : 9900ms), Lt(isSanitized ? 50s : 13s)));
    });
}

/// The session of a cut connection times out 15 s plus the pull delay after its last use.
TEST(OpcUaServerTest, MayAllowOneSessionOnly) {
    Plant plant{{"--max-sessions=1"}};
    plant.describe(plant.proxy.port(), {}, 1000);
    plant.expectValues();
    plant.proxy.at(Message::Read, {Action::Reset});
    plant.expectError("Error: BADTOOMANYSESSIONS");
    plant.expectValues(30s);
    plant.expectStatistics(".* at most 1, sessions opened 2, sessions alive 1");
}

TEST(OpcUaServerTest, MayHaveOtherTagsForAWhile) {
    const std::string wrong = "Wrong type for tag: ns=1;i=5";
    const struct {
        std::string name;
        bool isFirst;
        std::string option;
        std::string error;
    } rows[]{
        {"starting up", true, "--tags=4", "BADNODEIDUNKNOWN"},
        {"a tag gone", false, "--tags=4", "BADNODEIDUNKNOWN"},
        {"other type", false, "--fault=other-type@ns=1;i=5", wrong + " type should be int32"},
        {"array", false, "--fault=array@ns=1;i=5", "UAvariant type not supported.*"},
    };
    runAll(rows, [](const auto& row) {
        Plant plant{row.isFirst ? Options{row.option} : Options{}};
        plant.describe(plant.proxy.port());
        if (!row.isFirst) {
            plant.expectValues();
            plant.replaceServer({row.option});
        }
        plant.expectError(row.error);
        const auto failed = Clock::now();
        plant.expectStatistics(".* at most 1, sessions opened 1, sessions alive 0");
        plant.replaceServer();
        plant.expectValues(afterVerify);
        EXPECT_GT(Clock::now() - failed, 14s);
    });
}

TEST(OpcUaServerTest, MayFreeze) {
    const struct {
        std::string name;
        std::string error;  // before it continues
        milliseconds limit;
    } rows[]{{"read", "BADTIMEOUT", atOnce}, {"connect", "Error: BADTIMEOUT", afterConnect}};
    runAll(rows, [](const auto& row) {
        Plant plant;
        plant.describe(plant.proxy.port());
        plant.expectValues();
        plant.server().process().signal(SIGSTOP);
        plant.expectError(row.error, afterVerify);
        plant.server().process().signal(SIGCONT);
        plant.expectValues(row.limit);
    });
}

/// FAULT_ROUNDS sets the number of restarts; every second one comes after 30 s.
TEST(OpcUaServerTest, MayBeKilledAndRestarted) {
    const char* rounds = std::getenv("FAULT_ROUNDS");
    Plant plant;
    plant.describe(plant.server().port());
    for (int round = 0; round < (rounds != nullptr ? std::stoi(rounds) : 1); ++round) {
        plant.expectValues(afterConnect);
        plant.server().kill();
        const auto restart = Clock::now() + (round % 2 == 0 ? 1s : 30s);
        const std::string refused = "Error: BADCONNECTIONREJECTED";
        plant.expectError(refused);
        while (Clock::now() < restart) {
            const auto left = std::chrono::ceil<milliseconds>(restart - Clock::now());
            EXPECT_THAT(plant.connection().readLine(left),
                        testing::AnyOf("<timeout>", error(refused)));
        }
        plant.restartServer();
    }
    plant.expectValues(afterConnect);
}

TEST(OpcUaServerTest, MayGrantShortTimesOnly) {
    Plant plant{{"--channel-lifetime=1", "--session-timeout=2"}};
    plant.describe(plant.proxy.port());
    while (plant.proxy.count(Message::Channel) < 4) {
        plant.expectValues();
    }
    EXPECT_EQ(1, plant.proxy.count(Message::Hello));
}

}  // namespace
