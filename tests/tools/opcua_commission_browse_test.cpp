// SPDX-License-Identifier: MIT
#include "opcua/protocol_handler.hpp"
#include "orvik/pushinterface/info_parser.hpp"
#include "support/opcua_server.hpp"
#include "support/process.hpp"
#include "support/proxy.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

namespace {

using namespace TestSupport;
using PullappOpcUa::Device;
using testing::HasSubstr;

/// What the simulator has besides its five changing tags.
const std::string odd =
    std::string{
        "path,address,type,readable,value,obstacle\n"
        "/1:Odd/1:Array,ns=1;s=Array,Int32[],yes,,array\n"
        "/1:Odd/1:ByteString,ns=1;s=ByteString,ByteString,yes,,"
        "no tag has this type\n"
        "/1:Odd/1:DateTime,ns=1;s=DateTime,DateTime,yes,,"
        "no tag has this type\n"
        "/1:Odd/1:LocalizedText,ns=1;s=LocalizedText,LocalizedText,"
        "yes,,no tag has this type\n"
        "/1:Odd/1:No value yet,ns=1;s=No value yet,\"float, 64\",yes,,"
        "no value now (BADWAITINGFORINITIALDATA)\n"
        "/1:Odd/1:Null string,ns=1;s=Null string,string,yes,,"
        "no value now (null string)\n"
        "/1:Odd/1:Opaque,ns=1;b=b3BhcXVl,\"int, signed, 32\",yes,1,"
        "opaque identifier\n"
        "/1:Odd/1:Semicolon,ns=1;s=semicolon;inside,"
        "\"int, signed, 32\",yes,1,"
        "\"string identifier holds \"\";\"\"\"\n"
        "/1:Odd/1:Structure,ns=1;s=Structure,structure,yes,,"
        "no tag has this type\n"
        "/1:Odd/1:Write only,ns=1;s=Write only,\"int, signed, 32\",no,,"
        "no read access with this log-in (BADNOTREADABLE)\n"
        "/1:Odd/1:Zero byte,ns=1;s=zero"} +
    '\0' + "inside,\"int, signed, 32\",yes,1,string identifier holds a zero byte\n";

class OpcUaCommissionBrowseTest : public testing::Test {
  protected:
    ~OpcUaCommissionBrowseTest() override { std::filesystem::remove(file_); }

    [[nodiscard]] std::vector<std::string> command(std::vector<std::string> options,
                                                   std::uint16_t port) const {
        const auto give = [&](const std::string& name, const std::string& value) {
            const auto isSame = [&](const auto& option) { return option.starts_with(name); };
            if (std::ranges::none_of(options, isSame)) {
                options.push_back(name + value);
            }
        };
        give("--host=", "127.0.0.1");
        give("--format=", "csv");
        give("--port=", std::to_string(port));
        options.insert(options.begin(), {OPCUA_COMMISSION_PATH, "browse"});
        return options;
    }

    struct Outcome {
        int status = -1;
        std::string output;
        std::string errors;
    };

    static Outcome end(Process& process) {
        Outcome outcome;
        outcome.output = process.restOfOutput();
        outcome.errors = process.restOfErrors();
        outcome.status = process.wait();
        return outcome;
    }

    [[nodiscard]] Outcome browse(std::vector<std::string> options = {}) const {
        Process process{command(std::move(options), server_.port())};
        return end(process);
    }

    [[nodiscard]] Outcome write(std::vector<std::string> options = {}) const {
        options.push_back("--write-description=" + file_);
        return browse(std::move(options));
    }

    [[nodiscard]] std::string written() const {
        std::ifstream file{file_};
        return {std::istreambuf_iterator<char>{file}, {}};
    }

    /// The daemon's verdict on the description, with the server.
    [[nodiscard]] std::string verdict() const {
        const auto device = std::make_shared<Device>();
        using Parser = Orvik::PushInterface::InfoParser<Device, PullappOpcUa::Tag>;
        PullappOpcUa::ProtocolHandler handler;
        for (const auto& error : {Parser::parse(written(), device), handler.connect(*device)}) {
            if (!error.empty()) {
                return error;
            }
        }
        return handler.verifyTags(*device);
    }

