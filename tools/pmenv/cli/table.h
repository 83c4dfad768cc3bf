// table.h - rows of cells in aligned columns.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "terminal.h"

class Table {
public:
    struct Column {
        const char* title;
        bool right = false;  ///< aligned to the right, as numbers are
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// Adds a row with one cell for each column. Characters that a terminal could take for a command are escaped.
    void add(const std::vector<std::string>& cells);

    /// The title line and the rows, each with a newline at its end. With `width`, columns that do not fit are cut, the
    /// widest first. Without, everything is shown, and a very long cell shifts only the rest of its own line.
    std::string text(const Style& style, std::optional<std::size_t> width) const;

private:
    std::vector<std::size_t> naturalWidths() const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};
