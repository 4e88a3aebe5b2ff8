// SPDX-License-Identifier: MIT
#include "description/problems.hpp"
#include "opcua/device.hpp"
#include "support/opcua_server.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using Lines = std::vector<std::string>;

/// Each problem on a line, notes marked, and the daemon's verdict.
Lines problemsOf(const std::string& json) {
    Lines lines;
    for (const auto& problem : Tools::findProblems(json)) {
        lines.push_back((problem.severity == Tools::Severity::Note ? "note " : "") +
                        Tools::oneLine(problem));
    }
    lines.push_back(Tools::daemonVerdict(json, std::make_shared<PullappOpcUa::Device>()));
    return lines;
}

std::string described(const std::string& tags, const std::string& more = R"("pullDelay": 1)") {
    return R"({"id": "d", "ipAddress": "127.0.0.1", "port": 1, )" + more + ",\n\"tags\": [" + tags +
           "]}";
}

const std::string boolTag = R"({"id": 1, "address": "ns=1;i=1", "type": "bool"})";

TEST(DescriptionProblemsTest, TellsAllOfThemInTheirOrderWithPlaceAndCure) {
    const std::string backToBack =
        "so the pull delay is 0: the daemon reads back to back, up to thousands of times a second";
    const std::string first = "2:10, tag 1 (id 1, ns=1;i=1), /tags/0: ";
    const auto delay = [&](const std::string& value) {
        return "1:50, /pullDelay: \"pullDelay\": " + value + " cannot be read, " + backToBack +
               R"(; write "pullDelay": a whole number of milliseconds from 0 to 65535)";
    };
    const struct {
        std::string json;
        Lines lines;  // the last one is the daemon's verdict
    } cases[] = {
        {described(boolTag), {""}},
        {described(R"({"id": "1", "type": "int", "signed": 0, "width": "8", "address":
                       "g=72962b91-fa75-4ae6-8d28-b404dc7daf63;ns=1"})"),
         {""}},
        // What the daemon takes as 0, or ignores
        {described(boolTag, R"("pullDelay": 100000)"), {delay("100000"), ""}},
        {described(boolTag, R"("pullDelay": -1)"), {delay("-1"), ""}},
        {described(boolTag, R"("pullDelay": 1e2)"), {delay("1e2"), ""}},
        {described(boolTag, R"("pulldelay": 5)"),
         {"1:50, /pulldelay: \"pulldelay\" is ignored, " + backToBack +
              R"(; write "pullDelay" instead of "pulldelay")",
          ""}},
        {described(boolTag, R"("comment": {"tags": [1]}, "pullDelay": 0)"),
         {"note 1:50, /comment: \"comment\" is ignored", ""}},
        {described(boolTag, R"("pullDelay": 1, "pullDelay": 2, "port": "1")"),
         {"1:66, /pullDelay: \"pullDelay\" occurs twice, and this one is ignored; remove one of "
          "them",
          "note 1:82, /port: \"port\" occurs twice", ""}},
        {described(R"({"id": 1, "address": "ns=1;i=1", "type": "str", "maxStringLength": -1})"),
         {R"(2:58, tag 1 (id 1, ns=1;i=1), /tags/0/maxStringLength: "maxStringLength": -1 cannot )"
          R"(be read, so the texts are not cut; write "maxStringLength": a number from 0 to 4294967295)",
          ""}},
        {described(R"({"id": 1, "address": "ns=65537;i=1", "type": "bool"})"),
         {"2:20, tag 1 (id 1, ns=65537;i=1), /tags/0/address: ns=65537;i=1: the daemon takes "
          "namespace 1 for it; write the address that is meant",
          ""}},
        // The device
        {R"({"pullDelay": 1, "tags": [)" + boolTag + R"(], "ip": "plc", "Port": 65536})",
         {R"(1:1: Could not read id; add "id": the identifier of the device)",
          R"(1:78, /ip: Could not read ipAddress; write "ipAddress" instead of "ip")",
          "1:78, /ip: Connection error: invalid ip address; write the IPv4 address of the server; "
          "host names are not looked up",
          R"(1:91, /Port: Could not read port; write "port" instead of "Port")",
          R"(1:91, /Port: Could not read port; write "port": a number from 1 to 65535, mostly 4840)",
          "Could not read id"}},
        {described(boolTag, R"("pullDelay": 1, "protocolOptions": {"user": "a", "x": 1})"),
         {R"(1:86, /protocolOptions/user: Could not read protocolOptions[user]: Not supported; )"
          R"(write "username" instead of "user")",
          R"(1:99, /protocolOptions/x: Could not read protocolOptions[x]: Not supported; )"
          R"(write one of "authenticationtype", "username", "password")",
          "Could not read protocolOptions[user]: Not supported"}},
        {described("", R"("pullDelay": 1, "protocolOptions": {"username": "a"})"),
         {R"(1:86, /protocolOptions/username: "username" is ignored, so the daemon logs in )"
          R"(anonymously; add "authenticationtype": "username")",
          "2:1, /tags: there are no tags: the daemon connects and publishes what the server says "
          "to a Read of nothing, mostly BADNOTHINGTODO; add tags",
          ""}},
        // The tags: each problem of each of them
        {described(boolTag + ",\n" +
                   R"({"id": 1, "address": "ns=1;i=1", "type": "bool", "width": 8})"),
         {"3:2, tag 2 (id 1, ns=1;i=1), /tags/1/id: id 1 is also that of tag 1 (id 1, ns=1;i=1): "
          R"(the steward cannot tell their values apart; write a free one, for example "id": 2)",
          "note 3:11, tag 2 (id 1, ns=1;i=1), /tags/1/address: same address as tag 1 (id 1, "
          "ns=1;i=1)",
          "note 3:50, tag 2 (id 1, ns=1;i=1), /tags/1/width: \"width\" is ignored", ""}},
        {described("1, {\"id\": 2, \"adress\": \"NS=1; s=a\", \"type\": \"flaot\"}"),
         {"2:10, tag 1 (id missing, no address), /tags/0: Could not read address for tag; write a "
          "tag as an object, in braces",
          "2:13, tag 2 (id 2, no address), /tags/1: Could not read tag[address=NS=1; s=a] width; "
          R"(add "width": 32 or 64)",
          "2:23, tag 2 (id 2, no address), /tags/1/adress: Could not read address for tag; write "
          R"("address" instead of "adress")",
          "2:23, tag 2 (id 2, no address), /tags/1/adress: Could not parse tag[address=NS=1; s=a]: "
          R"(Invalid address, namespace index not found for tag: NS=1; s=a; write "ns=1;s=a")",
          "2:46, tag 2 (id 2, no address), /tags/1/type: Could not read "
          R"(tag[address=NS=1; s=a] type info; write "type": "float")",
          "Could not read address for tag"}},
        {described(R"({"id": -1, "address": "ns=1;i=1", "type": "UINT32"})"),
         {R"(2:11, tag 1 (id -1, ns=1;i=1), /tags/0/id: Could not read tag[address=ns=1;i=1] id; )"
          R"(write "id": a number from 0 to 65535)",
          "2:44, tag 1 (id -1, ns=1;i=1), /tags/0/type: Could not read tag[address=ns=1;i=1] type "
          R"(info; write "type": "int", "signed": false, "width": 32)",
          "Could not read tag[address=ns=1;i=1] id"}},
        {described(
             R"({"id": 1, "address": "ns=1;i=1", "type": "int", "signed": "no", "width": 24})"),
         {"2:58, tag 1 (id 1, ns=1;i=1), /tags/0/signed: Could not read tag[address=ns=1;i=1] "
          R"(signed; write "signed": true or false)",
          "2:74, tag 1 (id 1, ns=1;i=1), /tags/0/width: Could not read tag[address=ns=1;i=1] type "
          R"(info; write "width": 8, 16, 32 or 64)",
          "Could not read tag[address=ns=1;i=1] signed"}},
    };
    for (const auto& [json, lines] : cases) {
        EXPECT_EQ(lines, problemsOf(json)) << json;
    }
}

