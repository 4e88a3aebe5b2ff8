// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace PullappOpcUa {

/**
 * Sees what arrives on one connection before the stack does, and finds the messages that the stack
 * must not see. Each response begins with a numeric node id, its type. Where that cannot be read,
 * the stack up to 1.4.18 frees memory that it has never written; where it is a text instead of a
 * number, the stack never frees the text. This works because connections are not encrypted.
 */
class MessageGuard {
  public:
    /// @param bytes what arrived next, cut anywhere @return false if the stack must not see them
    [[nodiscard]] bool accepts(std::string_view bytes);

  private:
    [[nodiscard]] std::size_t chunkSize() const;
    [[nodiscard]] std::size_t startSize() const;
    [[nodiscard]] bool acceptsStart();
    [[nodiscard]] bool hasType(std::size_t offset) const;
    [[nodiscard]] std::size_t typeOffsetOfOpen() const;
    [[nodiscard]] std::uint32_t number(std::size_t offset) const;

    std::string start_;            // of the current chunk: the part that is checked
    std::size_t skipped_ = 0;      // bytes of the current chunk after its start
    bool continues_ = false;       // the next chunk belongs to the same message
    std::uint32_t requestId_ = 0;  // of that message
};

}  // namespace PullappOpcUa
