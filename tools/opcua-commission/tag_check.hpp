// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/checked_description.hpp"
#include "opcua-commission/tag_type.hpp"
#include "opcua/stack.hpp"

#include <optional>
#include <string>
#include <vector>

namespace OpcUaCommission {

/// A tag of a description compared with what the server says about it.
struct TagCheck {
    std::string name;  ///< such as "tag 3 (id 7, ns=2;i=5)"
    std::string id;
    std::string address;
    std::string expected;               ///< type, "int, signed, 32"
    std::string found;                  ///< the same of the server's value
    std::string status;                 ///< by name
    std::string value;                  ///< as the steward would get it
    std::vector<std::string> problems;  ///< in the daemon's words where it has some
    std::string advice;                 ///< what to write instead
    bool isUnknown = false;             ///< the server has no such node
    /// What the description should say; nothing if it already does, or if the server gives no type.
    std::optional<TagType> rightType{};

    [[nodiscard]] bool isGood() const noexcept { return problems.empty(); }
};

/// The result of one Read of all tags.
struct DeviceCheck {
    std::vector<TagCheck> tags;  ///< of the description, in its order
    std::string published;       ///< by the daemon as the error value, empty for none
    std::string failure;         ///< status of a Read that the server did not carry out as a whole
};

/// @param response of the Read request of the description's device
[[nodiscard]] DeviceCheck checkTags(const CheckedDescription& description,
                                    const PullappOpcUa::ReadResponse& response);

}  // namespace OpcUaCommission
