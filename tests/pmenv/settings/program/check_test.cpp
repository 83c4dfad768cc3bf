// pmenv check, as a user runs it. What it prints for each kind of finding stands in golden/check: NAME.txt for NAME.ini.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/rule.h"
#include "pmenv/PmenvTest.h"
#include "support/Sanitized.h"
#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"
#include "support/repeated.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

// The variables that the files of golden/check refer to; the other names in them belong to no variable anywhere.
const std::map<std::string, const char*> kEnvironment{{"HOME", "/home/user"},
                                                      {"KR_BIN", nullptr},
                                                      {"NO_COLOR", nullptr},
                                                      {"PM_CYCLE", "${PM_CYCLE}"},
                                                      {"PM_VALUE", "#(MISSING) and #(BASE)"}};

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

// The excerpt would begin within the first character, which is shown whole instead.
TEST_F(PmenvCheck, ExcerptThatReachesIntoTheFirstCharacterBeginsWithIt) {
    const std::string line = "ä = " + std::string(56, 'x') + "#(B)";
    EXPECT_THAT(runOn(line + "\n").out,
                HasSubstr("\n    1 | " + line + "\n      | " + std::string(60, ' ') + "^~~~\n"));
}

TEST_F(PmenvCheck, ExcerptWithoutTheFirstCharacterSaysSo) {
    const std::string line = "A = " + std::string(57, 'x') + "#(B)";
    EXPECT_THAT(runOn(line + "\n").out,
                HasSubstr("\n    1 | …" + line.substr(1) + "\n      | " + std::string(61, ' ') + "^~~~\n"));
}

