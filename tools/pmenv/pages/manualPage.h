// manualPage.h - the manual page, made from the grammar.
#pragma once

#include <string>

#include "commandLine.h"

/// The page's .TP entries of all commands: how each is called, its summary, and its details.
std::string manualCommands(const Grammar& grammar);

/// The page's .TP entries of the options: those of all commands, then those of each command under its name.
std::string manualOptions(const Grammar& grammar);

/// The examples of all commands, one a line.
std::string manualExamples(const Grammar& grammar);
