// SPDX-License-Identifier: MIT
#pragma once

#include <open62541/server.h>

namespace OpcUaSimulator {

/// Adds the folder "Odd" with nodes that real servers have and the daemon cannot pull: values of
/// other types, arrays, values that cannot be read, identifiers that an address cannot name, and a
/// cycle of references.
/// @throws std::runtime_error if a node cannot be made
void addOddNodes(UA_Server& server);

}  // namespace OpcUaSimulator
