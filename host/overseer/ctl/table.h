#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace overseer::ctl {

/// How many columns of a terminal the text takes; UTF-8, bytes that are none count one each.
std::size_t displayWidth(std::string_view text);

/// The text fit for a terminal: characters that could steer it or turn the text around, and bytes
/// that are no UTF-8, are spelled out as \xNN.
std::string printable(std::string_view text);

enum class Colour { kNone, kGreen, kYellow, kRed };

struct Cell {
    std::string text;
    Colour colour = Colour::kNone;
};

/// Rows under headings, in columns that align.
class Table {
  public:
    struct Column {
        std::string heading;
        bool right = false;  ///< numbers stand at the right
    };

    explicit Table(std::vector<Column> columns);
    /// As many cells as there are columns. They are made printable.
    void add(std::vector<Cell> cells);
    void print(std::ostream& out, bool coloured) const;

  private:
    std::string line(const std::vector<Cell>& cells, bool coloured) const;

    std::vector<Column> columns_;
    std::vector<std::size_t> widths_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace overseer::ctl
