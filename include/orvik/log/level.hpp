// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Orvik::Log {

/// Severity of a record; a lower number is more severe. A sink writes records up to its own level.
enum Level : std::int32_t {
    emerg = 0,
    alert = 1,
    crit = 2,
    err = 3,
    warning = 4,
    notice = 5,
    info = 6,
    debug = 7,
    garrul = 8,
    chattr = 9,
};

inline constexpr std::uint32_t mostVerboseLevel = chattr;

/// The name the console prints for a level; empty above the most verbose one.
[[nodiscard]] constexpr std::string_view levelName(std::uint32_t level) noexcept {
    constexpr std::array<std::string_view, mostVerboseLevel + 1> names{
        "emerg", "alert", "crit", "err", "warning", "notice", "info", "debug", "garrul", "chattr"};
    return level < names.size() ? names[level] : std::string_view{};
}

}  // namespace Orvik::Log
