// settingsFile.h - which settings file this run of pmenv reads.
#pragma once

#include <string>

#include "commandLine.h"
#include "search.h"
#include "settings.h"

/// The directory of pmenv itself, links followed.
std::string programDirectory();

/// pressmark.ini as KREInit would find it: in the program's directory, in $KR_BIN, in HOME.
SearchResult searchSettingsFile();

/// The file of --ini, or the one that searchSettingsFile finds. Throws Failure, naming every place tried, when there is none.
std::string settingsFile(const CommandLine& line);

/// The settings of that file.
Settings loadSettings(const CommandLine& line);
