// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/options.hpp"
#include "opcua/device.hpp"

#include <cstdint>
#include <memory>

namespace OpcUaSimulator {

/// The device that the options describe: read from a file, or made up of mixed tags.
/// @throws std::runtime_error if the file cannot be read or the description is refused
[[nodiscard]] std::shared_ptr<PullappOpcUa::Device> makeDevice(const Options& options);

/// Writes the description of a device, served at an address, as the steward would send it.
/// @throws std::runtime_error if the file cannot be written
void writeDescription(const PullappOpcUa::Device& device, const Options& options,
                      std::uint16_t port);

}  // namespace OpcUaSimulator
