// SPDX-License-Identifier: MIT
// What is said on a connection: log-on, messages, batches, and a server that does not read.
#include "orvik/pushinterface/client.hpp"

#include "support/running_client.hpp"

#include <algorithm>
#include <future>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Orvik::PushInterface;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using TestSupport::ClientTest;
using TestSupport::RunningClient;
using Events = std::vector<std::string>;

TEST_F(ClientTest, LogsOnAndNotifiesInOrder) {
    client->setDevice("id", "key");
    auto connection = connect();
    EXPECT_FALSE(connection.hasData(0ms));
    connection.send("HELO steward 1\n");
    EXPECT_EQ("DEVC id key", connection.readLine());
    EXPECT_THAT(handler.next(3), ElementsAre("onHelo: steward 1", "onRead: HELO steward 1",
                                             "onWrite: DEVC id key\n"));
    connection.send("DEVC OK\n");
    EXPECT_EQ("INFO", connection.readLine());
    EXPECT_THAT(handler.next(3),
                ElementsAre("onDevc: accepted", "onRead: DEVC OK", "onWrite: INFO\n"));
    connection.send("INFO {}\n");
    EXPECT_THAT(handler.next(2), ElementsAre("onInfo: {}", "onRead: INFO {}"));
    logOff(connection);
    EXPECT_THAT(handler.next(2), ElementsAre("onWrite: EXIT\n", "onDisconnected"));
}

TEST_F(ClientTest, DispatchesEveryMessage) {
    struct Case {
        std::string line;
        std::string event;
        bool asksForInfo = false;
    };
    const std::vector<Case> cases{
        {"DEVC", "onDevc: refused"},
        {"DEVC OK ", "onDevc: refused"},
        {"DEVC ok", "onDevc: refused"},
        {"DEVC OK", "onDevc: accepted", true},
        {"INFO { \"a\": 1 }", "onInfo: { \"a\": 1 }"},
        {"INFO \0\r\xff"s, "onInfo: \0\r\xff"s},
        {"IFCH", "onIfch", true},
        {"IFCH ", "onIfch", true},
        {"IFCH now", "onIfch: now", true},
        {"RTCH 1", "onRtch: on"},
        {"RTCH 10", "onRtch: on"},
        {"RTCH", "onRtch: off"},
        {"RTCH  1", "onRtch: off"},
        {"EROR a b", "onEror: a b"},
        {"TGNF 7", "onTgnf: 7"},
        {"INVL 7=x", "onInvl: 7=x"},
        {"TOOF", "onToof: "},
        {"helo", "onClientError: Unexpected server message type: helo"},
        {"HELOX", "onClientError: Unexpected server message: HELOX"},
        {"HELO\r", "onClientError: Unexpected server message: HELO\r"},
        {"", "onClientError: Unexpected server message: "},
    };
    auto connection = logOn();
    for (const auto& [line, event, asksForInfo] : cases) {
        Events expected{event, "onRead: " + line};  // direct calls come before the posted onRead
        if (event.starts_with("onClientError")) {
            std::swap(expected[0], expected[1]);
        }
        if (asksForInfo) {
            expected.push_back("onWrite: INFO\n");
        }
        connection.send(line + "\n");
        EXPECT_EQ(expected, handler.next(std::ssize(expected)));
    }
    logOff(connection);
}

TEST_F(ClientTest, HandlerCanDeclineAnAnswerButNotInsistOnOne) {
    const struct {
        ClientHandler* handler;
        bool answers;
        std::string id;
        std::string lines;
        Events expected;
    } cases[] = {
        {&handler, false, "id", "HELO\nDEVC OK\nIFCH\nIFCH x\nEROR 1\n", {}},
        {&handler, true, "", "HELO\nDEVC no\nEROR 2\n", {}},
        {nullptr, {}, "id", "HELO\nDEVC OK\nINFO {}\n?\nIFCH\n", {"DEVC id key", "INFO", "INFO"}},
    };
    for (const auto& [chosen, answers, id, lines, expected] : cases) {
        handler.answers = answers;
        RunningClient once{chosen};
        once->setDevice(id, "key");
        once.connect(peer.port());
        auto connection = peer.accept();
        connection.send(lines);
        for (const auto& answer : expected) {
            EXPECT_EQ(answer, connection.readLine());
        }
        ASSERT_TRUE(!chosen || handler.await(answers ? "onEror: 2" : "onEror: 1"));
        once->setDevice("id2", "key2");  // still counts as greeted
        EXPECT_EQ("DEVC id2 key2", connection.readLine());
        connection.close();
    }
}

TEST_F(ClientTest, IdentifiesTheDeviceWhenItIsSet) {
    auto connection = connect();
    client->setDevice("early", "key");
    client->setDevice("", "");
    client->write("nothing before");
    EXPECT_EQ("nothing before", connection.readLine());
    connection.send("HELO\nEROR greeted\n");
    ASSERT_TRUE(handler.await("onEror: greeted"));
    client->setDevice("id", "key");
    EXPECT_EQ("DEVC id key", connection.readLine());
    client->setDevice("", "key");  // an empty id matters only at the greeting
    EXPECT_EQ("DEVC  key", connection.readLine());
    logOff(connection);
}

TEST_F(ClientTest, ReportsWhatHandlersThrow) {
    handler.during = [](const std::string& operation) {
        if (operation == "onIfch") {
            throw 1;
        }
        throw std::runtime_error{"x"};
    };
    auto connection = logOn();
    connection.send("INFO {}\nIFCH\n\n");
    EXPECT_EQ("INFO", connection.readLine());
    for (const std::string error :
         {"onInfo: x", "onIfch: <no exception info>", "onClientError: x"}) {
        EXPECT_TRUE(handler.await("onClientError: Exception during ClientHandler::" + error));
    }
    connection.close();
    EXPECT_TRUE(handler.await("onClientError: Exception during ClientHandler::onDisconnected: x"));
}

