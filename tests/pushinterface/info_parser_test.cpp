// SPDX-License-Identifier: MIT
#include "orvik/pushinterface/info_parser.hpp"

#include "support/scripted_handler.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace Orvik::PushInterface;
using TestSupport::FakeDevice;
using TestSupport::FakeTag;
using Parser = InfoParser<FakeDevice, FakeTag>;

std::string parse(const std::string& info,
                  const std::shared_ptr<FakeDevice>& device = std::make_shared<FakeDevice>()) {
    return Parser::parse(info, device);
}

/// A complete description with members added after "port".
std::string described(const std::string& more) {
    return R"({"id":"d","ipAddress":"::1","port":4840)" + more + "}";
}

std::string described(const std::string& tagMembers, const std::string& address) {
    return described(R"(,"tags":[{"address":")" + address + R"(",)" + tagMembers + "}]");
}

TEST(InfoParserTest, FillsDeviceAndTags) {
    const auto device = std::make_shared<FakeDevice>();
    ASSERT_EQ("", parse(R"({
        "tags": [ {"type": "int", "width": "16", "signed": true, "id": 65535, "address": "a;b.c",
                   "maxStringLength": 9, "unknown": [1, {}]},
                  {"address": "", "id": 0, "type": "str", "maxStringLength": 4294967295,
                   "signed": true, "width": 8} ],
        "protocolOptions": { "b.x": "1", "a": 2 },
        "pullDelay": 65535, "port": "4840", "ipAddress": "é", "id": "first", "id": "second" })",
                        device));

    EXPECT_EQ("first", device->id);
    EXPECT_EQ("é", device->ipAddress);
    EXPECT_EQ(4840, device->port);
    EXPECT_EQ(65535, device->pullDelay);
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"b.x", "1"}, {"a", "2"}}),
              device->options);
    ASSERT_EQ(2U, device->tags.size());
    const auto& number = *device->tags[0];
    EXPECT_EQ("a;b.c", number.address);
    EXPECT_EQ(65535, number.id);
    EXPECT_TRUE(number.isSigned);
    EXPECT_EQ(16, number.width);
    EXPECT_EQ(0U, number.maxStringLength);
    EXPECT_EQ(TagType::Int16, number.tagType);
    const auto& text = *device->tags[1];
    EXPECT_EQ(4294967295, text.maxStringLength);
    EXPECT_FALSE(text.isSigned);
    EXPECT_EQ(0, text.width);
    EXPECT_EQ(TagType::String, text.tagType);
}

TEST(InfoParserTest, ReportsTheFirstProblem) {
    struct Case {
        std::string info;
        std::string error;
    };
    const std::string tag = "Could not read tag[address=x] ";
    const std::vector<Case> cases{
        {"{}", "Could not read id"},
        {"[]", "Could not read id"},
        {"1", "Could not read id"},
        {R"({"id":"d"})", "Could not read ipAddress"},
        {R"({"id":"d","ipAddress":"","port":"x"})", "Could not read port"},
        {R"({"id":"d","ipAddress":"","port":65536})", "Could not read port"},
        {R"({"id":"d","ipAddress":"","port":-5})", "Could not read port"},
        {R"({"id":"d","ipAddress":"","port":1.5})", "Could not read port"},
        {R"({"id":"d","ipAddress":"","port":{}})", "Could not read port"},
        {described(R"(,"protocolOptions":{"colour":"red"})"),
         "Could not read protocolOptions[colour]: no colour"},
        {described(R"(,"tags":[{}])"), "Could not read address for tag"},
        {described(R"(,"tags":[1,{"address":"x"}])"), "Could not read address for tag"},
        {described(R"(,"a":[{"address":"x"}],"tags":[[0]])"), "Could not read address for tag"},
        {described(R"("type":"bool")", "x"), tag + "id"},
        {described(R"("id":-1,"type":"bool")", "x"), tag + "id"},
        {described(R"("id":65536,"type":"bool")", "x"), tag + "id"},
        {described(R"("id":1)", "x"), tag + "type"},
        {described(R"("id":1,"type":"int","width":16)", "x"), tag + "signed"},
        {described(R"("id":1,"type":"int","signed":"maybe","width":16)", "x"), tag + "signed"},
        {described(R"("id":1,"type":"int","signed":true)", "x"), tag + "width"},
        {described(R"("id":1,"type":"float","width":256)", "x"), tag + "width"},
        {described(R"("id":1,"type":"float","width":16)", "x"), tag + "type info"},
        {described(R"("id":1,"type":"int","signed":true,"width":24)", "x"), tag + "type info"},
        {described(R"("id":1,"type":"Bool")", "x"), tag + "type info"},
        {described(R"("id":1,"type":"bool")", "colour"),
         "Could not parse tag[address=colour]: no address"},
        {described(R"("id":1,"type":"bool"},{"address":"x","id":2,"type":"bool")", "a"),
         "Could not add tag[address=x] to device: no room"},
    };
    for (const auto& [info, error] : cases) {
        SCOPED_TRACE(info);
        const auto device = std::make_shared<FakeDevice>();
        device->refuse = "colour";
        device->maxTags = 1;
        EXPECT_EQ(error, parse(info, device));
    }
    const auto unready = std::make_shared<FakeDevice>();
    unready->refuse = "device";
    EXPECT_EQ("Could not parse device: no device", parse(described(""), unready));
    EXPECT_THROW(
        {
            try {
                parse("{", nullptr);
            } catch (const std::domain_error& error) {
                EXPECT_STREQ(
                    "Orvik::PushInterface::InfoParser::parse: device must be a valid pointer",
                    error.what());
                throw;
            }
        },
        std::domain_error);
}

