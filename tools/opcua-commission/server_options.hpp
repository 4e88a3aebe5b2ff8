// SPDX-License-Identifier: MIT
#pragma once

#include "common/command_line.hpp"
#include "opcua/device.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace OpcUaCommission {

/// Where the server is and how to log in, as far as the command line says.
struct ServerOptions {
    std::string host;
    std::optional<std::uint16_t> port;
    std::string username;
    std::string passwordFile;
};

/// Declares --host, --port, --username and --password-file.
void addServerOptions(Tools::CommandLine& commandLine, ServerOptions& options);

/**
 * Completes a device, which may come from a description, with the options of the command line,
 * which override it. Asks on the terminal for a password that neither has.
 *
 * @throws Tools::UsageError if there is no usable address or no password
 */
void applyServerOptions(const ServerOptions& options, PullappOpcUa::Device& device);

/// Where the server is, and the log-in, without tags.
void copyServer(const PullappOpcUa::Device& from, PullappOpcUa::Device& to);

enum class Format { Table, Csv, Json };

/// Declares --format. The text is for `toFormat` after reading.
void addFormatOption(Tools::CommandLine& commandLine, std::string& format);

/// @throws Tools::UsageError
[[nodiscard]] Format toFormat(const std::string& text);

}  // namespace OpcUaCommission
