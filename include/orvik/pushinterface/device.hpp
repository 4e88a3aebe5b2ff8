// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace Orvik::PushInterface {

/**
 * A field device, as described. A protocol derives its own device, which owns the
 * tags and offers `addTag(std::shared_ptr<Tag>)`. Filled by the parser, not changed afterwards.
 */
class Device {
  public:
    Device() = default;
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /**
     * Applies one entry of the description's protocol options.
     *
     * @return empty if accepted, else why not; without an override no option is known
     */
    [[nodiscard]] virtual std::string setProtocolOption(const std::string& /*key*/,
                                                        const std::string& /*value*/) {
        return "Not supported";
    }

    std::string id;
    std::string ipAddress;  ///< validated by the protocol handler when it connects
    std::uint16_t port = 0;
    std::uint16_t pullDelay = 0;  ///< milliseconds between two pulls; 0 means back to back
};

}  // namespace Orvik::PushInterface
