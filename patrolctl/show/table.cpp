#include "show/table.h"

#include <algorithm>

#include "show/escape.h"

namespace patrolctl {

std::string Coloured(const std::string& text, Colour colour) {
    switch (colour) {
        case Colour::kGreen:
            return "\x1b[32m" + text + "\x1b[0m";
        case Colour::kYellow:
            return "\x1b[33m" + text + "\x1b[0m";
        case Colour::kRed:
            return "\x1b[31m" + text + "\x1b[0m";
        case Colour::kFaint:
            return "\x1b[2m" + text + "\x1b[0m";
        default:
            return text;
    }
}

std::string Table::Text(bool colour) const {
    if (rows_.empty()) return "";
    std::vector<size_t> widths(heads_.size(), 0);
    std::vector<std::vector<Cell>> rows = rows_;
    for (std::vector<Cell>& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            row[i].text = ForTerminal(row[i].text);
            widths[i] = std::max(widths[i], Columns(row[i].text));
        }
    }
    std::vector<Cell> head;
    for (size_t i = 0; i < heads_.size(); ++i) {
        if (widths[i] > 0) widths[i] = std::max(widths[i], Columns(heads_[i]));
        head.emplace_back(heads_[i], Colour::kFaint);
    }
    rows.insert(rows.begin(), std::move(head));

    std::string text;
    for (const std::vector<Cell>& row : rows) {
        size_t gap = 0;  // blanks before the next cell that has a text
        for (size_t i = 0; i < row.size(); ++i) {
            if (widths[i] == 0) continue;
            const std::string& cell = row[i].text;
            if (!cell.empty()) {
                text.append(gap, ' ');
                text += colour ? Coloured(cell, row[i].colour) : cell;
                gap = 0;
            }
            gap += widths[i] - Columns(cell) + 2;
        }
        text += "\n";
    }
    return text;
}

}  // namespace patrolctl
