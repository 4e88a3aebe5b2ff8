// SPDX-License-Identifier: MIT
// A steward that goes away, freezes or sends what it should not, and how the daemon reacts.
#include "support/daemon.hpp"
#include "support/opcua_server.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestSupport;
using namespace std::string_literals;
using testing::AllOf;
using testing::Contains;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;
using testing::Matches;
using testing::MatchesRegex;

constexpr int slowness = isSanitized ? 5 : 1;
const std::string clientError = "<3> Received error from push interface client: ";

class StewardTest : public DaemonTest {
  protected:
    /// Logs the daemon on and lets values flow.
    PeerConnection start() {
        auto connection = accept();
        describe(connection);
        expectWell(connection);
        return connection;
    }

    /// Sends a description that differs from the last in the id of its only tag.
    void describe(PeerConnection& connection, int pullDelay = 10) {
        const auto changed = tag(++id_, 5, R"("str","maxStringLength":4)");
        connection.send("INFO " + description(server.port(), changed, pullDelay) + "\n");
    }

    [[nodiscard]] bool awaitValue(PeerConnection& connection,
                                  std::chrono::milliseconds limit = 20s) {
        return connection.awaitLine(std::to_string(id_) + "=4,item", limit);
    }

    /// Values flow, and the daemon uses the same resources as at the first call.
    void expectWell(PeerConnection& connection, std::chrono::milliseconds limit = 20s,
                    std::size_t memory = 16'000'000) {
        ASSERT_TRUE(awaitValue(connection, limit));
        const auto usage = [&] {
            const auto& process = daemon.process();
            return std::tuple{process.count("fd"), process.count("task"),
                              process.residentBytes() > memory};
        };
        well_ = well_.value_or(usage());
        for (int batch = 0; batch < 100 && usage() != well_; ++batch) {  // a log file may be open
            ASSERT_TRUE(awaitValue(connection));
        }
        EXPECT_EQ(*well_, usage()) << daemon.process().residentBytes();
        EXPECT_THAT(server.statistics(), testing::EndsWith("sessions alive 1"));
    }

    void finish(PeerConnection& connection) {
        end(daemon, connection);
        EXPECT_THAT(server.statistics(), testing::EndsWith("sessions alive 0"));
    }

    OpcUaServer server;
    Daemon daemon{steward.port()};

  private:
    int id_ = 0;
    std::optional<std::tuple<std::ptrdiff_t, std::ptrdiff_t, bool>> well_;
};

