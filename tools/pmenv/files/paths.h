// paths.h - helpers that the commands about files and paths share.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "commandLine.h"
#include "settingsFile.h"

/// The longest path that the library accepts, in characters.
constexpr std::size_t kLongestPath = 4095;

/// Returns the path for the library. Throws Failure for a longer path, which the library would cut silently.
const char* checkedPath(const std::string& path);

/// The settings from which a "#X" among the variables is read. Null when there is no "#X", because such searches work
/// without a pressmark.ini. What is secret is hidden in the places of a search, but not for `resolve`, which is asked for
/// the value.
std::unique_ptr<const Settings> settingsFor(const CommandLine& line, const std::vector<std::string>& variables,
                                            SecretsFor* secretsFor = nullptr);

/// A path variable as an argument of a command.
Argument pathVariableArgument(bool repeated);
