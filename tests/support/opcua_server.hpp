// SPDX-License-Identifier: MIT
#pragma once

#include "support/process.hpp"

#include <csignal>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace TestSupport {

inline const std::string cleared = "@__nimbara_error_msg__=0,";

/// The error value as a line.
[[nodiscard]] inline std::string error(const std::string& text) {
    return "@__nimbara_error_msg__=" + std::to_string(text.size()) + "," + text;
}

/// An OPC UA server as a separate process, which can be stopped, frozen and restarted.
class OpcUaServer {
  public:
    explicit OpcUaServer(std::vector<std::string> options = {"--tags=5"}, std::uint16_t port = 0)
        : process_{command(std::move(options), port)} {
        const auto line = process_.readLine();
        const auto colon = line.rfind(':');
        EXPECT_NE(std::string::npos, colon) << line << process_.restOfErrors();
        port_ = static_cast<std::uint16_t>(std::stoi(line.substr(colon + 1)));
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    Process& process() { return process_; }

    [[nodiscard]] std::string statistics() {
        process_.writeLine("stats");
        return process_.readLine();
    }

    void kill() {
        process_.signal(SIGKILL);
        EXPECT_EQ(Process::killedBy(SIGKILL), process_.wait());
    }

  private:
    static std::vector<std::string> command(std::vector<std::string> options, std::uint16_t port) {
        options.insert(options.begin(), {OPCUA_SIMULATOR_PATH, "--port=" + std::to_string(port)});
        return options;
    }

    Process process_;
    std::uint16_t port_ = 0;
};

[[nodiscard]] inline std::string description(std::uint16_t port, const std::string& tags,
                                             int pullDelay = 50) {
    return R"({"id":"dev","ipAddress":"127.0.0.1","port":)" + std::to_string(port) +
           R"(,"pullDelay":)" + std::to_string(pullDelay) + R"(,"tags":[)" + tags + "]}";
}

[[nodiscard]] inline std::string tag(int id, int node, const std::string& type) {
    return R"({"id":)" + std::to_string(id) + R"(,"address":"ns=1;i=)" + std::to_string(node) +
           R"(","type":)" + type + "}";
}

// The simulator's tags: int, float, double, bool, string in turn
inline const std::string intTag = tag(7, 1, R"("int","signed":true,"width":32)");
inline const std::string boolTag = tag(1, 4, R"("bool")");
inline const std::string textTag = tag(65535, 5, R"("str","maxStringLength":4)");

}  // namespace TestSupport
