#include "knownKeys/chosenKeys.h"

#include "failure.h"

namespace {

std::string besides(const std::string& settingsFile, const std::string& path) {
    const bool isAbsolute = path.compare(0, 1, "/") == 0;
    return isAbsolute ? path : settingsFile.substr(0, settingsFile.rfind('/') + 1) + path;
}

}  // namespace

Option keysOption() {
    return {"keys", Option::Kind::File, "FILE",
            "the settings that the product knows, as FILE describes them; else the setting PMENV_KEYS names that file"};
}

std::optional<KnownKeys> keysOfOption(const CommandLine& line) {
    if (!line.has("keys")) return std::nullopt;
    if (line.text("keys").empty()) throw Failure("--keys needs a file, not an empty text", kExitUsage);
    return readKnownKeys(line.text("keys"));
}

std::optional<KnownKeys> keysOfSetting(const std::string& settingsFile, const std::optional<std::string>& value) {
    if (!value || value->empty()) return std::nullopt;
    return readKnownKeys(besides(settingsFile, *value));
}

std::optional<KnownKeys> chosenKeys(const CommandLine& line, const std::string& settingsFile,
                                    const std::optional<std::string>& value) {
    return line.has("keys") ? keysOfOption(line) : keysOfSetting(settingsFile, value);
}
