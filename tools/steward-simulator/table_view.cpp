// SPDX-License-Identifier: MIT
#include "steward-simulator/table_view.hpp"

#include "common/text.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <utility>

namespace StewardSimulator {
namespace {

constexpr std::chrono::milliseconds redrawInterval{200};
constexpr std::chrono::seconds rateInterval{1};
constexpr std::size_t linesAround = 4;  // title above; error, status and event below

constexpr std::string_view enterScreen = "\x1b[?1049h\x1b[2J";
constexpr std::string_view leaveScreen = "\x1b[?1049l";
constexpr std::string_view saveCursorAndGoHome =
    "\x1b"
    "7\x1b[H";
constexpr std::string_view restoreCursor =
    "\x1b"
    "8";
constexpr std::string_view endLine = "\x1b[K\r\n";

TerminalSize terminalSize() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {.rows = size.ws_row, .columns = size.ws_col};
}

}  // namespace

TableView::TableView(boost::asio::io_context& context, Output& output, std::string title,
                     const Statistics& statistics)
    : timer_{context},
      output_{output},
      title_{std::move(title)},
      statistics_{statistics},
      rateStart_{Clock::now()} {}

void TableView::start() {
    output_.write(enterScreen);
    tick();
}

void TableView::onEvent(std::string_view text) {
    event_ = text;
}

void TableView::onDescription(const DescriptionPtr& description) {
    table_.describe(description);
}

void TableView::onBatch(const Batch& batch, const Statistics& /*statistics*/) {
    table_.update(batch, Clock::now());
}

std::string TableView::finish() {
    isFinished_ = true;
    return std::string{leaveScreen};
}

void TableView::tick() {
    measureRate(Clock::now());
    if (output_.isIdle()) {
        draw();  // else the terminal is behind, and a later picture will do
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
    const auto size = terminalSize();
    std::string screen;
    if (size != size_) {  // the cursor belongs into the last line, where commands are typed
        screen += "\x1b[2J\x1b[" + std::to_string(size.rows) + ";1H";
        size_ = size;
    }
    screen += saveCursorAndGoHome;
    for (const auto& line : drawLines(size)) {
        screen += line;
        screen += endLine;
    }
    screen += restoreCursor;
    output_.write(screen);
}

std::vector<std::string> TableView::drawLines(TerminalSize size) const {
    const auto height = size.rows - 1;
    auto lines = table_.draw(
        {.rows = height - std::min(height, linesAround), .columns = size.columns}, Clock::now());
    lines.insert(lines.begin(), Tools::fitted(title_, size.columns));
    lines.resize(height - std::min<std::size_t>(height, 3));
    lines.push_back(Tools::fitted(error_.empty() ? "no error" : "ERROR: " + error_, size.columns));
    lines.push_back(Tools::fitted(drawStatus(), size.columns));
    lines.push_back(Tools::fitted(event_, size.columns));
    lines.resize(height);
    return lines;
}

std::string TableView::drawStatus() const {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << rate_ << " batches/s   batches "
         << statistics_.batches() << "   values " << statistics_.values() << "   malformed "
         << statistics_.malformed();
    return std::move(text).str();
}

}  // namespace StewardSimulator
