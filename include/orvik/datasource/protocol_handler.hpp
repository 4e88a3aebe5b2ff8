// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/pushinterface/client.hpp"

#include <string>

namespace Orvik::DataSource {

/**
 * One field protocol, as the data source sees it.
 *
 * A handler serves one run of a data source. Every call comes from the worker thread, one at a
 * time, so a handler needs no lock. It may block; a stop takes effect when the call returns, so
 * bound every wait. Failures are returned as one complete line of text, which is published to the
 * push interface and logged as it is; the empty text means success. Do not throw for them.
 *
 * How to write a protocol:
 * 1. Derive a tag from `PushInterface::Tag` with what its addresses hold, and a device from
 *    `PushInterface::Device` that offers `parseTag`, `addTag` and `parseDevice`, overrides
 *    `setProtocolOption`, and prepares what every pull needs.
 * 2. Derive a handler from this class. Connect in `connect` only, and release everything in
 *    `disconnect`: the data source reconnects after any failure.
 * 3. In `pullData`, write all values as one batch with `appendTagId` and one line per tag, or
 *    nothing at all if a value is missing.
 * 4. Instantiate `PullApplication::Main` with them in a `main` of its own.
 */
template <typename Device, typename Tag>
class ProtocolHandler {
  public:
    using DeviceType = Device;
    using TagOfDevice = Tag;

    ProtocolHandler() = default;
    virtual ~ProtocolHandler() = default;
    ProtocolHandler(const ProtocolHandler&) = delete;
    ProtocolHandler& operator=(const ProtocolHandler&) = delete;

    /// Begins a run, before the first `connect`.
    virtual void init() = 0;

    /// Ends a run, after the last call of anything else.
    virtual void deinit() = 0;

    /// Opens the connection that the device describes. @return empty only if it can be used; after
    /// a failure `disconnect` is not called
    [[nodiscard]] virtual std::string connect(Device& device) = 0;

    /// Closes the connection, also one that is already broken.
    virtual void disconnect(Device& device) = 0;

    /// Checks, once after each `connect`, that every tag can be read and converted to its type.
    [[nodiscard]] virtual std::string verifyTags(Device& device) = 0;

    /// Reads all tags and writes their values. @return not empty if the connection must be
    /// considered broken
    [[nodiscard]] virtual std::string pullData(Device& device, PushInterface::Client& client) = 0;

    /// Keeps the connection alive; called at least once per second in long pauses.
    [[nodiscard]] virtual std::string keepAlive(Device& device) = 0;
};

}  // namespace Orvik::DataSource
