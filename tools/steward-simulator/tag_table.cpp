// SPDX-License-Identifier: MIT
#include "steward-simulator/table.hpp"

#include "common/text.hpp"
#include "steward-simulator/value_check.hpp"

#include <algorithm>
#include <cstdio>

namespace StewardSimulator {
namespace {

constexpr std::size_t idWidth = 5;
constexpr std::size_t typeWidth = 6;
constexpr std::size_t ageWidth = 8;
constexpr std::size_t updatesWidth = 9;
constexpr std::size_t gaps = 5UL * 2;
constexpr std::size_t fixedWidth = idWidth + typeWidth + ageWidth + updatesWidth + gaps;
constexpr std::size_t usualValue = 20;

constexpr std::string_view addressTitle = "ADDRESS";

std::string rightAligned(std::string_view text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ').append(text);
}

std::string drawLine(std::string_view id, std::string_view address, std::size_t addressWidth,
                     std::string_view type, std::string_view value, std::size_t valueWidth,
                     std::string_view age, std::string_view updates) {
    return rightAligned(id, idWidth) + "  " + Tools::padded(address, addressWidth) + "  " +
           Tools::padded(type, typeWidth) + "  " + Tools::padded(value, valueWidth) + "  " +
           rightAligned(age, ageWidth) + "  " + rightAligned(updates, updatesWidth);
}

std::string formatAge(std::optional<Clock::time_point> updated, Clock::time_point now) {
    if (!updated) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s",
                  std::chrono::duration<double>{now - *updated}.count());
    return text;
}

}  // namespace

void Table::describe(const DescriptionPtr& description) {
    if (description_ && description_->json == description->json) {
        return;
    }
    description_ = description;
    rows_.assign(description->tags.size(), {});
    longestAddress_ = addressTitle.size();
    for (const auto& tag : description->tags) {
        longestAddress_ = std::max(longestAddress_, tag->address.size());
    }
}

void Table::update(const Batch& batch, Clock::time_point now) {
    if (!batch.description || !description_ || batch.description->json != description_->json) {
        return;  // from before the description that is shown
    }
    for (std::size_t i = 0; i < batch.values.size(); ++i) {
        if (!batch.values[i].empty()) {
            rows_[i].value = batch.values[i];
            rows_[i].updated = now;
            ++rows_[i].updates;
        }
    }
}

std::vector<std::string> Table::draw(TerminalSize size, Clock::time_point now) const {
    const auto room = size.columns - std::min(size.columns, fixedWidth);
    const auto addressRoom = std::max(room / 2, room - std::min(room, usualValue));
    const auto addressWidth = std::min(longestAddress_, addressRoom);
    const auto valueWidth = room - addressWidth;
    std::vector<std::string> lines;
    lines.push_back(
        drawLine("ID", addressTitle, addressWidth, "TYPE", "VALUE", valueWidth, "AGE", "UPDATES"));
    const auto shown = page(size.rows - std::min<std::size_t>(size.rows, 2));
    for (auto i = shown.first; i < shown.last; ++i) {
        lines.push_back(drawRow(i, addressWidth, valueWidth, now));
    }
    if (shown.count > 1) {
        lines.push_back("page " + std::to_string(shown.number + 1) + " of " +
                        std::to_string(shown.count) + ", .page for the next");
    }
    for (auto& line : lines) {
        line = Tools::fitted(line, size.columns);
    }
    return lines;
}

Table::Page Table::page(std::size_t rows) const {
    const auto perPage = std::max<std::size_t>(rows, 1);
    const auto count = std::max<std::size_t>((rows_.size() + perPage - 1) / perPage, 1);
    const auto number = page_ % count;
    const auto first = number * perPage;
    return {.number = number,
            .count = count,
            .first = first,
            .last = std::min(first + perPage, rows_.size())};
}

std::string Table::drawRow(std::size_t position, std::size_t addressWidth, std::size_t valueWidth,
                           Clock::time_point now) const {
    const auto& tag = *description_->tags[position];
    const auto& row = rows_[position];
    std::string_view value{row.value};
    if (tag.tagType == Orvik::PushInterface::TagType::String) {
        value = decodeString(value).value_or(value);
    }
    return drawLine(std::to_string(tag.id), tag.address, addressWidth, typeName(tag.tagType), value,
                    valueWidth, formatAge(row.updated, now), std::to_string(row.updates));
}

}  // namespace StewardSimulator
