// SPDX-License-Identifier: MIT
#include "opcua/read_response.hpp"

#include "opcua/status_code_name.hpp"
#include "opcua/value.hpp"
#include "orvik/pushinterface/protocol.hpp"

namespace PullappOpcUa {
namespace {

/// @return empty if the result holds a single value
std::string checkScalar(const Tag& tag, const UA_DataValue& result) {
    if (!result.hasValue) {
        const auto status = statusOf(result);
        return std::string{statusCodeName(
            status == UA_STATUSCODE_GOOD ? UA_STATUSCODE_BADUNEXPECTEDERROR : status)};
    }
    if (!UA_Variant_isScalar(&result.value)) {
        return "UAvariant type not supported for tag: " + tag.address;
    }
    return {};
}

}  // namespace

UA_StatusCode statusOf(const ReadResponse& response, std::size_t tagCount) {
    if (response->responseHeader.serviceResult != UA_STATUSCODE_GOOD) {
        return response->responseHeader.serviceResult;
    }
    if (response->resultsSize != tagCount) {
        return UA_STATUSCODE_BADUNEXPECTEDERROR;
    }
    // The other results are checked tag by tag
    return tagCount == 0 ? UA_STATUSCODE_GOOD : statusOf(response->results[0]);
}

std::string checkType(const Tag& tag, const UA_DataValue& result) {
    auto error = checkScalar(tag, result);
    return error.empty() ? checkTagType(tag, result.value) : error;
}

std::string checkTypes(const Device& device, const ReadResponse& response) {
    for (std::size_t i = 0; i < device.tags.size(); ++i) {
        if (auto error = checkType(*device.tags[i], response->results[i]); !error.empty()) {
            return error;
        }
    }
    return {};
}

std::string appendBatch(std::string& batch, const Device& device, const ReadResponse& response) {
    for (std::size_t i = 0; i < device.tags.size(); ++i) {
        const auto& tag = *device.tags[i];
        const auto& result = response->results[i];
        if (auto error = checkScalar(tag, result); !error.empty()) {
            return error;
        }
        Orvik::PushInterface::appendTagId(batch, tag.id);
        if (!appendValue(batch, tag, result.value)) {
            return wrongType(tag, result.value);
        }
        batch += '\n';
    }
    return {};
}

}  // namespace PullappOpcUa
