#include "knownKeys/knownSecrets.h"

#include <utility>

#include "failure.h"
#include "knownKeys/chosenKeys.h"
#include "krs.h"
#include "settings.h"

namespace {

// Most files name no known keys, and are not loaded once more for that.
bool namesKnownKeys(const std::string& file) {
    bool found = false;
    KRSReadLines(file.c_str(), [&found](const KRSLine& line) {
        found = found || (line.key != nullptr && std::string(line.key) == kKeysSetting);
    });
    return found;
}

}  // namespace

Secrets withKnownKeys(Secrets secrets, const std::optional<KnownKeys>& keys) {
    if (!keys) return secrets;
    for (const KnownKey& key : keys->all()) {
        if (key.isSecret) secrets.declare(key.name, true);
    }
    return secrets;
}

Secrets secretsFor(const CommandLine& line, const std::string& file) {
    const Secrets secrets = secretsOf(line);
    if (line.has("keys")) return withKnownKeys(secrets, keysOfOption(line));
    if (!namesKnownKeys(file)) return secrets;
    try {
        return withKnownKeys(secrets, keysOfSetting(file, Settings(file).read(kKeysSetting).expanded));
    } catch (const Failure&) {
        return secrets;
    }
}
