// settingsFile.h - which settings file this run of pmenv reads.
#pragma once

#include <optional>
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

/// The name that --file gives; "" without it. Throws Failure when it is empty.
std::string furtherName(const CommandLine& line);

/// The option --file of commands that read settings.
Option furtherFileOption();

/// What is secret for a command that shows the settings of `file`: secretsFor of knownKeys/knownSecrets.h.
using SecretsFor = Secrets(const CommandLine& line, const std::string& file);

/// The settings that the command is about: of the file of --file, else of pressmark.ini.
class AskedSettings {
public:
    explicit AskedSettings(const CommandLine& line);
    /// The same, for a command that shows all settings. `secretsFor` tells what is secret with a settings file.
    AskedSettings(const CommandLine& line, SecretsFor* secretsFor);

    const Settings& operator*() const { return further_ ? *further_ : pressmark_; }

private:
    void readFurther();

    std::string name_;  // of --file; an empty one is refused before any file is read
    Settings pressmark_;
    std::optional<FurtherSettings> further_;
};
