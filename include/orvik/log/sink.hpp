// SPDX-License-Identifier: MIT
#pragma once

#include "orvik/log/level.hpp"

#include <cstdint>
#include <string>

namespace Orvik::Log {

/**
 * Where log records go. Records with a level above the sink's own are dropped before they reach it.
 *
 * The level is not synchronised: it changes only while the command line is read, before any other
 * thread exists.
 */
class Sink {
  public:
    explicit Sink(std::int32_t level) noexcept : level_{level} {}
    virtual ~Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    /// Writes one finished record. May be called from any thread.
    virtual void write(std::uint32_t level, const std::string& message) = 0;

    [[nodiscard]] std::int32_t level() const noexcept { return level_; }
    void setLevel(std::int32_t level) noexcept { level_ = level; }

  private:
    std::int32_t level_;
};

}  // namespace Orvik::Log
