// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace OpcUaCommission {

/// One name of a path: "2:Speed"; without the namespace where it is 0. "/" and "&" in it get an
/// "&" in front.
[[nodiscard]] std::string pathElement(const UA_QualifiedName& name);

/// The same path without the namespaces of its names.
[[nodiscard]] std::string withoutNamespaces(std::string_view path);

/// The names of a path that begins with "/".
[[nodiscard]] std::vector<std::string> splitPath(std::string_view path);

}  // namespace OpcUaCommission
