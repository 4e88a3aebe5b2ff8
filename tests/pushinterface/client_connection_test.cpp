// SPDX-License-Identifier: MIT
// How connections begin, fail, are replaced and end.
#include "orvik/pushinterface/client.hpp"
#include "support/running_client.hpp"
#include "support/system_calls.hpp"

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using TestSupport::RunningClient;
using TestSupport::ScriptedPeer;
using TestSupport::UnansweringPeer;
namespace System = TestSupport::System;
using ClientConnectionTest = TestSupport::ClientTest;

TEST_F(ClientConnectionTest, StaysIdleAfterAFailedLookUp) {
    client.connect(1, 1, "none.test");
    EXPECT_TRUE(client.ends());  // no reconnect, though a delay is set
    EXPECT_THAT(handler.events(), ElementsAre("onClientError: Address resolve error"));
}

TEST_F(ClientConnectionTest, TriesTheNextAddressSilently) {
    client.connect(peer.port(), 0, "two.test");
    auto connection = peer.accept();
    ASSERT_TRUE(handler.await("onConnected"));
    logOff(connection);
    EXPECT_THAT(handler.events(), ElementsAre("onConnected", "onWrite: EXIT\n", "onDisconnected"));
}

TEST_F(ClientConnectionTest, TriesAgainWhenNoThreadCanLookUp) {
    auto first = logOn();
    System::setThreadStack(System::impossibleStack);
    client->connect("two.test", peer.port(), 1);
    ASSERT_TRUE(handler.await("onReconnecting: connecting failed"));
    System::setThreadStack(8 << 20);
    auto second = peer.accept();
    EXPECT_THAT(handler.events(), AllOf(Contains("onClientError: Could not connect to server"),
                                        Not(Contains("onClientError: Address resolve error"))));
    client->disconnect();
    first.close();
    second.close();
}

