// Subprocess.h - runs a program to its end and collects its output.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TempDir.h"

/// The result of a program. `status` is its exit code, or minus the signal that ended it.
struct ProgramResult {
    int status = 0;
    std::string out;
    std::string err;
};

/// Whether a program is there. `./dev setup` installs those that tests need: without them a test has to fail.
inline bool isInstalled(const char* program) { return access(program, X_OK) == 0; }

/// Runs `arguments` (the first is the program's path) with this process's environment changed by `environment`, where a
/// null value means that the variable is not set.
inline ProgramResult runProgram(const std::vector<std::string>& arguments,
                                const std::map<std::string, const char*>& environment = {}) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        if (environment.count(text.substr(0, text.find('='))) == 0) variables.push_back(text);
    }
    for (const auto& [name, value] : environment) {
        if (value != nullptr) variables.push_back(name + "=" + value);
    }
    const auto pointersTo = [](const std::vector<std::string>& texts) {
        std::vector<char*> pointers;
        for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
        pointers.push_back(nullptr);
        return pointers;
    };

    const TempDir dir;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (dir / "out").c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (dir / "err").c_str(), O_WRONLY | O_CREAT, 0600);
    pid_t child = 0;
    const int error = posix_spawn(&child, arguments[0].c_str(), &actions, nullptr, pointersTo(arguments).data(),
                                  pointersTo(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("cannot run " + arguments[0]);

    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), readFileText(dir / "out"),
            readFileText(dir / "err")};
}
