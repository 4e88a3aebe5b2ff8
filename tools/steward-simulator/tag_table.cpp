// SPDX-License-Identifier: MIT
#include "steward-simulator/tag_table.hpp"

#include "common/text.hpp"
#include "description/tag_type.hpp"
#include "steward-simulator/value_check.hpp"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>

namespace StewardSimulator {
namespace {

/// Widths do not depend on the values, so that the columns do not move.
std::vector<Tools::Column> columnsFor(std::size_t longestAddress) {
    using enum Tools::Column::Align;
    constexpr std::size_t usualValue = 20;
    return {{.title = "ID", .least = 5, .align = Right},
            {.title = "ADDRESS",
             .least = longestAddress,
             .cut = Tools::Column::Cut::Middle,
             .givesWay = true},
            {.title = "TYPE", .least = 6},
            {.title = "VALUE",
             .least = usualValue,
             .most = usualValue,
             .givesWay = true,
             .takesRest = true},
            {.title = "AGE", .least = 8, .align = Right},
            {.title = "UPDATES", .least = 9, .align = Right}};
}

std::string formatAge(std::optional<Clock::time_point> updated, Clock::time_point now) {
    if (!updated) {
        return "-";
    }
    return fmt::format("{:.1f} s", std::chrono::duration<double>{now - *updated}.count());
}

}  // namespace

void TagTable::describe(const DescriptionPtr& description) {
    if (description_ && description_->json == description->json) {
        return;
    }
    description_ = description;
    rows_.assign(description->tags.size(), {});
    longestAddress_ = 0;
    for (const auto& tag : description->tags) {
        longestAddress_ = std::max(longestAddress_, Tools::columns(tag->address));
    }
}

void TagTable::update(const Batch& batch, Clock::time_point now) {
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

std::vector<std::string> TagTable::draw(Tools::TerminalSize size, Clock::time_point now) const {
    Tools::Table table{columnsFor(longestAddress_)};
    const auto shown = page(size.rows - std::min<std::size_t>(size.rows, 2));
    for (auto i = shown.first; i < shown.last; ++i) {
        addRow(table, i, now);
    }
    auto lines = table.draw(size.columns, Tools::Table::Styles::Shown);
    if (shown.count > 1) {
        lines.push_back(Tools::fitted(
            fmt::format("page {} of {}, .page for the next", shown.number + 1, shown.count),
            size.columns));
    }
    return lines;
}

TagTable::Page TagTable::page(std::size_t rows) const {
    const auto perPage = std::max<std::size_t>(rows, 1);
    const auto count = std::max<std::size_t>((rows_.size() + perPage - 1) / perPage, 1);
    const auto number = page_ % count;
    const auto first = number * perPage;
    return {.number = number,
            .count = count,
            .first = first,
            .last = std::min(first + perPage, rows_.size())};
}

void TagTable::addRow(Tools::Table& table, std::size_t position, Clock::time_point now) const {
    const auto& tag = *description_->tags[position];
    const auto& row = rows_[position];
    std::string_view value{row.value};
    if (tag.tagType == Orvik::PushInterface::TagType::String) {
        value = decodeString(value).value_or(value);
    }
    table.add({std::to_string(tag.id), tag.address, std::string{Tools::typeName(tag.tagType)},
               std::string{value}, formatAge(row.updated, now), std::to_string(row.updates)},
              isOld(row, now) ? Tools::Style::Dim : Tools::Style::Plain);
}

bool TagTable::isOld(const Row& row, Clock::time_point now) const {
    using std::chrono::milliseconds;
    const auto limit = std::max(3 * milliseconds{description_->pullDelay}, milliseconds{1000});
    return row.updated && now - *row.updated > limit;
}

}  // namespace StewardSimulator
