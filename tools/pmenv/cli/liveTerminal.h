// liveTerminal.h - a terminal that is redrawn in place, and left as it was found.
#pragma once

#include <string>
#include <vector>

#include <termios.h>

/// True when standard output is a terminal that can be redrawn.
bool canDrawInPlace();

/// Takes the terminal over while it lives: other screen, no cursor, keys without Enter and without echo.
class LiveTerminal {
public:
    LiveTerminal();
    ~LiveTerminal();
    LiveTerminal(const LiveTerminal&) = delete;
    LiveTerminal& operator=(const LiveTerminal&) = delete;

    /// Replaces what is shown; there are at most `rows` lines and none is wider than the terminal.
    void draw(const std::vector<std::string>& lines, std::size_t rows) const;

    /// Gives the terminal back and stops the process, as Ctrl-Z asks; takes it over again afterwards.
    void suspend();

private:
    void enter();
    void leave() const;

    bool hasKeys_ = false;  // standard input is a terminal, set as `before_` tells
    termios before_{};
};
