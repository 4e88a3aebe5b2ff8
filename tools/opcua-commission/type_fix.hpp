// SPDX-License-Identifier: MIT
#pragma once

#include "description/document.hpp"
#include "opcua-commission/tag_check.hpp"

#include <string>
#include <vector>

namespace OpcUaCommission {

/// The text of a description with the server's types. No other character changes.
/// @param tags of the document, in its order
[[nodiscard]] std::string withRightTypes(const Tools::Document& document,
                                         const std::vector<TagCheck>& tags);

}  // namespace OpcUaCommission