TEST_F(StewardTest, OddLinesDoNotHoldUpTheValues) {
    const auto repeated = [](const std::string& text, int times) {
        std::string result;
        while (--times >= 0) {
            result += text;
        }
        return result;
    };
    const struct {
        std::string name;
        std::string text;
        int requests;  // for the description
        std::string record;
    } cases[] = {
        {"CR LF", "IFCH\r\n", 0, clientError + "Unexpected server message: IFCH\r"},
        {"100,000 lines at once", repeated("RTCH 1\n", 100'000 / slowness), 0, ""},
        {"flood of changes", repeated("IFCH\n", 2000 / slowness), 2000 / slowness, ""},
        {"long line", "RTCH " + std::string(100'000'000 / slowness, '1') + '\n', 0, ""},
    };
    auto connection = start();
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        connection.send(row.text + "IFCH\n");
        for (int request = 0; request <= row.requests; ++request) {
            ASSERT_TRUE(connection.awaitLine("INFO"));
        }
        EXPECT_TRUE(row.record.empty() || daemon.log().await(row.record));
        // The C library may cache 64 MB that a thread has freed
        expectWell(connection, 20s, row.text.size() > 1'000'000 ? 80'000'000 : 16'000'000);
    }
    for (const char byte : std::string{"IFCH\n"}) {  // one byte at a time
        connection.send({&byte, 1});
        ASSERT_TRUE(awaitValue(connection));
    }
    ASSERT_TRUE(connection.awaitLine("INFO"));
    finish(connection);
}

TEST_F(StewardTest, AHangingConnectIsGivenUpForAnotherDescription) {
    const ScriptedPeer silent;
    auto connection = start();
    connection.send("INFO " + description(silent.port(), textTag) + "\n");
    const auto device = silent.accept();
    describe(connection);
    expectWell(connection, 10s);  // a connect takes 5 s at most
    finish(connection);
}

// Meanwhile nobody reads the standard output, where the OPC UA stack logs each session.
TEST_F(StewardTest, AThousandDescriptionsLeaveNothingBehind) {
    auto connection = start();
    for (int change = 0; change < 1000 / slowness; ++change) {
        connection.send("IFCH\n");
        ASSERT_TRUE(connection.awaitLine("INFO"));
        if (change % 3 == 0) {  // else during the connect or the tag check
            ASSERT_TRUE(awaitValue(connection));
        }
        describe(connection, change % 50);
    }
    expectWell(connection);
    finish(connection);
}

TEST_F(StewardTest, MayStopReadingForLong) {
    OpcUaServer large{{"--tags=5", "--fault=long-text@ns=1;i=5"}};
    auto connection = start();
    const auto describeLarge = [&](int id, std::uint16_t port, int pullDelay) {
        connection.send("INFO " + description(port, tag(id, 5, R"("str")"), pullDelay) + "\n");
    };
    describeLarge(8, large.port(), 0);
    const auto begun = clientError + "Dropping value batches because the server does not read";
    ASSERT_TRUE(daemon.log().await(begun));
    connection.send("IFCH\n");
    describeLarge(8, 1, 0);  // nobody listens there
    const std::string refused = "Error: BADCONNECTIONREJECTED";
    ASSERT_TRUE(daemon.log().await("<3> " + refused));
    describeLarge(9, large.port(), 200);
    const auto deadline = std::chrono::steady_clock::now() + 120s;
    while (!Matches(HasSubstr("sessions opened 2, sessions alive 1"))(large.statistics())) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    }
    EXPECT_LT(daemon.process().residentBytes(), 64'000'000U + 32'000'000U);

    const auto ended = Contains(MatchesRegex(
        clientError + "Dropped [0-9]+ value batch(es)? because the server did not read"));
    const auto text = "=1000000," + std::string(1'000'000, 'x');
    std::map<std::string, int> lines;
    for (const auto& whole :
         {""s, cleared, "INFO"s, error(refused), "1=4,item"s, "8" + text, "9" + text}) {
        lines[whole] = 0;
    }
    while (lines["9" + text] == 0 || !Matches(ended)(daemon.log().records())) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        const auto line = connection.readLine();
        ASSERT_TRUE(lines.contains(line)) << line.substr(0, 100);
        ++lines[line];
    }
    EXPECT_EQ(1, lines["INFO"]);
    EXPECT_EQ(1, lines[error(refused)]);
    EXPECT_EQ(1, std::ranges::count(daemon.log().records(), begun));
    describe(connection);
    expectWell(connection);
    finish(connection);
}

TEST_F(StewardTest, MayRunOutOfDescriptors) {
    auto connection = start();
    rlimit limit{};
    ASSERT_EQ(0, ::prlimit(daemon.process().pid(), RLIMIT_NOFILE, nullptr, &limit));
    const auto enough = std::exchange(limit.rlim_cur, 4);
    ASSERT_EQ(0, ::prlimit(daemon.process().pid(), RLIMIT_NOFILE, &limit, nullptr));
    server.process().signal(SIGSTOP);
    ASSERT_TRUE(connection.awaitLine(error("Error: BADINTERNALERROR")));
    limit.rlim_cur = enough;
    ASSERT_EQ(0, ::prlimit(daemon.process().pid(), RLIMIT_NOFILE, &limit, nullptr));
    server.process().signal(SIGCONT);
    expectWell(connection);
    finish(connection);
}

