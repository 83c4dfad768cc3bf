// help.h - the help texts, made from the grammar.
#pragma once

#include <string>

#include "commandLine.h"

/// The text of "pmenv --help", with all commands, or of "pmenv path --help", with those whose first word is `group`.
std::string overviewHelp(const Grammar& grammar, const std::string& group);

/// The text of "pmenv get --help".
std::string commandHelp(const Grammar& grammar, const Command& command);
