// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace OpcUaSimulator {

using Seconds = std::chrono::duration<double>;

/// What a variable has instead of a good value.
enum class FaultKind { BadStatus, NoValue, OtherType, NullString, Array, LongText };

/// A fault of one variable, once or periodically.
struct Fault {
    FaultKind kind = FaultKind::BadStatus;
    std::string nodeId;
    Seconds begin{0};   ///< since the server's start
    Seconds every{0};   ///< period; 0 for once
    Seconds length{0};  ///< of each occurrence; 0 for ever

    [[nodiscard]] bool isActive(Seconds now) const noexcept;
    [[nodiscard]] bool isOver(Seconds now) const noexcept;
};

/// @throws std::runtime_error if there is no such kind
[[nodiscard]] FaultKind faultKind(std::string_view name);

/// Reads "KIND@NODEID" or "KIND:EVERY:FOR@NODEID", times in seconds.
/// @throws std::runtime_error for any other text
[[nodiscard]] Fault parseFault(const std::string& text);

/// A time in seconds, for example "1.5". @throws std::runtime_error for any other text
[[nodiscard]] Seconds parseSeconds(const std::string& text);

}  // namespace OpcUaSimulator
