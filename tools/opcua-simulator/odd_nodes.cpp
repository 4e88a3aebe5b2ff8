// SPDX-License-Identifier: MIT
#include "opcua-simulator/odd_nodes.hpp"

#include "opcua-simulator/address_space.hpp"
#include "opcua-simulator/require.hpp"

#include <string>

namespace OpcUaSimulator {
namespace {

using namespace std::string_literals;

/// Variables with a constant value.
class OddVariables {
  public:
    OddVariables(UA_Server& server, const UA_NodeId& parent) : server_{server}, parent_{parent} {}

    /// With a node id after its name. @param type one of UA_TYPES_…
    void add(const std::string& name, const void* value, std::size_t type,
             UA_Byte access = UA_ACCESSLEVELMASK_READ) const {
        addAs(name, idFor(name), value, type, access);
    }

    void addAs(const std::string& name, const UA_NodeId& id, const void* value, std::size_t type,
               UA_Byte access = UA_ACCESSLEVELMASK_READ) const {
        auto attributes = attributesFor(name, type, access);
        UA_Variant_setScalar(&attributes.value, const_cast<void*>(value), &UA_TYPES[type]);
        attributes.valueRank = UA_VALUERANK_SCALAR;
        add(name, id, attributes);
    }

    template <std::size_t size>
    void addArray(const std::string& name, UA_Int32 (&values)[size]) const {
        UA_UInt32 dimensions[] = {size};
        auto attributes = attributesFor(name, UA_TYPES_INT32, UA_ACCESSLEVELMASK_READ);
        UA_Variant_setArray(&attributes.value, values, size, &UA_TYPES[UA_TYPES_INT32]);
        attributes.valueRank = UA_VALUERANK_ONE_DIMENSION;
        attributes.arrayDimensions = dimensions;
        attributes.arrayDimensionsSize = 1;
        add(name, idFor(name), attributes);
    }

    /// One that answers each read with a status and no value. The stack makes no node without a
    /// value, so the node is made with one and then loses it.
    template <UA_StatusCode status>
    void addWithoutValue(const std::string& name, const void* value, std::size_t type) const {
        const auto read = [](UA_Server*, const UA_NodeId*, void*, const UA_NodeId*, void*,
                             UA_Boolean, const UA_NumericRange*, UA_DataValue*) { return status; };
        add(name, value, type);
        require(UA_Server_setVariableNode_dataSource(&server_, idFor(name), {read, nullptr}),
                "cannot serve " + name);
    }

  private:
    /// Lives as long as the name.
    static UA_NodeId idFor(const std::string& name) {
        auto id = UA_NODEID_STRING(ownNamespace, nullptr);
        id.identifier.string = borrow(name);
        return id;
    }

    static UA_VariableAttributes attributesFor(const std::string& name, std::size_t type,
                                               UA_Byte access) {
        auto attributes = UA_VariableAttributes_default;
        attributes.displayName.text = borrow(name);
        attributes.dataType = UA_TYPES[type].typeId;
        attributes.accessLevel = access;
        return attributes;
    }

    void add(const std::string& name, const UA_NodeId& id,
             const UA_VariableAttributes& attributes) const {
        require(UA_Server_addVariableNode(&server_, id, parent_,
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                                          UA_QualifiedName{ownNamespace, borrow(name)},
                                          UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE),
                                          attributes, nullptr, nullptr),
                "cannot serve " + name);
    }

    UA_Server& server_;
    const UA_NodeId parent_;
};

void addOddValues(const OddVariables& odd) {
    UA_Int32 numbers[] = {1, 2, 3};
    odd.addArray("Array", numbers);
    const UA_DateTime time = UA_DateTime_now();
    odd.add("DateTime", &time, UA_TYPES_DATETIME);
    const auto text = UA_LOCALIZEDTEXT(const_cast<char*>("en"), const_cast<char*>("a text"));
    odd.add("LocalizedText", &text, UA_TYPES_LOCALIZEDTEXT);
    const auto bytes = UA_BYTESTRING(const_cast<char*>("bytes"));
    odd.add("ByteString", &bytes, UA_TYPES_BYTESTRING);
    UA_Argument structure{};
    odd.add("Structure", &structure, UA_TYPES_ARGUMENT);
    const UA_String nullString{};
    odd.add("Null string", &nullString, UA_TYPES_STRING);
    const UA_Double zero = 0;
    odd.addWithoutValue<UA_STATUSCODE_BADWAITINGFORINITIALDATA>("No value yet", &zero,
                                                                UA_TYPES_DOUBLE);
}

void addOddAccess(const OddVariables& odd) {
    const UA_Int32 number = 1;
    odd.add("Write only", &number, UA_TYPES_INT32, UA_ACCESSLEVELMASK_WRITE);
    auto id = UA_NODEID_STRING(ownNamespace, const_cast<char*>("semicolon;inside"));
    odd.addAs("Semicolon", id, &number, UA_TYPES_INT32);
    const auto withZero = "zero\0inside"s;
    id.identifier.string = borrow(withZero);
    odd.addAs("Zero byte", id, &number, UA_TYPES_INT32);
    odd.addAs("Opaque", UA_NODEID_BYTESTRING(ownNamespace, const_cast<char*>("opaque")), &number,
              UA_TYPES_INT32);
}

/// Two folders, each inside the other.
void addCycle(UA_Server& server, const UA_NodeId& parent) {
    const auto outerName = "Cycle"s;
    const auto innerName = "Inner"s;
    const auto outer = addFolder(server, parent, outerName, outerName);
    const auto inner = addFolder(server, outer, innerName, innerName);
    require(UA_Server_addReference(&server, inner, UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                                   UA_ExpandedNodeId{outer, UA_STRING_NULL, 0}, true),
            "cannot make a cycle");
}

}  // namespace

void addOddNodes(UA_Server& server) {
    const auto name = "Odd"s;
    const auto folder = addFolder(server, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER), name, name);
    const OddVariables odd{server, folder};
    addOddValues(odd);
    addOddAccess(odd);
    addCycle(server, folder);
}

}  // namespace OpcUaSimulator
