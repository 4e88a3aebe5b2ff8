// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/device.hpp"
#include "opcua/stack.hpp"

#include <cstddef>
#include <string>

/// What the answer to a Read says about a device's tags. Only its structure is trusted (the stack
/// has decoded it); every value is checked.
namespace PullappOpcUa {

/// Status of the Read: the service result, BadUnexpectedError on a wrong count of results, else the
/// status of the first result.
[[nodiscard]] UA_StatusCode statusOf(const ReadResponse& response, std::size_t tagCount);

/// Status of one result.
[[nodiscard]] inline UA_StatusCode statusOf(const UA_DataValue& result) noexcept {
    return result.hasStatus ? result.status : UA_STATUSCODE_GOOD;
}

/// Whether a tag has a scalar value of its type. @return empty, or why not
[[nodiscard]] std::string checkType(const Tag& tag, const UA_DataValue& result);

/**
 * Whether each tag has a scalar value of its type.
 *
 * @param response with one result for each tag
 * @return empty, or the first reason why not
 */
[[nodiscard]] std::string checkTypes(const Device& device, const ReadResponse& response);

/**
 * Appends one line for each tag, with its id and its value.
 *
 * @param response with one result for each tag
 * @return empty, or why a value is missing; a part of the batch may have been appended then
 */
[[nodiscard]] std::string appendBatch(std::string& batch, const Device& device,
                                      const ReadResponse& response);

}  // namespace PullappOpcUa