    OpcUaServer server_{{"--tags=5", "--odd"}};
    const std::string file_ =
        testing::TempDir() + "opcua-commission-" + std::to_string(::getpid()) + ".json";
};

TEST_F(OpcUaCommissionBrowseTest, ListsWhatCannotBePulledAndWhyWhateverTheLimits) {
    const std::vector<std::string> limits[] = {
        {"--tags=5", "--odd", "--max-references=1"},
        {"--tags=5", "--odd", "--max-nodes=2"},
        {"--tags=5", "--odd", "--max-nodes=2", "--max-references=1"},
        {"--tags=1000", "--odd"},
    };
    for (const auto& options : limits) {
        OpcUaServer server{options};
        Process process{command({"--match=/Odd/*"}, server.port())};

        const auto outcome = end(process);

        EXPECT_EQ(0, outcome.status);
        EXPECT_EQ(odd, outcome.output) << testing::PrintToString(options);
        EXPECT_THAT(outcome.errors, HasSubstr(" nodes, 11 variables, 0 of them can be pulled"));
    }
    EXPECT_THAT(browse().errors, HasSubstr(" nodes, 16 variables, 5 of them can be pulled"));
}

TEST_F(OpcUaCommissionBrowseTest, TellsOfAServerThatCannotReadAllTagsAtOnce) {
    for (const int limit : {4, 5}) {
        OpcUaServer server{{"--tags=5", "--max-nodes=" + std::to_string(limit)}};
        std::remove(file_.c_str());
        Process process{command({"--write-description=" + file_, "--id=a"}, server.port())};
        const auto outcome = end(process);
        EXPECT_EQ(limit < 5 ? 1 : 0, outcome.status) << outcome.errors;
        EXPECT_EQ(limit < 5, outcome.errors.find("no more than 4 nodes") != std::string::npos);
    }
}

TEST_F(OpcUaCommissionBrowseTest, ChoosesByRootPathAndDepth) {
    struct Case {
        std::vector<std::string> options;
        std::string path;  // of the only variable
    };
    const Case cases[] = {
        {{"--match=*/Tag [12]", "--exclude=*2"}, "/1:Tags 1-100/1:Tag 1"},
        {{"--match=/1:Odd/*", "--exclude=/Odd/[!S]*", "--exclude=*r?"}, "/1:Odd/1:Semicolon"},
        {{"--root=/Odd", "--match=*Date*"}, "/1:Odd/1:DateTime"},
        {{"--root=/Objects/1:Odd", "--depth=1", "--match=*Opaque"}, "/1:Odd/1:Opaque"},
        {{"--root=ns=1;s=DateTime", "--depth=0"}, "/1:DateTime"},
        {{"--all", "--match=/Server/ServerStatus/State"}, "/Server/ServerStatus/State"},
    };
    for (const auto& [options, path] : cases) {
        const auto outcome = browse(options);

        EXPECT_EQ(2, std::ranges::count(outcome.output, '\n')) << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr("\n" + path + ",")) << outcome.errors;
    }
}

