// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/batch_decoder.hpp"
#include "steward-simulator/statistics.hpp"

#include <string>
#include <string_view>

namespace StewardSimulator {

/// What a device is refused until the user changes something.
enum class Refusal { LogOn, Description };

/// Shows what happens. The base shows nothing.
class View {
  public:
    View() = default;
    virtual ~View() = default;
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    virtual void start() {}
    virtual void onEvent(std::string_view /*text*/) {}  ///< log-on, malformed line, command, ...
    virtual void onDescription(const DescriptionPtr& /*description*/) {}
    virtual void onBatch(const Batch& /*batch*/, const Statistics& /*statistics*/) {}
    virtual void onError(std::string_view /*text*/) {}  ///< of the device; empty when it is cleared
    /// @param reason empty when it is over
    virtual void onRefusal(Refusal /*what*/, std::string_view /*reason*/) {}
    virtual void turnPage() {}
    /// Ends the view. @return the bytes that restore the terminal
    [[nodiscard]] virtual std::string finish() { return {}; }
};

}  // namespace StewardSimulator
