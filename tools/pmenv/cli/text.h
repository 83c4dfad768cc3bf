// text.h - measures and prepares texts for a terminal.
//
// Columns are counted with wcwidth in a UTF-8 locale.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The number of columns that `text` takes.
std::size_t displayWidth(const std::string& text);

/// `text`, cut to `width` columns when it is wider; the last column is then "…".
std::string cutToWidth(const std::string& text, std::size_t width);

/// `text` with control characters and bytes that are not UTF-8 written as \n, \t, \x1b, so that a value stays on its
/// line and cannot control the terminal.
std::string printable(const std::string& text);

/// The text such that it can be told from any other and from a remark like (empty): as it is, or where that could be
/// mistaken in quotes, with a backslash in front of quotes, backslashes and what would not be seen.
std::string unmistakable(const std::string& text);

/// The number of UTF-16 code units of `text`. A byte that begins no character counts as one.
std::size_t utf16Length(std::string_view text);
