// chosenKeys.h - which known keys count: those of --keys, else those that the setting PMENV_KEYS names.
#pragma once

#include <optional>
#include <string>

#include "commandLine.h"
#include "knownKeys/knownKeys.h"

Option keysOption();

/// The known keys of --keys; none without it. Throws Failure when they cannot be used.
std::optional<KnownKeys> keysOfOption(const CommandLine& line);

/// Those that PMENV_KEYS of the file `settingsFile` names with its expanded value; none when that is empty or absent.
/// Throws Failure when they cannot be used.
std::optional<KnownKeys> keysOfSetting(const std::string& settingsFile, const std::optional<std::string>& value);

/// The one or the other.
std::optional<KnownKeys> chosenKeys(const CommandLine& line, const std::string& settingsFile,
                                    const std::optional<std::string>& value);
