// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"

#include <cstddef>
#include <string>
#include <utility>

namespace OpcUaCommission {

/// A node id with its own copy of the identifier.
class NodeId {
  public:
    NodeId() = default;
    explicit NodeId(const UA_NodeId& id) { UA_NodeId_copy(&id, &*id_); }
    NodeId(const NodeId& other) : NodeId{other.get()} {}
    NodeId(NodeId&&) = default;
    NodeId& operator=(NodeId other) noexcept {
        id_ = std::move(other.id_);
        return *this;
    }
    ~NodeId() = default;

    [[nodiscard]] const UA_NodeId& get() const noexcept { return *id_.operator->(); }

    friend bool operator==(const NodeId& left, const NodeId& right) noexcept {
        return UA_NodeId_equal(&left.get(), &right.get());
    }

  private:
    PullappOpcUa::Owned<UA_NodeId, UA_TYPES_NODEID> id_;
};

struct NodeIdHash {
    std::size_t operator()(const NodeId& id) const noexcept { return UA_NodeId_hash(&id.get()); }
};

/// As a description writes it: "ns=2;i=1001". An opaque identifier, which no description can
/// contain, has "b=" and Base64.
[[nodiscard]] std::string addressOf(const UA_NodeId& id);

/// Why the daemon would not find the node by that address; empty if it would.
[[nodiscard]] std::string addressObstacle(const UA_NodeId& id);

/// @throws Tools::UsageError if the daemon would refuse the address
[[nodiscard]] NodeId parseNodeId(const std::string& address);

}  // namespace OpcUaCommission
