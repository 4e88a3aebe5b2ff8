// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/batch_decoder.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace StewardSimulator {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

/// What happened since the start, over all connections.
class Statistics {
  public:
    void countBytes(std::size_t bytes) { bytes_ += bytes; }
    void countLogOn(Clock::time_point now);
    void countBatch(const Batch& batch, Clock::time_point now);
    void countError(std::string_view text);  ///< of the device; the empty text is no error
    void countFault(const Fault& fault);

    [[nodiscard]] std::uint64_t batches() const noexcept { return batches_; }
    [[nodiscard]] std::uint64_t values() const noexcept { return values_; }
    [[nodiscard]] std::uint64_t malformed() const noexcept { return malformed_; }
    /// Time between the last two batches; zero before the second.
    [[nodiscard]] Milliseconds gap() const noexcept { return gap_; }

    /// Some lines for a reader, each with its line feed.
    [[nodiscard]] std::string summary() const;
    /// One JSON object for programs. Times are milliseconds, -1 where there was nothing to measure.
    [[nodiscard]] std::string report(Clock::time_point now) const;

  private:
    std::uint64_t batches_ = 0;
    std::uint64_t values_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t logOns_ = 0;
    std::uint64_t errors_ = 0;
    std::uint64_t malformed_ = 0;
    std::map<std::string, std::uint64_t, std::less<>> errorTexts_;
    std::vector<std::string> firstFaults_;
    Milliseconds firstBatchDelay_{-1};
    Milliseconds gap_{0};
    Milliseconds worstGap_{-1};
    std::optional<Clock::time_point> lastLogOn_;
    std::optional<Clock::time_point> lastBatch_;
};

/// A malformed line with its bytes and what is wrong with it.
[[nodiscard]] std::string describeFault(const Fault& fault);

}  // namespace StewardSimulator
