// completion.h - what the bash completion knows of the commands, made from the grammar.
#pragma once

#include <string>

#include "commandLine.h"

/// The first words of all commands, and those that need a second one: "get list path ...", "path".
std::string completionWords(const Grammar& grammar);
std::string completionGroups(const Grammar& grammar);

/// Arms of a shell's `case`, one a line.
std::string completionSecondWords(const Grammar& grammar);  ///< path) words="split make" ;;
std::string completionOptions(const Grammar& grammar);      ///< get) options="--file --raw" ;;
std::string completionArguments(const Grammar& grammar);    ///< "0 get") what=settings ;;
std::string completionOptionArguments(
    const Grammar& grammar);  ///< --file) what=further ;;  for each that takes a value

/// The options of all commands: "--ini --json".
std::string completionGlobalOptions(const Grammar& grammar);
