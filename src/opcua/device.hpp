// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"
#include "opcua/tag.hpp"
#include "orvik/pushinterface/device.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace PullappOpcUa {

enum class AuthenticationType : std::int32_t { Anonymous = 0, Username = 1 };

/// An OPC UA server, the log-in to it, and the tags to read, with the Read request prepared.
class Device : public Orvik::PushInterface::Device {
  public:
    /// Knows "authenticationtype", "username" and "password". Certificate authentication is
    /// accepted and runs as an anonymous session.
    [[nodiscard]] std::string setProtocolOption(const std::string& key,
                                                const std::string& value) override;

    /// Parses the tag's address. @return empty, or what is wrong with it
    [[nodiscard]] static std::string parseTag(Tag& tag) { return tag.parseAddress(); }

    /// Appends the tag. @return empty
    [[nodiscard]] std::string addTag(const std::shared_ptr<Tag>& tag);

    /// Prepares the Read request for all tags. @return empty
    [[nodiscard]] std::string parseDevice();

    AuthenticationType authenticationType = AuthenticationType::Anonymous;
    std::vector<std::shared_ptr<Tag>> tags;
    std::string username;
    std::string password;

    /// Value attribute of every tag, in their order. Points into `readEntries_` and the tags'
    /// texts. Copies are shallow; never clear them.
    UA_ReadRequest readRequest{};

  private:
    std::vector<UA_ReadValueId> readEntries_;
};

}  // namespace PullappOpcUa
