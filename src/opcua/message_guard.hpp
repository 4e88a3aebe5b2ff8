// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace PullappOpcUa {

/**
 * Sees what arrives on one connection before the stack does, and finds the messages that the stack
 * must not see: where an answer begins with no readable type, its 1.4.18 and older ones release
 * memory that they have never written. Connections are not encrypted.
 */
class MessageGuard {
  public:
    /// @param bytes what arrived next @return false if a message in them is none for the stack
    [[nodiscard]] bool accepts(std::string_view bytes) noexcept;

  private:
    [[nodiscard]] std::uint32_t number(std::size_t offset) const noexcept;
    /// A smaller size than the header's is the last that the stack reads.
    [[nodiscard]] std::size_t chunkSize() const noexcept {
        return std::max<std::size_t>(number(4), headerSize);
    }
    [[nodiscard]] std::size_t startSize() const noexcept {
        return received_ < headerSize ? headerSize : std::min(chunkSize(), start_.size());
    }
    [[nodiscard]] bool acceptsStart() noexcept;
    [[nodiscard]] bool hasType() const noexcept;

    static constexpr std::size_t headerSize = 8;
    static constexpr std::size_t requestIdOffset = 20;
    static constexpr std::size_t typeOffset = 24;
    static constexpr std::array<std::size_t, 3> typeSizes{2, 4, 7};  // by its first byte

    std::array<std::uint8_t, typeOffset + typeSizes.back()> start_{};  // of the current chunk
    std::size_t received_ = 0;                                         // of the current chunk
    bool continues_ = false;       // the next chunk goes on with the message of the last
    std::uint32_t requestId_ = 0;  // of that message
};

}  // namespace PullappOpcUa
