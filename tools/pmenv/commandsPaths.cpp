// find, resolve and path: the library's path functions.
#include <algorithm>
#include <iostream>
#include <memory>

#include "commands.h"
#include "failure.h"
#include "krenv.h"
#include "output.h"
#include "search.h"
#include "settingsFile.h"

namespace {

constexpr std::size_t kLongestPath = 4095;

// --- settings for "#X" ----------------------------------------------------------------------------------------------

bool namesSetting(const std::string& variable) { return !variable.empty() && variable[0] == '#'; }

// Only a "#X" needs settings; other searches work where there is no pressmark.ini.
std::unique_ptr<const Settings> settingsFor(const CommandLine& line, const std::vector<std::string>& variables) {
    if (std::none_of(variables.begin(), variables.end(), namesSetting)) return nullptr;
    return std::make_unique<const Settings>(loadSettings(line));
}

// --- arguments ------------------------------------------------------------------------------------------------------

// The library would cut a longer path without a word.
const char* checkedPath(const std::string& path) {
    if (path.size() <= kLongestPath) return path.c_str();
    throw Failure("the path has " + std::to_string(path.size()) + " characters, the limit is " +
                  std::to_string(kLongestPath) + ": " + path.substr(0, 60) + "...");
}

int printPath(const CommandLine& line, const std::string& path) {
    if (line.has("json")) {
        printJson({{"path", path}});
    } else {
        std::cout << path << "\n";
    }
    return kExitDone;
}

// --- path shorten ---------------------------------------------------------------------------------------------------

int parseWidth(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 4 && text.find_first_not_of("0123456789") == std::string::npos;
    const int width = digits ? std::stoi(text) : 0;
    if (width >= 1 && width <= static_cast<int>(kLongestPath)) return width;
    throw Failure("WIDTH is a whole number from 1 to " + std::to_string(kLongestPath) + ", not '" + text + "'",
                  kExitUsage);
}

std::size_t narrowestWidth(const std::string& path) {
    KREnvContainerClass env;
    char* name = nullptr;
    char* extension = nullptr;
    env.KRPSplitPath(path.c_str(), nullptr, &name, &extension);
    return std::string(name).size() + std::string(extension).size() + 5;
}

// --- path abs -------------------------------------------------------------------------------------------------------

bool isBareName(const std::string& path) {
    KREnvContainerClass env;
    return *env.KRPGetPathDirectory(path.c_str()) == '\0';
}

[[noreturn]] void failAbsolute(const std::string& path, const Settings* settings) {
    if (!isBareName(path)) {
        KREnvContainerClass env;
        throw Failure(path + ": there is no directory " + env.KRPGetPathDirectory(path.c_str()));
    }
    const SearchResult result = searchFile(path, {".", "#INCLUDE_PATH"}, settings);
    throw Failure(path + ": not found; looked in" + placesText(result.places));
}

// A bare name that is not in the working directory is searched in the setting INCLUDE_PATH.
std::unique_ptr<const Settings> settingsForAbsolute(const CommandLine& line, const std::string& path) {
    if (!isBareName(path) || searchFile(path, {"."}, nullptr).path) return nullptr;
    return std::make_unique<const Settings>(loadSettings(line));
}

}  // namespace

int runFind(const CommandLine& line) {
    const std::string name = checkedPath(line.arguments()[0]);
    const std::vector<std::string> variables(line.arguments().begin() + 1, line.arguments().end());
    const auto settings = settingsFor(line, variables);
    const SearchResult result = searchFile(name, variables, settings.get());

    if (line.has("json")) {
        printJson({{"file", name},
                   {"path", result.path ? Json(*result.path) : Json()},
                   {"variable", result.path ? Json(result.variable) : Json()},
                   {"tried", result.path ? Json::array() : placesJson(result.places)}});
    } else if (result.path) {
        std::cout << *result.path << "\n";
    }
    if (result.path) return kExitDone;
    printError(name + ": not found; looked in" + placesText(result.places));
    return kExitWrong;
}

int runResolve(const CommandLine& line) {
    const std::string variable = line.arguments()[0];
    const auto settings = settingsFor(line, {variable});
    const Resolution resolution = resolveVariable(variable, settings.get());

    if (line.has("json")) {
        printJson({{"variable", variable},
                   {"value", resolution.value ? Json(*resolution.value) : Json()},
                   {"directories", placesJson(resolution.places)}});
    } else if (resolution.value) {
        std::cout << *resolution.value << "\n";
    }
    if (resolution.value) return kExitDone;
    printError("'" + variable + "' stands for nothing: " + resolution.places[0].problem);
    return kExitWrong;
}

int runPathSplit(const CommandLine& line) {
    KREnvContainerClass env;
    char* directory = nullptr;
    char* name = nullptr;
    char* extension = nullptr;
    env.KRPSplitPath(checkedPath(line.arguments()[0]), &directory, &name, &extension);
    if (line.has("json")) {
        printJson({{"directory", directory}, {"name", name}, {"extension", extension}});
    } else {
        std::cout << "directory  " << directory << "\nname       " << name << "\nextension  " << extension << "\n";
    }
    return kExitDone;
}

int runPathMake(const CommandLine& line) {
    const std::vector<std::string>& parts = line.arguments();
    const std::string extension = parts.size() > 2 ? parts[2] : "";
    KREnvContainerClass env;
    const char* const path = env.KRPMakePath(parts[0].c_str(), parts[1].c_str(), extension.c_str());
    if (path == nullptr)
        throw Failure("the composed path is longer than " + std::to_string(kLongestPath) + " characters");
    return printPath(line, path);
}

int runPathShorten(const CommandLine& line) {
    const std::string path = checkedPath(line.arguments()[0]);
    const int width = parseWidth(line.arguments()[1]);
    KREnvContainerClass env;
    char shortened[kLongestPath + 1];
    if (env.KRPAdjustPathLen(path.c_str(), shortened, width) != nullptr) return printPath(line, shortened);
    throw Failure(path + ": cannot be shortened to " + std::to_string(width) +
                  " characters, its name and extension need " + std::to_string(narrowestWidth(path)));
}

int runPathAbs(const CommandLine& line) {
    const std::string path = checkedPath(line.arguments()[0]);
    const auto settings = settingsForAbsolute(line, path);
    KREnvContainerClass env;
    char absolute[kLongestPath + 1];
    if (env.KRPGetFullName(path.c_str(), absolute, sizeof absolute) == nullptr) failAbsolute(path, settings.get());
    return printPath(line, absolute);
}
