// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace Tools {

/// The content of a file. @throws std::runtime_error with its name and the reason
[[nodiscard]] std::string readFile(const std::string& path);

/**
 * Writes a file whole or not at all: a reader finds what was there or what comes, and keeps finding
 * what was there if this fails. An existing file keeps its permissions; what is no file, such as
 * a pipe, is written to.
 *
 * @throws std::runtime_error with its name and the reason
 */
void writeFile(const std::string& path, std::string_view content);

}  // namespace Tools
