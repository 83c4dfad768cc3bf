// PmenvTest.h - pmenv as a user runs it: arguments and environment in; standard output, standard error and exit code out.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

inline constexpr char kSettings[] =
    "KR_VERSION = 12\n"
    "KR_BUILD = 345\n"
    "BASE = /opt/pm\n"
    "BIN = #{BASE}/bin\n"
    "LOG = $(HOME)/logs\n"
    "EMPTY =\n"
    "LOOP = #(LOOP2)\n"
    "LOOP2 = x#(LOOP)\n"
    "[engine]\n"
    "threads = 8\n";

// A secret. No output of pmenv may contain it, unless that was asked for.
inline constexpr char kCanary[] = "c4n4ry-5ecre7";

/// A directory with a pressmark.ini, and pmenv called in it.
class Pmenv : public testing::Test {
protected:
    Pmenv() { directory_.writeFile("pressmark.ini", kSettings); }

    std::string ini() const { return directory_ / "pressmark.ini"; }

    // The variables that pmenv looks at are set as the test says, or not at all.
    static std::map<std::string, const char*> environmentOf(const Environment& given) {
        std::map<std::string, const char*> all{
            {"HOME", "/home/user"}, {"KR_BIN", nullptr}, {"MYDOCUMENTS", nullptr},    {"PM_LOG", nullptr},
            {"NO_COLOR", nullptr},  {"TERM", "xterm"},   {"PM_CANARY_TOKEN", kCanary}};
        for (const auto& [name, value] : given) all[name] = value.c_str();
        return all;
    }

    static Words pmenv(Words words) {
        words.insert(words.begin(), PMENV_BINARY);
        return words;
    }

    ProgramResult run(Words words, const Environment& environment = {}) const {
        const ScopedCwd here(directory_.path());
        const bool mayShow = showsSecrets(words);
        const ProgramResult outcome = runProgram(pmenv(std::move(words)), environmentOf(environment));
        EXPECT_TRUE(mayShow || (outcome.out + outcome.err).find(kCanary) == std::string::npos)
            << "a secret is shown in\n"
            << outcome.out << outcome.err;
        return outcome;
    }

    // `get` is asked for one value, and says it.
    static bool showsSecrets(const Words& words) {
        return std::count(words.begin(), words.end(), "--show-secrets") +
                   std::count(words.begin(), words.end(), "get") >
               0;
    }

    // With --ini for this directory's settings.
    ProgramResult runHere(Words words, const Environment& environment = {}) const {
        words.insert(words.begin(), {"--ini", ini()});
        return run(std::move(words), environment);
    }

    TempDir directory_;
};

/// pmenv called where the test is, for what depends on no settings and no environment.
inline ProgramResult runPmenv(Words words) {
    words.insert(words.begin(), PMENV_BINARY);
    return runProgram(words, {{"NO_COLOR", "1"}});
}
