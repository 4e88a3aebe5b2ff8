// SPDX-License-Identifier: MIT
#include "steward-simulator/table_view.hpp"

#include "common/text.hpp"
#include "steward-simulator/time_of_day.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace StewardSimulator {
namespace {

constexpr std::chrono::milliseconds redrawInterval{200};
constexpr std::chrono::seconds rateInterval{1};
constexpr std::size_t shownEvents = 3;
constexpr std::size_t linesBelow = 2 + shownEvents;  // what is wrong, and the counts
constexpr std::size_t linesAround = 1 + linesBelow;  // and the title

}  // namespace

TableView::TableView(boost::asio::io_context& context, Output& output, std::string title,
                     const Statistics& statistics)
    : timer_{context},
      output_{output},
      title_{std::move(title)},
      statistics_{statistics},
      events_(shownEvents),
      rateStart_{Clock::now()} {}

void TableView::start() {
    output_.write(Tools::Screen::enter);
    tick();
}

void TableView::onEvent(std::string_view text) {
    events_.push_back(timeOfDay() + std::string{text});
    events_.pop_front();
}

void TableView::onDescription(const DescriptionPtr& description) {
    table_.describe(description);
}

void TableView::onBatch(const Batch& batch, const Statistics& /*statistics*/) {
    table_.update(batch, Clock::now());
}

void TableView::onError(std::string_view text) {
    if (text != error_) {
        error_ = text;
        onEvent(text.empty() ? "error cleared" : "error: " + error_);
    }
}

void TableView::onRefusal(Refusal what, std::string_view reason) {
    (what == Refusal::LogOn ? refusedLogOn_ : refusedDescription_) = reason;
}

std::string TableView::finish() {
    isFinished_ = true;
    return std::string{Tools::Screen::leave};
}

void TableView::tick() {
    measureRate(Clock::now());
    if (output_.isIdle()) {
        draw();  // otherwise the terminal is too slow: skip this picture
    }
    timer_.expires_after(redrawInterval);
    timer_.async_wait([this](const boost::system::error_code& error) {
        if (!error && !isFinished_) {
            tick();
        }
    });
}

void TableView::measureRate(Clock::time_point now) {
    if (now - rateStart_ < rateInterval) {
        return;
    }
    const std::chrono::duration<double> elapsed = now - rateStart_;
    rate_ = static_cast<double>(statistics_.batches() - batchesAtRateStart_) / elapsed.count();
    batchesAtRateStart_ = statistics_.batches();
    rateStart_ = now;
}

void TableView::draw() {
    const auto size = Tools::terminalSize();
    output_.write(screen_.draw(drawLines(size), size));
}

std::vector<std::string> TableView::drawLines(Tools::TerminalSize size) const {
    const auto height = size.rows - 1;
    auto lines = table_.draw(
        {.rows = height - std::min(height, linesAround), .columns = size.columns}, Clock::now());
    const auto add = [&](std::string_view text) {
        lines.push_back(Tools::shortened(text, size.columns));
    };
    lines.insert(lines.begin(), Tools::fitted(title_ + "   Ctrl-C ends", size.columns));
    lines.resize(height - std::min(height, linesBelow));
    add(drawProblem());
    add(drawCounts());
    for (const auto& event : events_) {
        add(event);
    }
    return lines;
}

std::string TableView::drawProblem() const {
    if (!refusedDescription_.empty()) {
        return "FAULTY DESCRIPTION: " + refusedDescription_;
    }
    if (!refusedLogOn_.empty()) {
        return "LOG-ON REFUSED: " + refusedLogOn_;
    }
    return error_.empty() ? "no error" : "ERROR: " + error_;
}

std::string TableView::drawCounts() const {
    return fmt::format("{:.1f} batches/s   batches {}   values {}   malformed {}", rate_,
                       statistics_.batches(), statistics_.values(), statistics_.malformed());
}

}  // namespace StewardSimulator
