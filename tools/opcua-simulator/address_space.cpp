// SPDX-License-Identifier: MIT
#include "opcua-simulator/address_space.hpp"

#include "opcua-simulator/require.hpp"

#include <fmt/format.h>

namespace OpcUaSimulator {
namespace {

/// The name that users of the server see: a string identifier, otherwise the tag's number.
std::string nameOf(const PullappOpcUa::Tag& tag, std::size_t position) {
    return tag.identifierType == PullappOpcUa::IdentifierType::String
               ? tag.stringIdentifier
               : fmt::format("Tag {}", position);
}

}  // namespace

UA_NodeId addFolder(UA_Server& server, const UA_NodeId& parent, const std::string& id,
                    const std::string& name) {
    auto attributes = UA_ObjectAttributes_default;
    attributes.displayName.text = borrow(name);
    UA_NodeId nodeId = UA_NODEID_STRING(ownNamespace, nullptr);
    nodeId.identifier.string = borrow(id);
    require(UA_Server_addObjectNode(
                &server, nodeId, parent, UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                UA_QualifiedName{ownNamespace, borrow(name)},
                UA_NODEID_NUMERIC(0, UA_NS0ID_FOLDERTYPE), attributes, nullptr, nullptr),
            "cannot make the folder " + name);
    return nodeId;
}

void AddressSpace::addVariable(Variable& variable, const UA_NodeId& nodeId, Read read) {
    addNamespacesUpTo(nodeId.namespaceIndex);
    auto parent = UA_NODEID_STRING(ownNamespace, nullptr);
    parent.identifier.string = borrow(currentFolder());
    const auto name = nameOf(variable.tag(), ++variables_);
    auto attributes = UA_VariableAttributes_default;
    attributes.displayName.text = borrow(name);
    attributes.dataType = variable.dataType().typeId;
    attributes.valueRank = UA_VALUERANK_SCALAR;
    attributes.accessLevel = UA_ACCESSLEVELMASK_READ;
    const auto status = UA_Server_addDataSourceVariableNode(
        &server_, nodeId, parent, UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
        UA_QualifiedName{nodeId.namespaceIndex, borrow(name)},
        UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attributes, {read, nullptr}, &variable,
        nullptr);
    if (status != UA_STATUSCODE_BADNODEIDEXISTS) {
        require(status, "cannot serve " + variable.tag().address);
    }
}

void AddressSpace::addNamespacesUpTo(std::size_t index) {
    for (; namespaces_ <= index; ++namespaces_) {
        UA_Server_addNamespace(&server_,
                               fmt::format("urn:opcua-simulator:{}", namespaces_).c_str());
    }
}

const std::string& AddressSpace::currentFolder() {
    constexpr std::size_t perFolder = 100;
    if (variables_ % perFolder == 0) {
        const auto name = fmt::format("Tags {}-{}", variables_ + 1, variables_ + perFolder);
        folder_ = "opcua-simulator." + name;
        addFolder(server_, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER), folder_, name);
    }
    return folder_;
}

}  // namespace OpcUaSimulator
