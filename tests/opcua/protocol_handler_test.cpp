// SPDX-License-Identifier: MIT
#include "opcua/protocol_handler.hpp"

#include "support/opcua_test_server.hpp"
#include "support/proxy.hpp"

#include <cstring>

#include <gmock/gmock.h>

namespace PullappOpcUa {
namespace {

using namespace std::chrono_literals;
using Orvik::PushInterface::TagType;
using testing::AnyOf;
using TestSupport::Action;
using TestSupport::dataValue;
using TestSupport::Descriptor;
using TestSupport::Message;
using TestSupport::nodeNamed;
using TestSupport::OpcUaTestServer;
using TestSupport::Proxy;
using TestSupport::scalar;

/// Keeps what would be written to the push interface.
class RecordingClient : public Orvik::PushInterface::Client {
  public:
    RecordingClient() : Client{nullptr} {}
    void write(std::string message) override { messages.push_back(std::move(message)); }

    std::vector<std::string> messages;
};

void addTag(Device& device, std::uint16_t id, const std::string& address, TagType type) {
    auto tag = std::make_shared<Tag>();
    tag->id = id;
    tag->address = address;
    tag->tagType = type;
    ASSERT_EQ("", Device::parseTag(*tag));
    ASSERT_EQ("", device.addTag(tag));
}

/// A handler with its device and a recorder of what it writes.
struct Session {
    explicit Session(std::uint16_t port, const std::string& ipAddress = "127.0.0.1") {
        device.ipAddress = ipAddress;
        device.port = port;
    }
    std::string connect() {
        EXPECT_EQ("", device.parseDevice());
        return handler.connect(device);
    }
    std::string verify() { return handler.verifyTags(device); }
    std::string pull() { return handler.pullData(device, client); }

