#include "knownKeys/knownSecrets.h"

#include <utility>

#include "failure.h"
#include "knownKeys/chosenKeys.h"
#include "krs.h"
#include "settings.h"
#include "settingsFile.h"

namespace {

// Most files name no known keys, and are not loaded once more for that.
bool namesKnownKeys(const std::string& file) {
    bool found = false;
    KRSReadLines(file.c_str(), [&found](const KRSLine& line) {
        found = found || (line.key != nullptr && std::string(line.key) == kKeysSetting);
    });
    return found;
}

// Those that PMENV_KEYS of the file names.
void addNamedKeys(Secrets& secrets, const Settings& settings) {
    try {
        const auto keys = keysOfSetting(settings.file(), settings.read(kKeysSetting).expanded);
        if (keys) secrets = withKnownKeys(std::move(secrets), *keys);
    } catch (const Failure&) {
    }
}

// A file that cannot be loaded shows no settings, and its command says so.
void addNamedKeys(Secrets& secrets, const std::string& file, const std::string& further) {
    if (further.empty() && !namesKnownKeys(file)) return;
    try {
        const Settings settings(file, Settings::Warnings::Off);
        addNamedKeys(secrets, settings);
        if (!further.empty()) addNamedKeys(secrets, FurtherSettings(settings, further));
    } catch (const Failure&) {
    }
}

}  // namespace

Secrets withKnownKeys(Secrets secrets, const KnownKeys& keys) {
    for (const KnownKey& key : keys.all()) {
        if (key.isSecret) secrets.declare(key.name, true);
    }
    return secrets;
}

Secrets secretsFor(const CommandLine& line, const std::string& file) {
    Secrets secrets = secretsOf(line);
    if (const auto keys = keysOfOption(line)) secrets = withKnownKeys(std::move(secrets), *keys);
    addNamedKeys(secrets, file, furtherName(line));
    return secrets;
}
