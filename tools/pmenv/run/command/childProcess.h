// childProcess.h - a command that pmenv starts and waits for, as a shell does with a job.
//
// The command gets what pmenv itself got: descriptors, environment, signal mask, ignored signals and limits. It runs in a
// process group of its own. On a terminal this group has the foreground, so that Ctrl-C and Ctrl-Z reach the command and not
// pmenv; a signal that is sent to pmenv is passed on to the group. Either way the command gets it once.
//
// pmenv takes part in a larger job when it does not lead its own group or its output goes into a pipe: in a script, or in
// front of a pager, which needs the terminal as well. Then the foreground stays where it is until the command wants to use
// the terminal.
#pragma once

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "command/jobTerminal.h"
#include "events.h"

class ChildProcess {
public:
    /// Starts the program that the first word names, which is looked for in PATH, and returns when it runs. Throws Failure
    /// with 127 when there is no such program and 126 when it cannot be executed.
    explicit ChildProcess(const std::vector<std::string>& words);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The signals that handle wants to be told of.
    Events& events() { return events_; }

    /// Passes a signal on; collects processes that have ended; stops with the command and goes on with it.
    void handle(int signal);

    /// How the command ended, as wait() has it; empty while it runs. What it left behind is not waited for.
    std::optional<int> status() const { return status_; }

private:
    // What a program inherits and pmenv changes.
    class InheritedSignals {
    public:
        InheritedSignals();
        void restore() const;

    private:
        sigset_t mask_;
        struct sigaction ofChildren_;
    };

    void start(const std::vector<std::string>& words);
    [[noreturn]] void become(const std::vector<std::string>& words, int report) const;
    void collect();
    void stopWith(int signal, bool hadTerminal);
    void goOn();

    InheritedSignals inherited_;
    Events events_;
    JobTerminal terminal_;
    bool wantsTerminal_;
    bool stopRequested_ = false;  // by a signal to pmenv
    pid_t pid_ = -1;
    std::optional<int> status_;
};
