// SPDX-License-Identifier: MIT
#include "opcua/message_guard.hpp"

#include <algorithm>
#include <array>

namespace PullappOpcUa {
namespace {

constexpr std::size_t headerSize = 8;  // type of the message, 'F' or 'C' or 'A', size of the chunk
constexpr std::size_t requestIdOffset = 20;
constexpr std::size_t typeOffset = 24;
constexpr std::array<std::size_t, 3> typeSizes{2, 4, 7};  // of numeric node ids, by first byte

constexpr std::string_view openChannel = "OPN";
constexpr std::string_view service = "MSG";
constexpr std::size_t largestOpen = 65535;

}  // namespace

bool MessageGuard::accepts(std::string_view bytes) {
    while (!bytes.empty()) {
        const bool isStart = start_.size() < startSize();
        const auto missing = (isStart ? startSize() : chunkSize() - skipped_) - start_.size();
        const auto next = bytes.substr(0, missing);
        bytes.remove_prefix(next.size());
        if (!isStart) {
            skipped_ += next.size();
        } else if (start_ += next; start_.size() == startSize() && !acceptsStart()) {
            return false;
        }
        if (start_.size() + skipped_ == chunkSize()) {
            start_.clear();
            skipped_ = 0;
        }
    }
    return true;
}

/// The stack gives up at a size smaller than a header, so what follows does not matter.
std::size_t MessageGuard::chunkSize() const {
    return std::max<std::size_t>(number(4), headerSize);
}

std::size_t MessageGuard::startSize() const {
    const auto most = start_.starts_with(openChannel) ? largestOpen : typeOffset + typeSizes.back();
    return std::min(chunkSize(), most);
}

bool MessageGuard::acceptsStart() {
    constexpr char intermediate = 'C';
    constexpr char abort = 'A';
    if (start_.starts_with(openChannel)) {
        return hasType(typeOffsetOfOpen());
    }
    if (!start_.starts_with(service)) {
        return true;
    }
    const auto kind = start_[3];
    const bool isFirst = !continues_;
    const bool isSame = number(requestIdOffset) == requestId_;
    continues_ = kind == intermediate;
    requestId_ = number(requestIdOffset);
    return kind == abort || (isFirst ? hasType(typeOffset) : isSame);
}

bool MessageGuard::hasType(std::size_t offset) const {
    if (start_.size() <= offset) {
        return false;
    }
    const auto form = static_cast<std::uint8_t>(start_[offset]);
    return form < typeSizes.size() && start_.size() - offset >= typeSizes[form];
}

/// The channel's number is followed by three texts with their lengths, and two numbers. A length
/// with the top bit set is a null text.
std::size_t MessageGuard::typeOffsetOfOpen() const {
    constexpr std::uint32_t longest = 0x7FFFFFFF;
    std::size_t offset = headerSize + 4;
    for (int texts = 0; texts < 3 && offset < start_.size(); ++texts) {
        const std::size_t length = number(offset);
        offset += 4 + (length > longest ? 0 : length);
    }
    return offset + 8;
}

/// Little-endian uint32 at an offset; 0 past the end.
std::uint32_t MessageGuard::number(std::size_t offset) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof value && offset + sizeof value <= start_.size(); ++i) {
        value |= std::uint32_t{static_cast<std::uint8_t>(start_[offset + i])} << 8 * i;
    }
    return value;
}

}  // namespace PullappOpcUa
