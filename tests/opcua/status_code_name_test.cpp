// SPDX-License-Identifier: MIT
#include "opcua/status_code_name.hpp"

#include "opcua/stack.hpp"

#include <string>
#include <vector>

#include <boost/algorithm/string/case_conv.hpp>

#include <gmock/gmock.h>

namespace PullappOpcUa {
namespace {

/// The stack's own name of a code in our spelling; empty if it has none.
std::string stackName(std::uint32_t code) {
    const std::string name = UA_StatusCode_name(code);
    return name.starts_with("Unknown") ? std::string{} : boost::algorithm::to_upper_copy(name);
}

TEST(StatusCodeNameTest, AgreesWithTheStackOnEveryCodeThatItKnows) {
    int count = 0;
    std::vector<std::string> unknownToStack;
    for (std::uint32_t high = 0; high <= 0xFFFF; ++high) {
        const auto code = high << 16;
        const std::string name{statusCodeName(code)};
        if (name == "UNKNOWN_ERROR") {
            continue;
        }
        ++count;
        if (const auto expected = stackName(code); expected.empty()) {
            unknownToStack.push_back(name);
        } else if (expected != name) {
            EXPECT_EQ("BADSEMAPHOREFILEMISSING", expected);
            EXPECT_EQ("BADSEMPAHOREFILEMISSING", name);
        }
    }
    EXPECT_EQ(227, count);  // plus two masks, which are not codes
    EXPECT_THAT(unknownToStack, testing::ElementsAre());
}

TEST(StatusCodeNameTest, MatchesTheWholeNumber) {
    const struct {
        std::uint32_t code;
        std::string_view name;
    } rows[]{
        {0x00000080, "INFOBITS_OVERFLOW"},      {0x00000400, "INFOTYPE_DATAVALUE"},
        {0x80010000, "BADUNEXPECTEDERROR"},     {0x806F0000, "BADNOMATCH"},
        {0x81100000, "BADLICENSENOTAVAILABLE"}, {0x00000000, "UNKNOWN_ERROR"},
        {0x80010001, "UNKNOWN_ERROR"},          {0x80010400, "UNKNOWN_ERROR"},
        {0xFFFFFFFF, "UNKNOWN_ERROR"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.name, statusCodeName(row.code)) << row.code;
    }
}

}  // namespace
}  // namespace PullappOpcUa