TEST(DescriptionProblemsTest, PointsAtTheTokenWhereTheSyntaxEnds) {
    const struct {
        std::string json;
        std::size_t line;
        std::size_t column;
        std::string advice;
    } cases[] = {
        {"{\"id\": 1,\n \"é\": 2 \"port\": 3}", 2, 9, "add a comma before it"},
        {"\xef\xbb\xbf{\"id\": 12,}", 1, 11, "remove the comma before it, or add what is missing"},
        {"{\"tags\": [1 }", 1, 13, "remove the comma before it, or add what is missing"},
        {"{\"id\":", 1, 7, "close every quote, bracket and brace"},
        {"{\n\"id\": tru}", 2, 7, ""},
        {"", 1, 1, "close every quote, bracket and brace"},
    };
    for (const auto& [json, line, column, advice] : cases) {
        SCOPED_TRACE(json);
        const auto problems = Tools::findProblems(json);
        ASSERT_EQ(1U, problems.size());
        EXPECT_EQ(line, problems[0].place.line);
        EXPECT_EQ(column, problems[0].place.column);
        EXPECT_EQ(advice, problems[0].advice);
        EXPECT_EQ("JSON parser error: ", problemsOf(json).back().substr(0, 19));
    }
}

/// `opcua-commission check` of a file, with the simulator's five tags.
class CommissionCheckTest : public testing::Test {
  protected:
    ~CommissionCheckTest() override {
        std::filesystem::remove(file_);
        std::filesystem::remove(fixed_);
    }

