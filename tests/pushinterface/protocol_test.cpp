// SPDX-License-Identifier: MIT
#include "orvik/pushinterface/protocol.hpp"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace Orvik::PushInterface;
using namespace std::literals;

TEST(ProtocolTest, SplitsLines) {
    struct Case {
        std::string line;
        std::optional<Message> message;
    };
    const std::vector<Case> cases{
        {"HELO", Message{"HELO", ""}},
        {"HELO ", Message{"HELO", ""}},
        {"HELO a b ", Message{"HELO", "a b "}},
        {"INFO  x", Message{"INFO", " x"}},
        {"abcd \0\r\xff"s, Message{"abcd", "\0\r\xff"sv}},
        {"    ", Message{"    ", ""}},
        {"HELOX", std::nullopt},
        {"HELO\r", std::nullopt},
        {"HEL", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [line, message] : cases) {
        EXPECT_EQ(message, splitLine(line)) << line;
    }
}

TEST(ProtocolTest, EncodesTexts) {
    struct Case {
        std::string value;
        std::size_t limit;
        std::string text;
    };
    const std::vector<Case> cases{
        {"", 0, "0,"},       {"abc", 0, "3,abc"},   {"abcd", 4, "4,abcd"}, {"abcde", 4, "4,abcd"},
        {"abc", 4, "3,abc"}, {"=,\n", 0, "3,=,\n"}, {"\0x"s, 1, "1,\0"s},
    };
    for (const auto& [value, limit, text] : cases) {
        EXPECT_EQ(text, encodeStringValue(value, limit)) << value;
    }
    EXPECT_EQ("@name=2,ab", encodeNamedValue("name", "abc", 2));
    EXPECT_EQ("DEVC  key", encodeDevc("", "key"));
}

TEST(ProtocolTest, BuildsBatch) {
    std::string batch;
    appendTagId(batch, 1);
    batch += "t\n";
    appendTagId(batch, 65535);
    appendStringValue(batch, "hello", 0);
    EXPECT_EQ("1=t\n65535=5,hello", batch);
}

}  // namespace
