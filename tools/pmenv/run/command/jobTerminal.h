// jobTerminal.h - the terminal that pmenv shares with the command that it started: one of the two has the foreground.
#pragma once

#include <sys/types.h>

/// The controlling terminal, whatever standard input is. Without one, nobody has the foreground and nothing happens. To be
/// used while SIGTTOU is blocked, which the kernel sends to a process in the background that changes the foreground.
class JobTerminal {
public:
    JobTerminal();
    ~JobTerminal();
    JobTerminal(const JobTerminal&) = delete;
    JobTerminal& operator=(const JobTerminal&) = delete;

    /// Whether this process's group has the foreground.
    bool isOurs() const;

    void giveTo(pid_t group) const;
    /// Takes it back. False when the group did not have it.
    bool takeBackFrom(pid_t group) const;

private:
    int descriptor_;
};
