// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/record.hpp"

/// Origins of the data source's located records, as operators know them.
namespace Orvik::DataSource::Detail::LogLocations {

inline constexpr std::string_view path = "include/orvik/datasource/detail/client";

inline constexpr Log::Location runStart{.path = path, .line = 40};
inline constexpr Log::Location runStop{.path = path, .line = 52};
inline constexpr Log::Location stop{.path = path, .line = 59};
inline constexpr Log::Location step{.path = path, .line = 73};
inline constexpr Log::Location timerCancelled{.path = path, .line = 140};
inline constexpr Log::Location timerExpired{.path = path, .line = 150};
inline constexpr Log::Location connect{.path = path, .line = 159};
inline constexpr Log::Location disconnect{.path = path, .line = 182};
inline constexpr Log::Location verifyTags{.path = path, .line = 196};
inline constexpr Log::Location pullData{.path = path, .line = 209};
inline constexpr Log::Location pullDelay{.path = path, .line = 264};
inline constexpr Log::Location pullDelayKeepAlive{.path = path, .line = 327};

}  // namespace Orvik::DataSource::Detail::LogLocations
