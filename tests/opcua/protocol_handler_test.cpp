// SPDX-License-Identifier: MIT
#include "opcua/protocol_handler.hpp"

#include "support/proxy.hpp"
#include "support/simulated_server.hpp"

#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>

namespace PullappOpcUa {
namespace {

using namespace std::chrono_literals;
using Orvik::PushInterface::TagType;
using testing::AnyOf;
using testing::ElementsAre;
using testing::MatchesRegex;
using TestSupport::Action;
using TestSupport::Descriptor;
using TestSupport::Message;
using TestSupport::Proxy;
using TestSupport::SimulatedServer;

/// Keeps what would be written to the push interface.
class RecordingClient : public Orvik::PushInterface::Client {
  public:
    RecordingClient() : Client{nullptr} {}
    void write(std::string message) override { messages.push_back(std::move(message)); }

    std::vector<std::string> messages;
};

/// A handler with its device and a recorder of what it writes.
struct Reader {
    void addTag(std::uint16_t id, const std::string& address, TagType type) {
        auto tag = std::make_shared<Tag>();
        tag->id = id;
        tag->address = address;
        tag->tagType = type;
        ASSERT_EQ("", Device::parseTag(*tag));
        ASSERT_EQ("", device.addTag(tag));
        ASSERT_EQ("", device.parseDevice());
    }
    std::string connect(std::uint16_t port, const std::string& ipAddress = "127.0.0.1") {
        device.ipAddress = ipAddress;
        device.port = port;
        return handler.connect(device);
    }
    std::string verify() { return handler.verifyTags(device); }
    std::string pull() { return handler.pullData(device, client); }
    void disconnect() { handler.disconnect(device); }

