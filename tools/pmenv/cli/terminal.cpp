#include "terminal.h"

#include <cstdlib>

#include <sys/ioctl.h>
#include <unistd.h>

std::optional<TerminalSize> terminalSize() {
    if (isatty(STDOUT_FILENO) == 0) return std::nullopt;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return TerminalSize{80, 24};
    return TerminalSize{size.ws_col, size.ws_row};
}

Style::Style(int descriptor) {
    const char* const refused = std::getenv("NO_COLOR");
    colour_ = isatty(descriptor) != 0 && (refused == nullptr || *refused == '\0');
}

std::string Style::wrapped(const char* code, const std::string& text) const {
    return colour_ ? std::string("\x1b[") + code + "m" + text + "\x1b[0m" : text;
}
