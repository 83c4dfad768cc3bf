// liveTerminal: what is sent to redraw a terminal. Its tests with a real terminal are those of `stats --watch`.
#include <csignal>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "liveTerminal.h"
#include "support/InChild.h"
#include "support/ScopedEnv.h"
#include "terminal.h"

namespace {

// Standard output as text, and no terminal as standard input, for the length of a scope.
class Sent {
public:
    Sent() : stream_(std::cout.rdbuf(text_.rdbuf())), input_(dup(STDIN_FILENO)) {
        const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(nothing, STDIN_FILENO);
        close(nothing);
    }
    ~Sent() {
        std::cout.rdbuf(stream_);
        dup2(input_, STDIN_FILENO);
        close(input_);
    }
    Sent(const Sent&) = delete;
    Sent& operator=(const Sent&) = delete;

    // What has been sent since the last time.
    std::string taken() {
        std::string text = text_.str();
        text_.str("");
        return text;
    }

private:
    std::ostringstream text_;
    std::streambuf* stream_;
    int input_;
};

TEST(LiveTerminal, TakesTheTerminalOverAndGivesItBack) {
    Sent sent;
    {
        const LiveTerminal terminal;
        EXPECT_EQ(sent.taken(), "\x1b[?1049h\x1b[?25l");
    }
    EXPECT_EQ(sent.taken(), "\x1b[?25h\x1b[?1049l");
}

TEST(LiveTerminal, ClearsEachLineAndWhatIsBelow) {
    Sent sent;
    const LiveTerminal terminal;
    sent.taken();
    terminal.draw({"one", "two"}, 3);
    EXPECT_EQ(sent.taken(), "\x1b[H\x1b[Kone\r\n\x1b[Ktwo\r\n\x1b[J");
    terminal.draw({"one", "two"}, 2);
    EXPECT_EQ(sent.taken(), "\x1b[H\x1b[Kone\r\n\x1b[Ktwo") << "another line would scroll the first one away";
}

// Lets the calling process go on when it has been stopped, until it ends.
void goOnWhenStopped() {
    const pid_t stopped = getpid();
    if (fork() != 0) return;
    while (getppid() == stopped && kill(stopped, SIGCONT) == 0) usleep(1000);
    _exit(0);
}

TEST(LiveTerminal, IsTheUsersWhileTheProgramIsStopped) {
    const std::string inBetween = inChild([] {
        Sent sent;
        LiveTerminal terminal;
        sent.taken();
        goOnWhenStopped();
        terminal.suspend();
        return sent.taken();
    });
    EXPECT_EQ(inBetween, "\x1b[?25h\x1b[?1049l\x1b[?1049h\x1b[?25l");
}

TEST(Terminal, WhatIsNoneHasNoSizeAndNoColour) {
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const ScopedEnv colours("NO_COLOR", nullptr);
    EXPECT_EQ(Style(nothing).red("x"), "x");
    close(nothing);
}

TEST(Terminal, OneThatDoesNotKnowItsSizeHasTheUsualOne) {
    const auto sizeWith = [](unsigned short columns, unsigned short rows) {
        return inChild([=] {
            winsize told{};
            told.ws_col = columns;
            told.ws_row = rows;
            int controller = -1, terminal = -1;
            if (openpty(&controller, &terminal, nullptr, nullptr, &told) != 0) return std::string("no terminal");
            dup2(terminal, STDOUT_FILENO);
            const std::optional<TerminalSize> size = terminalSize();
            return size ? std::to_string(size->columns) + "x" + std::to_string(size->rows) : "none";
        });
    };
    EXPECT_EQ(sizeWith(100, 40), "100x40");
    EXPECT_EQ(sizeWith(0, 40), "80x24");
    EXPECT_EQ(sizeWith(100, 0), "80x24");
    EXPECT_EQ(sizeWith(0, 0), "80x24");
}

}  // namespace