TEST_F(OpcUaCommissionBrowseTest, WritesADescriptionAndBringsItUpToDate) {
    EXPECT_EQ(0, write({"--id=line", "--first-id=7"}).status);
    EXPECT_EQ("", verdict());
    const auto first = written();
    EXPECT_THAT(first, HasSubstr("\n    {\"id\":7,\"address\":\"ns=1;i=1\",\"type\":\"int\","
                                 "\"signed\":true,\"width\":32},\n"));
    EXPECT_THAT(write().errors, HasSubstr("5 tags, nothing to change"));
    EXPECT_EQ(first, written());

    std::ofstream{file_} << R"({"pullDelay": 5, "port": ")" << server_.port()
                         << R"(", "note": [1.50], "ipAddress": "127.0.0.1", "id": "x", "tags": [
        {"id": "65535", "address": "i=5;ns=1", "type": "str", "maxStringLength": 4},
        {"address": "ns=1;i=77", "id": 3, "type": "bool"},
        {"id": 2, "type": "float", "width": 64, "address": "ns=1;i=1"}]})";
    const auto outcome = write({"--first-id=2", "--match=*/Tag [34]"});

    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(outcome.errors,
                HasSubstr("tag 2 ns=1;i=1: type was float, 64, is int, signed, 32"));
    EXPECT_THAT(outcome.errors, HasSubstr("tag 3 ns=1;i=77: gone from the server; kept"));
    const auto updated = [&](const std::string& gone) {
        return R"({
  "pullDelay": 5,
  "port": ")" + std::to_string(server_.port()) +
               R"(",
  "note": [1.5],
  "ipAddress": "127.0.0.1",
  "id": "x",
  "tags": [
    {"id":"65535","address":"i=5;ns=1","type":"str","maxStringLength":4},
)" + gone + R"(    {"id":2,"type":"int","address":"ns=1;i=1","signed":true,"width":32},
    {"id":4,"address":"ns=1;i=3","type":"float","width":64},
    {"id":5,"address":"ns=1;i=4","type":"bool"}
  ]
}
)";
    };
    EXPECT_EQ(updated("    {\"address\":\"ns=1;i=77\",\"id\":3,\"type\":\"bool\"},\n"), written());

    EXPECT_EQ(0, write({"--prune", "--match=*/Tag [34]"}).status);
    EXPECT_EQ(updated(""), written());
    EXPECT_EQ("", verdict());
}

TEST_F(OpcUaCommissionBrowseTest, RefusesWrongUseAndTouchesNothing) {
    const auto file = "--write-description=" + file_;
    const struct {
        std::vector<std::string> options;
        std::string error;
    } cases[] = {
        {{"--host=localhost"}, "'localhost' is no IPv4 address"},
        {{"--host=::1"}, "IPv6"},
        {{"--root=/Odd/Pump"}, "there is no 'Pump' in /1:Odd"},
        {{"--root=ns=1;i=99"}, "there is no ns=1;i=99 (BADNODEIDUNKNOWN)"},
        {{file}, "a new description needs '--id'"},
        {{file, "--id=a", "--first-id=65534"}, "no id up to 65535 is free"},
        {{"--format=xml"}, "takes table, csv or json"},
    };
    for (const auto& [options, error] : cases) {
        const auto outcome = browse(options);

        EXPECT_EQ(2, outcome.status) << error;
        EXPECT_THAT(outcome.errors, HasSubstr(error));
        EXPECT_FALSE(std::filesystem::exists(file_));
    }
}

TEST_F(OpcUaCommissionBrowseTest, SaysWhatAServerDidThatBreaksOffAndLeavesTheFile) {
    Proxy proxy{server_.port()};
    proxy.at(Message::Browse, {Action::Close});
    Process process{command({"--write-description=" + file_, "--id=a"}, proxy.port())};

    const auto outcome = end(process);

    EXPECT_EQ(3, outcome.status);
    EXPECT_THAT(outcome.errors, HasSubstr("the server does not carry out Browse: BAD"));
    EXPECT_THAT(outcome.errors,
                HasSubstr("the list is not complete; " + file_ + " is not touched"));
    EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(OpcUaCommissionBrowseTest, EndsOnAnInterruptWithWhatItHasWhileTheServerIsSilent) {
    Proxy proxy{server_.port()};
    proxy.at(Message::Browse, {Action::Drop});
    Process process{command({}, proxy.port())};
    while (proxy.count(Message::Browse) == 0) {
        std::this_thread::sleep_for(1ms);
    }
    const auto before = std::chrono::steady_clock::now();
    process.signal(SIGINT);

    const auto outcome = end(process);

    EXPECT_GT(4s, std::chrono::steady_clock::now() - before);  // not the request time-out
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("path,address,type,readable,value,obstacle\n", outcome.output);
    EXPECT_THAT(outcome.errors, HasSubstr("interrupted"));
}

}  // namespace
