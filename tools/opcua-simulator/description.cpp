// SPDX-License-Identifier: MIT
#include "opcua-simulator/description.hpp"

#include "common/description_text.hpp"
#include "common/file.hpp"
#include "orvik/pushinterface/info_parser.hpp"

#include <array>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace OpcUaSimulator {
namespace {

using Json = nlohmann::ordered_json;
using PullappOpcUa::Device;
using PullappOpcUa::Tag;

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
    const std::array types{Json::object({{"type", "int"}, {"signed", true}, {"width", 32}}),
                           Json::object({{"type", "float"}, {"width", 32}}),
                           Json::object({{"type", "float"}, {"width", 64}}),
                           Json::object({{"type", "bool"}}), Json::object({{"type", "string"}})};
    auto tags = Json::array();
    for (unsigned i = 0; i < count; ++i) {
        Json tag{{"address", "ns=1;i=" + std::to_string(i + 1)}, {"id", i + 1}};
        tag.update(types.at(i % types.size()));
        tags.push_back(std::move(tag));
    }
    const Json device{
        {"id", ""}, {"ipAddress", ""}, {"port", 0}, {"pullDelay", 1000}, {"tags", std::move(tags)}};
    return device.dump();
}

Json toJson(const Tag& tag) {
    Json json{{"id", tag.id}, {"address", tag.address}, {"type", tag.type}};
    if (tag.type == "int") {
        json["signed"] = tag.isSigned;
    }
    if (tag.width != 0) {
        json["width"] = tag.width;
    }
    if (tag.maxStringLength != 0) {
        json["maxStringLength"] = tag.maxStringLength;
    }
    return json;
}

}  // namespace

std::shared_ptr<Device> makeDevice(const Options& options) {
    if (!options.description.empty()) {
        return parse(Tools::readFile(options.description), options.description);
    }
    return parse(mixedTags(options.tags), "made-up tags");
}

void writeDescription(const Device& device, const Options& options, std::uint16_t port) {
    Json json{{"id", device.id.empty() ? options.deviceId : device.id},
              {"ipAddress", options.listen},
              {"port", port},
              {"pullDelay", options.pullDelay.value_or(device.pullDelay)}};
    if (!options.user.empty()) {
        json["protocolOptions"] = {{"authenticationtype", "username"},
                                   {"username", options.user},
                                   {"password", options.password}};
    }
    json["tags"] = Json::array();
    for (const auto& tag : device.tags) {
        json["tags"].push_back(toJson(*tag));
    }
    Tools::writeFile(options.writeDescription, Tools::descriptionText(json));
}

}  // namespace OpcUaSimulator
