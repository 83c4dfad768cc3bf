#include "liveTerminal.h"

#include <csignal>
#include <cstdlib>
#include <iostream>

#include <unistd.h>

bool canDrawInPlace() {
    const char* const type = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && type != nullptr && *type != '\0' && std::string(type) != "dumb";
}

LiveTerminal::LiveTerminal() {
    hasKeys_ = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &before_) == 0;
    enter();
}

LiveTerminal::~LiveTerminal() { leave(); }

void LiveTerminal::enter() {
    if (hasKeys_) {
        termios raw = before_;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
    }
    std::cout << "\x1b[?1049h\x1b[?25l" << std::flush;
}

void LiveTerminal::leave() const {
    std::cout << "\x1b[?25h\x1b[?1049l" << std::flush;
    if (hasKeys_) tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
}

// Each line is cleared before it is written: clearing after a line that fills the row would erase its last character.
void LiveTerminal::draw(const std::vector<std::string>& lines, std::size_t rows) const {
    std::string drawing = "\x1b[H";
    for (std::size_t i = 0; i < lines.size(); ++i) drawing += (i == 0 ? "" : "\r\n") + ("\x1b[K" + lines[i]);
    if (lines.size() < rows) drawing += "\r\n\x1b[J";
    std::cout << drawing << std::flush;
}

void LiveTerminal::suspend() {
    leave();
    raise(SIGSTOP);
    enter();
}
