// SPDX-License-Identifier: MIT
#include "opcua-commission/node_id.hpp"

#include "common/command_line.hpp"
#include "opcua/device.hpp"
#include "opcua/tag.hpp"

#include <memory>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace OpcUaCommission {
namespace {

using PullappOpcUa::bytesOf;

std::string guidText(const UA_Guid& guid) {
    std::string text = fmt::format("{:08x}-{:04x}-{:04x}-", guid.data1, guid.data2, guid.data3);
    for (std::size_t i = 0; i < std::size(guid.data4); ++i) {
        text += fmt::format("{}{:02x}", i == 2 ? "-" : "", guid.data4[i]);
    }
    return text;
}

std::string base64(const UA_ByteString& bytes) {
    PullappOpcUa::Owned<UA_String, UA_TYPES_STRING> text;
    UA_ByteString_toBase64(&bytes, &*text);
    return std::string{bytesOf(*text)};
}

/// A device with the node that the daemon would read; null if it refuses the address.
std::shared_ptr<PullappOpcUa::Device> deviceWith(const std::string& address, std::string& error) {
    auto device = std::make_shared<PullappOpcUa::Device>();
    const auto tag = std::make_shared<PullappOpcUa::Tag>();
    tag->address = address;
    error = PullappOpcUa::Device::parseTag(*tag);
    if (!error.empty() || !device->addTag(tag).empty() || !device->parseDevice().empty()) {
        return nullptr;
    }
    return device;
}

const UA_NodeId& nodeOf(const PullappOpcUa::Device& device) {
    return device.readRequest.nodesToRead[0].nodeId;
}

/// A description is JSON, and so UTF-8.
bool isUtf8(std::string_view text) {
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

}  // namespace

std::string addressOf(const UA_NodeId& id) {
    const auto prefix = fmt::format("ns={};", id.namespaceIndex);
    switch (id.identifierType) {
        case UA_NODEIDTYPE_STRING:
            return prefix + "s=" + std::string{bytesOf(id.identifier.string)};
        case UA_NODEIDTYPE_GUID:
            return prefix + "g=" + guidText(id.identifier.guid);
        case UA_NODEIDTYPE_BYTESTRING:
            return prefix + "b=" + base64(id.identifier.byteString);
        case UA_NODEIDTYPE_NUMERIC:
            break;
    }
    return prefix + fmt::format("i={}", id.identifier.numeric);
}

std::string addressObstacle(const UA_NodeId& id) {
    if (id.identifierType == UA_NODEIDTYPE_BYTESTRING) {
        return "opaque identifier";
    }
    const auto address = addressOf(id);
    std::string error;
    const auto device = deviceWith(address, error);
    const bool isFound = device && UA_NodeId_equal(&id, &nodeOf(*device));
    if (isFound && isUtf8(address)) {
        return {};
    }
    const auto identifier = bytesOf(id.identifier.string);
    if (identifier.find(';') != std::string_view::npos) {
        return "string identifier holds \";\"";
    }
    if (identifier.find('\0') != std::string_view::npos) {
        return "string identifier holds a zero byte";
    }
    return isFound ? "string identifier is no UTF-8" : "address is read as another node " + error;
}

NodeId parseNodeId(const std::string& address) {
    std::string error;
    const auto device = deviceWith(address, error);
    if (!device) {
        throw Tools::UsageError{error};
    }
    return NodeId{nodeOf(*device)};
}

}  // namespace OpcUaCommission