TEST_F(ClientTest, RefusesToWriteAfterLogOff) {
    auto connection = logOn();
    client->disconnect();
    client->write("too late");
    client->disconnect();
    EXPECT_TRUE(handler.await("onClientError: Cannot write when already disconnecting", 2));
    EXPECT_EQ("EXIT", connection.readLine());
}

TEST_F(ClientTest, ReadsLinesHoweverTheyArrive) {
    auto connection = logOn();
    connection.sendByteByByte("EROR byte by byte\n");
    EXPECT_TRUE(handler.await("onEror: byte by byte"));
    connection.send("EROR two\nEROR lines\nEROR in one");
    EXPECT_TRUE(handler.await("onEror: lines"));
    connection.send(" packet\n");
    EXPECT_TRUE(handler.await("onEror: in one packet"));
    std::string lines = "INFO " + large + "\n";
    for (int i = 0; i < 1000; ++i) {
        lines += "RTCH 1\n";
    }
    connection.send(lines);
    EXPECT_TRUE(handler.await("onRtch: on", 1000));
    EXPECT_THAT(handler.events(), Contains("onInfo: " + large));
}

TEST_F(ClientTest, WritesLinesWholeAndInTheOrderOfEachThread) {
    auto connection = logOn();
    constexpr int lines = 500;
    std::vector<std::future<void>> writers;
    for (const std::string name : {"a", "b"}) {
        writers.push_back(std::async(std::launch::async, [this, name] {
            for (int i = 0; i < lines; ++i) {
                client->write(name + std::to_string(i) + std::string(1000, name[0]));
            }
        }));
    }
    int next[2] = {0, 0};
    for (int i = 0; i < 2 * lines; ++i) {
        const auto line = connection.readLine();
        auto& number = next[line[0] - 'a'];
        ASSERT_EQ(line[0] + std::to_string(number++) + std::string(1000, line[0]), line);
    }
    client->write(large + '\n');
    EXPECT_TRUE(large == connection.readLine());
    EXPECT_EQ("", connection.readLine());  // the line feed of the batch itself
    pushErrorMessage(*client, std::string(300, 'e'));
    EXPECT_EQ("@__nimbara_error_msg__=255," + std::string(255, 'e'), connection.readLine());
}

// A server that does not read

const std::string lossBegins =
    "onClientError: Dropping value batches because the server does not read";

std::string lossEnds(const std::string& what) {
    return "onClientError: Dropped " + what + " because the server did not read";
}

/// A line counts with the memory it occupies.
std::string inMemory(std::size_t bytes, std::string line) {
    line.reserve(bytes);
    return line;
}

TEST_F(ClientTest, DropsWholeBatchesAndKeepsTheNewestErrorBeyondTheLimit) {
    auto connection = logOn();
    for (int i = 0; i < 2; ++i) {
        client->write(inMemory(25'000'000, large));  // two are the limit
        pushErrorMessage(*client, "");
        pushErrorMessage(*client, "");
    }
    pushNamedValue(*client, "large", large, 0);  // beyond the limit from here on
    for (const std::string error : {"older", "new"}) {
        pushErrorMessage(*client, error);
        client->write("1=t\n");
    }
    client->write("@no equals sign");
    ASSERT_TRUE(handler.await(lossBegins));
    connection.send("IFCH\n");
    ASSERT_TRUE(handler.await("onIfch"));
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(large == connection.readLine());
        EXPECT_EQ("@__nimbara_error_msg__=0,", connection.readLine());
        EXPECT_EQ("@__nimbara_error_msg__=0,", connection.readLine());
    }
    EXPECT_TRUE("@large=12582912," + large == connection.readLine());
    EXPECT_EQ("@__nimbara_error_msg__=3,new", connection.readLine());
    EXPECT_EQ("@no equals sign", connection.readLine());
    EXPECT_EQ("INFO", connection.readLine());
    ASSERT_TRUE(handler.await(lossEnds("2 value batches")));
    const auto events = handler.events();
    EXPECT_EQ(1, std::count(events.begin(), events.end(), lossBegins));
    const auto end = std::find(events.begin(), events.end(), lossEnds("2 value batches"));
    EXPECT_EQ(2, std::count(events.begin(), end, "onWrite: " + large + '\n'));  // below half
    logOff(connection);
}

TEST_F(ClientTest, ReplacesNoNamedValueThatIsPartlySent) {
    auto connection = logOn();
    client->write(inMemory(64'000'000, "@x=" + large));
    pushNamedValue(*client, "x", "older", 0);
    pushNamedValue(*client, "x", "new", 0);
    EXPECT_TRUE("@x=" + large == connection.readLine());
    EXPECT_EQ("@x=3,new", connection.readLine());
    logOff(connection);
}

TEST_F(ClientTest, ReportsALossAtTheEndOfItsConnection) {
    const auto lose = [&] {
        client->write(inMemory(70'000'000, large));  // fits, as nothing waits
        client->write("1=t\n");
    };
    auto first = logOn(1);
    lose();
    ASSERT_TRUE(handler.await(lossBegins));
    first.reset();
    EXPECT_TRUE(handler.await(lossEnds("1 value batch")));
    EXPECT_TRUE(handler.await("onClientError: Write failed - socket error: '" + large + "\n'"));
    auto second = peer.accept();
    ASSERT_TRUE(handler.await("onConnected", 2));
    lose();
    client->disconnect();
    EXPECT_TRUE(handler.await(lossEnds("1 value batch"), 2));
    second.reset();
}

}  // namespace
