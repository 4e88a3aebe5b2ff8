// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/status_code_name.hpp"

#include <stdexcept>
#include <string>

#include <open62541/types.h>

namespace OpcUaSimulator {

/// @throws std::runtime_error with the text and the name of the status, unless it is good
inline void require(UA_StatusCode status, const std::string& what) {
    if (status != UA_STATUSCODE_GOOD) {
        throw std::runtime_error{what + ": " + std::string{PullappOpcUa::statusCodeName(status)}};
    }
}

}  // namespace OpcUaSimulator
