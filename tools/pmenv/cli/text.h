// text.h - texts as a terminal shows them.
//
// Columns are counted with the locale's wcwidth; main chooses a UTF-8 locale.
#pragma once

#include <cstddef>
#include <string>

/// How many columns `text` takes.
std::size_t displayWidth(const std::string& text);

/// `text` cut to `width` columns, the last of them "…", when it is wider.
std::string cutToWidth(const std::string& text, std::size_t width);

/// Control characters and bytes that are no UTF-8 shown as \n, \t, \x1b, so that a value stays on its line and cannot
/// steer the terminal.
std::string printable(const std::string& text);
