#include "paths.h"

#include <algorithm>

#include "failure.h"

namespace {

bool namesSetting(const std::string& variable) { return !variable.empty() && variable[0] == '#'; }

}  // namespace

const char* checkedPath(const std::string& path) {
    if (path.size() <= kLongestPath) return path.c_str();
    throw Failure("the path has " + std::to_string(path.size()) + " characters, the limit is " +
                  std::to_string(kLongestPath) + ": " + path.substr(0, 60) + "...");
}

std::unique_ptr<const Settings> settingsFor(const CommandLine& line, const std::vector<std::string>& variables,
                                            SecretsFor* secretsFor) {
    if (std::none_of(variables.begin(), variables.end(), namesSetting)) return nullptr;
    const std::string file = settingsFile(line);
    return std::make_unique<const Settings>(file, secretsFor != nullptr ? secretsFor(line, file) : Secrets::none());
}

Argument pathVariableArgument(bool repeated) {
    return {"VAR",
            "PATH, HOME, MYDOCUMENTS, '$X' (environment variable X), '#X' (setting X), or directories separated by :",
            false, repeated, Offer::PathVariables};
}