    /// @return exit status
    int check(const std::string& json, const Lines& options = {}) {
        std::ofstream{file_} << json;
        Lines arguments{OPCUA_COMMISSION_PATH, "check", file_};
        arguments.insert(arguments.end(), options.begin(), options.end());
        TestSupport::Process process{arguments};
        const auto status = process.wait();
        output_ = process.restOfOutput();
        return status;
    }

    static std::string contentOf(const std::string& path) {
        std::ifstream stream{path};
        return {std::istreambuf_iterator<char>{stream}, {}};
    }

    const std::string file_ = testing::TempDir() + "check-" + std::to_string(::getpid());
    const std::string fixed_ = file_ + "-fixed";
    std::string output_;
};

TEST_F(CommissionCheckTest, TellsSixFaultsInOneRunAndCorrectsTheTypes) {
    TestSupport::OpcUaServer server{{"--tags=20"}};
    const auto describe = [&](const std::string& intType, const std::string& floatType) {
        return TestSupport::description(
            server.port(), R"({"id": 1, "address": "ns=1;i=1", )" + intType + R"(, "note": 1e2},)" +
                               R"({"id": 2, "address": "ns=1;i=2", )" + floatType +
                               R"(}, {"id": 3, "address": "ns=1;i=4", "type": "bool"},)" +
                               R"({"id": 3, "address": "ns=1;i=9", "type": "bool"},)" +
                               R"({"id": 5, "address": "ns=1;i=400", "type": "bool"},)" +
                               R"({"id": 6, "address": "ns=1;s=no", "type": "bool"})");
    };
    const std::string right = R"("type": "int", "signed": true, "width": 32)";

    EXPECT_EQ(1, check(describe(R"("signed":false,"width":16,"type":"int")", R"("type":"flaot")"),
                       {"--suggest", "--fix=" + fixed_}));

    for (const std::string text :
         {"refuses the description and ends: Could not read tag[address=ns=1;i=2] type info",
          R"(int, unsigned, 16  int, signed, 32  GOOD)", "write \"type\": \"float\", \"width\": 32",
          "id 3 is also that of tag 3", "tag 5 (id 5, ns=1;i=400): the nearest",
          "tag 6 (id 6, ns=1;s=no): the nearest", "6 tags: 1 good, 5 with problems"}) {
        EXPECT_THAT(output_, testing::HasSubstr(text));
    }
    const auto corrected = describe(right, R"("type": "float", "width": 32)");
    EXPECT_EQ(corrected, contentOf(fixed_));
    EXPECT_EQ(1, check(corrected));
    EXPECT_THAT(output_, testing::HasSubstr("publishes the error \"BADNODEIDUNKNOWN\""));
    EXPECT_THAT(output_, testing::HasSubstr("6 tags: 3 good, 3 with problems"));
}

TEST_F(CommissionCheckTest, EndsWithAStatusOfItsOwnForEachOutcome) {
    TestSupport::OpcUaServer server;
    const auto good =
        TestSupport::description(server.port(), TestSupport::intTag + "," + TestSupport::boolTag +
                                                    "," + TestSupport::textTag);

    EXPECT_EQ(0, check(good));
    EXPECT_THAT(output_, testing::HasSubstr("3 tags: 3 good, 0 with problems"));
    EXPECT_EQ(0, check(good, {"--format=csv"}));
    EXPECT_THAT(output_, testing::HasSubstr("\n1,ns=1;i=4,bool,bool,GOOD,"));
    EXPECT_EQ(1, check("{", {"--offline"}));
    EXPECT_THAT(output_, testing::HasSubstr("    {\n     ^\n"));
    EXPECT_EQ(2, check(good, {"--offline", "--suggest"}));
    EXPECT_EQ(2, check(good, {"--host=plc.local"}));
    server.kill();
    EXPECT_EQ(3, check(good));
    EXPECT_EQ(0, check(good, {"--offline"}));
}

}  // namespace
