// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/variable.hpp"

#include <cstddef>
#include <string>

#include <open62541/server.h>

namespace OpcUaSimulator {

inline constexpr UA_UInt16 ownNamespace =
    1;  ///< index of the stack's namespace for a server's own nodes

/// Text that lives as long as @p text, for functions of the stack that copy it.
[[nodiscard]] inline UA_String borrow(const std::string& text) {
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

/// Makes an object of the folder type with the node id "ns=1;s=ID" below another object.
/// @throws std::runtime_error if the id is taken
UA_NodeId addFolder(UA_Server& server, const UA_NodeId& parent, const std::string& id,
                    const std::string& name);

/// Puts variables below the Objects folder, a hundred to a folder.
class AddressSpace {
  public:
    using Read = decltype(UA_DataSource::read);

    explicit AddressSpace(UA_Server& server) : server_{server} {}

    /// @param variable must live as long as the server; two of them may share a node, which is the
    ///                 first one's
    /// @throws std::runtime_error if the node cannot be made
    void addVariable(Variable& variable, const UA_NodeId& nodeId, Read read);

  private:
    void addNamespacesUpTo(std::size_t index);
    [[nodiscard]] const std::string& currentFolder();

    UA_Server& server_;
    std::size_t namespaces_ = 2;  ///< the standard's and the server's own
    std::size_t variables_ = 0;
    std::string folder_;  ///< identifier of the last one
};

}  // namespace OpcUaSimulator
