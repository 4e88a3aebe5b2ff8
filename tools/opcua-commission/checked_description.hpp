// SPDX-License-Identifier: MIT
#pragma once

#include "description/document.hpp"
#include "description/problems.hpp"
#include "opcua/device.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace OpcUaCommission {

/// A description file, with all that can be said about it without a server.
struct CheckedDescription {
    /// @throws std::runtime_error if the file cannot be read
    explicit CheckedDescription(const std::string& path);

    std::string file;
    std::string json;
    Tools::Document document;  ///< of that JSON
    std::vector<Tools::Problem> problems;
    std::string verdict;  ///< the daemon's: empty, or the text with which it ends

    /// As the daemon has it; where it refuses the description, with those tags whose address can
    /// be read, whatever else is wrong with them.
    std::shared_ptr<PullappOpcUa::Device> device;
    std::vector<std::size_t> positions;  ///< in the description, of the device's tags
    std::size_t tagCount = 0;            ///< in the description
};

}  // namespace OpcUaCommission
