// SPDX-License-Identifier: MIT
#pragma once

#include "opcua-simulator/fault.hpp"
#include "opcua/stack.hpp"
#include "opcua/tag.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <open62541/server.h>

namespace OpcUaSimulator {

/// What a server counts.
struct Counters {
    std::uint64_t values = 0;
};

/**
 * A variable of the server that changes by itself: ramps, sines, counters, toggles and texts, each
 * tag in its own phase. A value is kept in the variable until the next read; the stack only points
 * to it.
 */
class Variable {
  public:
    /// @param index of the tag among all, for the phase
    Variable(std::shared_ptr<const PullappOpcUa::Tag> tag, std::size_t index, Counters& counters)
        : tag_{std::move(tag)}, index_{index}, counters_{counters} {}

    [[nodiscard]] const PullappOpcUa::Tag& tag() const noexcept { return *tag_; }

    /// Type of its values while there is no fault.
    [[nodiscard]] const UA_DataType& dataType() const noexcept;

    /// Adds a fault in front of all others, and removes those that are over when it begins.
    void add(const Fault& fault);

    /// Fills in the value at a time since the server's start, if there is one.
    [[nodiscard]] UA_StatusCode read(Seconds now, UA_DataValue& result);

  private:
    void move(Seconds now);
    void moveText(double seconds);
    UA_StatusCode fail(FaultKind kind, UA_DataValue& result);
    static UA_StatusCode refer(UA_DataValue& result, const void* data, const UA_DataType& type,
                               std::size_t arrayLength = 0);

    std::shared_ptr<const PullappOpcUa::Tag> tag_;
    std::size_t index_;
    Counters& counters_;
    std::vector<Fault> faults_;
    alignas(std::int64_t) std::byte value_[2 * sizeof(std::int64_t)]{};
    UA_String string_{};
    std::string text_;
};

}  // namespace OpcUaSimulator
