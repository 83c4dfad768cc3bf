// pmenv check, as a user runs it. What it prints for each kind of finding stands in golden/check: NAME.txt for NAME.ini.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"
#include "support/repeated.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

using Words = std::vector<std::string>;

// The variables that the files of golden/check refer to; the other names in them belong to no variable anywhere.
const std::map<std::string, const char*> kEnvironment{{"HOME", "/home/user"},   {"KR_BIN", nullptr},
                                                      {"NO_COLOR", nullptr},    {"PM_CYCLE", "${PM_CYCLE}"},
                                                      {"PM_INSTANCE", nullptr}, {"PM_VALUE", "#(MISSING) and #(BASE)"},
                                                      {"http_proxy", nullptr}};

ProgramResult check(const std::string& directory, Words words) {
    words.insert(words.begin(), {PMENV_BINARY, "check"});
    const ScopedCwd here(directory);
    return runProgram(words, kEnvironment);
}

// --- golden files ---------------------------------------------------------------------------------------------------

struct GoldenRow {
    const char* name;
    int exitCode;
    const char* summary;
};

class PmenvCheckGolden : public testing::TestWithParam<GoldenRow> {};

TEST_P(PmenvCheckGolden, PrintsWhatIsWrongWithThePlace) {
    const std::string name = GetParam().name;
    const ProgramResult result = check(GOLDEN_DIR "/check", {name + ".ini"});
    EXPECT_EQ(readFileText(GOLDEN_DIR "/check/" + name + ".txt"), result.out);
    EXPECT_EQ(std::string(GetParam().summary) + "\n", result.err);
    EXPECT_EQ(GetParam().exitCode, result.status);
}

INSTANTIATE_TEST_SUITE_P(Files, PmenvCheckGolden,
                         testing::Values(GoldenRow{"clean", 0, "0 errors, 0 warnings"},
                                         GoldenRow{"cycles", 1, "21 errors, 0 warnings"},
                                         GoldenRow{"duplicates", 0, "0 errors, 2 warnings"},
                                         GoldenRow{"excerpts", 1, "2 errors, 3 warnings"},
                                         GoldenRow{"limits", 1, "4 errors, 0 warnings"},
                                         GoldenRow{"literals", 0, "0 errors, 11 warnings"},
                                         GoldenRow{"references", 1, "11 errors, 5 warnings"},
                                         GoldenRow{"syntax", 1, "5 errors, 0 warnings"}),
                         [](const auto& row) { return row.param.name; });

// --- the command ----------------------------------------------------------------------------------------------------

class PmenvCheck : public testing::Test {
protected:
    ProgramResult run(const Words& words) const { return check(directory_.path(), words); }
    ProgramResult runOn(const std::string& text, Words words = {}) const {
        directory_.writeFile("a.ini", text);
        words.push_back("a.ini");
        return run(words);
    }

    const TempDir directory_;
};

