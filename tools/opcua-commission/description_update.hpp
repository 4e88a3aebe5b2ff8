// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-commission/variable.hpp"
#include "opcua/device.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace OpcUaCommission {

/// The description of a device: its JSON, and what the daemon makes of it.
struct Description {
    nlohmann::ordered_json json;
    std::shared_ptr<PullappOpcUa::Device> device;  ///< its tags are those of the JSON, in order
};

/// @throws std::runtime_error if the file cannot be read or the daemon would refuse it
[[nodiscard]] Description readDescription(const std::string& path);

/// What to write, as far as the command line says.
struct DescriptionSettings {
    std::string id;
    std::optional<std::uint16_t> pullDelay;
    std::uint16_t firstId = 1;
    bool prunes = false;  ///< removes tags whose node is gone
};

/// What has changed, in sentences for the user.
struct DescriptionChanges {
    std::size_t added = 0;
    std::vector<std::string> notes;     ///< what was changed
    std::vector<std::string> problems;  ///< what is left to do, such as a node that is gone
};

/**
 * Updates a description: an existing tag keeps its id and its settings, and gets the type that its
 * node has now; variables without a tag get one with a free id, at the end.
 *
 * @param description without tags if it is new
 * @param device where the server is, and the log-in, which are written too
 * @param existing what the nodes of the description's tags are now, in the order of the tags
 * @param found what has been found; those that cannot be pulled get no tag
 * @throws std::runtime_error if there are more tags than ids
 */
[[nodiscard]] DescriptionChanges update(Description& description,
                                        const DescriptionSettings& settings,
                                        const PullappOpcUa::Device& device,
                                        const std::vector<Variable>& existing,
                                        const std::vector<Variable>& found);

}  // namespace OpcUaCommission
