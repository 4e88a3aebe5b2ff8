// SPDX-License-Identifier: MIT
#include "orvik/pushinterface/info_parser.hpp"
#include "support.hpp"

namespace {

using PullappOpcUa::Device;
using PullappOpcUa::Tag;
using Tree = boost::property_tree::ptree;

Tree describe(const Tag& tag) {
    Tree tree;
    tree.put("address", tag.address);
    tree.put("id", tag.id);
    tree.put("type", tag.type);
    tree.put("signed", tag.isSigned);
    tree.put("width", static_cast<int>(tag.width));
    tree.put("maxStringLength", tag.maxStringLength);
    return tree;
}

/// Writes a parsed device as a description.
std::string describe(const Device& device) {
    constexpr const char* authenticationTypes[]{"anonymous", "username"};
    const auto authenticationType = static_cast<std::size_t>(device.authenticationType);
    Tree tree;
    tree.put("id", device.id);
    tree.put("ipAddress", device.ipAddress);
    tree.put("port", device.port);
    tree.put("pullDelay", device.pullDelay);
    tree.put("protocolOptions.authenticationtype", authenticationTypes[authenticationType]);
    tree.put("protocolOptions.username", device.username);
    tree.put("protocolOptions.password", device.password);
    auto& tags = tree.put_child("tags", {});
    for (const auto& tag : device.tags) {
        tags.push_back({"", describe(*tag)});
    }
    std::ostringstream text;
    boost::property_tree::write_json(text, tree);
    return text.str();
}

bool parse(const std::string& info, const std::shared_ptr<Device>& device) {
    return Orvik::PushInterface::InfoParser<Device, Tag>::parse(info, device).empty();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto device = std::make_shared<Device>();
    if (!parse(std::string{Fuzz::textOf(data, size)}, device)) {
        return 0;
    }
    Fuzz::require(device->readRequest.nodesToReadSize == device->tags.size(), "every tag is read");
    const auto again = std::make_shared<Device>();
    const auto description = describe(*device);
    Fuzz::require(parse(description, again) && describe(*again) == description,
                  "what was understood can be described");
    return 0;
}
