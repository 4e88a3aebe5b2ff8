// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client.hpp"
#include "support/recording_client_handler.hpp"
#include "support/scripted_peer.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <string>

#include <gtest/gtest.h>

namespace TestSupport {

/// A client on its own thread; logs off and waits for the thread at the end.
class RunningClient {
  public:
    explicit RunningClient(Orvik::PushInterface::ClientHandler* handler) : client_{handler, 1ms} {}
    ~RunningClient() {
        if (thread_.valid()) {
            client_.disconnect();
            if (!ends()) {
                ADD_FAILURE() << "the client does not end";
                std::abort();  // the future would wait for ever
            }
        }
    }
    Orvik::PushInterface::Client* operator->() { return &client_; }
    Orvik::PushInterface::Client& operator*() { return client_; }

    void connect(std::uint16_t port, int delay = 0, const std::string& host = "127.0.0.1") {
        client_.connect(host, port, delay);
        thread_ = std::async(std::launch::async, [this] { client_.run(); });
    }
    [[nodiscard]] bool ends(std::chrono::milliseconds limit = 20s) {
        return thread_.wait_for(limit) == std::future_status::ready;
    }

  private:
    Orvik::PushInterface::Client client_;
    std::future<void> thread_;
};

/// A client with the peer that plays the steward.
class ClientTest : public testing::Test {
  protected:
    PeerConnection connect(int delay = 0) {
        client.connect(peer.port(), delay);
        auto connection = peer.accept();
        EXPECT_TRUE(handler.await("onConnected"));
        return connection;
    }

    /// Greeted and identified; the answer to DEVC is still due.
    PeerConnection logOn(int delay = 0) {
        client->setDevice("id", "key");
        auto connection = connect(delay);
        connection.send("HELO\n");
        EXPECT_EQ("DEVC id key", connection.readLine());
        EXPECT_TRUE(handler.await("onWrite: DEVC id key\n"));
        return connection;
    }

    void logOff(PeerConnection& connection) {
        client->disconnect();
        EXPECT_TRUE(connection.awaitLine("EXIT"));
        connection.close();
        EXPECT_TRUE(client.ends());
    }

    /// More than the system buffers.
    static inline const std::string large = std::string(12 << 20, '7');

    ScriptedPeer peer;
    RecordingClientHandler handler;
    RunningClient client{&handler};
};

}  // namespace TestSupport
