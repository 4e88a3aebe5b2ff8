// SPDX-License-Identifier: MIT
// One system call fails once, while the daemon connects or while values flow.
#include "support/daemon.hpp"
#include "support/opcua_server.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace TestSupport;
using Clock = std::chrono::steady_clock;

/// A daemon in which one call fails, and its steward, which answers every request.
class DaemonWithFailure {
  public:
    DaemonWithFailure(std::uint16_t serverPort, const std::string& failure)
        : serverPort_{serverPort},
          record_{"<7> failed: " + failure.substr(0, failure.find(' '))},
          daemon_{steward_.port(), {"--steward-host=localhost"}, failure} {}

    /// @return whether a line to the steward could not be sent
    bool run() {
        for (id_ = 1; id_ <= 3; ++id_) {  // one worker each
            if (!awaitValue()) {
                return false;
            }
        }
        EXPECT_TRUE(daemon_.log().await(record_));
        endInOrder(daemon_, *connection_);
        return std::ranges::any_of(daemon_.log().records(), [](const auto& record) {
            return record.find("client: Write failed - socket error: ") != std::string::npos;
        });
    }

  private:
    /// Asks the daemon to fetch the description, and waits for values of it.
    /// @return false if the process ended so that its service manager restarts it
    bool awaitValue() {
        constexpr auto limit = isSanitized ? 60s : 25s;
        const auto wanted = std::to_string(id_) + "=4,item";
        const auto deadline = Clock::now() + limit;
        send("IFCH\n");
        while (Clock::now() < deadline) {
            if (!connection_ && !accept()) {
                if (const int status = daemon_.process().wait(0ms); status != -1) {
                    EXPECT_NE(1, status);
                    EXPECT_TRUE(daemon_.log().await(record_));
                    return false;
                }
                continue;
            }
            const auto line = connection_->readLine(100ms);
            if (line == wanted) {
                return true;
            }
            answer(line);
        }
        ADD_FAILURE() << "no values: " << testing::PrintToString(daemon_.log().records());
        return false;
    }

    bool accept() {
        if (steward_.hasConnection(100ms)) {
            connection_ = steward_.accept();
            send("HELO test\n");
        }
        return connection_.has_value();
    }

    void answer(const std::string& line) {
        if (line == "DEVC dev key") {
            send("DEVC OK\n");
        } else if (line == "INFO") {
            const auto text = tag(id_, 5, R"("str","maxStringLength":4)");
            send("INFO " + description(serverPort_, text, 200) + "\n");
        } else if (line == "<closed>") {
            connection_.reset();
        }
    }

    void send(const std::string& text) {
        if (connection_) {
            connection_->send(text);
        }
    }

    std::uint16_t serverPort_;
    std::string record_;
    int id_ = 0;
    ScriptedPeer steward_;
    Daemon daemon_;
    std::optional<PeerConnection> connection_;
};

TEST(SystemCallTest, MayFailOnce) {
    const struct {
        std::string function;
        int places;  // calls during start, connect and pulls
        std::vector<int> errors;
    } rows[]{
        {"pthread_create", 4, {EAGAIN}}, {"epoll_create1", 6, {EMFILE}},
        {"eventfd", 4, {EMFILE}},        {"timerfd_create", 4, {EMFILE}},
        {"socket", 3, {EMFILE}},         {"send", 16, {EINTR, ENOBUFS, ENOMEM}},
    };
    const OpcUaServer server{{"--tags=5", "--max-sessions=500"}};
    std::vector<std::future<bool>> runs;
    for (const auto& [function, places, errors] : rows) {
        for (const int error : errors) {
            for (int place = 1; place <= places; ++place) {
                const auto failure =
                    function + ' ' + std::to_string(place) + ' ' + std::to_string(error);
                runs.push_back(std::async(std::launch::async, [failure, port = server.port()] {
                    SCOPED_TRACE(failure);
                    return DaemonWithFailure{port, failure}.run();
                }));
            }
        }
    }
    // Else the daemon sends by a system call that no row covers
    EXPECT_GT(std::ranges::count_if(runs, [](auto& run) { return run.get(); }), 0);
}

}  // namespace
