// SPDX-License-Identifier: MIT
#pragma once

#include "common/screen.hpp"
#include "steward-simulator/output.hpp"
#include "steward-simulator/tag_table.hpp"
#include "steward-simulator/view.hpp"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace StewardSimulator {

/// The table, redrawn in place on a terminal's alternate screen a few times a second; below it the
/// current faults, some counts, and the last events.
class TableView final : public View {
  public:
    TableView(boost::asio::io_context& context, Output& output, std::string title,
              const Statistics& statistics);

    void start() override;
    void onEvent(std::string_view text) override;
    void onDescription(const DescriptionPtr& description) override;
    void onBatch(const Batch& batch, const Statistics& statistics) override;
    void onError(std::string_view text) override;
    void onRefusal(Refusal what, std::string_view reason) override;
    void turnPage() override { table_.turnPage(); }
    [[nodiscard]] std::string finish() override;

  private:
    void tick();
    void draw();
    [[nodiscard]] std::vector<std::string> drawLines(Tools::TerminalSize size) const;
    [[nodiscard]] std::string drawProblem() const;
    [[nodiscard]] std::string drawCounts() const;
    void measureRate(Clock::time_point now);

    boost::asio::steady_timer timer_;
    Output& output_;
    const std::string title_;
    const Statistics& statistics_;
    Tools::Screen screen_;
    TagTable table_;
    std::string error_;               ///< of the device
    std::string refusedLogOn_;        ///< until one is accepted
    std::string refusedDescription_;  ///< until a good one is sent
    std::deque<std::string> events_;  ///< the last ones, the newest at the end
    Clock::time_point rateStart_;
    std::uint64_t batchesAtRateStart_ = 0;
    double rate_ = 0;
    bool isFinished_ = false;
};

}  // namespace StewardSimulator
