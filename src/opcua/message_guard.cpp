// SPDX-License-Identifier: MIT
#include "opcua/message_guard.hpp"

#include <cstring>

namespace PullappOpcUa {

bool MessageGuard::accepts(std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        if (received_ < startSize()) {
            start_[received_++] = static_cast<std::uint8_t>(bytes.front());
            bytes.remove_prefix(1);
            if (received_ == startSize() && !acceptsStart()) {
                return false;
            }
        } else {
            const auto rest = std::min(bytes.size(), chunkSize() - received_);
            received_ += rest;
            bytes.remove_prefix(rest);
        }
        if (received_ >= headerSize && received_ == chunkSize()) {
            received_ = 0;
        }
    }
    return true;
}

std::uint32_t MessageGuard::number(std::size_t offset) const noexcept {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        value |= std::uint32_t{start_[offset + i]} << 8 * i;
    }
    return value;
}

bool MessageGuard::acceptsStart() noexcept {
    constexpr char intermediate = 'C';
    constexpr char abort = 'A';
    if (std::memcmp(start_.data(), "MSG", 3) != 0) {
        return true;
    }
    const auto kind = start_[3];
    const bool isFirst = !continues_;
    const bool isSame = number(requestIdOffset) == requestId_;
    continues_ = kind == intermediate;
    requestId_ = number(requestIdOffset);
    return kind == abort || (isFirst ? hasType() : isSame);
}

bool MessageGuard::hasType() const noexcept {
    return received_ > typeOffset && start_[typeOffset] < typeSizes.size() &&
           received_ - typeOffset >= typeSizes[start_[typeOffset]];
}

}  // namespace PullappOpcUa
