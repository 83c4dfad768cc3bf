// help.h - the help texts, made from the grammar.
#pragma once

#include <string>

#include "commandLine.h"

/// "pmenv --help": all commands. "pmenv path --help": those whose first word is `group`.
std::string overviewHelp(const Grammar& grammar, const std::string& group);

/// "pmenv get --help".
std::string commandHelp(const Grammar& grammar, const Command& command);
