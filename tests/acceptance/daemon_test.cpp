// SPDX-License-Identifier: MIT
// The daemon as built, between a steward that the test plays and a real OPC UA server, a process
// that can be stopped, frozen and restarted.
#include "support/daemon.hpp"

#include "support/opcua_server.hpp"
#include "support/scripted_peer.hpp"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestSupport;
using testing::ElementsAre;

TEST_F(DaemonTest, TypicalRun) {
    OpcUaServer server;
    Daemon daemon{steward.port(), {"--log-level=7"}};
    auto connection = accept();
    connection.send("INFO " + description(server.port(), boolTag + "," + textTag + "," + intTag) +
                    "\n");

    for (int batch = 0; batch < 3; ++batch) {
        const auto boolLine = connection.readLine();
        EXPECT_TRUE(boolLine == "1=t" || boolLine == "1=f") << boolLine;
        EXPECT_EQ("65535=4,item", connection.readLine());
        EXPECT_THAT(connection.readLine(), testing::MatchesRegex("7=-?[0-9]+"));
        EXPECT_EQ("", connection.readLine());
        EXPECT_EQ(cleared, connection.readLine());
    }
    connection.send("EROR a\nTGNF b\nINVL c\nTOOF d\nRTCH 1\nwhat\n");
    ASSERT_TRUE(daemon.log().await(
        "<3> Received error from push interface client: Unexpected server message type: what"));
    EXPECT_THAT(server.statistics(), testing::HasSubstr("sessions alive 1"));
    end(daemon, connection);

    EXPECT_THAT(server.statistics(), testing::EndsWith("sessions opened 1, sessions alive 0"));
    EXPECT_TRUE(daemon.log().firstLine().starts_with("pullapp[dev] <"));
    auto records = daemon.log().records();
    const std::string waiting =
        "<7> include/orvik/pullapplication/main:168: Waiting for signal";  // from the main thread
    EXPECT_EQ(1U, std::erase(records, waiting));
    const std::string from = "<3> Received error from push interface";
    EXPECT_THAT(records,
                ElementsAre("<6> Connected to push interface", "<6> Push interface server: test",
                            from + ": a", from + ": Tag not found: b", from + ": Invalid value: c",
                            from + ": Posting too often: d",
                            from + " client: Unexpected server message type: what",
                            "<7> include/orvik/pullapplication/main:172: Caught signal",
                            "<5> Disconnected from push interface"));
}

TEST_F(DaemonTest, TracesEveryLineAndStepAtLevelEight) {
    OpcUaServer server;
    Daemon daemon{steward.port(), {"--log-level=8"}};
    auto connection = accept();
    connection.send("INFO " + description(server.port(), textTag, 65000) + "\n");
    ASSERT_TRUE(connection.awaitLine(cleared));
    const std::string run = "<7> include/orvik/datasource/detail/client:";
    const std::string main = "<7> include/orvik/pullapplication/main:";
    ASSERT_TRUE(daemon.log().await(run + "264: doPullDelay(65000)"));
    ASSERT_TRUE(daemon.log().await(main + "222: PI W: " + cleared + "\n"));
    EXPECT_TRUE(daemon.log().await(main + "215: PI R: HELO test"));
    EXPECT_TRUE(daemon.log().await(main + "222: PI W: DEVC dev key\n"));
    end(daemon, connection);
    EXPECT_TRUE(daemon.log().await(run + "140: postDelayTimerHandler(cancelled, ...)"));
    EXPECT_TRUE(daemon.log().await(run + "52: run() stop"));
}

TEST_F(DaemonTest, ARefusedDescriptionEndsTheProcessInOrder) {
    for (const bool running : {false, true}) {
        SCOPED_TRACE(running);
        OpcUaServer server;
        Daemon daemon{steward.port(), {"--log-level=7"}};
        auto connection = accept();
        if (running) {
            connection.send("INFO " + description(server.port(), textTag, 0) + "\n");
            ASSERT_TRUE(connection.awaitLine(cleared));
        }
        connection.send("INFO {\"id\":\"a\"}\n");
        EXPECT_TRUE(connection.awaitLine("EXIT"));
        connection.close();
        EXPECT_EQ(0, daemon.process().wait());
        EXPECT_TRUE(daemon.log().await("<3> Received invalid info: Could not read ipAddress"));
        EXPECT_TRUE(daemon.log().await("<6> Info was: {\"id\":\"a\"}"));
        EXPECT_TRUE(
            daemon.log().await("<7> include/orvik/pullapplication/main:172: Caught signal"));
        EXPECT_THAT(server.statistics(), testing::EndsWith("sessions alive 0"));
    }
}

// A signal in every state

