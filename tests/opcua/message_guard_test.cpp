// SPDX-License-Identifier: MIT
#include "opcua/message_guard.hpp"

#include <algorithm>

#include <gtest/gtest.h>

namespace PullappOpcUa {
namespace {

using namespace std::string_literals;

std::string number(std::size_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift & 0xFF);
    }
    return bytes;
}

std::string chunk(const std::string& kind, const std::string& body) {
    return kind + number(8 + body.size()) + body;
}

/// A chunk of the response to the request with that number.
std::string response(const std::string& body, char kind = 'F', std::size_t request = 1) {
    return chunk("MSG"s + kind, number(1) + number(2) + number(3) + number(request) + body);
}

struct Text {
    std::size_t length;
    std::string bytes = {};
};

/// The response to the opening of a channel.
std::string opening(const std::string& body, const Text& policy = {0xFFFFFFFF},
                    const Text& certificate = {0xFFFFFFFF}, const Text& thumbprint = {0xFFFFFFFF}) {
    std::string texts;
    for (const auto& text : {policy, certificate, thumbprint}) {
        texts += number(text.length) + text.bytes;
    }
    return chunk("OPNF", number(1) + texts + number(2) + number(3) + body);
}

bool accepts(MessageGuard guard, const std::string& bytes) {
    return guard.accepts(bytes);
}

bool acceptsByteByByte(MessageGuard guard, const std::string& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [&](const char& byte) {
        return guard.accepts({&byte, 1});
    });
}

// Node ids: two-byte, four-byte, numeric and string
const auto two = "\x00\x7A"s;
const auto four = "\x01\x00\x7A\x02"s;
const auto full = "\x02\x00\x00\x7A\x02\x00\x00"s;
const auto text = "\x03\x00\x00\x04\x00\x00\x00text"s;

TEST(MessageGuardTest, RefusesWhatHasNoNumericTypeAndKeepsItsPlaceAfterTheRest) {
    const std::string big(70000, '\xFF');
    const auto header = std::string(16, '\0');
    const struct {
        const char* name;
        std::string bytes;
        bool isAccepted;
    } rows[]{
        {"hello", chunk("ACKF", header + "\x03"), true},
        {"error", chunk("ERRF", number(0x80010000) + number(0xFFFFFFFE)), true},
        {"unknown message", chunk("XYZF", text), true},
        {"no size", "ACKF" + number(0), true},
        {"size of a part of the header", "ERRF" + number(7), true},

        {"two bytes", response(two), true},
        {"four bytes", response(four), true},
        {"full number", response(full), true},
        {"with a body", response(four + big), true},
        {"no type", response(""), false},
        {"half of two bytes", response(two.substr(0, 1)), false},
        {"less than four bytes", response(four.substr(0, 3)), false},
        {"less than a full number", response(full.substr(0, 6)), false},
        {"text", response(text), false},
        {"GUID", response("\x04" + header + "\0\0"s), false},
        {"bytes", response("\x05" + text.substr(1)), false},
        {"with a namespace", response("\x80" + full.substr(1)), false},
        {"with a server", response("\x42" + full.substr(1)), false},
        {"header only", "MSGF" + number(8), false},
        {"no size at all", "MSGF" + number(0), false},

        {"two chunks", response(four, 'C') + response(text), true},
        {"three chunks", response(four, 'C') + response(text, 'C') + response(big), true},
        {"continued with nothing", response(four, 'C') + response(""), true},
        {"aborted", response(four, 'C') + response("", 'A'), true},
        {"abort alone", response(text, 'A'), true},
        {"other message after an abort", response(four, 'C') + response("", 'A') + response(text),
         false},
        {"continued by another request", response(four, 'C') + response(four, 'F', 2), false},
        {"no type in the first chunk", response("", 'C'), false},
        {"no type after two chunks", response(four, 'C') + response("") + response(text), false},

        {"channel", opening(four), true},
        {"channel with texts", opening(full, {3, "abc"}, {0}, {1, "d"}), true},
        {"channel with a long text", opening(two, {60000, big.substr(0, 60000)}), true},
        {"channel with more than is looked at", opening(two, {big.size(), big}), false},
        {"channel without type", opening(""), false},
        {"channel with a text for a type", opening(text, {3, "abc"}), false},
        {"channel of a header", "OPNF" + number(8), false},
        {"channel that ends in a text", chunk("OPNF", number(1) + number(4) + "abc"), false},
        {"length up to the end", opening(four, {0}, {0}, {12}), false},
        {"length far past the end", opening(four, {0x7FFFFFFF}, {0x7FFFFFFF}, {0x7FFFFFFF}), false},
        {"null of the top bit", opening(four, {0x80000000}, {0xFFFFFFFD}, {0xFFFFFFFE}), true},
        // In 32-bit arithmetic, these lengths would wrap back to a number that looks like a type
        {"length -4", opening(text, {3, "abc"}, {0xFFFFFFFC}), false},
        {"lengths -4", opening(text, {0xFFFFFFFC}, {0xFFFFFFFC}, {0}), false},
        {"length -3", opening(text, {3, "abc"}, {0xFFFFFFFD}), false},
        {"length -2", opening(text, {3, "abc"}, {0xFFFFFFFE}), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const auto accept : {accepts, acceptsByteByByte}) {
            EXPECT_EQ(row.isAccepted, accept({}, row.bytes));
            EXPECT_EQ(row.isAccepted, accept({}, row.bytes + response(two) + opening(two)));
            EXPECT_FALSE(accept({}, row.bytes + response(text)));
        }
    }
}

}  // namespace
}  // namespace PullappOpcUa