TEST_F(PmenvCheck, ExcerptOfBytesThatBeginNoCharacterIsTheWholeLine) {
    EXPECT_THAT(runOn(std::string(100, '\x80') + " = #(B)\n").out,
                HasSubstr("\n    1 | " + repeated("\\x80", 100) + " = #(B)\n"));
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
        "2 errors, 0 warnings, 1 file not read\n",
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

TEST_F(PmenvCheck, FindsNothingInTheSample) {
    const ProgramResult result = run({EXAMPLES_DIR "/pressmark.ini", "--strict"});
    EXPECT_EQ("", result.out);
    EXPECT_EQ("0 errors, 0 warnings\n", result.err);
    EXPECT_EQ(0, result.status);
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

TEST_F(PmenvCheck, RulesAreListedWithDescriptionAndExample) {
    const ProgramResult text = run({"--rules"});
    const json rules = json::parse(run({"--rules", "--json"}).out);
    EXPECT_EQ(0, text.status);
    ASSERT_EQ(allRules().size(), rules.size());
    for (const json& rule : rules) {
        const std::string name = rule["rule"];
        EXPECT_THAT(text.out, HasSubstr(name + " (" + std::string(rule["severity"]) + ")\n    "));
        EXPECT_GT(std::string(rule["text"]).size(), 60U) << name;
        EXPECT_THAT(std::string(rule["repair"]), testing::MatchesRegex("[A-Z].*[.]")) << name;
        EXPECT_TRUE(rule["example"].is_string() || name == "too-much-work") << name;
    }
    EXPECT_THAT(text.out, HasSubstr("\n    Set KR_VERSION and KR_BUILD.\n"));
    EXPECT_THAT(text.out, HasSubstr("\n    instead of\n        PORT 8080\n    write\n        PORT = 8080\n\n"));
}

TEST_F(PmenvCheck, IgnoresRules) {
    EXPECT_EQ("", runOn("A = 1\nA = 2\n", {"--ignore", "duplicate-key"}).out);
    EXPECT_EQ(0, runOn("A = 1\nA = 2\na = ; x\n", {"--ignore", "duplicate-key", "--ignore=trailing-comment", "--ignore",
                                                   "differs-by-case", "--strict"})
                     .status);
    EXPECT_EQ("0 errors, 0 warnings\n", runOn("no\n", {"--ignore", "syntax"}).err);
    EXPECT_THAT(runOn("no\nA = 1\nA = 2\n", {"--ignore", "syntax"}).out, HasSubstr("[duplicate-key]"));
}

TEST_F(PmenvCheck, WrongUsageIsNamedAndExitsWithTwo) {
    const std::vector<std::pair<Words, std::string>> rows{
        {{"--ignore", "duplicate-keys"},
         "--ignore takes no 'duplicate-keys'; did you mean 'duplicate-key'? See 'pmenv check --help'"},
        {{"--ignore", ""}, "--ignore takes no ''; see 'pmenv check --help'"},
        {{"--format", "sarf"}, "--format takes no 'sarf'; did you mean 'sarif'? See 'pmenv check --help'"},
        {{"--format", "text", "--json"}, "--json and --format text contradict; see 'pmenv check --help'"},
        {{"--rules", "--format", "sarif"},
         "--rules are printed as text or json, not as sarif; see 'pmenv check --help'"},
        {{"a.ini", "--ini", "."},
         "FILE and --ini do not go together, each names what is checked; see 'pmenv check --help'"},
        {{"a.ini", "--file", "b.ini"}, "FILE and --file do not go together; see 'pmenv check --help'"},
        {{"--ini", ".", "--ini", "."}, "--ini is given twice; which settings are meant?"},
        {{"--file", ""}, "--file needs the name of a settings file, not an empty text"},
    };
    directory_.writeFile("pressmark.ini", "KR_BIN = .\n");
    for (const auto& [words, error] : rows) {
        SCOPED_TRACE(testing::PrintToString(words));
        const ProgramResult result = run(words);
        EXPECT_EQ(2, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_EQ("pmenv: " + error + "\n", result.err);
    }
}

// --- what can be checked --------------------------------------------------------------------------------------------

class PmenvCheckInput : public PmenvCheck {
protected:
    // By way of a shell: pmenv is $0.
    ProgramResult shell(const std::string& script) const {
        const ScopedCwd here(directory_.path());
        return runProgram({"/bin/bash", "-c", script, PMENV_BINARY}, kEnvironment);
    }
};

TEST_F(PmenvCheckInput, StandardInput) {
    const ProgramResult result = shell("printf 'A = 1\\nno\\n' | \"$0\" check -");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(
        "<stdin>:2:1: error: missing '=', expected KEY = value [syntax]\n"
        "    2 | no\n"
        "      | ^\n",
        result.out);
    EXPECT_EQ("1 error, 0 warnings\n", result.err);
    EXPECT_EQ("<stdin>", json::parse(shell("\"$0\" check - --json </dev/null").out).at(0).at("file"));
    EXPECT_EQ(0, shell("echo 'A = 1' >a; \"$0\" check - <a").status);
}

TEST_F(PmenvCheckInput, Pipe) {
    EXPECT_THAT(shell("\"$0\" check <(printf 'A = #(B)\\n')").out,
                testing::MatchesRegex("/dev/fd/[0-9]+:1:5: error: the setting 'B' is not defined .*\n.*\n.*\n"));
    EXPECT_EQ(0, shell("mkfifo p; echo 'A = 1' >p & \"$0\" check p").status);
}

TEST_F(PmenvCheckInput, ThatCannotBeHeldIsNotCheckedInPart) {
    directory_.writeFile("a.ini", repeated("; a comment of forty characters in a line\n", 50) + "A = #(B)\n");
    const ProgramResult result = shell("trap '' XFSZ; ulimit -f 1; \"$0\" check a.ini");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(
        "pmenv: cannot hold the settings in memory to check them\n"
        "0 errors, 0 warnings, 1 file not read\n",
        result.err);
}

TEST_F(PmenvCheckInput, FindingsStandBeforeTheirSummaryInOneLog) {
    directory_.writeFile("a.ini", "no\n");
    for (const std::string format : {"text", "github"}) {
        const std::string log = shell("\"$0\" check a.ini --format " + format + " 2>&1").out;
        EXPECT_LT(log.find("missing '='"), log.find("1 error, 0 warnings\n")) << log;
    }
}

TEST_F(PmenvCheckInput, LongPipe) {
    const ProgramResult result = shell("head -c 300000000 /dev/zero | tr '\\0' x | \"$0\" check -");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(
        "pmenv: cannot check the settings: <stdin>: the file is larger than 256 MiB, split it\n"
        "0 errors, 0 warnings, 1 file not read\n",
        result.err);
}

TEST_F(PmenvCheckInput, DirectoryStandsForItsSettingsFiles) {
    directory_.makeDirectory("conf/b/c.ini");
    directory_.writeFile("conf/z.ini", "z\n");
    directory_.writeFile("conf/b/x.ini", "x\n");
    directory_.writeFile("conf/b/c.ini/y.ini", "y\n");
    directory_.writeFile("conf/readme.txt", "t\n");
    const json answer = json::parse(run({"conf", "--json"}).out);
    std::vector<std::string> files;
    for (const json& file : answer) files.push_back(file.at("file"));
    EXPECT_THAT(files, ElementsAre("conf/b/c.ini/y.ini", "conf/b/x.ini", "conf/z.ini"));

    directory_.makeDirectory("odd");
    ASSERT_EQ(0, mkfifo((directory_ / "odd/pipe.ini").c_str(), 0600));
    ASSERT_EQ(0, symlink("nothing", (directory_ / "odd/link.ini").c_str()));
    EXPECT_EQ(
        "pmenv: cannot check the settings: odd/link.ini: cannot open the file: No such file or directory\n"
        "0 errors, 0 warnings, 1 file not read\n",
        run({"odd"}).err)
        << "the pipe is not waited for";

    directory_.makeDirectory("empty");
    const ProgramResult empty = run({"empty"});
    EXPECT_EQ(1, empty.status);
    EXPECT_EQ(
        "pmenv: cannot read the settings: empty: no *.ini file in this directory\n"
        "0 errors, 0 warnings, 1 file not read\n",
        empty.err);
}

// --- further settings files -----------------------------------------------------------------------------------------

class PmenvCheckFurther : public PmenvCheck {
protected:
    PmenvCheckFurther() {
        directory_.makeDirectory("bin");
        directory_.writeFile("pressmark.ini", "BASE = /opt\nKR_BIN = bin\nLOOP = #(LOOP)\nBOTH = p\n");
    }
    ProgramResult checkFurther(const std::string& text, Words words = {}) const {
        directory_.writeFile("bin/engine.ini", text);
        words.insert(words.begin(), {"--ini", ".", "--file", "engine.ini"});
        return run(words);
    }
};

TEST_F(PmenvCheckFurther, ReferencesMeanPressmarkIni) {
    const ProgramResult result = checkFurther("GOOD = #(BASE)/x $(HOME)\nNEAR = #(BAES)\nOWN = 1\nUSES = #(OWN)\n");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(
        "bin/engine.ini:2:8: error: the setting 'BAES' is not defined; did you mean 'BASE'? [undefined-setting]\n"
        "    2 | NEAR = #(BAES)\n"
        "      |        ^~~~~~~\n"
        "bin/engine.ini:4:8: error: the setting 'OWN' is not defined in pressmark.ini; the one on line 3 is not meant, "
        "references never mean this file itself [undefined-setting]\n"
        "    4 | USES = #(OWN)\n"
        "      |        ^~~~~~\n",
        result.out);
    EXPECT_EQ("2 errors, 0 warnings\n", result.err);
}

TEST_F(PmenvCheckFurther, AReferenceToWhatBothFilesHaveIsTold) {
    const ProgramResult result = checkFurther("BOTH = #(BOTH)/engine\nUSES = #(BOTH)\n");
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "bin/engine.ini:2:8: warning: the setting 'BOTH' of pressmark.ini is meant, not the one on line 1 [own-key]\n"
        "    2 | USES = #(BOTH)\n"
        "      |        ^~~~~~~\n",
        result.out);
}

TEST_F(PmenvCheckFurther, BracesAreNotExpanded) {
    const ProgramResult result = checkFurther("A = #{BASE}/${HOME}/#{}/{x}/${a b}\n");
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out, HasSubstr(":1:5: warning: '#{BASE}' stays as it stands, braces are expanded in "
                                      "pressmark.ini only; write '#(BASE)' [not-a-reference]\n"));
    EXPECT_THAT(result.out, HasSubstr(":1:13: warning: '${HOME}' stays as it stands"));
    EXPECT_EQ("0 errors, 3 warnings\n", result.err) << result.out;
}

TEST_F(PmenvCheckFurther, ACircleOfPressmarkIniIsAFindingToo) {
    EXPECT_THAT(checkFurther("LOOP = 1\nA = #(LOOP)\n").out,
                HasSubstr(":2:5: error: the references form a cycle: A -> LOOP -> LOOP; the setting cannot be read "
                          "[cycle]\n"));
}

TEST_F(PmenvCheckFurther, ADuplicateIsNeverTakenOver) {
    EXPECT_THAT(checkFurther("A = 1\nA = #{A},2\n").out, HasSubstr("'A' is set again; its value from line 1 is lost"));
}

TEST_F(PmenvCheckFurther, SaysWhatCannotBeRead) {
    const ProgramResult result = run({"--ini", ".", "--file", "none.ini", "--json"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("cannot check the settings: bin/none.ini: cannot open the file: No such file or directory",
              json::parse(result.out).at(0).at("problem"));
    EXPECT_THAT(run({"--ini", "none.ini", "--file", "engine.ini"}).err, HasSubstr("none.ini: cannot open the file"));
}

// --- much of everything ---------------------------------------------------------------------------------------------

// The limit of work is far below what expanding each setting by itself would take.
TEST_F(PmenvCheck, ExpandsEachSettingOfAChainOnce) {
    constexpr int kSettings = kSanitized ? 4'000 : 20'000;
    std::string text;
    for (int i = 0; i < kSettings; ++i) {
        const std::string name = std::to_string(i);
        text += "K" + name + " = " + (i % 400 == 399 ? "end" : "#(K" + std::to_string(i + 1) + ")") + "\n";
    }
    EXPECT_EQ("0 errors, 0 warnings\n", runOn(text).err);
    std::string reversed;
    for (int i = kSettings; i-- > 0;) {
        const std::string name = std::to_string(i);
        reversed += "K" + name + " = " + (i % 400 == 399 ? "end" : "#(K" + std::to_string(i + 1) + ")") + "\n";
    }
    EXPECT_EQ("0 errors, 0 warnings\n", runOn(reversed).err);
}

TEST_F(PmenvCheck, StopsAtAValueThatIsTooLong) {
    constexpr int kCharacters = kSanitized ? 6'000'000 : 30'000'000;
    const ProgramResult result =
        runOn("A = " + repeated("x", kCharacters) + "\nB = #(A)\nC = #{A}\nD = 1\n", {"--json"});
    EXPECT_EQ(1, result.status);
    const json findings = json::parse(result.out).at(0).at("findings");
    ASSERT_EQ(3U, findings.size());
    EXPECT_EQ("the value has " + std::to_string(kCharacters) + " characters, the limit is 2047",
              findings[0].at("text"));
    EXPECT_EQ(SettingsLine::kLongest - std::string("A = ").size(), findings[0].at("length")) << "as far as it is kept";
    EXPECT_EQ(4U, findings[1].at("length"));
    EXPECT_EQ("expanding the value takes more than 1 MiB of text; the setting cannot be read", findings[1].at("text"));
    EXPECT_EQ("expanding the value takes more than 1 MiB of text; the setting is left out", findings[2].at("text"));
    EXPECT_LT(result.out.size(), 4'000'000U);
}

TEST_F(PmenvCheck, EndsOnFilesThatAreMadeToKeepItBusy) {
    constexpr int kTimes = kSanitized ? 50 : 1000;
    std::string doubling = "B0 =\n";
    for (int i = 1; i <= 30; ++i) {
        const std::string half = "#(B" + std::to_string(i - 1) + ")";
        doubling += "B" + std::to_string(i) + " = " + half + half + "\n";
    }
    std::string loading = "A = #{A}\n";
    for (int i = 0; i < kTimes; ++i) loading += "A" + std::to_string(i) + " = ${PM_BOMB}\n";
    const ScopedEnv bomb("PM_BOMB", "##${X}${PM_BOMB} ");
    const ProgramResult result = runOn(doubling + repeated("X = #(B30)\n", kTimes));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("[too-much-work]"));
    for (const std::string& text :
         {"P = (P)(P)##\n" + repeated("X = ##(P)\n", kTimes), loading,
          "X = 0123456789abcde\nV = " + repeated("#(X)", 60 * kTimes) + "\n",
          "V = " + repeated("${", 500 * kTimes) + "\nW = " + repeated("$(", 500 * kTimes) + "\n"}) {
        EXPECT_THAT(runOn(text).status, testing::AnyOf(0, 1)) << text.substr(0, 60);
    }
}

TEST_F(PmenvCheck, EndsTheLoadOfAFileThatTakesTooLong) {
    std::string text = "E =\n";
    for (int i = 0; i < 40; ++i) text += "X" + std::to_string(i) + " = " + repeated("#{E} ", 60'000) + "\n";
    const ProgramResult result = runOn(text);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.out, HasSubstr("error: expanding the values takes too much work"));
}

}  // namespace