TEST_F(ClientConnectionTest, ReconnectsAfterTheDelayAndLogsOnAnew) {
    auto first = logOn(100);
    const auto port = peer.port();
    { const auto gone = std::move(peer); }
    System::nextConnectIsToItself = true;  // fails like the others and frees the port
    const auto begin = std::chrono::steady_clock::now();
    first.reset();
    EXPECT_THAT(handler.next(6), ElementsAre("onDisconnected", "onReconnecting: auto reconnect",
                                             "onClientError: Could not connect to server",
                                             "onReconnecting: connecting failed",
                                             "onClientError: Could not connect to server",
                                             "onReconnecting: connecting failed"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    peer = ScriptedPeer{port};
    auto second = peer.accept();
    second.send("HELO\n");
    EXPECT_EQ("DEVC id key", second.readLine());
    logOff(second);
}

TEST_F(ClientConnectionTest, NoticesAHostThatVanishes) {
    auto connection = logOn();
    const int settings[][3] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                               {IPPROTO_TCP, TCP_KEEPIDLE, 60},
                               {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                               {IPPROTO_TCP, TCP_KEEPCNT, 6},
                               {IPPROTO_TCP, TCP_USER_TIMEOUT, 120'000}};
    for (const auto& [level, option, expected] : settings) {
        int value = 0;
        socklen_t size = sizeof value;
        EXPECT_EQ(0, getsockopt(System::clientSocket, level, option, &value, &size));
        EXPECT_EQ(expected, value) << option;
    }
    logOff(connection);
}

TEST_F(ClientConnectionTest, AFailedSendEndsTheConnection) {
    auto connection = logOn();
    const std::function<int()> interrupt = [] { return EINTR; };
    System::nextSend = &interrupt;
    client->write("interrupted");
    EXPECT_EQ("interrupted", connection.readLine());
    const std::function<int()> fail = [&] {
        client->write("never");
        return ENOBUFS;
    };
    System::nextSend = &fail;
    client->write("lost");
    EXPECT_EQ("<closed>", connection.readLine());
    EXPECT_TRUE(client.ends());
    EXPECT_THAT(handler.next(3), ElementsAre("onWrite: interrupted\n",
                                             "onClientError: Write failed - socket error: 'lost\n'",
                                             "onDisconnected"));
    EXPECT_EQ("onDisconnected", handler.events().back());
}

// Ending in every state

TEST_F(ClientConnectionTest, EndsWhileLookingUpAName) {
    {
        RunningClient looking{&handler};
        looking.connect(peer.port(), 1, "slow.test");
        ASSERT_TRUE(System::slowLookUpBegun.try_acquire_for(20s));
    }
    System::slowLookUpMayEnd.release();  // the look-up then destroys the client's state
    ASSERT_TRUE(System::slowLookUpEnded.try_acquire_for(20s));
    EXPECT_TRUE(handler.events().empty());
}

TEST_F(ClientConnectionTest, EndsWhileConnecting) {
    const UnansweringPeer unanswering;
    client.connect(unanswering.port(), 1);
    client->write("x");
    const auto refused = "onClientError: Cannot write without an active connection";
    ASSERT_TRUE(handler.await(refused));  // reported in order, so the attempt has begun
    client->disconnect();
    EXPECT_TRUE(client.ends());
    EXPECT_THAT(handler.events(), ElementsAre(refused));
}

TEST_F(ClientConnectionTest, EndsAfterALoss) {
    for (const int delay : {0, -1, 1'000'000'000}) {
        RunningClient once{&handler};
        once.connect(peer.port(), delay);
        auto connection = peer.accept();
        connection.send("cut in mid-li");
        connection.close();
        if (delay > 0) {
            ASSERT_TRUE(handler.await("onDisconnected", 3));
            once->disconnect();
        }
        EXPECT_TRUE(once.ends());
        EXPECT_EQ("onDisconnected", handler.events().back());
    }
}

TEST_F(ClientConnectionTest, ALostConnectionWithLinesToWriteIsClosed) {
    auto lost = logOn(1);
    client->write(large);
    lost.shutdownSending();
    auto next = peer.accept();
    EXPECT_EQ("<closed>", lost.readLine());  // once the next one is connected
    ASSERT_TRUE(handler.await("onConnected", 2));
    client->write(large);
    { const auto gone = std::move(peer); }
    next.shutdownSending();
    ASSERT_TRUE(handler.await("onDisconnected", 2));
    client->disconnect();
    EXPECT_TRUE(client.ends());
}

TEST_F(ClientConnectionTest, AnAbandonedAttemptNeverBecomesTheConnection) {
    client.connect(peer.port(), 0, "slow.test");
    ASSERT_TRUE(System::slowLookUpBegun.try_acquire_for(20s));
    const ScriptedPeer other;
    client->connect("127.0.0.1", other.port(), 0);
    auto connection = other.accept();
    ASSERT_TRUE(handler.await("onConnected"));
    System::slowLookUpMayEnd.release();
    ASSERT_TRUE(System::slowLookUpEnded.try_acquire_for(20s));
    EXPECT_FALSE(peer.hasConnection(50ms));  // the result comes too late
    logOff(connection);
}

TEST_F(ClientConnectionTest, AReplacedConnectionIsLeftForTheServerToClose) {
    handler.during = [this](const std::string& operation) {
        if (operation == "onDisconnected") {
            client->write("lost");
        }
    };
    const auto replace = [this](int connections) {
        client->connect("127.0.0.1", peer.port(), 1);
        auto connection = peer.accept();
        EXPECT_TRUE(handler.await("onConnected", connections));
        return connection;
    };
    auto first = logOn(1);
    auto second = replace(2);
    EXPECT_EQ("EXIT", first.readLine());
    first.close();  // deliberately counts as the loss of the second
    EXPECT_TRUE(handler.await("onClientError: Cannot write without an active connection"));
    ASSERT_TRUE(handler.await("onReconnecting: auto reconnect"));
    auto third = peer.accept();
    ASSERT_TRUE(handler.await("onConnected", 3));

    auto fourth = replace(4);
    EXPECT_EQ("<closed>", second.readLine());  // by the client; the fourth is not lost
    EXPECT_EQ("EXIT", third.readLine());
    EXPECT_THAT(handler.events(), Contains("onDisconnected").Times(1));
    client->disconnect();
    EXPECT_EQ("EXIT", fourth.readLine());
    EXPECT_FALSE(third.hasData(0ms));
    third.close();
    fourth.close();
    EXPECT_TRUE(client.ends());
}

}  // namespace
