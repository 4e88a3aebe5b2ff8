// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace Tools {

/// How a terminal shows a text.
enum class Style { Plain, Dim, Bad };

/// The text with the codes of its style around it.
[[nodiscard]] std::string styled(std::string text, Style style);

/// One column of a table. Widths are columns of a terminal.
struct Column {
    enum class Align { Left, Right };
    enum class Cut { End, Middle };

    std::string title;
    std::size_t least = 0;  ///< width even where its cells need less
    std::size_t most = std::numeric_limits<std::size_t>::max();
    Align align = Align::Left;
    Cut cut = Cut::End;      ///< where a cell that is too wide is cut
    bool givesWay = false;   ///< shrinks if the table is too wide, the widest column first
    bool takesRest = false;  ///< grows if there is room left; only the first such column does
};

/// Rows of text below titles, laid out in columns.
class Table {
  public:
    /// No limit, as for a file or a pipe.
    static constexpr std::size_t anyWidth = std::numeric_limits<std::size_t>::max();

    explicit Table(std::vector<Column> columns) : columns_{std::move(columns)} {}

    /// @param cells one for each column, any bytes
    void add(std::vector<std::string> cells, Style style = Style::Plain);

    /// Whether styles appear: on a terminal only.
    enum class Styles { Shown, LeftOut };

    /// The titles and the rows, each a line no wider than @p width and without blanks at its end.
    [[nodiscard]] std::vector<std::string> draw(std::size_t width, Styles styles) const;

  private:
    struct Row {
        std::vector<std::string> cells;
        Style style;
    };

    [[nodiscard]] std::vector<std::size_t> widthsFor(std::size_t width) const;
    [[nodiscard]] std::vector<std::size_t> naturalWidths() const;
    void narrow(std::vector<std::size_t>& widths, std::size_t excess) const;
    void widen(std::vector<std::size_t>& widths, std::size_t rest) const;
    [[nodiscard]] std::string drawCells(const std::vector<std::string>& cells,
                                        const std::vector<std::size_t>& widths) const;

    std::vector<Column> columns_;
    std::vector<Row> rows_;
};

}  // namespace Tools
