// SPDX-License-Identifier: MIT
#include "steward-simulator/lines_view.hpp"

#include "common/text.hpp"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace StewardSimulator {
namespace {

constexpr std::size_t shownBytes = 1000;

std::string timeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::chrono::system_clock::to_time_t(now);
    const auto fraction = now.time_since_epoch() % std::chrono::seconds{1};
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S.") << std::setw(3) << std::setfill('0')
         << std::chrono::duration_cast<std::chrono::milliseconds>(fraction).count() << ' ';
    return std::move(text).str();
}

std::string onOneLine(std::string_view lines) {
    std::string text{lines.substr(0, std::min(shownBytes, lines.find_last_not_of('\n') + 1))};
    for (auto& byte : text) {
        byte = byte == '\n' ? ' ' : byte;
    }
    return Tools::fitted(text, shownBytes) + (lines.size() > shownBytes ? "..." : "");
}

}  // namespace

void LinesView::onEvent(std::string_view text) {
    output_.write(timeOfDay() + std::string{text} + '\n');
}

void LinesView::onBatch(const Batch& batch, const Statistics& statistics) {
    std::ostringstream text;
    text << "batch " << statistics.batches() << ", values " << batch.valueCount << ", bytes "
         << batch.bytes << ", after " << std::fixed << std::setprecision(1)
         << statistics.gap().count() << " ms: " << onOneLine(batch.lines);
    onEvent(text.str());
}

void LinesView::onError(std::string_view text) {
    onEvent(text.empty() ? "error cleared" : "error: " + Tools::escaped(text, shownBytes));
}

}  // namespace StewardSimulator
