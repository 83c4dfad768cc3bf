// markup.h - texts and numbers as they may stand in a page that is HTML and well-formed XML at once.
#pragma once

#include <string>
#include <string_view>

/// The text for the content of an element or an attribute, whatever bytes it has: markup is escaped, bytes that are not
/// UTF-8 become U+FFFD, and what would not be seen or would turn the direction of writing is shown as a symbol or a code.
std::string escaped(std::string_view text);

/// At most so many characters of the text, then "…".
std::string shortened(std::string_view text, std::size_t characters);

/// "12", "0.5", "1234.57": no more digits than tell something.
std::string shortNumber(double number);

/// As exactly as a program wants it: "100.25".
std::string exactNumber(double number);

/// A coordinate, to a tenth: "12", "0.5".
std::string coordinate(double number);

/// "12.345%": a place between 0 and 1, for attributes.
std::string place(double share);

/// <name attributes>content</name>; both are taken as they are.
std::string element(std::string_view name, std::string_view attributes, std::string_view content);
/// The same without attributes, of a text that is escaped here.
std::string textElement(std::string_view name, std::string_view text);
