// completion.h - what the shells' completions know of the commands, made from the grammar.
#pragma once

#include <string>

#include "commandLine.h"

/// The first words of all commands, and those that need a second one: "get list path ...", "path".
std::string completionWords(const Grammar& grammar);
std::string completionGroups(const Grammar& grammar);

/// Arms of a `case` of bash and zsh, one a line.
std::string completionSecondWords(const Grammar& grammar);  ///< path) words="split make" ;;
std::string completionOptions(const Grammar& grammar);      ///< get) options="--file --raw" ;;
std::string completionArguments(const Grammar& grammar);    ///< "0 get") what=settings ;;
std::string completionOptionArguments(
    const Grammar& grammar);  ///< --file) what=further ;;  for each that takes a value

std::string completionStarters(const Grammar& grammar);  ///< "judge") starts=yes ;;  for each that starts a program

/// The options of all commands: "--ini --json".
std::string completionGlobalOptions(const Grammar& grammar);

/// The same for zsh, with descriptions.
std::string zshWords(const Grammar& grammar);          ///< 'get:print the expanded value'
std::string zshSecondWords(const Grammar& grammar);    ///< path) second=('split:print the parts') ;;
std::string zshOptions(const Grammar& grammar);        ///< get) options=('--raw:print the value as stored') ;;
std::string zshGlobalOptions(const Grammar& grammar);  ///< '--json:print the answer as JSON'

/// The options that take a value: "--ini --file".
std::string completionValueOptions(const Grammar& grammar);
/// The commands that start a program: 'judge'.
std::string fishStarters(const Grammar& grammar);
/// Commands of fish, each of which offers something in one situation.
std::string fishOffers(const Grammar& grammar);
