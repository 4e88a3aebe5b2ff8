// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/batch_decoder.hpp"
#include "steward-simulator/statistics.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace StewardSimulator {

/// Size of a terminal in characters.
struct TerminalSize {
    std::size_t rows = 24;
    std::size_t columns = 80;

    friend bool operator==(const TerminalSize&, const TerminalSize&) = default;
};

/// The current value of every tag, as lines of text.
class Table {
  public:
    /// Takes over the tags of a description; values stay if it is the same.
    void describe(const DescriptionPtr& description);
    void update(const Batch& batch, Clock::time_point now);
    void turnPage() noexcept { ++page_; }

    /// The header and as many tags as fit; every line fits the width.
    [[nodiscard]] std::vector<std::string> draw(TerminalSize size, Clock::time_point now) const;

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
    [[nodiscard]] std::string drawRow(std::size_t position, std::size_t addressWidth,
                                      std::size_t valueWidth, Clock::time_point now) const;

    DescriptionPtr description_;
    std::vector<Row> rows_;
    std::size_t longestAddress_ = 0;
    std::size_t page_ = 0;
};

}  // namespace StewardSimulator
