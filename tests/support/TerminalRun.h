// TerminalRun.h - runs a program on a terminal of its own, which the test can type on and resize.
#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

class TerminalRun {
public:
    /// Runs `arguments` (the first is the program's path) with this process's environment changed by `environment`,
    /// where a null value means that the variable is not set.
    TerminalRun(const std::vector<std::string>& arguments, const std::map<std::string, const char*>& environment,
                unsigned short columns, unsigned short rows) {
        const winsize size = sizeOf(columns, rows);
        child_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (child_ < 0) throw std::runtime_error("cannot open a terminal");
        if (child_ == 0) become(arguments, environment);
    }
    ~TerminalRun() {
        if (running_) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        close(terminal_);
    }
    TerminalRun(const TerminalRun&) = delete;
    TerminalRun& operator=(const TerminalRun&) = delete;

    pid_t pid() const { return child_; }
    /// The terminal's other side; tcgetattr on it shows how the program has configured the terminal.
    int descriptor() const { return terminal_; }

    void type(const std::string& keys) const {
        if (write(terminal_, keys.data(), keys.size()) < 0) throw std::runtime_error("cannot type");
    }

    void resize(unsigned short columns, unsigned short rows) const {
        const winsize size = sizeOf(columns, rows);
        ioctl(terminal_, TIOCSWINSZ, &size);
    }

    /// Waits until `wanted` appears in the output after position `from`. False when the program ends, or a minute
    /// passes, without it.
    bool waitFor(const std::string& wanted, std::size_t from = 0) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (output_.find(wanted, from) == std::string::npos) {
            if (!readSome() || std::chrono::steady_clock::now() > end) break;
        }
        return output_.find(wanted, from) != std::string::npos;
    }

    /// The program's output so far, with line ends as the terminal received them.
    const std::string& output() const { return output_; }

    /// Waits for the end of the program. Returns the exit code, or minus the signal that ended it.
    int finish() {
        while (readSome()) {
        }
        int status = 0;
        waitpid(child_, &status, 0);
        running_ = false;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    static winsize sizeOf(unsigned short columns, unsigned short rows) {
        winsize size{};
        size.ws_col = columns;
        size.ws_row = rows;
        return size;
    }

    // In the child.
    [[noreturn]] static void become(const std::vector<std::string>& arguments,
                                    const std::map<std::string, const char*>& environment) {
        for (const auto& [name, value] : environment) {
            if (value != nullptr) {
                setenv(name.c_str(), value, 1);
            } else {
                unsetenv(name.c_str());
            }
        }
        std::vector<char*> argv;
        for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(126);
    }

    // False at the end of the output.
    bool readSome() {
        pollfd ready{terminal_, POLLIN, 0};
        if (poll(&ready, 1, 100) <= 0) return true;
        char buffer[4096];
        const ssize_t count = read(terminal_, buffer, sizeof buffer);
        if (count > 0) output_.append(buffer, static_cast<std::size_t>(count));
        return count > 0 || (count < 0 && errno == EINTR);
    }

    int terminal_ = -1;
    pid_t child_ = -1;
    bool running_ = true;
    std::string output_;
};