    Device device;
    RecordingClient client;
    ProtocolHandler handler;
};

TEST(ProtocolHandlerTest, ReadsEveryTypeWithOneRequestAndWritesOneBatch) {
    constexpr TagType types[]{TagType::Bool,   TagType::Int8,  TagType::Int16,  TagType::Int32,
                              TagType::Int64,  TagType::UInt8, TagType::UInt16, TagType::UInt32,
                              TagType::UInt64, TagType::Float, TagType::Double};
    Reader reader;
    std::string batch;
    for (const auto type : types) {
        const auto id = static_cast<std::uint16_t>(type);
        reader.addTag(id, "ns=1;i=" + std::to_string(id), type);
        batch += std::to_string(id) + (type == TagType::Bool ? "=[tf]\n" : "=-?[0-9.]+\n");
    }
    reader.addTag(65535, "s=text;ns=65537", TagType::String);
    const SimulatedServer server{reader.device};
    Proxy proxy{server.port()};

    ASSERT_EQ("", reader.connect(proxy.port()));
    ASSERT_EQ("", reader.verify());
    ASSERT_EQ(1, proxy.count(Message::Read));
    ASSERT_EQ("", reader.pull());
    reader.disconnect();

    EXPECT_EQ(2, proxy.count(Message::Read));
    EXPECT_THAT(reader.client.messages,
                ElementsAre(MatchesRegex(batch + "65535=[67],item [0-9]+\n")));
}

TEST(ProtocolHandlerTest, ReadsTenThousandTagsWithOneRequest) {
    constexpr std::uint16_t count = 10000;
    Reader reader;
    for (std::uint16_t i = 0; i < count; ++i) {
        auto tag = std::make_shared<Tag>();
        tag->id = i;
        tag->tagType = TagType::UInt16;
        tag->address = "ns=1;i=" + std::to_string(100000 + i);
        ASSERT_EQ("", Device::parseTag(*tag));
        ASSERT_EQ("", reader.device.addTag(tag));
    }
    ASSERT_EQ("", reader.device.parseDevice());
    const SimulatedServer server{reader.device};
    Proxy proxy{server.port()};

    ASSERT_EQ("", reader.connect(proxy.port()));
    ASSERT_EQ("", reader.pull());
    reader.disconnect();

    EXPECT_EQ(1, proxy.count(Message::Read));
    ASSERT_EQ(1U, reader.client.messages.size());
    const auto& batch = reader.client.messages[0];
    EXPECT_EQ(count, std::count(batch.begin(), batch.end(), '\n'));
    EXPECT_THAT(batch.substr(batch.rfind("\n9999=")), MatchesRegex("\n9999=[0-9]+\n"));
}

TEST(ProtocolHandlerTest, WritesNothingWhenOneValueCannotBeHad) {
    Reader reader;
    SimulatedServer server{reader.device};  // without tags
    ASSERT_EQ("", reader.connect(server.port()));
    EXPECT_EQ("BADNOTHINGTODO", reader.pull());
    reader.addTag(1, "ns=0;i=2259", TagType::Int32);  // the server state, which every server has
    EXPECT_EQ("", reader.pull());
    reader.addTag(2, "ns=1;s=missing", TagType::Int32);
    EXPECT_EQ("BADNODEIDUNKNOWN", reader.verify());
    EXPECT_EQ("BADNODEIDUNKNOWN", reader.pull());
    EXPECT_THAT(reader.client.messages, ElementsAre("1=0\n"));
    reader.disconnect();
}

TEST(ProtocolHandlerTest, LogsInAsTheDeviceSays) {
    const struct {
        bool isGuarded;
        std::string type;
        std::string password;
        std::string error;
    } rows[]{
        {false, "anonymous", "", ""},
        {false, "certificate", "", ""},
        {true, "username", "secret", ""},
        {true, "username", "wrong", "Error: BADUSERACCESSDENIED"},
        {true, "anonymous", "secret", "Error: BADIDENTITYTOKENREJECTED"},
    };
    for (const auto& row : rows) {
        Reader reader;
        OpcUaSimulator::Options options;
        options.user = row.isGuarded ? "user" : "";
        options.password = "secret";
        const SimulatedServer server{reader.device, options};
        ASSERT_EQ("", reader.device.setProtocolOption("authenticationtype", row.type));
        ASSERT_EQ("", reader.device.setProtocolOption("username", "user"));
        ASSERT_EQ("", reader.device.setProtocolOption("password", row.password));
        EXPECT_EQ(row.error, reader.connect(server.port())) << row.type;
        reader.disconnect();
    }
}

TEST(ProtocolHandlerTest, RefusesWhatIsNoIpAddress) {
    Reader reader;
    for (const auto* address : {"plc.local", "", "256.0.0.1", "1.2.3", "127.0.0.1 "}) {
        EXPECT_EQ("Connection error: invalid ip address", reader.connect(4840, address)) << address;
    }
    // An address that the stack accepts only in brackets
    EXPECT_EQ("Error: BADTCPENDPOINTURLINVALID", reader.connect(4840, "::1"));
}

TEST(ProtocolHandlerTest, ReadsFromItsAddressWhateverTheServerAdvertises) {
    Reader reader;
    reader.addTag(2, "ns=1;i=1", TagType::Int16);
    OpcUaSimulator::Options options;
    options.advertise = "plc.local";
    const SimulatedServer server{reader.device, options};

    ASSERT_EQ("", reader.connect(server.port()));
    ASSERT_EQ("", reader.pull());

    EXPECT_EQ(1U, reader.client.messages.size());
    reader.disconnect();
}

TEST(ProtocolHandlerTest, NoticesThatTheServerWasRestartedWithOtherTypes) {
    Reader reader;
    reader.addTag(1, "ns=1;s=x", TagType::Int16);
    Reader other;
    other.addTag(1, "ns=1;s=x", TagType::Double);
    auto server = std::make_unique<SimulatedServer>(reader.device);
    OpcUaSimulator::Options options;
    options.port = server->port();
    ASSERT_EQ("", reader.connect(options.port));
    ASSERT_EQ("", reader.pull());

    server.reset();
    server = std::make_unique<SimulatedServer>(other.device, options);

    EXPECT_THAT(reader.pull(), AnyOf("BADCONNECTIONCLOSED", "BADSECURECHANNELCLOSED"));
    EXPECT_THAT(reader.pull(), "BADNOTCONNECTED");
    reader.disconnect();
    ASSERT_EQ("", reader.connect(options.port));
    EXPECT_EQ("Wrong type for tag: ns=1;s=x type should be double", reader.verify());
    EXPECT_EQ(1U, reader.client.messages.size());
    reader.disconnect();
}

TEST(ProtocolHandlerTest, ConnectsAnewAtOnceWhateverBroke) {
    using enum Message;
    Reader reader;
    reader.device.pullDelay = 65535;
    reader.addTag(2, "ns=1;s=x", TagType::Int16);
    const SimulatedServer server{reader.device};
    Proxy proxy{server.port()};
    for (const auto message : {Hello, Channel, Create, Activate, Read}) {
        SCOPED_TRACE(static_cast<int>(message));
        proxy.at(message, {Action::Reset, "", 100});
        EXPECT_TRUE(!reader.connect(proxy.port()).empty() || !reader.pull().empty());
        reader.disconnect();
        proxy.at(message, {});
        const auto sessions = proxy.count(Create);

        ASSERT_EQ("", reader.connect(proxy.port()));
        EXPECT_EQ("", reader.pull());
        reader.disconnect();

        EXPECT_EQ(sessions + 1, proxy.count(Create));
    }
    double timeout = 0;  // followed by four more bytes
    const auto create = proxy.last(Create);
    std::memcpy(&timeout, create.data() + create.size() - 12, sizeof timeout);
    EXPECT_EQ(15000 + 65535, timeout);
}

TEST(ProtocolHandlerTest, NamesAResponseWithoutAType) {
    using namespace std::string_literals;
    const auto noType = "MSGF\x18\0\0\0"s + std::string(16, '\0');
    Reader reader;
    const SimulatedServer server{reader.device};
    Proxy proxy{server.port()};

    proxy.at(Message::Activate, {Action::Reply, noType});
    EXPECT_EQ("Error: BADUNKNOWNRESPONSE", reader.connect(proxy.port()));
    ASSERT_EQ("", reader.connect(proxy.port()));
    proxy.at(Message::Read, {Action::Reply, noType});
    EXPECT_EQ("BADUNKNOWNRESPONSE", reader.pull());
    EXPECT_EQ("BADNOTCONNECTED", reader.pull());
}

/// Redirects the standard output to a pipe that nobody reads.
class UnreadOutput {
  public:
    UnreadOutput() : original_{::dup(STDOUT_FILENO)} {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::pipe(ends));
        reader_ = Descriptor{ends[0]};
        replace(Descriptor{ends[1]});
    }
    ~UnreadOutput() { replace(std::move(original_)); }

  private:
    static void replace(Descriptor output) {
        std::fflush(stdout);
        ::dup2(output.get(), STDOUT_FILENO);
    }

    Descriptor original_;
    Descriptor reader_;
};

TEST(ProtocolHandlerTest, WaitsForNobodyToReadTheNotesOfTheStack) {
    std::string refusal = "ERRF" + std::string(12, '\0') + std::string(4000, 'x');
    for (const auto& [offset, number] : {std::pair{4U, 4016U}, {8U, 0x80830000U}, {12U, 4000U}}) {
        std::memcpy(refusal.data() + offset, &number, sizeof number);
    }
    Reader reader;
    const SimulatedServer server{reader.device};
    Proxy proxy{server.port()};
    proxy.at(Message::Hello, {Action::Reply, refusal, 100});
    const UnreadOutput output;
    for (int i = 0; i < 50; ++i) {  // the pipe holds 64 KiB
        EXPECT_EQ("Error: BADTCPENDPOINTURLINVALID", reader.connect(proxy.port()));
    }
}

}  // namespace
}  // namespace PullappOpcUa
