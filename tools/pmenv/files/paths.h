// paths.h - what the commands about files and paths share.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "commandLine.h"
#include "settings.h"

/// How many characters a path may have in the library.
constexpr std::size_t kLongestPath = 4095;

/// The path as the library takes it. Throws Failure for a longer one, which the library would cut without a word.
const char* checkedPath(const std::string& path);

/// The settings that a "#X" among the variables is read from; null where there is none, because other searches work
/// without a pressmark.ini.
std::unique_ptr<const Settings> settingsFor(const CommandLine& line, const std::vector<std::string>& variables);

/// A path variable as an argument of a command.
Argument pathVariableArgument(bool repeated);
