// Tables and colours on a terminal.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace patrolctl {

enum class Colour { kNone, kGreen, kYellow, kRed, kFaint };

// `text`, which is harmless already, in that colour.
std::string Coloured(const std::string& text, Colour colour);

struct Cell {
    // NOLINTNEXTLINE(google-explicit-constructor): a text is as good as a cell
    Cell(std::string cell_text, Colour cell_colour = Colour::kNone)
        : text(std::move(cell_text)), colour(cell_colour) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Cell(const char* cell_text) : text(cell_text) {}

    std::string text;  // anything: the table makes it harmless
    Colour colour = Colour::kNone;
};

// Columns as wide as their widest cell. A column without any text is left out.
class Table {
 public:
    explicit Table(std::vector<std::string> heads) : heads_(std::move(heads)) {}

    void Add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }

    // The table with its head line; nothing when there are no rows.
    std::string Text(bool colour) const;

 private:
    std::vector<std::string> heads_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace patrolctl
