// SPDX-License-Identifier: MIT
#include "steward-simulator/batch_decoder.hpp"
#include "support/process.hpp"

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/ip/tcp.hpp>

#include <gmock/gmock.h>

namespace {

using namespace StewardSimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using Events = std::vector<std::string>;

class RecordingHandler final : public DeviceHandler {
  public:
    Events events;

  private:
    void add(std::string_view text) { events.emplace_back(text); }
    void onDevc(std::string_view identity) override { add("DEVC " + std::string{identity}); }
    void onInfoRequest() override { add("INFO"); }
    void onExit() override { add("EXIT"); }
    void onNamedValue(std::string_view name, std::string_view value) override {
        add(std::string{name} + ": " + std::string{value});
    }
    void onBatch(const Batch& batch) override { add("batch " + std::to_string(batch.valueCount)); }
    void onFault(const Fault& fault) override {
        add(fault.reason + " [" + std::string{fault.line} + "]");
    }
};

DescriptionPtr describe(const std::string& tags) {
    auto description = std::make_shared<Description>();
    const auto json = R"({"id": "d", "ipAddress": "::1", "port": 1, "tags": [)" + tags + "]}";
    EXPECT_EQ("", parseDescription(json, description));
    return description;
}

Events eventsOf(std::string_view bytes, std::size_t pieceSize) {
    RecordingHandler handler;
    BatchDecoder decoder{handler, BatchDecoder::Values::Checked};
    decoder.describe(describe(R"({"id": 1, "address": "a", "type": "bool"},
        {"id": 20, "address": "b", "type": "str", "maxStringLength": 5})"));
    for (; !bytes.empty(); bytes.remove_prefix(pieceSize)) {
        decoder.feed(bytes.substr(0, pieceSize));
    }
    return handler.events;
}

TEST(BatchDecoderTest, HearsTheSameInOnePieceAndByteByByte) {
    const struct {
        std::string_view bytes;
        Events events;
    } cases[] = {
        {"DEVC a b\nINFO\n@n=2,=,\nEXIT\n", {"DEVC a b", "INFO", "n: =,", "EXIT"}},
        {"1=t\n20=5,a=,b\x80\n\n1=f\n20=0,\n\n", {"batch 2", "batch 2"}},
        {"1=t\n\n", {"batch ends before tag 20 []", "batch 1"}},
        {"20=0,\n\n", {"tag 1 is missing before it [20=0,]", "batch 1"}},
        {"1=t\n1=t\n20=0,\n\n", {"tag out of order or twice [1=t]", "batch 2"}},
        {"01=t\n20=0,\n\n", {"not a tag id, '=' and a value [01=t]", "batch 1"}},
        {"1=t\nx\n\n", {"not a tag id, '=' and a value [x]", "batch 1"}},
        {"1=t\nEXIT\n20=0,\n\n", {"message within a batch [EXIT]", "EXIT", "batch 2"}},
        {"1=t\n20=6,abcdef\n\n", {"longer than 5 bytes [20=6,abcdef]", "batch 1"}},
        {"1=t\n20=2,\r \n\n", {"carriage return in a string [20=2,\r ]", "batch 1"}},
        {"EXIT\r\nDEVC a\n", {"unknown message [EXIT\r]", "unknown message [DEVC a]"}},
        {"@n=3,ab\n", {"not a named value with its byte count [@n=3,ab]"}},
    };
    for (const auto& [bytes, events] : cases) {
        SCOPED_TRACE(bytes);
        EXPECT_EQ(events, eventsOf(bytes, bytes.size()));
        EXPECT_EQ(events, eventsOf(bytes, 1));
    }
}

TEST(BatchDecoderTest, AcceptsBatchesOfAnEarlierDescriptionUntilTheNewOneIsFollowed) {
    RecordingHandler handler;
    BatchDecoder decoder{handler, BatchDecoder::Values::Checked};

    decoder.feed("1=t\n\n");
    decoder.describe(describe(R"({"id": 1, "address": "a", "type": "bool"})"));
    decoder.describe(describe(R"({"id": 2, "address": "a", "type": "bool"})"));
    decoder.feed("1=t\n\n2=t\n\n1=t\n\n");

    EXPECT_THAT(handler.events,
                ElementsAre("batch before any description [1=t\n]", "batch 1", "batch 1", "batch 1",
                            "no tag has this id [1=t]", "batch ends before tag 2 []", "batch 0"));
}

TEST(ValueCheckTest, AcceptsExactlyWhatTheTypeIsWrittenAs) {
    const struct {
        const char* type;
        std::vector<std::string> good;
        std::vector<std::string> bad;
    } cases[] = {
        {R"("bool")", {"t", "f"}, {"", "T", "1", "tt", "?"}},
        {R"("int", "signed": true, "width": 8)", {"-128", "0"}, {"128", "-0", "+1", "01", "1 "}},
        {R"("int", "signed": false, "width": 64)", {"18446744073709551615"}, {"-1", "1e3", "0x1"}},
        {R"("float", "width": 32)",
         {"inf", "-inf", "nan", "-nan", "-0", "1.5", "3.402823466e+38", "1.401298464e-45"},
         {"", "1.50", ".5", "1e5", "1e+39", "infinity", "NAN", "0.1", "1,5"}},
        {R"("float", "width": 64)",
         {"0.100000000000000006", "1.79769313486231571e+308", "4.94065645841246544e-324"},
         {"0.1", "1e+309"}},
        {R"("string")", {"0,", "3,a,b"}, {"", "1", ",", "2,a", "1,ab", "01,a", "-1,"}},
    };
    for (const auto& [type, good, bad] : cases) {
        const auto tags = R"({"id": 1, "address": "a", "type": )" + std::string{type} + "}";
        const auto faultsOf = [description = describe(tags)](const std::string& value) {
            return decodeBatch("1=" + value + "\n", *description).faults.size();
        };
        for (const auto& value : good) {
            EXPECT_EQ(0U, faultsOf(value)) << type << ": " << value;
        }
        for (const auto& value : bad) {
            EXPECT_EQ(1U, faultsOf(value)) << type << ": " << value;
        }
    }
}

TEST(StewardSimulatorTest, ServesADaemonAndEndsWithStatus1AfterAMalformedLine) {
    const auto file = std::filesystem::temp_directory_path() /
                      ("steward-" + std::to_string(::getpid()) + ".json");
    const auto describeAs = [&file](const std::string& example) {
        std::filesystem::copy_file(SOURCE_DIR "/examples/" + example, file,
                                   std::filesystem::copy_options::overwrite_existing);
    };
    describeAs("press-4.json");
    TestSupport::Process steward{
        {STEWARD_PATH, "--description=" + file.string(), "--device-id=id", "--view=lines"}};
    const auto firstLine = steward.readLine();
    ASSERT_THAT(firstLine, StartsWith("listening on 127.0.0.1:"));
    boost::asio::ip::tcp::iostream daemon;
    daemon.expires_after(20s);
    daemon.connect("127.0.0.1", firstLine.substr(firstLine.rfind(':') + 1));
    const auto replyTo = [&daemon](std::string_view bytes) {
        daemon << bytes << std::flush;
        std::string line;
        std::getline(daemon, line);
        return line;
    };

    EXPECT_THAT(replyTo(""), StartsWith("HELO"));
    EXPECT_EQ("DEVC unknown device id", replyTo("DEVC other key\n"));
    EXPECT_EQ("DEVC OK", replyTo("DEVC id key\n"));
    EXPECT_THAT(replyTo("INFO\n"), StartsWith(R"(INFO {   "id": "press-4",)"));
    describeAs("minimal.json");
    EXPECT_EQ("IFCH", replyTo(""));
    EXPECT_THAT(replyTo("INFO\n"), StartsWith(R"(INFO {   "id": "device-1",)"));
    steward.writeLine("EROR tried");
    EXPECT_EQ("EROR tried", replyTo(""));
    daemon << "1=t\n\n1=\x01\n\nEX" << std::flush;
    for (std::string line = "-"; !line.empty() && line.find("batch 2") == line.npos;) {
        line = steward.readLine();
    }
    EXPECT_EQ("", replyTo("IT\nafter the end\n"));
    EXPECT_TRUE(daemon.eof());
    steward.signal(SIGTERM);

    EXPECT_EQ(1, steward.wait());
    EXPECT_THAT(steward.restOfOutput(),
                testing::AllOf(HasSubstr(": EXIT\n"),
                               HasSubstr("batches 2, values 1, errors 0, malformed 1,"),
                               HasSubstr("malformed: not a value of type boolean: 1=\\x01\n")));
    std::filesystem::remove(file);
}

}  // namespace
