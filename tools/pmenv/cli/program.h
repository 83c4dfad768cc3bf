// program.h - the frame of a command line program: what it does before anything else, and how it ends.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// Runs `run` with the arguments after the program's name. A Failure, and any other exception, is told on standard error
/// and makes the exit code; what was printed is written before.
int runProgram(int argc, char** argv, const std::function<int(const std::vector<std::string>& words)>& run);