TEST_F(PmenvCheck, JsonHasEachFindingWithItsSource) {
    const ProgramResult result = runOn("A = 1\nB = ä #(AA)\nno\n", {"--json"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.err);
    const json undefined{{"line", 2},
                         {"column", 8},
                         {"length", 5},
                         {"severity", "error"},
                         {"rule", "undefined-setting"},
                         {"text", "the setting 'AA' is not defined; did you mean 'A'?"},
                         {"source", "B = ä #(AA)"}};
    const json refused{{"line", 3},           {"column", 1},      {"length", 1},
                       {"severity", "error"}, {"rule", "syntax"}, {"text", "missing '=', expected KEY = value"},
                       {"source", "no"}};
    EXPECT_EQ(json::array({{{"file", "a.ini"}, {"findings", {undefined, refused}}}}), json::parse(result.out));
}

TEST_F(PmenvCheck, StrictTakesWarningsForErrors) {
    EXPECT_EQ(0, runOn("A = 1\nA = 2\n").status);
    EXPECT_EQ(1, runOn("A = 1\nA = 2\n", {"--strict"}).status);
    EXPECT_EQ(0, runOn("A = 1\n", {"--strict"}).status);
}

TEST_F(PmenvCheck, TakesSeveralFilesAndGoesOnBehindOneThatCannotBeRead) {
    directory_.writeFile("b.ini", "B\n");
    const ProgramResult result = runOn("A\n", {"none.ini", "b.ini"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.out, HasSubstr("b.ini:1:1: error: missing '='"));
    EXPECT_THAT(result.out, HasSubstr("a.ini:1:1: error: missing '='"));
    EXPECT_LT(result.out.find("b.ini"), result.out.find("a.ini"));
    EXPECT_EQ(
        "pmenv: cannot check the settings: none.ini: cannot open the file: No such file or directory\n"
        "2 errors, 0 warnings\n",
        result.err);
}

TEST_F(PmenvCheck, AFileThatCannotBeReadIsWrongByItself) {
    EXPECT_EQ(1, run({"none.ini"}).status);
    const json answer = json::parse(run({"none.ini", "--json"}).out);
    EXPECT_EQ(json::array({{{"file", "none.ini"},
                            {"problem",
                             "cannot check the settings: none.ini: cannot open the file: No such file or directory"}}}),
              answer);
}

TEST_F(PmenvCheck, WithoutAFileChecksTheSettingsInForceAndSaysWhere) {
    const std::string bin = directory_.makeDirectory("bin");
    directory_.writeFile("bin/pressmark.ini", "KR_VERSION = 1\nKR_BUILD = 2\nA\n");
    auto environment = kEnvironment;
    environment["KR_BIN"] = bin.c_str();
    const ProgramResult result = runProgram({PMENV_BINARY, "check"}, environment);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.out, HasSubstr(bin + "/pressmark.ini:3:1: error: missing '='"));
    EXPECT_THAT(result.err,
                HasSubstr("checking " + bin + "/pressmark.ini, found in $KR_BIN; not found before that in"));
    EXPECT_THAT(result.err, HasSubstr(": no such file there\n"));
}

TEST_F(PmenvCheck, WithoutAFileTakesTheOneOfIni) {
    directory_.writeFile("pressmark.ini", "KR_BUILD = 2\n");
    const ProgramResult result = run({"--ini", "."});
    EXPECT_EQ(
        "./pressmark.ini:1:1: warning: KR_VERSION is not set [missing-release]\n"
        "    1 | KR_BUILD = 2\n"
        "      | ^\n",
        result.out);
    EXPECT_EQ("0 errors, 1 warning\n", result.err);
}

TEST_F(PmenvCheck, ExpectsAReleaseInPressmarkIniOnly) {
    EXPECT_EQ("", runOn("").out);
    directory_.writeFile("pressmark.ini", "");
    EXPECT_EQ(
        "pressmark.ini:1:1: warning: KR_VERSION is not set [missing-release]\n"
        "    1 | \n"
        "      | ^\n"
        "pressmark.ini:1:1: warning: KR_BUILD is not set [missing-release]\n"
        "    1 | \n"
        "      | ^\n",
        run({"pressmark.ini"}).out);
}

TEST_F(PmenvCheck, FindsInTheSampleOnlyWhatThisEnvironmentLacks) {
    const ProgramResult result = run({EXAMPLES_DIR "/pressmark.ini", "--json"});
    EXPECT_EQ(0, result.status);
    const json answer = json::parse(result.out);
    std::vector<std::string> texts;
    for (const json& finding : answer[0]["findings"]) texts.push_back(finding["text"]);
    EXPECT_THAT(texts, ElementsAre("the process variable 'PM_INSTANCE' is not set",
                                   "the process variable 'PM_INSTANCE' is not set",
                                   "the process variable 'http_proxy' is not set"));
}

TEST_F(PmenvCheck, TheLibrarysRefusalsAreFindings) {
    const std::filesystem::path corpus = CORPUS_DIR;
    for (const auto& file : std::filesystem::directory_iterator(corpus)) {
        SCOPED_TRACE(file.path());
        const bool loads = runProgram({PMENV_BINARY, "list", "--ini", file.path()}, kEnvironment)
                               .err.find("cannot load the settings") == std::string::npos;
        const json answer = json::parse(run({file.path(), "--json"}).out);
        bool syntaxErrors = false;
        for (const json& finding : answer[0]["findings"]) syntaxErrors |= finding["rule"] == "syntax";
        EXPECT_EQ(loads, !syntaxErrors);
    }
}

TEST_F(PmenvCheck, RulesAreListedWithAParagraphEach) {
    const ProgramResult text = run({"--rules"});
    const json rules = json::parse(run({"--rules", "--json"}).out);
    EXPECT_EQ(0, text.status);
    ASSERT_EQ(11U, rules.size());
    for (const json& rule : rules) {
        const std::string name = rule["rule"];
        EXPECT_THAT(text.out, HasSubstr(name + " (" + std::string(rule["severity"]) + ")\n    "));
        EXPECT_GT(std::string(rule["text"]).size(), 60U) << name;
    }
}

TEST_F(PmenvCheck, EndsOnFilesThatAreMadeToKeepItBusy) {
    std::string doubling = "B0 =\n";
    for (int i = 1; i <= 30; ++i) {
        const std::string half = "#(B" + std::to_string(i - 1) + ")";
        doubling += "B" + std::to_string(i) + " = " + half + half + "\n";
    }
    std::string loading = "A = #{A}\n";
    for (int i = 0; i < 1000; ++i) loading += "A" + std::to_string(i) + " = ${PM_BOMB}\n";
    const ScopedEnv bomb("PM_BOMB", "##${X}${PM_BOMB} ");
    for (const std::string& text :
         {doubling, doubling + repeated("X = #(B30)\n", 1000), "P = (P)(P)##\n" + repeated("X = ##(P)\n", 1000),
          loading, "X = 0123456789abcde\nV = " + repeated("#(X)", 60'000) + "\n",
          "V = " + repeated("${", 500'000) + "\nW = " + repeated("$(", 500'000) + "\n"}) {
        EXPECT_THAT(runOn(text).status, testing::AnyOf(0, 1));
    }
    EXPECT_THAT(runOn(doubling).out, HasSubstr("[too-much-work]"));
}

TEST_F(PmenvCheck, EndsTheLoadOfAFileThatTakesTooLong) {
    std::string text = "E =\n";
    for (int i = 0; i < 40; ++i) text += "X" + std::to_string(i) + " = " + repeated("#{E} ", 60'000) + "\n";
    const ProgramResult result = runOn(text);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.out, HasSubstr("error: expanding the values takes too much work"));
}

}  // namespace
