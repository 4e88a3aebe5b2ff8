// SPDX-License-Identifier: MIT
#include "opcua-commission/tag_check.hpp"

#include "description/tag_type.hpp"
#include "opcua/read_response.hpp"
#include "opcua/status_code_name.hpp"
#include "opcua/value.hpp"

#include <fmt/format.h>

namespace OpcUaCommission {
namespace {

using PullappOpcUa::ReadResponse;
using PullappOpcUa::statusCodeName;
using PullappOpcUa::statusOf;
using PullappOpcUa::Tag;

std::string nameOf(UA_StatusCode status) {
    return status == UA_STATUSCODE_GOOD ? "GOOD" : std::string{statusCodeName(status)};
}

/// A tag as its description has it.
TagCheck described(const CheckedDescription& description, std::size_t position) {
    TagCheck check;
    if (position < description.document.tags.size()) {
        const auto& tag = description.document.tags[position];
        const auto* id = tag.find("id");
        const auto* address = tag.find("address");
        check.id = id == nullptr ? "" : id->text;
        check.address = address == nullptr ? "" : address->text;
    }
    check.name = fmt::format("tag {} (id {}, {})", position + 1, check.id, check.address);
    return check;
}

void setType(TagCheck& check, const Tag& tag, const UA_Variant& value) {
    if (value.type == nullptr) {
        return;
    }
    const bool isScalar = UA_Variant_isScalar(&value);
    const auto type = isScalar ? tagTypeFor(value.type) : TagType::Unknown;
    if (type == TagType::Unknown) {
        check.found = std::string{typeName(*value.type)} + (isScalar ? "" : "[]");
        return;
    }
    check.found = typeText(type);
    if (type != tag.tagType) {
        check.rightType = type;
        check.advice = "write " + Tools::typeKeys(type);
    }
}

/// Why the daemon does not take the value. @param isFirst its status is that of the whole Read
std::string obstacle(const Tag& tag, const UA_DataValue& result, bool isFirst) {
    if (isFirst && statusOf(result) != UA_STATUSCODE_GOOD) {
        return std::string{statusCodeName(result.status)};
    }
    if (auto error = PullappOpcUa::checkType(tag, result); !error.empty()) {
        return error;
    }
    return PullappOpcUa::formatValue(tag, result.value) ? std::string{}
                                                        : wrongType(tag, result.value);
}

void compare(TagCheck& check, const Tag& tag, const UA_DataValue& result, bool isFirst) {
    const auto status = statusOf(result);
    check.status = nameOf(status);
    check.expected = typeText(tag.tagType);
    check.isUnknown =
        status == UA_STATUSCODE_BADNODEIDUNKNOWN || status == UA_STATUSCODE_BADNODEIDINVALID;
    if (result.hasValue) {
        setType(check, tag, result.value);
    }
    auto problem = obstacle(tag, result, isFirst);
    if (problem.empty()) {
        check.value = *PullappOpcUa::formatValue(tag, result.value);
    } else if (tag.tagType != TagType::Unknown || !result.hasValue) {
        check.problems.push_back(std::move(problem));
    }
}

/// Adds what is known without the server; advice from the server takes precedence.
void addProblems(std::vector<TagCheck>& tags, const std::vector<Tools::Problem>& problems) {
    for (const auto& problem : problems) {
        if (problem.severity != Tools::Severity::Problem || problem.place.tagIndex >= tags.size()) {
            continue;
        }
        auto& tag = tags[problem.place.tagIndex];
        tag.problems.push_back(problem.text);
        if (tag.advice.empty()) {
            tag.advice = problem.advice;
        }
    }
}

/// Found by the daemon's own code, in the order in which it checks.
std::string published(const PullappOpcUa::Device& device, const ReadResponse& response) {
    const auto status = statusOf(response, device.tags.size());
    if (status != UA_STATUSCODE_GOOD) {
        return std::string{statusCodeName(status)};
    }
    if (auto error = PullappOpcUa::checkTypes(device, response); !error.empty()) {
        return error;
    }
    std::string batch;
    return PullappOpcUa::appendBatch(batch, device, response);
}

}  // namespace

DeviceCheck checkTags(const CheckedDescription& description, const ReadResponse& response) {
    DeviceCheck check;
    const auto& device = *description.device;
    for (std::size_t position = 0; position < description.tagCount; ++position) {
        check.tags.push_back(described(description, position));
    }
    check.published = published(device, response);
    if (response->resultsSize == device.tags.size()) {
        for (std::size_t i = 0; i < device.tags.size(); ++i) {
            compare(check.tags[description.positions[i]], *device.tags[i], response->results[i],
                    i == 0);
        }
    } else {
        check.failure = check.published;
        for (const auto position : description.positions) {
            check.tags[position].problems.push_back(check.failure);
        }
    }
    addProblems(check.tags, description.problems);
    return check;
}

}  // namespace OpcUaCommission
