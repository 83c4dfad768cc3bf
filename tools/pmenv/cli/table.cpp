#include "table.h"

#include <algorithm>
#include <numeric>

#include "text.h"

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 6;  // a column is never cut to less than this
constexpr std::size_t kWidest = 60;    // without cutting: one long value does not push all others to the right

std::size_t total(const std::vector<std::size_t>& widths) {
    return std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
}

// Narrows the widest column, step by step, until all fit or none can be narrowed.
void shrink(std::vector<std::size_t>& widths, std::size_t width) {
    for (std::size_t& each : widths) each = std::min(each, std::max(width, kNarrowest));
    while (total(widths) > width) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest <= kNarrowest) return;
        --*widest;
    }
}

std::string padded(const std::string& cell, std::size_t width, bool right) {
    const std::string blanks(width - std::min(width, displayWidth(cell)), ' ');
    return right ? blanks + cell : cell + blanks;
}

std::string withoutTrailingBlanks(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

}  // namespace

void Table::add(const std::vector<std::string>& cells) {
    rows_.emplace_back();
    for (const std::string& cell : cells) rows_.back().push_back(printable(cell));
}

std::vector<std::size_t> Table::naturalWidths() const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        widths.push_back(displayWidth(columns_[i].title));
        for (const auto& row : rows_) widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
    return widths;
}

std::string Table::text(const Style& style, std::optional<std::size_t> width) const {
    std::vector<std::size_t> widths = naturalWidths();
    if (width) shrink(widths, *width);
    if (!width) {
        for (std::size_t& each : widths) each = std::min(each, kWidest);
    }

    const auto lineOf = [&](const auto& cellAt) {
        std::string line;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const std::string cell = width ? cutToWidth(cellAt(i), widths[i]) : cellAt(i);
            line += std::string(i == 0 ? 0 : kGap, ' ') + padded(cell, widths[i], columns_[i].right);
        }
        return withoutTrailingBlanks(line);
    };

    std::string text = style.bold(lineOf([&](std::size_t i) { return std::string(columns_[i].title); })) + "\n";
    for (const auto& row : rows_) text += lineOf([&](std::size_t i) { return row[i]; }) + "\n";
    return text;
}
