// SPDX-License-Identifier: MIT
#include "common/table.hpp"

#include "common/text.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Tools {
namespace {

constexpr std::string_view gap = "  ";

/// Gives each column its width or, if there is too little room, the same as the other wide ones.
void shareOut(std::size_t room, std::vector<std::size_t*> widths) {
    std::ranges::sort(widths, {}, [](const std::size_t* width) { return *width; });
    auto waiting = widths.size();
    for (auto* const width : widths) {
        *width = std::min(*width, room / waiting--);
        room -= *width;
    }
}

}  // namespace

std::string styled(std::string text, Style style) {
    switch (style) {
        case Style::Dim:
            return "\x1b[2m" + std::move(text) + "\x1b[0m";
        case Style::Bad:
            return "\x1b[31m" + std::move(text) + "\x1b[0m";
        case Style::Plain:
            break;
    }
    return text;
}

void Table::add(std::vector<std::string> cells, Style style) {
    cells.resize(columns_.size());
    rows_.push_back({std::move(cells), style});
}

std::vector<std::string> Table::draw(std::size_t width, Styles styles) const {
    const auto widths = widthsFor(width);
    std::vector<std::string> titles;
    for (const auto& column : columns_) {
        titles.push_back(column.title);
    }
    std::vector<std::string> lines{fitted(drawCells(titles, widths), width)};
    for (const auto& row : rows_) {
        lines.push_back(fitted(drawCells(row.cells, widths), width));
        if (styles == Styles::Shown) {
            lines.back() = styled(std::move(lines.back()), row.style);
        }
    }
    return lines;
}

std::vector<std::size_t> Table::widthsFor(std::size_t width) const {
    auto widths = naturalWidths();
    const auto gaps = gap.size() * (columns_.size() - 1);
    const auto room = width - std::min(width, gaps);
    const auto needed = std::accumulate(widths.begin(), widths.end(), std::size_t{0});
    if (needed > room) {
        narrow(widths, needed - room);
    } else if (width != anyWidth) {
        widen(widths, room - needed);
    }
    return widths;
}

std::vector<std::size_t> Table::naturalWidths() const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        auto widest = Tools::columns(columns_[i].title);
        for (const auto& row : rows_) {
            widest = std::max(widest, Tools::columns(row.cells[i]));
        }
        widths.push_back(std::clamp(widest, columns_[i].least, columns_[i].most));
    }
    return widths;
}

void Table::narrow(std::vector<std::size_t>& widths, std::size_t excess) const {
    std::vector<std::size_t*> flexible;
    std::size_t sum = 0;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (columns_[i].givesWay) {
            flexible.push_back(&widths[i]);
            sum += widths[i];
        }
    }
    shareOut(sum - std::min(sum, excess), flexible);
}

void Table::widen(std::vector<std::size_t>& widths, std::size_t rest) const {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (columns_[i].takesRest) {
            widths[i] += std::exchange(rest, 0);
        }
    }
}

std::string Table::drawCells(const std::vector<std::string>& cells,
                             const std::vector<std::size_t>& widths) const {
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const auto& column = columns_[i];
        auto text = column.cut == Column::Cut::Middle ? shortened(cells[i], widths[i])
                                                      : fitted(cells[i], widths[i]);
        const std::string blanks(widths[i] - Tools::columns(text), ' ');
        line += i == 0 ? "" : gap;
        line += column.align == Column::Align::Right ? blanks + text : text + blanks;
    }
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

}  // namespace Tools
