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
        bool right = false;  ///< numbers stand at the right
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// One cell for each column. What a terminal could take for a command is shown escaped.
    void add(const std::vector<std::string>& cells);

    /// The title line and the rows, each ended by a newline. With `width`, columns that do not fit are cut, the widest
    /// first; without, everything is shown, and a very long cell moves the rest of its own line only.
    std::string text(const Style& style, std::optional<std::size_t> width) const;

private:
    std::vector<std::size_t> naturalWidths() const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};
