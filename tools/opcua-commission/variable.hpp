// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/node_id.hpp"
#include "opcua-commission/services.hpp"
#include "opcua-commission/tag_type.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace OpcUaCommission {

/// A variable of a server, as the daemon would pull it.
struct Variable {
    NodeId nodeId;
    std::string path;     ///< browse names from the Objects folder, each after a "/"
    std::string address;  ///< as a description writes it
    std::string type;     ///< "int, signed, 32"; where no tag has it, as OPC UA names it
    TagType tagType = TagType::Unknown;
    bool isReadable = false;  ///< with this log-in
    std::string value;        ///< as the daemon writes it; empty without one that it takes
    std::string obstacle;     ///< why it cannot be pulled; empty if it can
    bool isUnknown = false;   ///< to the server: there is no such node

    [[nodiscard]] bool isPullable() const noexcept { return obstacle.empty(); }
};

/**
 * Reads type and value of variables. The type is that of the value; where there is no value now,
 * and for arrays, it is derived from the data type of the variable.
 */
class VariableReader {
  public:
    explicit VariableReader(Services& services) : services_{services} {}

    /// Completes variables whose node id and path are given.
    /// @throws ServerError, Interrupted
    void read(std::vector<Variable>& variables, std::size_t first, std::size_t count);

  private:
    void markArrays(const std::vector<Variable*>& variables);
    [[nodiscard]] std::vector<Variable*> readValues(const std::vector<Variable*>& variables);
    void readTypes(const std::vector<Variable*>& variables);
    void readAttributes(const std::vector<Variable*>& variables,
                        const std::vector<UA_AttributeId>& attributes,
                        const std::function<void(Variable&, const UA_DataValue&)>& onValue);
    [[nodiscard]] const UA_DataType* builtInType(const NodeId& dataType);
    [[nodiscard]] std::optional<NodeId> supertypeOf(const NodeId& dataType);

    Services& services_;
    std::unordered_map<NodeId, const UA_DataType*, NodeIdHash> builtInTypes_;
};

}  // namespace OpcUaCommission
