// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace Tools {

/// The content of a file. @throws std::runtime_error with its name and the reason
[[nodiscard]] std::string readFile(const std::string& path);

/**
 * Writes a file atomically: a reader sees the old content or the new, and the old one if this
 * fails. An existing file keeps its permissions. What is not a regular file, such as a pipe, is
 * written to directly.
 *
 * @throws std::runtime_error with its name and the reason
 */
void writeFile(const std::string& path, std::string_view content);

}  // namespace Tools
