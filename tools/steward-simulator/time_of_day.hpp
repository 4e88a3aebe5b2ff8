// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <ctime>
#include <string>

#include <fmt/chrono.h>

namespace StewardSimulator {

/// The local time to the millisecond, and a blank.
[[nodiscard]] inline std::string timeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const auto second = std::chrono::floor<std::chrono::seconds>(now);
    const auto time = std::chrono::system_clock::to_time_t(second);
    std::tm local{};
    ::localtime_r(&time, &local);
    return fmt::format("{:%H:%M:%S}.{:03} ", local,
                       std::chrono::floor<std::chrono::milliseconds>(now - second).count());
}

}  // namespace StewardSimulator
