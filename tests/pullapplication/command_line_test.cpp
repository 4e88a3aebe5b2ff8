// SPDX-License-Identifier: MIT
#include "orvik/pullapplication/command_line.hpp"

#include "support/process.hpp"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace Orvik;
using TestSupport::Process;

const std::string daemonPath{DAEMON_PATH};
const std::string usage = "Usage example: " + daemonPath +
                          " --device-id=0123456789AB --device-key=1234" +
                          " [--steward-host=127.0.0.1] [--steward-port=9230] [--log-level=6]\n";
const std::string versionText = "pullapp-opc-ua/" ORVIK_VERSION
                                " (orvik-cpp.pullapplication/dev)\n"
                                "Copyright (c) 2026 The Orvik contributors. MIT License.\n";

std::string error(const std::string& text) {
    return daemonPath + ": " + text + "\n";
}

struct ProcessCase {
    std::vector<std::string> arguments;
    std::string errors;
    std::string output;
};

TEST(CommandLineTest, DaemonPrintsTextsAndEndsWithStatusOne) {
    const std::string id = "--device-id=a";
    const std::string key = "--device-key=b";
    const auto missingId = error("Missing argument device-id");
    const std::vector<ProcessCase> cases{
        {{}, missingId, usage},
        {{id}, error("Missing argument device-key"), usage},
        {{id, key, "--help"}, "", usage},
        {{"--help=x", id, key}, "", usage},
        {{"--version"}, "", versionText},
        {{"--version=1", "--help"}, "", versionText},
        {{"--version", "x"}, error("Invalid argument: x"), versionText},
        {{"x", "--version"}, error("Invalid argument: x") + missingId, usage},
        {{id, key, "-x"}, error("Invalid argument: -x"), usage},
        {{id, key, "-"}, error("Invalid argument: -"), usage},
        {{id, key, ""}, error("Invalid argument: "), usage},
        {{id, key, "--"}, error("Missing value for argument "), usage},
        {{id, key, "--=1"}, error("Invalid argument "), usage},
        {{id, key, "--bogus=1"}, error("Invalid argument bogus"), usage},
        {{id, key, "--bogus"}, error("Missing value for argument bogus"), usage},
        {{"--device-id"}, error("Missing value for argument device-id") + missingId, usage},
        {{id, key, "--steward-host="}, error("Missing value for argument steward-host"), usage},
        {{id, key, "--steward-port=abc", "--version"},
         error("Invalid value for steward-port"),
         usage},
        {{id, key, "--log-level=10"}, error("Invalid value for log-level"), usage},
        {{id, key, "--log-level=-1"}, error("Invalid value for log-level"), usage},
    };
    for (const auto& [arguments, errors, output] : cases) {
        std::vector<std::string> command{daemonPath};
        command.insert(command.end(), arguments.begin(), arguments.end());
        SCOPED_TRACE(testing::PrintToString(arguments));

        Process process{command};

        EXPECT_EQ(1, process.wait());
        EXPECT_EQ(errors, process.restOfErrors());
        EXPECT_EQ(output, process.restOfOutput());
    }
}

PullApplication::Settings parse(std::vector<std::string> arguments, std::string* errors = nullptr) {
    std::string program = "program";
    std::vector<char*> argv{program.data()};
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    std::ostringstream stream;
    auto settings =
        PullApplication::parseCommandLine(static_cast<int>(argv.size()), argv.data(), stream);
    if (errors != nullptr) {
        *errors = stream.str();
    }
    return settings;
}

TEST(CommandLineTest, KeepsDefaultsAndTakesLastValue) {
    const auto defaults = parse({});
    EXPECT_EQ("127.0.0.1", defaults.stewardHost);
    EXPECT_EQ(9230U, defaults.stewardPort);

    const auto given =
        parse({"--device-id=x", "--device-id=a=b", "--steward-host=::1", "--device-key= k"});
    EXPECT_EQ("a=b", given.deviceId);
    EXPECT_EQ(" k", given.deviceKey);
    EXPECT_EQ("::1", given.stewardHost);
    EXPECT_FALSE(given.showUsage);
}

TEST(CommandLineTest, ConvertsNumbersStrictly) {
    struct Case {
        std::string text;
        std::uint32_t port;
    };
    for (const auto& [text, port] : std::vector<Case>{{"70000", 70000},
                                                      {"+5", 5},
                                                      {"-1", 4294967295},
                                                      {"-0", 0},
                                                      {"007", 7},
                                                      {"4294967295", 4294967295}}) {
        std::string errors;
        EXPECT_EQ(port, parse({"--steward-port=" + text}, &errors).stewardPort) << text;
        EXPECT_EQ("", errors);
    }
    for (const std::string text : {"4294967296", "-4294967296", "+-1", "--1", " 1", "1 ", "0x1",
                                   "1.0", "1e3", "-", "+", "1,000"}) {
        std::string errors;
        EXPECT_TRUE(parse({"--steward-port=" + text}, &errors).showUsage) << text;
        EXPECT_EQ("program: Invalid value for steward-port\n", errors);
    }
}

TEST(CommandLineTest, LogLevelTakesEffectAtOnceAndFaultsEndTheReading) {
    const auto level = Log::sink()->level();

    const auto settings = parse({"--log-level=9", "--log-level=x", "--log-level=3", "--version"});

    EXPECT_EQ(9, Log::sink()->level());
    EXPECT_FALSE(settings.showVersion);
    Log::sink()->setLevel(level);
}

}  // namespace