    Device device;
    RecordingClient client;
    ProtocolHandler handler;
};

TEST(ProtocolHandlerTest, WritesEveryTypeOfValueInOneBatch) {
    const std::pair<TagType, std::size_t> types[]{
        {TagType::Bool, UA_TYPES_BOOLEAN},  {TagType::Int8, UA_TYPES_SBYTE},
        {TagType::Int16, UA_TYPES_INT16},   {TagType::Int32, UA_TYPES_INT32},
        {TagType::Int64, UA_TYPES_INT64},   {TagType::UInt8, UA_TYPES_BYTE},
        {TagType::UInt16, UA_TYPES_UINT16}, {TagType::UInt32, UA_TYPES_UINT32},
        {TagType::UInt64, UA_TYPES_UINT64}, {TagType::Float, UA_TYPES_FLOAT},
        {TagType::Double, UA_TYPES_DOUBLE}};
    OpcUaTestServer server;
    Session session{server.port()};
    for (const auto& [tagType, type] : types) {
        const auto name = std::to_string(type);
        server.set(name, std::uint64_t{0}, type);
        addTag(session.device, static_cast<std::uint16_t>(type), "ns=1;s=" + name, tagType);
    }
    server.set<UA_String>("text", UA_STRING_STATIC("a\nb"), UA_TYPES_STRING);
    addTag(session.device, 65535, "s=text;ns=65537", TagType::String);

    ASSERT_EQ("", session.connect());
    ASSERT_EQ("", session.verify());
    ASSERT_EQ(1, server.readCount());
    ASSERT_EQ("", session.pull());

    EXPECT_EQ(2, server.readCount());
    EXPECT_THAT(session.client.messages,
                testing::ElementsAre("0=f\n1=0\n3=0\n5=0\n7=0\n2=0\n4=0\n6=0\n8=0\n9=0\n10=0\n"
                                     "65535=3,a b\n"));
}

TEST(ProtocolHandlerTest, ReadsTenThousandTagsWithOneRequest) {
    constexpr std::uint16_t count = 10000;
    OpcUaTestServer server;
    Session session{server.port()};
    server.run([&](UA_Server& raw) {
        for (std::uint16_t i = 0; i < count; ++i) {
            const auto value = scalar(i, UA_TYPES_UINT16);
            server.setOn(raw, UA_NODEID_NUMERIC(1, 100000U + i), dataValue(&value));
        }
    });
    for (std::uint16_t i = 0; i < count; ++i) {
        addTag(session.device, i, "ns=1;i=" + std::to_string(100000 + i), TagType::UInt16);
    }

    ASSERT_EQ("", session.connect());
    ASSERT_EQ("", session.pull());

    EXPECT_EQ(1, server.readCount());
    EXPECT_THAT(session.client.messages,
                testing::ElementsAre(testing::AllOf(testing::StartsWith("0=0\n1=1\n"),
                                                    testing::EndsWith("\n9999=9999\n"))));
}

/// One value of a server next to a good one, and what the two operations make of it.
struct Fault {
    TagType tagType;
    UA_DataValue result;
    std::string verifyError;
    std::string pullError;
};

std::vector<Fault> faults() {
    static UA_Int16 number = 7;
    static UA_String null{};
    const auto value = scalar(number, UA_TYPES_INT16);
    const auto nullString = scalar(null, UA_TYPES_STRING);
    auto array = value;
    array.arrayLength = 1;
    const UA_Variant empty{};
    const auto uncertain = UA_STATUSCODE_UNCERTAINSUBNORMAL;
    const std::string notScalar = "UAvariant type not supported for tag: ns=1;s=x";
    const std::string wrong = "Wrong type for tag: ns=1;s=x type should be ";
    const std::string noSensor = "BADSENSORFAILURE";
    const std::string noReason = "BADUNEXPECTEDERROR";
    return {
        {TagType::Int16, dataValue(&value), "", ""},
        {TagType::Int16, dataValue(&value, uncertain), "", ""},
        {TagType::Int32, dataValue(&value), wrong + "int16", wrong + "int16"},
        {TagType::String, dataValue(&nullString), "", wrong + "string"},
        {TagType::Int16, dataValue(&array), notScalar, notScalar},
        {TagType::Int16, dataValue(&empty), notScalar, notScalar},
        {TagType::Int16, dataValue(nullptr, UA_STATUSCODE_BADSENSORFAILURE), noSensor, noSensor},
        {TagType::Int16, dataValue(nullptr, UA_STATUSCODE_BADSHUTDOWN), noReason, noReason},
        {TagType::Unknown, dataValue(&value), "unsupported tag type: ns=1;s=x", ""},
    };
}

TEST(ProtocolHandlerTest, WritesNothingWhenOneValueCannotBeHad) {
    using namespace std::string_view_literals;
    OpcUaTestServer server;
    server.rewriteAnswers("\x00\x00\x0C\x80"sv, "\x00\x00\x00\x00"sv);  // BADSHUTDOWN turns good
    server.set<UA_Boolean>("good", true, UA_TYPES_BOOLEAN);
    for (const auto& fault : faults()) {
        SCOPED_TRACE(fault.verifyError + " / " + fault.pullError);
        server.setResult(nodeNamed("x"), fault.result);
        Session session{server.port()};
        addTag(session.device, 1, "ns=1;s=good", TagType::Bool);
        addTag(session.device, 2, "ns=1;s=x", fault.tagType);
        ASSERT_EQ("", session.connect());

        EXPECT_EQ(fault.verifyError, session.verify());
        EXPECT_EQ(fault.pullError, session.pull());
        EXPECT_EQ(fault.pullError.empty() ? 1U : 0U, session.client.messages.size());
    }
}

TEST(ProtocolHandlerTest, FailsTheReadWithStatusOfItsFirstTagOnly) {
    OpcUaTestServer server;
    UA_Int16 number = 7;
    const auto value = scalar(number, UA_TYPES_INT16);
    server.setResult(nodeNamed("x"), dataValue(&value, UA_STATUSCODE_UNCERTAINSUBNORMAL));
    Session session{server.port()};
    auto& tags = session.device.tags;
    addTag(session.device, 1, "ns=1;s=x", TagType::Int16);
    addTag(session.device, 2, "ns=1;s=missing", TagType::Int16);

    ASSERT_EQ("", session.connect());
    EXPECT_EQ("UNCERTAINSUBNORMAL", session.verify());
    EXPECT_EQ("UNCERTAINSUBNORMAL", session.pull());
    std::swap(tags[0], tags[1]);
    ASSERT_EQ("", session.device.parseDevice());
    EXPECT_EQ("BADNODEIDUNKNOWN", session.pull());
    tags.clear();
    ASSERT_EQ("", session.device.parseDevice());
    EXPECT_EQ("BADNOTHINGTODO", session.pull());
}

TEST(ProtocolHandlerTest, LogsInAsTheDeviceSays) {
    const OpcUaTestServer open;
    const OpcUaTestServer guarded{{.username = "user", .password = "secret"}};
    const struct {
        const OpcUaTestServer& server;
        std::string type;
        std::string password;
        std::string error;
    } rows[]{
        {open, "anonymous", "", ""},
        {open, "certificate", "", ""},
        {guarded, "username", "secret", ""},
        {guarded, "username", "wrong", "Error: BADUSERACCESSDENIED"},
        {guarded, "anonymous", "secret", "Error: BADIDENTITYTOKENREJECTED"},
    };
    for (const auto& row : rows) {
        Session session{row.server.port()};
        ASSERT_EQ("", session.device.setProtocolOption("authenticationtype", row.type));
        ASSERT_EQ("", session.device.setProtocolOption("username", "user"));
        ASSERT_EQ("", session.device.setProtocolOption("password", row.password));
        EXPECT_EQ(row.error, session.connect()) << row.type;
    }
}

TEST(ProtocolHandlerTest, RefusesWhatIsNoIpAddress) {
    for (const auto* address : {"plc.local", "", "256.0.0.1", "1.2.3", "127.0.0.1 "}) {
        Session session{4840, address};
        EXPECT_EQ("Connection error: invalid ip address", session.connect()) << address;
    }
    Session session{4840, "::1"};  // an address, but not one that the stack takes without brackets
    EXPECT_EQ("Error: BADTCPENDPOINTURLINVALID", session.connect());
}

TEST(ProtocolHandlerTest, ReadsFromItsAddressWhateverTheServerAdvertises) {
    OpcUaTestServer server;
    server.rewriteAnswers("127.0.0.1", "plc.local");
    server.set<UA_Int16>("x", -5, UA_TYPES_INT16);
    Session session{server.port()};
    addTag(session.device, 2, "ns=1;s=x", TagType::Int16);

    ASSERT_EQ("", session.connect());
    ASSERT_EQ("", session.pull());

    EXPECT_THAT(session.client.messages, testing::ElementsAre("2=-5\n"));
}

TEST(ProtocolHandlerTest, NoticesThatTheServerWasRestartedWithOtherTypes) {
    auto server = std::make_unique<OpcUaTestServer>();
    server->set<UA_Int16>("x", 1, UA_TYPES_INT16);
    const auto port = server->port();
    Session session{port};
    addTag(session.device, 1, "ns=1;s=x", TagType::Int16);
    ASSERT_EQ("", session.connect());
    ASSERT_EQ("", session.pull());

    server.reset();
    server = std::make_unique<OpcUaTestServer>(OpcUaTestServer::Options{.port = port});
    server->set<UA_Double>("x", 1, UA_TYPES_DOUBLE);

    EXPECT_THAT(session.pull(), AnyOf("BADCONNECTIONCLOSED", "BADSECURECHANNELCLOSED"));
    EXPECT_THAT(session.pull(), "BADNOTCONNECTED");
    EXPECT_EQ(0, server->readCount());
    session.handler.disconnect(session.device);
    ASSERT_EQ("", session.connect());
    EXPECT_EQ("Wrong type for tag: ns=1;s=x type should be double", session.verify());
    EXPECT_EQ(1U, session.client.messages.size());
}

TEST(ProtocolHandlerTest, ConnectsAnewAtOnceWhateverBroke) {
    using enum Message;
    OpcUaTestServer server;
    server.set<UA_Int16>("x", -5, UA_TYPES_INT16);
    Proxy proxy{server.port()};
    Session session{proxy.port()};
    session.device.pullDelay = 65535;
    addTag(session.device, 2, "ns=1;s=x", TagType::Int16);
    for (const auto message : {Hello, Channel, Create, Activate, Read}) {
        SCOPED_TRACE(static_cast<int>(message));
        proxy.at(message, {Action::Reset, "", 100});
        EXPECT_TRUE(!session.connect().empty() || !session.pull().empty());
        session.handler.disconnect(session.device);
        proxy.at(message, {});
        const auto sessions = proxy.count(Create);

        ASSERT_EQ("", session.connect());
        EXPECT_EQ("", session.pull());
        session.handler.disconnect(session.device);

        EXPECT_EQ(sessions + 1, proxy.count(Create));
    }
    double timeout = 0;  // and four bytes more
    const auto create = proxy.last(Create);
    std::memcpy(&timeout, create.data() + create.size() - 12, sizeof timeout);
    EXPECT_EQ(15000 + 65535, timeout);
}

TEST(ProtocolHandlerTest, NamesAResponseWithoutAType) {
    using namespace std::string_literals;
    const auto noType = "MSGF\x18\0\0\0"s + std::string(16, '\0');
    OpcUaTestServer server;
    Proxy proxy{server.port()};
    Session session{proxy.port()};

    proxy.at(Message::Activate, {Action::Reply, noType});
    EXPECT_EQ("Error: BADUNKNOWNRESPONSE", session.connect());
    ASSERT_EQ("", session.connect());
    proxy.at(Message::Read, {Action::Reply, noType});
    EXPECT_EQ("BADUNKNOWNRESPONSE", session.pull());
    EXPECT_EQ("BADNOTCONNECTED", session.pull());
}

/// Turns the standard output into a pipe that nobody reads.
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
    const OpcUaTestServer server;
    Proxy proxy{server.port()};
    proxy.at(Message::Hello, {Action::Reply, refusal, 100});
    Session session{proxy.port()};
    const UnreadOutput output;
    for (int i = 0; i < 50; ++i) {  // the pipe holds 64 KiB
        EXPECT_EQ("Error: BADTCPENDPOINTURLINVALID", session.connect());
    }
}

}  // namespace
}  // namespace PullappOpcUa
