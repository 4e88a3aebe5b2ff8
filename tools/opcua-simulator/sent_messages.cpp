// SPDX-License-Identifier: MIT
#include "opcua-simulator/sent_messages.hpp"

#include "opcua/stack.hpp"

#include <algorithm>
#include <utility>

namespace OpcUaSimulator {

void SentMessages::watch(UA_EventLoop& loop) {
    watching = this;
    for (auto* source = loop.eventSources; source != nullptr; source = source->next) {
        auto* const manager = reinterpret_cast<UA_ConnectionManager*>(source);
        if (source->eventSourceType == UA_EVENTSOURCETYPE_CONNECTIONMANAGER &&
            PullappOpcUa::bytesOf(manager->protocol) == "tcp") {
            original_ = std::exchange(manager->sendWithConnection, send);
        }
    }
}

void SentMessages::replace(std::string url, std::string replacement) {
    replacement.resize(url.size(), '/');
    url_ = std::move(url);
    replacement_ = std::move(replacement);
}

UA_StatusCode SentMessages::send(UA_ConnectionManager* manager, uintptr_t connection,
                                 const UA_KeyValueMap* parameters, UA_ByteString* message) {
    watching->inspect(reinterpret_cast<char*>(message->data), message->length);
    return watching->original_(manager, connection, parameters, message);
}

void SentMessages::inspect(char* data, std::size_t size) {
    constexpr std::size_t headerSize = 24;  // of a chunk, up to its body
    // The node ids of their encodings
    constexpr std::string_view readResponse{"\x01\x00\x7A\x02", 4};
    constexpr std::string_view createSessionResponse{"\x01\x00\xD0\x01", 4};
    const std::string_view message{data, size};
    const auto body = message.substr(std::min(headerSize, size));
    reads_ += body.starts_with(readResponse);
    sessions_ += body.starts_with(createSessionResponse);
    if (url_.empty()) {
        return;
    }
    auto at = message.find(url_);
    while (at != std::string_view::npos) {
        replacement_.copy(data + at, replacement_.size());
        at = message.find(url_, at + replacement_.size());  // which may hold the URL again
    }
}

}  // namespace OpcUaSimulator
