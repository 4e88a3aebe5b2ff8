// SPDX-License-Identifier: MIT
#pragma once

#include "common/screen.hpp"
#include "common/table.hpp"
#include "steward-simulator/batch_decoder.hpp"
#include "steward-simulator/statistics.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace StewardSimulator {

/// The current value of every tag, as lines of text. A value older than three pull delays, and at
/// least a second, is dim.
class TagTable {
  public:
    /// Takes over the tags of a description; values stay if it is the same.
    void describe(const DescriptionPtr& description);
    void update(const Batch& batch, Clock::time_point now);
    void turnPage() noexcept { ++page_; }

    /// The titles and as many tags as fit; every line fits the width.
    [[nodiscard]] std::vector<std::string> draw(Tools::TerminalSize size,
                                                Clock::time_point now) const;

  private:
    struct Row {
        std::string value;
        std::optional<Clock::time_point> updated;
        std::uint64_t updates = 0;
    };
    struct Page {
        std::size_t number;
        std::size_t count;
        std::size_t first;
        std::size_t last;
    };

    [[nodiscard]] Page page(std::size_t rows) const;
    void addRow(Tools::Table& table, std::size_t position, Clock::time_point now) const;
    [[nodiscard]] bool isOld(const Row& row, Clock::time_point now) const;

    DescriptionPtr description_;
    std::vector<Row> rows_;
    std::size_t longestAddress_ = 0;
    std::size_t page_ = 0;
};

}  // namespace StewardSimulator
