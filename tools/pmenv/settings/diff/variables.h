// variables.h - the environment of one side of a comparison.
#pragma once

#include <map>
#include <string>
#include <vector>

using Variables = std::map<std::string, std::string>;

/// Reads NAME=value lines, as env(1) prints them; blank lines and lines that begin with # are skipped, a later line of a
/// name counts. Throws Failure with the line of anything else.
Variables readVariables(const std::string& file);

/// For the length of a scope the process environment holds these variables and no others.
class ScopedVariables {
public:
    explicit ScopedVariables(const Variables& variables);
    ~ScopedVariables();
    ScopedVariables(const ScopedVariables&) = delete;
    ScopedVariables& operator=(const ScopedVariables&) = delete;

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
    char** before_;
};
