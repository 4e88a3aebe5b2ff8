// SPDX-License-Identifier: MIT
// A steward that goes away, freezes or sends what it should not, and what the daemon makes of it.
#include "support/daemon.hpp"
#include "support/opcua_server.hpp"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestSupport;

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

    /// Values flow, and the daemon holds what it held when this was asked first.
    void expectWell(PeerConnection& connection, std::chrono::milliseconds limit = 20s) {
        ASSERT_TRUE(awaitValue(connection, limit));
        const auto usage = [this] {
            return std::pair{daemon.process().count("fd"), daemon.process().count("task")};
        };
        well_ = well_.value_or(usage());
        for (int batch = 0; batch < 100 && usage() != well_; ++batch) {  // a log may be open
            ASSERT_TRUE(awaitValue(connection));
        }
        EXPECT_EQ(*well_, usage());
        EXPECT_LT(daemon.process().residentBytes(), 16'000'000U);
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
    std::optional<std::pair<std::ptrdiff_t, std::ptrdiff_t>> well_;
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
        {"100,000 lines at once", repeated("RTCH 1\n", 100'000), 0, ""},
        {"flood of changes", repeated("IFCH\n", 2000), 2000, ""},
    };
    auto connection = start();
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        connection.send(row.text + "IFCH\n");
        for (int request = 0; request <= row.requests; ++request) {
            ASSERT_TRUE(connection.awaitLine("INFO"));
        }
        EXPECT_TRUE(row.record.empty() || daemon.log().await(row.record));
        expectWell(connection);
    }
    for (const char byte : std::string{"IFCH\n"}) {  // now and then a byte
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

// Nobody reads the standard output meanwhile, to which the OPC UA stack writes about each session.
TEST_F(StewardTest, AThousandDescriptionsLeaveNothingBehind) {
    auto connection = start();
    for (int change = 0; change < 1000; ++change) {
        connection.send("IFCH\n");
        ASSERT_TRUE(connection.awaitLine("INFO"));
        if (change % 3 == 0) {  // else in the connect, or in the check of the tags
            ASSERT_TRUE(awaitValue(connection));
        }
        describe(connection, change % 50);
    }
    expectWell(connection);
    finish(connection);
}

}  // namespace
