// SPDX-License-Identifier: MIT
#include "support.hpp"

#include <memory>

namespace {

using NodeId = PullappOpcUa::Owned<UA_NodeId, UA_TYPES_NODEID>;

/// The address with the namespace in front, as the stack wants it.
std::string inOrder(std::string_view address) {
    const std::string first{Fuzz::takeUntil(address, ';')};
    const std::string second{address};
    return first.starts_with("ns=") ? first + ";" + second : second + ";" + first;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto tag = std::make_shared<PullappOpcUa::Tag>();
    tag->address = Fuzz::textOf(data, size);
    PullappOpcUa::Device device;
    if (!tag->parseAddress().empty() || !device.addTag(tag).empty() ||
        !device.parseDevice().empty()) {
        return 0;
    }
    const auto& id = device.readRequest.nodesToRead[0].nodeId;
    Fuzz::require(id.namespaceIndex == tag->namespaceIndex % 65536, "the low 16 bits count");

    auto text = inOrder(tag->address);
    const UA_String borrowed{text.size(), reinterpret_cast<UA_Byte*>(text.data())};
    NodeId asStack;
    const bool isComparable = tag->namespaceIndex < 65536 && text.find('\0') == text.npos;
    if (isComparable && UA_NodeId_parse(&*asStack, borrowed) == UA_STATUSCODE_GOOD) {
        Fuzz::require(UA_NodeId_equal(&id, &*asStack), "the stack understands the same");
    }
    return 0;
}
