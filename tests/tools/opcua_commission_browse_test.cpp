// SPDX-License-Identifier: MIT
#include "opcua/protocol_handler.hpp"
#include "orvik/pushinterface/info_parser.hpp"
#include "support/opcua_test_server.hpp"
#include "support/process.hpp"
#include "support/proxy.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using namespace TestSupport;
using PullappOpcUa::Device;
using testing::HasSubstr;

UA_NodeId number(UA_UInt32 id) {
    return UA_NODEID_NUMERIC(1, id);
}

char* text(const char* literal) {
    return const_cast<char*>(literal);
}

void addFolder(UA_Server& server, UA_UInt32 id, const UA_NodeId& parent, const char* name) {
    EXPECT_EQ(UA_STATUSCODE_GOOD,
              UA_Server_addObjectNode(
                  &server, number(id), parent, UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                  UA_QUALIFIEDNAME(1, text(name)), UA_NODEID_NUMERIC(0, UA_NS0ID_FOLDERTYPE),
                  UA_ObjectAttributes_default, nullptr, nullptr));
}

void addReference(UA_Server& server, UA_UInt32 from, const UA_NodeId& to) {
    const UA_ExpandedNodeId target{to, UA_STRING_NULL, 0};
    EXPECT_EQ(UA_STATUSCODE_GOOD,
              UA_Server_addReference(&server, number(from),
                                     UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), target, true));
}

void addVariable(UA_Server& server, const UA_NodeId& id, UA_UInt32 parent, const char* name,
                 const UA_Variant& value, UA_Byte access = UA_ACCESSLEVELMASK_READ) {
    auto attributes = UA_VariableAttributes_default;
    attributes.value = value;
    attributes.dataType = value.type->typeId;
    attributes.valueRank = UA_VALUERANK_ANY;
    attributes.accessLevel = access;
    EXPECT_EQ(UA_STATUSCODE_GOOD,
              UA_Server_addVariableNode(&server, id, number(parent),
                                        UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                                        UA_QUALIFIEDNAME(1, text(name)),
                                        UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE),
                                        attributes, nullptr, nullptr));
}

/// A line with a motor and a folder of what cannot be pulled; references lead round in a circle.
void addMachine(UA_Server& server) {
    const auto objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
    addFolder(server, 100, objects, "Line");
    addFolder(server, 110, number(100), "Motor");
    addFolder(server, 120, number(100), "Odd/ends");
    addReference(server, 110, number(100));
    addReference(server, 120, number(110));
    UA_Int16 speed = -5;
    UA_Double load = 0.5;
    UA_String name = borrow("a\nb");
    addVariable(server, nodeNamed("speed"), 110, "Speed", scalar(speed, UA_TYPES_INT16));
    addVariable(server, UA_NODEID_GUID(1, {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}), 110, "Load",
                scalar(load, UA_TYPES_DOUBLE));
    addVariable(server, number(3), 110, "Name", scalar(name, UA_TYPES_STRING));

    UA_DateTime time = 0;
    UA_UInt32 counter = 1;
    UA_String none = UA_STRING_NULL;
    UA_Variant array;
    UA_Variant_init(&array);
    UA_Variant_setArray(&array, &load, 1, &UA_TYPES[UA_TYPES_DOUBLE]);
    addVariable(server, number(11), 120, "array", array);
    addVariable(server, number(12), 120, "date", scalar(time, UA_TYPES_DATETIME));
    addVariable(server, number(13), 120, "null", scalar(none, UA_TYPES_STRING));
    addVariable(server, number(14), 120, "secret", scalar(counter, UA_TYPES_UINT32), 0);
    addVariable(server, nodeNamed("a;b"), 120, "semicolon", scalar(counter, UA_TYPES_UINT32));
    addVariable(server, UA_NODEID_BYTESTRING(1, text("abc")), 120, "opaque",
                scalar(counter, UA_TYPES_UINT32));
}

const std::string machine =
    "path,address,type,readable,value,obstacle\n"
    "/1:Line/1:Motor/1:Load,ns=1;g=00000001-0002-0003-0405-060708090a0b,\"float, 64\",yes,0.5,\n"
    "/1:Line/1:Motor/1:Name,ns=1;i=3,string,yes,\"3,a b\",\n"
    "/1:Line/1:Motor/1:Speed,ns=1;s=speed,\"int, signed, 16\",yes,-5,\n"
    "/1:Line/1:Odd&/ends/1:array,ns=1;i=11,Double[],yes,,array\n"
    "/1:Line/1:Odd&/ends/1:date,ns=1;i=12,DateTime,yes,,no tag has this type\n"
    "/1:Line/1:Odd&/ends/1:null,ns=1;i=13,string,yes,,no value now (null string)\n"
    "/1:Line/1:Odd&/ends/1:opaque,ns=1;b=YWJj,\"int, unsigned, 32\",yes,1,opaque identifier\n"
    "/1:Line/1:Odd&/ends/1:secret,ns=1;i=14,\"int, unsigned, 32\",no,,"
    "no read access with this log-in (BADNOTREADABLE)\n"
    "/1:Line/1:Odd&/ends/1:semicolon,ns=1;s=a;b,\"int, unsigned, 32\",yes,1,"
    "\"string identifier holds \"\";\"\"\"\n";

