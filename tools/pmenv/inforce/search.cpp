#include "search.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "krenv.h"

namespace {

// --- variables ------------------------------------------------------------------------------------------------------

// The environment variable that a path variable names; "" for a setting or a literal list.
std::string environmentNameOf(const std::string& variable) {
    if (variable == "PATH" || variable == "HOME" || variable == "MYDOCUMENTS") return variable;
    return variable[0] == '$' ? variable.substr(1) : "";
}

std::string settingProblem(const Settings& settings, const std::string& name) {
    const Setting setting = settings.read(name);
    return setting.expanded ? "the setting is empty" : setting.problem;
}

// Why a variable stands for no directory.
std::string variableProblem(const std::string& variable, const Settings* settings) {
    if (variable.empty()) return "an empty variable; it ends the search";
    if (variable[0] == '#' && settings != nullptr) return settingProblem(*settings, variable.substr(1));
    const std::string name = environmentNameOf(variable);
    if (name.empty()) return "names no directory";
    return std::getenv(name.c_str()) == nullptr ? "variable not set" : "variable is empty";
}

bool hides(const std::string& variable, const Settings* settings) {
    if (variable[0] == '#') return settings != nullptr && settings->readHidden(variable.substr(1)).hidesExpanded;
    const std::string name = environmentNameOf(variable);
    const char* const value = std::getenv(name.c_str());
    return value != nullptr && Secrets().partsOf(name, value).any();
}

std::string shownDirectory(const Place& place) { return place.isHidden ? HiddenParts::kShown : *place.directory; }

const char* resolve(KREnvContainerClass& env, const std::string& variable, const Settings* settings) {
    return settings != nullptr ? env.KRPResolvePathVar(variable.c_str())
                               : env.KRPResolvePathVarNoKREnv(variable.c_str());
}

std::vector<std::string> splitList(const std::string& list) {
    std::vector<std::string> directories;
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(':', begin), list.size());
        if (end != begin) directories.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return directories;
}

std::string directoryProblem(const std::string& directory) {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) return errno == ENOENT ? "no such directory" : std::strerror(errno);
    return KRPIsClosedFileADirectory(directory.c_str()) ? "" : "not a directory";
}

// --- files ----------------------------------------------------------------------------------------------------------

std::string fileProblem(const std::string& directory, const std::string& name) {
    KREnvContainerClass env;
    const char* const candidate = env.KRPConcatDirAndName(directory.c_str(), name.c_str());
    if (candidate == nullptr) return "the path is longer than 4095 characters";
    struct stat status {};
    if (stat(candidate, &status) == 0) return "the file has come there only now";
    if (errno != ENOENT) return std::strerror(errno);
    return lstat(candidate, &status) == 0 ? "a link to nothing there" : "no such file there";
}

const char* findIn(KREnvContainerClass& env, const std::string& name, const std::string& variable,
                   const Settings* settings) {
    const auto end = static_cast<const char*>(nullptr);
    return settings != nullptr ? env.KRPFindfile(name.c_str(), variable.c_str(), end)
                               : env.KRPFindfileNoKREnv(name.c_str(), variable.c_str(), end);
}

void addPlaces(std::vector<Place>& places, const std::string& name, const std::string& variable,
               const Settings* settings) {
    for (Place& place : resolveVariable(variable, settings).places) {
        if (place.problem.empty()) place.problem = fileProblem(*place.directory, name);
        places.push_back(std::move(place));
    }
}

}  // namespace

Resolution resolveVariable(const std::string& variable, const Settings* settings) {
    KREnvContainerClass env;
    const char* const value = resolve(env, variable, settings);
    if (value == nullptr) return {std::nullopt, {{variable, std::nullopt, variableProblem(variable, settings)}}};

    Resolution resolution{value, {}};
    const bool isHidden = hides(variable, settings);
    for (const std::string& directory : splitList(value)) {
        resolution.places.push_back({variable, directory, directoryProblem(directory), isHidden});
    }
    if (resolution.places.empty())
        resolution.places.push_back({variable, std::nullopt, variableProblem(variable, settings)});
    return resolution;
}

// One call for each variable finds what one call for all would: they are tried in order and an empty one ends the list.
SearchResult searchFile(const std::string& name, const std::vector<std::string>& variables, const Settings* settings) {
    KREnvContainerClass env;
    SearchResult result;
    for (const std::string& variable : variables) {
        if (const char* const path = findIn(env, name, variable, settings)) return {path, variable, result.places};
        addPlaces(result.places, name, variable, settings);
        if (variable.empty()) break;
    }
    return result;
}

std::string placesText(const std::vector<Place>& places) {
    std::string text;
    std::size_t number = 0;
    for (const Place& place : places) {
        const std::string variable = place.variable.empty() ? "''" : place.variable;
        const bool same = place.directory && *place.directory == place.variable;
        text += "\n  " + std::to_string(++number) + ". " + variable;
        if (place.directory && !same) text += ", " + shownDirectory(place);
        text += ": " + place.problem;
    }
    return text;
}

Json placesJson(const std::vector<Place>& places) {
    Json list = Json::array();
    for (const Place& place : places) {
        list.push_back({{"variable", place.variable},
                        {"directory", place.directory ? Json(shownDirectory(place)) : Json()},
                        {"problem", place.problem.empty() ? Json() : Json(place.problem)}});
    }
    return list;
}