// In all tests, the wall clock of the daemon keeps jumping by hours.
TEST_F(StewardTest, ValuesKeepTheirPaceHoweverTheClockIsSet) {
    auto connection = start();
    describe(connection, 200);
    ASSERT_TRUE(awaitValue(connection));
    const auto begin = std::chrono::steady_clock::now();
    for (int batch = 0; batch < 10; ++batch) {
        ASSERT_TRUE(awaitValue(connection));
    }
    EXPECT_THAT(std::chrono::steady_clock::now() - begin, AllOf(Ge(1800ms), Lt(10s)));
    finish(connection);
}

struct Loss {
    std::string name;
    void (*happen)(PeerConnection&);
    std::string awaited;  // log record before the steward is back
};

void PrintTo(const Loss& loss, std::ostream* stream) {
    *stream << loss.name;
}

class StewardLossTest : public StewardTest, public testing::WithParamInterface<Loss> {};

TEST_P(StewardLossTest, IsOverOnceTheStewardIsBack) {
    auto connection = start();
    { const auto gone = std::move(steward); }
    GetParam().happen(connection);
    ASSERT_TRUE(daemon.log().await(GetParam().awaited));
    steward = ScriptedPeer{steward.port()};
    connection = accept();
    EXPECT_TRUE(daemon.log().await("<6> Reconnecting (reason: auto reconnect)"));
    EXPECT_THAT(server.statistics(), testing::EndsWith("sessions alive 0"));
    describe(connection);
    expectWell(connection);
    finish(connection);
}

const std::string disconnected = "<5> Disconnected from push interface";

INSTANTIATE_TEST_SUITE_P(
    Ways, StewardLossTest,
    testing::Values(Loss{"KilledAndAwayForAWhile", [](auto& connection) { connection.reset(); },
                         clientError + "Could not connect to server"},
                    Loss{"ClosedHalf", [](auto& connection) { connection.shutdownSending(); },
                         disconnected},
                    Loss{"ClosedInTheMiddleOfALine",
                         [](auto& connection) {
                             connection.send("INFO {}");  // a complete line would end the daemon
                             connection.close();
                         },
                         disconnected}),
    [](const auto& loss) { return loss.param.name; });

struct Arrival {
    std::string name;
    bool stewardIsLate;
    bool serverIsLate;  // when the steward is already up
};

void PrintTo(const Arrival& arrival, std::ostream* stream) {
    *stream << arrival.name;
}

class ArrivalTest : public DaemonTest, public testing::WithParamInterface<Arrival> {};

TEST_P(ArrivalTest, LetsValuesFlowOnceBothAreThere) {
    auto server = std::make_unique<OpcUaServer>();
    const auto port = server->port();
    server->kill();
    const auto arrive = [&] {
        server = std::make_unique<OpcUaServer>(std::vector<std::string>{"--tags=5"}, port);
    };
    if (GetParam().stewardIsLate) {
        const auto gone = std::move(steward);
    }
    Daemon daemon{steward.port()};
    if (GetParam().stewardIsLate) {
        ASSERT_TRUE(daemon.log().await(clientError + "Could not connect to server"));
        steward = ScriptedPeer{steward.port()};
    }
    if (!GetParam().serverIsLate) {
        arrive();
    }
    auto connection = accept();
    connection.send("INFO " + description(port, textTag) + "\n");
    if (GetParam().serverIsLate) {
        EXPECT_EQ(error("Error: BADCONNECTIONREJECTED"), connection.readLine());
        arrive();
    }
    EXPECT_EQ("65535=4,item", connection.readLine());
    EXPECT_EQ("", connection.readLine());
    EXPECT_EQ(cleared, connection.readLine());
    end(daemon, connection);
}

INSTANTIATE_TEST_SUITE_P(Orders, ArrivalTest,
                         testing::Values(Arrival{"StewardLast", true, false},
                                         Arrival{"ServerLast", false, true}),
                         [](const auto& arrival) { return arrival.param.name; });

}  // namespace
