#include "settingsFile.h"

#include <utility>

#include "CommandLineArguments.h"
#include "failure.h"
#include "krenv.h"

namespace {

constexpr char kFileName[] = "pressmark.ini";

std::string chosenFile(const std::string& chosen) {
    if (chosen.empty()) throw Failure("--ini needs a settings file or a directory, not an empty text", kExitUsage);
    return KRPIsClosedFileADirectory(chosen.c_str()) ? chosen + "/" + kFileName : chosen;
}

}  // namespace

std::string programDirectory() {
    char program[4096] = "";
    KRPAbsPath(nCommandLineArguments::gGet(0).c_str(), program, sizeof program);
    KREnvContainerClass env;
    return env.KRPGetPathDirectory(program);
}

SearchResult searchSettingsFile() { return searchFile(kFileName, {programDirectory(), "$KR_BIN", "HOME"}, nullptr); }

std::string settingsFile(const CommandLine& line) {
    if (line.texts("ini").size() > 1) throw Failure("--ini is given twice; which settings are meant?", kExitUsage);
    if (line.has("ini")) return chosenFile(line.text("ini"));
    const SearchResult result = searchSettingsFile();
    if (result.path) return *result.path;
    throw Failure(std::string(kFileName) + " not found; looked in" + placesText(result.places) +
                  "\nSet KR_BIN to the directory that holds it, or choose a file with --ini.");
}

Settings loadSettings(const CommandLine& line) { return Settings(settingsFile(line)); }

std::string furtherName(const CommandLine& line) {
    if (!line.has("file") || !line.text("file").empty()) return line.text("file");
    throw Failure("--file needs the name of a settings file, not an empty text", kExitUsage);
}

Option furtherFileOption() {
    return {"file", Option::Kind::FurtherFile, "FILE", "read FILE in the directory that the setting KR_BIN names"};
}

AskedSettings::AskedSettings(const CommandLine& line) : name_(furtherName(line)), pressmark_(settingsFile(line)) {
    readFurther();
}

AskedSettings::AskedSettings(const CommandLine& line, SecretsFor* secretsFor)
    : name_(furtherName(line)), pressmark_(settingsFile(line), secretsFor(line, settingsFile(line))) {
    readFurther();
}

void AskedSettings::readFurther() {
    if (!name_.empty()) further_.emplace(pressmark_, name_);
}
