// environment.h - replaces getenv, so that each input has a process environment of its own.
#pragma once

#include <map>
#include <optional>
#include <string>

inline std::map<std::string, std::string>& fuzzedEnvironment() {
    static std::map<std::string, std::string> variables;
    return variables;
}

inline std::optional<std::string> variableIn(const std::map<std::string, std::string>& variables,
                                             const std::string& name) {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
}

extern "C" inline __attribute__((used, visibility("default"))) char* __wrap_getenv(const char* name) {
    const auto found = fuzzedEnvironment().find(name);
    return found != fuzzedEnvironment().end() ? found->second.data() : nullptr;
}
