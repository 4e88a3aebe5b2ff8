// SPDX-License-Identifier: MIT
#include "opcua/read_response.hpp"

#include "support.hpp"

namespace {

/// Tags of all types in turn, as many as there are results.
void addTags(PullappOpcUa::Device& device, std::size_t count, std::size_t firstType) {
    constexpr std::uint32_t types[]{1, 3, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    for (std::size_t i = 0; i < count; ++i) {
        const auto tag = std::make_shared<PullappOpcUa::Tag>();
        tag->id = static_cast<std::uint16_t>(count - i);
        tag->maxStringLength = i % 2 == 0 ? 0 : 5;
        tag->tagType = Orvik::PushInterface::TagType{types[(firstType + i) % std::size(types)]};
        Fuzz::require(device.addTag(tag).empty(), "a tag is accepted");
    }
}

}  // namespace

/// The first byte chooses the type of the first tag, the others are the response's body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    PullappOpcUa::ReadResponse response;
    UA_ByteString body{size - 1, const_cast<UA_Byte*>(data + 1)};
    if (size == 0 ||
        UA_decodeBinary(&body, &*response, response.type(), nullptr) != UA_STATUSCODE_GOOD) {
        return 0;
    }
    PullappOpcUa::Device device;
    addTags(device, std::min<std::size_t>(response->resultsSize, 1000), data[0]);
    if (statusOf(response, device.tags.size()) != UA_STATUSCODE_GOOD) {
        return 0;
    }
    std::string batch;
    const bool fits = checkTypes(device, response).empty();
    if (appendBatch(batch, device, response).empty()) {
        Fuzz::require(fits, "a value that is written has its tag's type");
        Fuzz::requireWellFormed(batch, device);
    }
    return 0;
}
