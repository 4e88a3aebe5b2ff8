// SPDX-License-Identifier: MIT
#include "opcua/device.hpp"

namespace PullappOpcUa {
namespace {

constexpr const char* notSupported = "Not supported";

/// Points to the tag's own text.
UA_NodeId nodeIdOf(Tag& tag) {
    const auto index = static_cast<UA_UInt16>(tag.namespaceIndex);
    switch (tag.identifierType) {
        case IdentifierType::String:
            return UA_NODEID_STRING(index, tag.stringIdentifier.data());
        case IdentifierType::Guid:
            return UA_NODEID_GUID(index, tag.guidIdentifier);
        case IdentifierType::Numeric:
            break;
    }
    return UA_NODEID_NUMERIC(index, tag.numericIdentifier);
}

}  // namespace

std::string Device::setProtocolOption(const std::string& key, const std::string& value) {
    if (key == "authenticationtype") {
        if (value == "anonymous" || value == "certificate") {
            authenticationType = AuthenticationType::Anonymous;
        } else if (value == "username") {
            authenticationType = AuthenticationType::Username;
        } else {
            return notSupported;
        }
    } else if (key == "username") {
        username = value;
    } else if (key == "password") {
        password = value;
    } else {
        return notSupported;
    }
    return {};
}

std::string Device::addTag(const std::shared_ptr<Tag>& tag) {
    tags.push_back(tag);
    return {};
}

std::string Device::parseDevice() {
    readEntries_.clear();
    readEntries_.reserve(tags.size());
    for (const auto& tag : tags) {
        UA_ReadValueId entry;
        UA_ReadValueId_init(&entry);
        entry.nodeId = nodeIdOf(*tag);
        entry.attributeId = UA_ATTRIBUTEID_VALUE;
        readEntries_.push_back(entry);
    }
    UA_ReadRequest_init(&readRequest);
    readRequest.nodesToRead = readEntries_.data();
    readRequest.nodesToReadSize = readEntries_.size();
    return {};
}

}  // namespace PullappOpcUa