TEST_F(DaemonTest, EndsWithoutASteward) {
    const std::string waiting = "<7> include/orvik/pullapplication/main:168: Waiting for signal";
    const std::string refused =
        "<3> Received error from push interface client: Could not connect to server";
    const auto gone = ScriptedPeer{}.port();
    const UnansweringPeer unanswering;
    const struct {
        std::string name;
        std::uint16_t port;
        std::string host;
        std::string record;
        int signal;
    } rows[]{{"nobody listens", gone, "127.0.0.1", refused, SIGINT},
             {"the name is looked up", 1, "never.test", waiting, SIGTERM},
             {"no answer", unanswering.port(), "127.0.0.1", waiting, SIGTERM}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Daemon daemon{row.port, {"--steward-host=" + row.host, "--log-level=7"}};
        ASSERT_TRUE(daemon.log().await(row.record));
        EXPECT_EQ(0, daemon.endBy(row.signal));
    }
}

/// Also if the parent process has blocked the signals. By exit, not by the default action, which
/// process 1 of a container does not have.
TEST_F(DaemonTest, ASecondSignalEndsAShutdownThatTheStewardHoldsUp) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    Daemon daemon{steward.port()};
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    auto connection = steward.accept();
    ASSERT_TRUE(daemon.log().await("<6> Connected to push interface"));
    daemon.process().signal(SIGTERM);
    EXPECT_EQ("EXIT", connection.readLine());  // and no close
    EXPECT_EQ(-1, daemon.process().wait(200ms));
    EXPECT_EQ(128 + SIGINT, daemon.endBy(SIGINT));
}

TEST_F(DaemonTest, EndsWhileAHangingConnectHoldsUpTheNextDescription) {
    // The thread sanitizer delays signals while a thread waits for a lock
    constexpr int attempts = sanitizers == "thread" ? 200 : 40;
    for (const bool hasSecondSignal : {false, true}) {
        SCOPED_TRACE(hasSecondSignal);
        const ScriptedPeer silent;
        const ScriptedPeer next;
        Daemon daemon{steward.port(), {"--log-level=8"}};
        auto connection = accept();
        connection.send("INFO " + description(silent.port(), textTag) + "\n");
        const auto device = silent.accept();
        connection.send("INFO " + description(next.port(), textTag) + "\n");
        ASSERT_TRUE(daemon.log().await("<7> include/orvik/datasource/detail/client:59: stop()"));
        if (hasSecondSignal) {
            daemon.process().signal(SIGTERM);
            ASSERT_TRUE(
                daemon.log().await("<7> include/orvik/pullapplication/main:172: Caught signal"));
            int status = -1;
            // The first may come slightly early
            for (int i = 0; i < attempts && status == -1; ++i) {
                daemon.process().signal(SIGTERM);
                status = daemon.process().wait(50ms);
            }
            EXPECT_EQ(128 + SIGTERM, status);
        } else {
            end(daemon, connection);
            EXPECT_FALSE(next.hasConnection(0ms));  // no new worker in the shutdown
        }
    }
}

struct DeviceState {
    std::string name;
    std::vector<std::string> serverOptions;
    int pullDelay;
    std::string tags;
    std::string line;  // that the daemon writes in that state
    bool freezes = false;
};

void PrintTo(const DeviceState& state, std::ostream* stream) {
    *stream << state.name;
}

class DeviceStateTest : public DaemonTest, public testing::WithParamInterface<DeviceState> {};

TEST_P(DeviceStateTest, Ends) {
    OpcUaServer server{GetParam().serverOptions};
    Daemon daemon{steward.port()};
    auto connection = accept();
    connection.send("INFO " + description(server.port(), GetParam().tags, GetParam().pullDelay) +
                    "\n");
    ASSERT_TRUE(connection.awaitLine(GetParam().line));
    if (GetParam().freezes) {
        server.process().signal(SIGSTOP);
        EXPECT_FALSE(connection.awaitLine("none", 200ms));  // a Read hangs, for 5 s at most
    }
    const auto begin = std::chrono::steady_clock::now();
    end(daemon, connection);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, GetParam().freezes ? 8s : 4s);
    EXPECT_TRUE(GetParam().freezes || server.statistics().ends_with("sessions alive 0"));
}

INSTANTIATE_TEST_SUITE_P(
    States, DeviceStateTest,
    testing::Values(
        DeviceState{"PullingBackToBack", {"--tags=5"}, 0, textTag, cleared},
        DeviceState{"InAHangingRead", {"--tags=5"}, 0, textTag, cleared, true},
        DeviceState{"InALongPause", {"--tags=5"}, 65000, textTag, cleared},
        DeviceState{
            "AfterAFailedCheckOfTags", {"--tags=4"}, 50, textTag, error("BADNODEIDUNKNOWN")}),
    [](const auto& state) { return state.param.name; });

}  // namespace
