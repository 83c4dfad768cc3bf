// children.h - programs that the benchmark runs as children.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "measure.h"

extern char** environ;

/// Runs a program to its end, without its output. Ends the benchmark when its exit code is none of the expected.
inline void runProgram(std::vector<std::string> words, std::initializer_list<int> expected = {0}) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
    }
    pid_t pid = 0;
    check(posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0, words[0]);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    check(waitpid(pid, &status, 0) == pid && WIFEXITED(status), words[0]);
    check(std::find(expected.begin(), expected.end(), WEXITSTATUS(status)) != expected.end(), words[0]);
}
