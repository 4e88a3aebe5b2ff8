// SPDX-License-Identifier: MIT
#include "opcua-commission/variable.hpp"

#include "opcua/read_response.hpp"
#include "opcua/tag.hpp"
#include "opcua/value.hpp"

#include <optional>
#include <utility>

#include <fmt/format.h>

#include <open62541/nodeids.h>

namespace OpcUaCommission {
namespace {

// Obstacles
constexpr const char* array = "array";
constexpr const char* noValue = "no value now";
constexpr const char* noAccess = "no read access with this log-in";

constexpr std::size_t builtInTypeCount = 25;  // the stack's first types, in the order of their ids

bool isAccessDenied(UA_StatusCode status) {
    return status == UA_STATUSCODE_BADUSERACCESSDENIED || status == UA_STATUSCODE_BADNOTREADABLE;
}

UA_ReadValueId entryFor(const NodeId& nodeId, UA_AttributeId attribute) {
    UA_ReadValueId entry;
    UA_ReadValueId_init(&entry);
    entry.nodeId = nodeId.get();
    entry.attributeId = static_cast<UA_UInt32>(attribute);
    return entry;
}

/// The content of a scalar; null if there is none of that type.
template <typename T>
const T* scalar(const UA_DataValue& value, std::size_t type) {
    const bool isThere = value.hasValue && UA_Variant_hasScalarType(&value.value, &UA_TYPES[type]);
    return isThere ? static_cast<const T*>(value.value.data) : nullptr;
}

void setType(Variable& variable, const UA_DataType& type, bool isArray) {
    variable.tagType = isArray ? TagType::Unknown : tagTypeFor(&type);
    if (variable.tagType != TagType::Unknown) {
        variable.type = typeText(variable.tagType);
        return;
    }
    variable.type = std::string{typeName(type)} + (isArray ? "[]" : "");
    variable.obstacle = isArray ? array : "no tag has this type";
}

void setValue(Variable& variable, const UA_Variant& value) {
    PullappOpcUa::Tag tag;
    tag.tagType = variable.tagType;
    if (auto text = formatValue(tag, value)) {
        variable.value = std::move(*text);
    } else {
        variable.obstacle = fmt::format("{} (null string)", noValue);
    }
}

/// @return whether there is a value that shows the type
bool takeValue(Variable& variable, const UA_DataValue& value) {
    variable.isReadable = value.hasValue;
    if (value.hasValue && value.value.type != nullptr) {
        setType(variable, *value.value.type, !UA_Variant_isScalar(&value.value));
        if (variable.isPullable()) {
            setValue(variable, value.value);
        }
        return true;
    }
    const auto status = PullappOpcUa::statusOf(value);
    variable.isUnknown =
        status == UA_STATUSCODE_BADNODEIDUNKNOWN || status == UA_STATUSCODE_BADNODEIDINVALID;
    variable.obstacle = isAccessDenied(status) ? noAccess : noValue;
    if (status != UA_STATUSCODE_GOOD) {
        variable.obstacle += fmt::format(" ({})", statusText(status));
    }
    return variable.isUnknown;
}

}  // namespace

void VariableReader::read(std::vector<Variable>& variables, std::size_t first, std::size_t count) {
    std::vector<Variable*> all;
    for (auto i = first; i < first + count; ++i) {
        variables[i].address = addressOf(variables[i].nodeId.get());
        all.push_back(&variables[i]);
    }
    markArrays(all);
    auto withoutValue = readValues(all);
    readTypes(withoutValue);
    for (auto* variable : all) {
        if (auto obstacle = addressObstacle(variable->nodeId.get()); !obstacle.empty()) {
            variable->obstacle = std::move(obstacle);
        }
    }
}

/// An array is not read: it may be large, and cannot be pulled anyway.
void VariableReader::markArrays(const std::vector<Variable*>& variables) {
    readAttributes(variables, {UA_ATTRIBUTEID_VALUERANK},
                   [](Variable& variable, const UA_DataValue& value) {
                       const auto* rank = scalar<UA_Int32>(value, UA_TYPES_INT32);
                       if (rank != nullptr && *rank >= UA_VALUERANK_ONE_OR_MORE_DIMENSIONS) {
                           variable.obstacle = array;
                       }
                   });
}

/// @return those whose value does not show the type
std::vector<Variable*> VariableReader::readValues(const std::vector<Variable*>& variables) {
    std::vector<Variable*> without;
    std::vector<Variable*> scalars;
    for (auto* variable : variables) {
        (variable->obstacle == array ? without : scalars).push_back(variable);
    }
    readAttributes(scalars, {UA_ATTRIBUTEID_VALUE},
                   [&](Variable& variable, const UA_DataValue& value) {
                       if (!takeValue(variable, value)) {
                           without.push_back(&variable);
                       }
                   });
    return without;
}

void VariableReader::readTypes(const std::vector<Variable*>& variables) {
    std::unordered_map<const Variable*, NodeId> dataTypes;
    readAttributes(variables, {UA_ATTRIBUTEID_USERACCESSLEVEL, UA_ATTRIBUTEID_DATATYPE},
                   [&](Variable& variable, const UA_DataValue& value) {
                       if (const auto* level = scalar<UA_Byte>(value, UA_TYPES_BYTE)) {
                           variable.isReadable = (*level & UA_ACCESSLEVELMASK_READ) != 0;
                       } else if (const auto* id = scalar<UA_NodeId>(value, UA_TYPES_NODEID)) {
                           dataTypes.emplace(&variable, NodeId{*id});
                       }
                   });
    for (auto* variable : variables) {
        const auto dataType = dataTypes.find(variable);
        const auto obstacle = variable->obstacle;
        if (dataType != dataTypes.end()) {
            if (const auto* type = builtInType(dataType->second)) {
                setType(*variable, *type, obstacle == array);
            }
        }
        const bool isRefused = !variable->isReadable && obstacle.starts_with(noValue);
        variable->obstacle = isRefused ? noAccess : obstacle;
    }
}

/// Reads attributes of all, in few requests.
void VariableReader::readAttributes(
    const std::vector<Variable*>& variables, const std::vector<UA_AttributeId>& attributes,
    const std::function<void(Variable&, const UA_DataValue&)>& onValue) {
    std::vector<UA_ReadValueId> entries;
    for (const auto* variable : variables) {
        for (const auto attribute : attributes) {
            entries.push_back(entryFor(variable->nodeId, attribute));
        }
    }
    services_.read(entries, [&](std::size_t i, const UA_DataValue& value) {
        onValue(*variables[i / attributes.size()], value);
    });
}

const UA_DataType* VariableReader::builtInType(const NodeId& dataType) {
    if (const auto known = builtInTypes_.find(dataType); known != builtInTypes_.end()) {
        return known->second;
    }
    const auto& id = dataType.get();
    const bool isStandard = id.namespaceIndex == 0 && id.identifierType == UA_NODEIDTYPE_NUMERIC;
    const UA_DataType* type = nullptr;
    if (isStandard && id.identifier.numeric == UA_NS0ID_ENUMERATION) {
        type = &UA_TYPES[UA_TYPES_INT32];
    } else if (isStandard && id.identifier.numeric - 1 < builtInTypeCount) {
        type = &UA_TYPES[id.identifier.numeric - 1];
    } else {
        builtInTypes_[dataType] = nullptr;  // ends a cycle
        const auto supertype = supertypeOf(dataType);
        type = supertype ? builtInType(*supertype) : nullptr;
    }
    builtInTypes_[dataType] = type;
    return type;
}

std::optional<NodeId> VariableReader::supertypeOf(const NodeId& dataType) {
    UA_BrowseDescription entry;
    UA_BrowseDescription_init(&entry);
    entry.nodeId = dataType.get();
    entry.browseDirection = UA_BROWSEDIRECTION_INVERSE;
    entry.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HASSUBTYPE);
    std::optional<NodeId> supertype;
    services_.browse(
        {entry},
        [&](std::size_t, const UA_ReferenceDescription& reference) {
            supertype.emplace(reference.nodeId.nodeId);
        },
        [](std::size_t, const std::string&) {});
    return supertype;
}

}  // namespace OpcUaCommission
