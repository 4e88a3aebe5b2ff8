// SPDX-License-Identifier: MIT
#include "orvik/pullapplication/main.hpp"

#include "support/scripted_handler.hpp"

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Orvik;
using namespace TestSupport;
using testing::ElementsAre;

/// Calls of all handlers; global because the application creates the handlers itself.
std::shared_ptr<Calls> calls;

/// How many of the next handler constructions fail.
std::atomic<int> failures = 0;

struct Handler final : DataSource::ProtocolHandler<FakeDevice, FakeTag> {
    Handler() {
        if (failures > 0) {
            --failures;
            throw std::runtime_error{"none"};
        }
    }
    void init() override { calls->add("init"); }
    void deinit() override { calls->add("deinit"); }
    std::string connect(FakeDevice& /*device*/) override { return {}; }
    void disconnect(FakeDevice& /*device*/) override {}
    std::string verifyTags(FakeDevice& /*device*/) override { return {}; }
    std::string pullData(FakeDevice& /*device*/, PushInterface::Client& /*client*/) override {
        return {};
    }
    std::string keepAlive(FakeDevice& /*device*/) override { return {}; }
};

struct Parser {
    static std::string parse(const std::string& info, const std::shared_ptr<FakeDevice>& /*d*/) {
        return info == "good" ? "" : "bad";
    }
};

/// Plays the client thread: what the steward sends when it runs, and when it is disconnected.
struct Client final : PushInterface::Client {
    explicit Client(PushInterface::ClientHandler* aHandler)
        : PushInterface::Client{nullptr}, handler{aHandler} {}
    void write(std::string message) override {
        if (!message.ends_with("=0,")) {
            calls->add(message);
        }
    }
    void setDevice(const std::string& id, const std::string& key) const {
        calls->add("setDevice " + id + " " + key);
    }
    void connect(const std::string& host, std::uint32_t port, int delay) const {
        calls->add("connect " + host + " " + std::to_string(port) + " " + std::to_string(delay));
    }
    void disconnect() const {
        calls->add("disconnect");
        onDisconnect(*handler);
    }
    void run() const { onRun(*handler); }

    PushInterface::ClientHandler* handler;
    static inline std::function<void(PushInterface::ClientHandler&)> onRun;
    static inline std::function<void(PushInterface::ClientHandler&)> onDisconnect;
};

class MainTest : public testing::Test {
  protected:
    MainTest() {
        calls = std::make_shared<Calls>();
        Client::onRun = Client::onDisconnect = [](auto&) {};
    }
    int run(std::chrono::nanoseconds startRetryDelay = std::chrono::hours{1}) {
        std::string arguments[] = {"program", "--device-id=id", "--device-key=key"};
        char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data()};
        PullApplication::Main<Handler, Parser, Client> application{startRetryDelay};
        return application.run(3, argv, "p", "v", "n");
    }
};

TEST_F(MainTest, ARefusedDescriptionEndsTheServiceWheneverItComes) {
    // The client thread may be faster than the main thread's wait, or slower
    for (int i = 0; i < 200; ++i) {
        calls = std::make_shared<Calls>();
        Client::onRun = [i](auto& handler) {
            const auto later = std::chrono::steady_clock::now() + std::chrono::microseconds{i};
            while (std::chrono::steady_clock::now() < later) {
            }
            handler.onInfo("refuse me");
            handler.onInfo("once more");
        };
        EXPECT_EQ(0, run());
        EXPECT_THAT(calls->all(), ElementsAre("setDevice id key", "connect 127.0.0.1 9230 10",
                                              "disconnect", "disconnect", "disconnect"));
    }
}

TEST_F(MainTest, ADescriptionThatComesDuringTheShutdownStartsNothing) {
    Client::onRun = [](auto& handler) {
        handler.onInfo("good");
        EXPECT_TRUE(calls->await("init"));
        ::raise(SIGTERM);
        EXPECT_TRUE(calls->await("disconnect"));
    };
    Client::onDisconnect = [](auto& handler) { handler.onInfo("good"); };
    EXPECT_EQ(0, run());
    EXPECT_THAT(calls->all(), ElementsAre("setDevice id key", "connect 127.0.0.1 9230 10", "init",
                                          "deinit", "disconnect"));
}

TEST_F(MainTest, TriesAgainToStartWhileTheDescriptionIsTheCurrentOne) {
    constexpr std::chrono::milliseconds delay{30};
    std::chrono::nanoseconds waited{};
    Client::onRun = [&waited](auto& handler) {
        const auto fail = [&handler](int times) {
            failures = times;
            handler.onInfo("good");
        };
        // Waits end in the order in which they began: outdated ones first
        fail(1);
        handler.onDisconnected();
        const auto begin = std::chrono::steady_clock::now();
        fail(2);
        EXPECT_TRUE(calls->await("init"));
        waited = std::chrono::steady_clock::now() - begin;
        handler.onDisconnected();
        fail(1);
        handler.onInfo("good");
        fail(1);
        EXPECT_TRUE(calls->await("init", 3));
        fail(1);  // the shutdown comes before the retry
        ::raise(SIGTERM);
    };
    EXPECT_EQ(0, run(delay));
    EXPECT_GE(waited, 2 * delay);
    const std::string error = "@__nimbara_error_msg__=4,none";
    EXPECT_THAT(calls->all(), ElementsAre("setDevice id key", "connect 127.0.0.1 9230 10", error,
                                          error, error, "init", "deinit", error, "init", "deinit",
                                          error, "init", "deinit", error, "disconnect"));
}

}  // namespace
