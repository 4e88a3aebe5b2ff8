// SPDX-License-Identifier: MIT
// The smallest protocol that works: a device whose tags are numbers in files. The address of a tag
// is the path of its file, such as /sys/class/thermal/thermal_zone0/temp; its value is the first
// word in it. Takes "int" tags of 64 bits, signed, and "float" tags of 64 bits.
#include "orvik/pullapplication/main.hpp"

#include "orvik/datasource/protocol_handler.hpp"
#include "orvik/pushinterface/client.hpp"
#include "orvik/pushinterface/info_parser.hpp"
#include "orvik/pushinterface/protocol.hpp"

#include <charconv>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace PullappNumberFiles {

using Orvik::PushInterface::TagType;

using Tag = Orvik::PushInterface::Tag;  // a path needs no further fields

class Device : public Orvik::PushInterface::Device {
  public:
    [[nodiscard]] static std::string parseTag(const Tag& tag) {
        const bool isKnown = tag.tagType == TagType::Int64 || tag.tagType == TagType::Double;
        return isKnown ? "" : "Only numbers of 64 bits, and signed";
    }

    [[nodiscard]] std::string addTag(const std::shared_ptr<Tag>& tag) {
        tags.push_back(tag);
        return {};
    }

    /// There is nothing to prepare.
    [[nodiscard]] static std::string parseDevice() { return {}; }

    std::vector<std::shared_ptr<Tag>> tags;
};

class ProtocolHandler final : public Orvik::DataSource::ProtocolHandler<Device, Tag> {
  public:
    void init() override {}
    void deinit() override {}

    /// Files are opened for each pull, so there is no connection.
    [[nodiscard]] std::string connect(Device& /*device*/) override { return {}; }
    void disconnect(Device& /*device*/) override {}
    [[nodiscard]] std::string keepAlive(Device& /*device*/) override { return {}; }

    [[nodiscard]] std::string verifyTags(Device& device) override {
        std::string unused;
        return readAll(device, unused);
    }

    [[nodiscard]] std::string pullData(Device& device,
                                       Orvik::PushInterface::Client& client) override {
        std::string batch;
        auto error = readAll(device, batch);
        if (error.empty()) {
            client.write(std::move(batch));
        }
        return error;
    }

  private:
    /// Appends a line for each tag. @return empty, or the first problem
    static std::string readAll(const Device& device, std::string& batch) {
        for (const auto& tag : device.tags) {
            std::ifstream file{tag->address};
            std::string word;
            if (!(file >> word)) {
                return "Cannot read " + tag->address;
            }
            Orvik::PushInterface::appendTagId(batch, tag->id);
            const bool isNumber = tag->tagType == TagType::Int64
                                      ? append<std::int64_t>(batch, word)
                                      : append<double>(batch, word, std::chars_format::general, 18);
            if (!isNumber) {
                return "Not a number of the tag's type: " + tag->address;
            }
            batch += '\n';
        }
        return {};
    }

    /// Writes the number as the steward receives it, whatever its format in the file.
    template <typename Number, typename... Format>
    static bool append(std::string& batch, const std::string& word, Format... format) {
        Number number{};
        const char* const end = word.data() + word.size();
        const auto read = std::from_chars(word.data(), end, number);
        char text[32];
        const auto written = std::to_chars(text, text + sizeof text, number, format...);
        batch.append(text, written.ptr);
        return read.ec == std::errc{} && read.ptr == end;
    }
};

}  // namespace PullappNumberFiles

int main(int argc, char** argv) {
    using namespace PullappNumberFiles;
    Orvik::PullApplication::Main<ProtocolHandler, Orvik::PushInterface::InfoParser<Device, Tag>,
                                 Orvik::PushInterface::Client>
        application;
    return application.run(argc, argv, "number-files", "0.1.0", "MIT License.");
}
