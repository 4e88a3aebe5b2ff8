// SPDX-License-Identifier: MIT
#include "steward-simulator/lines_view.hpp"

#include "common/text.hpp"
#include "steward-simulator/time_of_day.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace StewardSimulator {
namespace {

constexpr std::size_t shownLineBytes = 1000;

std::string onOneLine(std::string_view lines) {
    std::string text{lines.substr(0, std::min(shownLineBytes, lines.find_last_not_of('\n') + 1))};
    std::ranges::replace(text, '\n', ' ');
    return Tools::fitted(text, shownLineBytes) + (lines.size() > shownLineBytes ? "..." : "");
}

}  // namespace

void LinesView::onEvent(std::string_view text) {
    output_.write(timeOfDay() + std::string{text} + '\n');
}

void LinesView::onBatch(const Batch& batch, const Statistics& statistics) {
    onEvent(fmt::format("batch {}, values {}, bytes {}, after {:.1f} ms: {}", statistics.batches(),
                        batch.valueCount, batch.bytes, statistics.gap().count(),
                        onOneLine(batch.lines)));
}

void LinesView::onError(std::string_view text) {
    if (!text.empty()) {
        onEvent("error: " + Tools::escaped(text, shownLineBytes));
    } else if (hasError_) {
        onEvent("error cleared");
    }
    hasError_ = !text.empty();
}

}  // namespace StewardSimulator
