// SPDX-License-Identifier: MIT
#pragma once

#include "steward-simulator/output.hpp"
#include "steward-simulator/table.hpp"
#include "steward-simulator/view.hpp"

#include <cstdint>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace StewardSimulator {

/// The table, redrawn in place on a terminal's alternate screen a few times a second.
class TableView final : public View {
  public:
    TableView(boost::asio::io_context& context, Output& output, std::string title,
              const Statistics& statistics);

    void start() override;
    void onEvent(std::string_view text) override;
    void onDescription(const DescriptionPtr& description) override;
    void onBatch(const Batch& batch, const Statistics& statistics) override;
    void onError(std::string_view text) override { error_ = text; }
    void turnPage() override { table_.turnPage(); }
    [[nodiscard]] std::string finish() override;

  private:
    void tick();
    void draw();
    [[nodiscard]] std::vector<std::string> drawLines(TerminalSize size) const;
    void measureRate(Clock::time_point now);
    [[nodiscard]] std::string drawStatus() const;

    boost::asio::steady_timer timer_;
    Output& output_;
    const std::string title_;
    const Statistics& statistics_;
    Table table_;
    std::string error_;
    std::string event_;
    Clock::time_point rateStart_;
    std::uint64_t batchesAtRateStart_ = 0;
    double rate_ = 0;
    TerminalSize size_{.rows = 0, .columns = 0};  ///< as it was at the last drawing
    bool isFinished_ = false;
};

}  // namespace StewardSimulator
