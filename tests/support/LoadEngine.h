// LoadEngine.h - starts a process that the statistics take for a load engine; load_engine.cpp is its program.
#pragma once

#include <csignal>
#include <ctime>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

/// A process named like a load engine, for the length of a scope. It is ready when the constructor returns.
class LoadEngine {
public:
    explicit LoadEngine(const std::string& mode, const std::string& argument = {}) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            execl(LOAD_ENGINE, "load_engine", mode.c_str(), argument.empty() ? nullptr : argument.c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        char line[8] = {};
        const ssize_t length = read(ends[0], line, sizeof line - 1);
        close(ends[0]);
        if (pid_ < 0 || length <= 0) throw std::runtime_error("cannot start " LOAD_ENGINE);
    }
    ~LoadEngine() { stop(); }
    LoadEngine(const LoadEngine&) = delete;
    LoadEngine& operator=(const LoadEngine&) = delete;

    int pid() const { return pid_; }
    void stop() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }

private:
    pid_t pid_ = 0;
};

/// The processor time that the process has used so far, in seconds.
inline double secondsOfProcessor(int pid) {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &used) != 0) throw std::runtime_error("no clock");
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}
