// SPDX-License-Identifier: MIT
#include "opcua-simulator/description.hpp"

#include "orvik/pushinterface/info_parser.hpp"

#include <array>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace OpcUaSimulator {
namespace {

using PullappOpcUa::Device;
using PullappOpcUa::Tag;

std::string readFile(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    if (!file) {
        throw std::runtime_error{"cannot read " + path};
    }
    return {std::istreambuf_iterator<char>{file}, {}};
}

std::shared_ptr<Device> parse(const std::string& json, const std::string& origin) {
    auto device = std::make_shared<Device>();
    const auto error = Orvik::PushInterface::InfoParser<Device, Tag>::parse(json, device);
    if (!error.empty()) {
        throw std::runtime_error{origin + ": " + error};
    }
    return device;
}

/// Int, Float, Double, Bool and String in turn.
std::string mixedTags(std::uint16_t count) {
    constexpr std::array<const char*, 5> types{R"("int","signed":true,"width":32)",
                                               R"("float","width":32)", R"("float","width":64)",
                                               R"("bool")", R"("string")"};
    std::ostringstream json;
    json << R"({"id":"","ipAddress":"","port":0,"pullDelay":1000,"tags":[)";
    for (unsigned i = 0; i < count; ++i) {
        json << (i == 0 ? "" : ",") << R"({"address":"ns=1;i=)" << i + 1 << R"(","id":)" << i + 1
             << R"(,"type":)" << types.at(i % types.size()) << '}';
    }
    json << "]}";
    return json.str();
}

/// A text as JSON, in quotation marks.
std::string quoted(const std::string& text) {
    std::ostringstream json;
    json << '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            json << '\\' << c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            constexpr std::string_view digits = "0123456789abcdef";
            json << "\\u00" << digits[static_cast<unsigned char>(c) / 16]
                 << digits[static_cast<unsigned char>(c) % 16];
        } else {
            json << c;
        }
    }
    json << '"';
    return json.str();
}

void writeTag(std::ostream& json, const Tag& tag) {
    json << R"({ "id": )" << tag.id << R"(, "address": )" << quoted(tag.address) << R"(, "type": )"
         << quoted(tag.type);
    if (tag.type == "int") {
        json << R"(, "signed": )" << (tag.isSigned ? "true" : "false");
    }
    if (tag.width != 0) {
        json << R"(, "width": )" << static_cast<unsigned>(tag.width);
    }
    if (tag.maxStringLength != 0) {
        json << R"(, "maxStringLength": )" << tag.maxStringLength;
    }
    json << " }";
}

}  // namespace

std::shared_ptr<Device> makeDevice(const Options& options) {
    if (!options.description.empty()) {
        return parse(readFile(options.description), options.description);
    }
    return parse(mixedTags(options.tags), "made-up tags");
}

void writeDescription(const Device& device, const Options& options, std::uint16_t port) {
    std::ostringstream json;
    json << "{\n  \"id\": " << quoted(device.id.empty() ? options.deviceId : device.id)
         << ",\n  \"ipAddress\": " << quoted(options.listen) << ",\n  \"port\": " << port
         << ",\n  \"pullDelay\": " << options.pullDelay.value_or(device.pullDelay);
    if (!options.user.empty()) {
        json << ",\n  \"protocolOptions\": { \"authenticationtype\": \"username\", \"username\": "
             << quoted(options.user) << ", \"password\": " << quoted(options.password) << " }";
    }
    json << ",\n  \"tags\": [";
    const char* separator = "\n    ";
    for (const auto& tag : device.tags) {
        json << std::exchange(separator, ",\n    ");
        writeTag(json, *tag);
    }
    json << "\n  ]\n}\n";
    std::ofstream file{options.writeDescription, std::ios::binary};
    file << json.str() << std::flush;
    if (!file) {
        throw std::runtime_error{"cannot write " + options.writeDescription};
    }
}

}  // namespace OpcUaSimulator
