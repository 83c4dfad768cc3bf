// terminal.h - the size of the terminal, and colours for highlighting words.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

/// The size of the terminal that standard output is; empty on a pipe or a file.
struct TerminalSize {
    std::size_t columns;
    std::size_t rows;
};
std::optional<TerminalSize> terminalSize();

/// Highlights words with colour, or leaves them as they are.
class Style {
public:
    /// Uses colour if `descriptor` is a terminal and NO_COLOR is unset or empty.
    explicit Style(int descriptor);

    std::string bold(const std::string& text) const { return wrapped("1", text); }
    std::string dim(const std::string& text) const { return wrapped("2", text); }
    std::string red(const std::string& text) const { return wrapped("31", text); }
    std::string yellow(const std::string& text) const { return wrapped("33", text); }
    std::string green(const std::string& text) const { return wrapped("32", text); }

private:
    std::string wrapped(const char* code, const std::string& text) const;

    bool colour_;
};
