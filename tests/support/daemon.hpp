// SPDX-License-Identifier: MIT
#pragma once

#include "support/process.hpp"
#include "support/scripted_peer.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <sys/inotify.h>

namespace TestSupport {

/// The system log records of a daemon with our preloaded library.
class CapturedLog {
  public:
    CapturedLog() {
        std::string name = (std::filesystem::temp_directory_path() / "pullapp-log-XXXXXX").string();
        file_ = Descriptor{::mkostemp(name.data(), O_CLOEXEC)};
        path_ = name;
        changes_ = Descriptor{inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
        EXPECT_GE(inotify_add_watch(changes_.get(), path_.c_str(), IN_MODIFY), 0);
    }
    ~CapturedLog() { std::filesystem::remove(path_); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }

    /// Records so far as "<priority> message", without identity and thread.
    [[nodiscard]] std::vector<std::string> records() const {
        std::vector<std::string> result;
        std::ifstream stream{path_};
        for (std::string line; std::getline(stream, line);) {
            if (!line.starts_with("pullapp[") && !result.empty()) {
                result.back() += '\n' + line;  // of a record with line feeds
                continue;
            }
            const auto priority = line.find(" <") + 1;
            const auto thread = line.find(' ', priority);
            const auto message = line.find(' ', thread + 1);
            result.push_back(line.substr(priority, thread - priority) + line.substr(message));
        }
        return result;
    }

    [[nodiscard]] std::string firstLine() const {
        std::ifstream stream{path_};
        std::string line;
        std::getline(stream, line);
        return line;
    }

    /// Waits until the same record was logged that many times. @return false at the limit
    [[nodiscard]] bool await(std::string_view record, std::ptrdiff_t times = 1,
                             std::chrono::milliseconds limit = 30s) const {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        for (;;) {
            const auto all = records();
            if (std::count(all.begin(), all.end(), record) >= times) {
                return true;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd changed{.fd = changes_.get(), .events = POLLIN, .revents = 0};
            if (left <= 0ms || ::poll(&changed, 1, static_cast<int>(left.count())) != 1) {
                ADD_FAILURE() << "not logged: " << record << "\n" << testing::PrintToString(all);
                return false;
            }
            char events[4096];
            [[maybe_unused]] const auto size = ::read(changes_.get(), events, sizeof events);
        }
    }

  private:
    std::string path_;
    Descriptor file_;
    Descriptor changes_;
};

/// The daemon as built, with its system log captured.
class Daemon {
  public:
    /// @param failure "function place error": this call of a function fails in the daemon
    explicit Daemon(std::uint16_t stewardPort, std::vector<std::string> more = {},
                    const std::string& failure = {})
        : process_{arguments(stewardPort, std::move(more)),
                   {"SYSLOG_CAPTURE=" + log_.path(), "LD_PRELOAD=" DAEMON_PRELOAD_PATH,
                    "FAIL=" + failure, sanitizerOptions()}} {}

    [[nodiscard]] const CapturedLog& log() const { return log_; }
    [[nodiscard]] Process& process() { return process_; }

    /// Sends a signal. @return the exit status
    [[nodiscard]] int endBy(int signal, std::chrono::milliseconds limit = 20s) {
        process_.signal(signal);
        return process_.wait(limit);
    }

  private:
    /// DAEMON_RUNNER may name a program, with its arguments, that runs the daemon.
    static std::vector<std::string> arguments(std::uint16_t port, std::vector<std::string> more) {
        more.insert(more.begin(), {DAEMON_PATH, "--device-id=dev", "--device-key=key",
                                   "--steward-port=" + std::to_string(port)});
        const char* const runner = std::getenv("DAEMON_RUNNER");
        std::istringstream words{runner != nullptr ? runner : ""};
        more.insert(more.begin(), std::istream_iterator<std::string>{words}, {});
        return more;
    }

    /// The address sanitizer must be loaded first, or told that it is not.
    static std::string sanitizerOptions() {
        const char* inherited = std::getenv("ASAN_OPTIONS");
        return "ASAN_OPTIONS=verify_asan_link_order=0:" + std::string{inherited ? inherited : ""};
    }

    CapturedLog log_;
    Process process_;
};

/// Accepts a daemon's connection and logs it on, up to its request for the description.
[[nodiscard]] inline PeerConnection logOn(const ScriptedPeer& steward) {
    auto connection = steward.accept(30s);
    connection.send("HELO test\n");
    EXPECT_EQ("DEVC dev key", connection.readLine());
    connection.send("DEVC OK\n");
    EXPECT_EQ("INFO", connection.readLine());
    return connection;
}

/// Ends a daemon as its service manager does, and closes after its log-off.
inline void endInOrder(Daemon& daemon, PeerConnection& connection, int signal = SIGTERM) {
    daemon.process().signal(signal);
    EXPECT_TRUE(connection.awaitLine("EXIT"));
    connection.close();
    EXPECT_EQ(0, daemon.process().wait());
}

/// Plays the steward of one daemon.
class DaemonTest : public testing::Test {
  protected:
    PeerConnection accept() { return logOn(steward); }
    void end(Daemon& daemon, PeerConnection& connection, int signal = SIGTERM) {
        endInOrder(daemon, connection, signal);
    }

    ScriptedPeer steward;
};

}  // namespace TestSupport
