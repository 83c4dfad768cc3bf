// A host program on the tiny facilities: the library starts with the main scope, loads a settings file, expands a value
// and logs. Exits 0 when all of it works.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "ExecutableDirectory.h"
#include "Lifetime.h"
#include "Logging.h"
#include "krenv.h"

namespace {

int failures = 0;

void check(bool holds, const char* what) {
    if (holds) return;
    ++failures;
    std::cerr << "smoke: failed: " << what << '\n';
}

std::string textOr(const char* text, const char* otherwise) { return text != nullptr ? text : otherwise; }

bool wasLogged(nLogging::Level level, const std::string& text) {
    for (const nLogging::Record& record : nLogging::gRecords()) {
        if (record.level == level && record.text == text) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const std::filesystem::path directory = std::filesystem::absolute(argv[0]).parent_path();
    std::ofstream(directory / "pressmark.ini") << "BASE=base\nLOADED=#{BASE}/x\nREAD=$(SMOKE)/#(LOADED)\n";
    setenv("SMOKE", "smoke", 1);
    unsetenv("KR_BIN");
    unsetenv("HOME");

    const nLifetime::MainScope scope(argc, argv);
    KREnvContainerClass container;
    check(wasLogged(nLogging::Level::Trace, "KREInit"), "the main scope starts the library");
    check(n_debug::nExecutableDirectory::gGet() == directory, "the executable's directory is registered");
    check(textOr(container.KREGetEnv("LOADED"), "") == "base/x", "a brace reference is expanded as the file is loaded");
    check(textOr(container.KREGetEnv("READ"), "") == "smoke/base/x", "parenthesis references are expanded on reading");
    check(container.KREGetEnv("ABSENT") == nullptr, "an absent setting is null");
    container.KRESetEnvValue("READ", "set");
    check(textOr(container.KREGetEnvValue("READ"), "") == "set", "a run-time value comes first");

    check(KREInit("/no/such/directory") == 0, "a directory without the file is refused");
    check(wasLogged(nLogging::Level::Error, "PMEnvironment: pressmark.ini not found"), "and logged");
    return failures == 0 ? 0 : 1;
}
