// generators.h - other load generators, which measure a server of their own: their own times, and the rate that they were
// asked for, are the truth about them.
//
// generators/NAME.sh SECONDS URL RATE CONNECTIONS DIRECTORY runs one of them and prints "asked=N sent=N late=N": how many
// requests it was asked for (0 when it knows no rate), how many it sent, and how many took longer than 10 ms by its own
// measure. The server answers in far less, so that these times are the generator's.
#pragma once

#include "load.h"
#include "processes.h"
#include "words.h"

/// nginx on a local port.
class Server {
public:
    explicit Server(const Scratch& directory);
    const std::string& url() const { return url_; }

private:
    std::string url_;
    std::deque<Process> nginx_;
};

/// The words: generator=NAME rate=R connections=N.
class Generator : public Load {
public:
    Generator(const Words& words, double seconds, const Groups& groups, const Scratch& directory);

    const std::deque<Process>& processes() const override { return processes_; }
    /// Of its whole run, to whose end this waits.
    Truth worst(const Window& window) override;

private:
    Server server_;
    std::string result_;
    std::deque<Process> processes_;
};
