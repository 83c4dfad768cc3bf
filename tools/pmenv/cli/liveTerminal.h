// liveTerminal.h - redraws a terminal in place, and restores it at the end.
#pragma once

#include <string>
#include <vector>

#include <termios.h>

/// True when standard output is a terminal that can be redrawn.
bool canDrawInPlace();

/// While it exists, controls the terminal: alternate screen, no cursor, keys without Enter and without echo.
class LiveTerminal {
public:
    LiveTerminal();
    ~LiveTerminal();
    LiveTerminal(const LiveTerminal&) = delete;
    LiveTerminal& operator=(const LiveTerminal&) = delete;

    /// Replaces the content of the screen. There may be at most `rows` lines, none wider than the terminal.
    void draw(const std::vector<std::string>& lines, std::size_t rows) const;

    /// Restores the terminal and stops the process, as Ctrl-Z asks; takes control again when the process continues.
    void suspend();

private:
    void enter();
    void leave() const;

    bool hasKeys_ = false;  // standard input is a terminal, and `before_` holds its settings
    termios before_{};
};