class OpcUaCommissionBrowseTest : public testing::Test {
  protected:
    OpcUaCommissionBrowseTest() { server_.run(addMachine); }
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

    /// What the daemon says of the description, with the server.
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

    OpcUaTestServer server_;
    const std::string file_ =
        testing::TempDir() + "opcua-commission-" + std::to_string(::getpid()) + ".json";
};

TEST_F(OpcUaCommissionBrowseTest, ListsWhatTheDaemonPullsAndWhyNotTheRestWhateverTheLimits) {
    struct Case {
        std::string name;
        std::function<void(UA_ServerConfig&)> limit;
    };
    const Case cases[] = {
        {"none", [](UA_ServerConfig&) {}},
        {"one reference an answer", [](auto& config) { config.maxReferencesPerNode = 1; }},
        {"and two nodes a request, which it does not tell",
         [](auto& config) { config.maxNodesPerRead = config.maxNodesPerBrowse = 2; }},
    };
    for (const auto& [name, limit] : cases) {
        SCOPED_TRACE(name);
        server_.run([&](UA_Server& server) { limit(*UA_Server_getConfig(&server)); });

        const auto outcome = browse();

        EXPECT_EQ(0, outcome.status);
        EXPECT_EQ(machine, outcome.output);
        EXPECT_THAT(outcome.errors, HasSubstr("13 nodes, 9 variables, 3 of them can be pulled"));
    }
}

TEST_F(OpcUaCommissionBrowseTest, ChoosesByRootPathAndDepth) {
    struct Case {
        std::vector<std::string> options;
        std::string path;  // of the only variable
    };
    const Case cases[] = {
        {{"--match=*/Motor/S*"}, "/1:Line/1:Motor/1:Speed"},
        {{"--match=/1:Line/1:Motor/*", "--exclude=*Load", "--exclude=*/Name"},
         "/1:Line/1:Motor/1:Speed"},
        {{"--root=/Line/Odd&/ends", "--match=*date"}, "/1:Line/1:Odd&/ends/1:date"},
        {{"--root=ns=1;i=110", "--depth=1", "--match=*Speed"}, "/1:Motor/1:Speed"},
        {{"--root=ns=1;i=12", "--depth=0"}, "/1:date"},
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
    EXPECT_THAT(first, HasSubstr("\n    {\"id\":9,\"address\":\"ns=1;s=speed\",\"type\":\"int\","
                                 "\"signed\":true,\"width\":16}\n"));
    EXPECT_THAT(write().errors, HasSubstr("3 tags, nothing to change"));
    EXPECT_EQ(first, written());

    std::ofstream{file_} << R"({"pullDelay": 5, "port": ")" << server_.port()
                         << R"(", "note": [1.50], "ipAddress": "127.0.0.1", "id": "x", "tags": [
        {"id": "65535", "address": "i=3;ns=1", "type": "str", "maxStringLength": 4},
        {"address": "ns=1;i=77", "id": 3, "type": "bool"},
        {"id": 2, "type": "float", "width": 64, "address": "ns=1;s=speed"}]})";
    auto outcome = write({"--first-id=2"});

    EXPECT_EQ(1, outcome.status);
    EXPECT_THAT(outcome.errors,
                HasSubstr("tag 2 ns=1;s=speed: type was float, 64, is int, signed, 16"));
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
    {"id":"65535","address":"i=3;ns=1","type":"str","maxStringLength":4},
)" + gone + R"(    {"id":2,"type":"int","address":"ns=1;s=speed","signed":true,"width":16},
    {"id":4,"address":"ns=1;g=00000001-0002-0003-0405-060708090a0b","type":"float","width":64}
  ]
}
)";
    };
    EXPECT_EQ(updated("    {\"address\":\"ns=1;i=77\",\"id\":3,\"type\":\"bool\"},\n"), written());

    EXPECT_EQ(0, write({"--prune"}).status);
    EXPECT_EQ(updated(""), written());
    EXPECT_EQ("", verdict());
}

TEST_F(OpcUaCommissionBrowseTest, RefusesWrongUseAndTouchesNothing) {
    struct Case {
        std::vector<std::string> options;
        std::string error;
    };
    const Case cases[] = {
        {{"--host=localhost"}, "'localhost' is no IPv4 address"},
        {{"--host=::1"}, "IPv6"},
        {{"--root=/Line/Pump"}, "there is no 'Pump' in /1:Line"},
        {{"--root=ns=1;i=99"}, "there is no ns=1;i=99 (BADNODEIDUNKNOWN)"},
        {{"--write-description=" + file_}, "a new description needs '--id'"},
        {{"--write-description=" + file_, "--id=a", "--first-id=65534"},
         "no id up to 65535 is free"},
        {{"--username=a"}, "no terminal"},
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
