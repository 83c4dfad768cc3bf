// program.h - what a command line program does from its start to its end.
#pragma once

#include <vector>

#include "commandLine.h"

/// The options of all commands.
std::vector<Option> globalOptions();

/// Parses the arguments, runs the command or prints help, and prints what failed. Returns the exit code.
int runCommandLine(const Grammar& grammar, int argc, char** argv);
