// SPDX-License-Identifier: MIT
#include "opcua-simulator/fault.hpp"
#include "opcua/protocol_handler.hpp"
#include "orvik/pushinterface/info_parser.hpp"
#include "support/process.hpp"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace {

using namespace TestSupport;
using PullappOpcUa::Device;
using PullappOpcUa::ProtocolHandler;

/// A simulator that has written the description of its tags.
class OpcUaSimulatorTest : public testing::Test {
  protected:
    ~OpcUaSimulatorTest() override { std::filesystem::remove(file_); }

    void start(std::vector<std::string> options) {
        options.insert(options.begin(), {OPCUA_SIMULATOR_PATH, "--write-description=" + file_});
        simulator_.emplace(options);
        EXPECT_THAT(simulator_->readLine(), testing::StartsWith("listening on 127.0.0.1:"));
        std::ifstream file{file_};
        const std::string json{std::istreambuf_iterator<char>{file}, {}};
        using Parser = Orvik::PushInterface::InfoParser<Device, PullappOpcUa::Tag>;
        EXPECT_EQ("", Parser::parse(json, device_));
    }

    std::string command(const std::string& line) {
        simulator_->writeLine(line);
        simulator_->writeLine("stats");
        return simulator_->readLine();
    }

    const std::string file_ =
        testing::TempDir() + "opcua-simulator-" + std::to_string(::getpid()) + ".json";
    std::optional<Process> simulator_;
    std::shared_ptr<Device> device_ = std::make_shared<Device>();
    ProtocolHandler handler_;
};

TEST_F(OpcUaSimulatorTest, LetsInItsUserOnlyAndCountsWhatItServes) {
    start({"--tags=10", "--user=a", "--password=\"\\", "--advertise=plc", "--pull-delay=7"});

    EXPECT_EQ(7, device_->pullDelay);
    device_->password += "x";
    EXPECT_EQ("Error: BADUSERACCESSDENIED", handler_.connect(*device_));
    device_->password.pop_back();
    EXPECT_EQ("", handler_.connect(*device_));
    EXPECT_EQ("", handler_.verifyTags(*device_));
    EXPECT_THAT(command(""),
                testing::AllOf(testing::StartsWith("reads 1, values 10, sessions refused 1, "),
                               testing::HasSubstr("sessions opened 1, ")));
    simulator_->signal(SIGTERM);

    EXPECT_EQ(0, simulator_->wait());
}

TEST_F(OpcUaSimulatorTest, ServesEveryTypeAndBreaksItOnDemand) {
    const std::string address = "g=72962b91-fa75-4ae6-8d28-b404dc7daf63;ns=3";
    std::string tags = R"({"id":0,"type":"bool","address":")" + address + "\"}";
    for (const std::string type :
         {R"("str","maxStringLength":4)", R"("float","width":32)", R"("float","width":64)",
          R"("int","signed":true,"width":8)", R"("int","signed":false,"width":8)",
          R"("int","signed":true,"width":16)", R"("int","signed":false,"width":16)",
          R"("int","signed":true,"width":32)", R"("int","signed":false,"width":32)",
          R"("int","signed":true,"width":64)", R"("int","signed":false,"width":64)"}) {
        tags += R"(,{"id":1,"address":"s=\"a\" )" + std::to_string(tags.size()) +
                R"(;ns=2","type":)" + type + '}';
    }
    std::ofstream{file_} << R"({"id":"d","ipAddress":"::1","port":1,"tags":[)" << tags << "]}";
    start({"--description=" + file_, "--max-sessions=1", "--advertise=127.0.0.1"});
    ProtocolHandler second;
    const std::pair<std::string, std::string> faults[] = {
        {"bad-status", "BADDEVICEFAILURE"},
        {"no-value", "GOODNODATA"},
        {"other-type", "Wrong type for tag: " + address + " type should be int32"},
        {"array", "UAvariant type not supported for tag: " + address},
        {"null-string", "Wrong type for tag: " + address + " type should be string"},
    };

    EXPECT_EQ("", handler_.connect(*device_));
    EXPECT_EQ("Error: BADTOOMANYSESSIONS", second.connect(*device_));
    EXPECT_EQ("", handler_.verifyTags(*device_));
    for (const auto& [kind, error] : faults) {
        command("fault " + kind + " " + address + " 0");
        EXPECT_EQ(error, handler_.verifyTags(*device_)) << kind;
    }
    const auto before = std::chrono::steady_clock::now();
    command("silence 0.3");
    EXPECT_NE("", handler_.verifyTags(*device_));
    EXPECT_LE(300ms, std::chrono::steady_clock::now() - before);
}

TEST(OpcUaSimulatorFaultTest, ComesOncePerPeriodAfterTheFirst) {
    using OpcUaSimulator::Seconds;
    const auto fault = OpcUaSimulator::parseFault("array:10:2@ns=1;s=a:b@c");

    EXPECT_EQ("ns=1;s=a:b@c", fault.nodeId);
    for (const double active : {10.0, 11.9, 20.0, 31.0}) {
        EXPECT_TRUE(fault.isActive(Seconds{active})) << active;
    }
    for (const double inactive : {0.0, 9.9, 12.0, 19.9}) {
        EXPECT_FALSE(fault.isActive(Seconds{inactive})) << inactive;
    }
}

}  // namespace