TEST(InfoParserTest, SwallowsUnreadablePullDelayAndStringLength) {
    for (const std::string delay : {"70000", "-1", "1.5", "\"1e2\"", "{}", "null"}) {
        const auto device = std::make_shared<FakeDevice>();
        EXPECT_EQ("", parse(described(",\"pullDelay\":" + delay), device));
        EXPECT_EQ(0, device->pullDelay);
    }
    const auto device = std::make_shared<FakeDevice>();
    EXPECT_EQ("", parse(described(R"("id":1,"type":"str","maxStringLength":-1)", "x"), device));
    EXPECT_EQ(0U, device->tags[0]->maxStringLength);
}

TEST(InfoParserTest, RefusesBrokenJson) {
    const std::string deep(200'000, '[');
    for (const auto& json :
         {std::string{"{"}, std::string{}, described("") + " x", described(",\"a\":\"\xff\""),
          described(",\"a\":\"\\ud800\""), described(",\"a\":" + deep), deep,
          described(R"(,"tags":[{},{"id":}])"), described(R"(,"tags":[{}{}])"),
          described(R"(,"tags":[{]}])"), described(R"(,"tags":[{)")}) {
        EXPECT_TRUE(parse(json).starts_with("JSON parser error: ")) << json.substr(0, 80);
    }
    EXPECT_TRUE(parse("{\"tags\":[{},\n{\"id\":\n}]}").find("(3)") != std::string::npos);
    EXPECT_EQ("", parse("\xef\xbb\xbf" + described("") + " \r\n"));
    EXPECT_EQ("", parse(described(R"(,"a":"\"[[\\","b":")" + deep + "\"")));
}

TEST(InfoParserTest, ReadsAsManyTagsAsThereAreIds) {
    // All of them would take the sanitizers a minute
    const int first = std::string_view{SANITIZERS}.empty() ? 0 : 61'440;
    std::string tags;
    for (int i = first; i <= 65'535; ++i) {
        tags += (i == first ? "" : ",") +
                std::string{R"({"address":"ns=2;s=Line1.Temperature.Number)"} + std::to_string(i) +
                R"(","id":)" + std::to_string(i) +
                R"(,"type":"int","signed":true,"width":16,"comment":"a text that nobody reads"})";
    }
    const auto device = std::make_shared<FakeDevice>();
    ASSERT_EQ("", parse(described(",\"tags\":[" + tags + "]"), device));
    EXPECT_EQ(static_cast<std::size_t>(65'536 - first), device->tags.size());
    EXPECT_EQ(65'535, device->tags.back()->id);
}

TEST(DeviceTest, KnowsNoProtocolOptionByItself) {
    EXPECT_EQ("Not supported", Device{}.setProtocolOption("", ""));
}

}  // namespace
