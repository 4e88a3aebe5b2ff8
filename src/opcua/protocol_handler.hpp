// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/device.hpp"
#include "opcua/session.hpp"
#include "opcua/stack.hpp"
#include "opcua/tag.hpp"
#include "orvik/datasource/protocol_handler.hpp"
#include "orvik/pushinterface/client.hpp"

#include <cstddef>
#include <string>
#include <utility>

namespace PullappOpcUa {

/**
 * Reads all tags of an OPC UA server with one Read per pull.
 *
 * Every call ends: a connect, a Read within the request time-out of 5 s, a disconnect within a
 * second more. It never reconnects by itself.
 */
class ProtocolHandler final : public Orvik::DataSource::ProtocolHandler<Device, Tag> {
  public:
    void init() override {}
    void deinit() override {}

    /// Opens a session at "opc.tcp://ADDRESS:PORT". @return "Error: " and the status name, or what
    /// is wrong with the address
    [[nodiscard]] std::string connect(Device& device) override;

    void disconnect(Device& device) override;

    /// Reads all tags once and checks that each has a scalar value of the tag's type.
    [[nodiscard]] std::string verifyTags(Device& device) override;

    /// Reads all tags and writes them as one batch, or nothing if a value is missing.
    [[nodiscard]] std::string pullData(Device& device,
                                       Orvik::PushInterface::Client& client) override;

    /// The session outlives a pause between two pulls, so nothing is sent.
    [[nodiscard]] std::string keepAlive(Device& /*device*/) override { return {}; }

  private:
    /// @return what went wrong, empty if nothing; and the response, with one result for each tag
    [[nodiscard]] std::pair<std::string, ReadResponse> readAll(const Device& device);

    Session session_;
    std::size_t batchSize_ = 0;  // of the last batch, in bytes, to reserve for the next
};

}  // namespace PullappOpcUa
