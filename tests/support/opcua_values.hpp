// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

#include <open62541/types.h>
#include <open62541/types_generated_handling.h>

/// OPC UA values made by hand. They do not own the memory they refer to.
namespace TestSupport {

[[nodiscard]] inline UA_String borrow(std::string_view text) {
    return {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
}

template <typename T>
[[nodiscard]] UA_Variant scalar(T& value, std::size_t type) {
    UA_Variant variant;
    UA_Variant_init(&variant);
    UA_Variant_setScalar(&variant, &value, &UA_TYPES[type]);
    return variant;
}

/// The result of a Read; a null pointer means no value.
[[nodiscard]] inline UA_DataValue dataValue(const UA_Variant* value,
                                            UA_StatusCode status = UA_STATUSCODE_GOOD) {
    UA_DataValue result;
    UA_DataValue_init(&result);
    result.hasValue = value != nullptr;
    result.value = value != nullptr ? *value : UA_Variant{};
    result.hasStatus = status != UA_STATUSCODE_GOOD;
    result.status = status;
    return result;
}

}  // namespace TestSupport
