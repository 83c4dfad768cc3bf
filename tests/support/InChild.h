// InChild.h - runs a part of a test in a child process of its own, for state that a process builds up only once.
#pragma once

#include <exception>
#include <functional>
#include <stdexcept>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

// Exists in builds that are instrumented for coverage. Without calling it, the child's counts would be lost.
extern "C" void __gcov_dump() __attribute__((weak));

/// Runs `work` in a child and returns its result. Failures inside have to be part of that text.
inline std::string inChild(const std::function<std::string()>& work) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("cannot make a pipe");
    const pid_t child = fork();
    if (child == 0) {
        std::string text;
        try {
            text = work();
        } catch (const std::exception& error) {  // must not escape, or the child would go on with the other tests
            text = std::string("<thrown: ") + error.what() + ">";
        }
        const ssize_t written = write(ends[1], text.data(), text.size());
        if (__gcov_dump != nullptr) __gcov_dump();
        _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char piece[4096];
    for (ssize_t count = 0; (count = read(ends[0], piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<std::size_t>(count));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? text : "<the child ended with status " + std::to_string(status) + ">";
}
