// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/device.hpp"
#include "orvik/pushinterface/tag.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace StewardSimulator {

using Orvik::PushInterface::Tag;

/// A device description as it was sent, for any protocol: values are checked against it.
class Description final : public Orvik::PushInterface::Device {
  public:
    [[nodiscard]] std::string setProtocolOption(const std::string&, const std::string&) override {
        return {};
    }
    [[nodiscard]] std::string parseTag(Tag&) { return {}; }
    [[nodiscard]] std::string addTag(std::shared_ptr<Tag> tag);
    [[nodiscard]] std::string parseDevice() { return {}; }

    std::string json;  ///< on one line
    std::vector<std::shared_ptr<const Tag>> tags;
    std::unordered_map<std::uint16_t, std::size_t> positions;  ///< of the tags, by their ids
};

using DescriptionPtr = std::shared_ptr<const Description>;

/// The text as one line, as the protocol needs it.
[[nodiscard]] std::string joinLines(std::string_view json);

/**
 * Reads a description as a device does, except for what only its protocol understands.
 *
 * @param description new; not to be used after an error
 * @return empty on success, otherwise the first fault in the device's words
 */
[[nodiscard]] std::string parseDescription(std::string json,
                                           const std::shared_ptr<Description>& description);

/// What the OPC UA daemon, and the author, should know about a description.
struct Findings {
    std::vector<std::string> problems;  ///< each on one line, with its place
    std::string refusal;  ///< the problem for which a daemon ends; empty if it accepts
};

/// @param source the description as written, with its line breaks, for the positions
[[nodiscard]] Findings examine(std::string_view source);

}  // namespace StewardSimulator
