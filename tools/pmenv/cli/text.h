// text.h - measures and prepares texts for a terminal.
//
// Columns are counted with wcwidth in a UTF-8 locale.
#pragma once

#include <cstddef>
#include <string>

/// The number of columns that `text` takes.
std::size_t displayWidth(const std::string& text);

/// `text`, cut to `width` columns when it is wider; the last column is then "…".
std::string cutToWidth(const std::string& text, std::size_t width);

/// `text` with control characters and bytes that are not UTF-8 written as \n, \t, \x1b, so that a value stays on its
/// line and cannot control the terminal.
std::string printable(const std::string& text);
