// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/record.hpp"

/// Origins of the application's located records, as operators know them.
namespace Orvik::PullApplication::Detail::LogLocations {

inline constexpr std::string_view path = "include/orvik/pullapplication/main";

inline constexpr Log::Location waitingForSignal{.path = path, .line = 168};
inline constexpr Log::Location caughtSignal{.path = path, .line = 172};
inline constexpr Log::Location lineRead{.path = path, .line = 215};
inline constexpr Log::Location lineWritten{.path = path, .line = 222};

}  // namespace Orvik::PullApplication::Detail::LogLocations
