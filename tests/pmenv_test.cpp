// pmenv as a user runs it: arguments and environment in; standard output, standard error and exit code out.
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"
#include "support/TerminalRun.h"

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

constexpr char kSettings[] =
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

// A directory with a pressmark.ini, and pmenv called in it.
class Pmenv : public testing::Test {
protected:
    Pmenv() { directory_.writeFile("pressmark.ini", kSettings); }

    std::string ini() const { return directory_ / "pressmark.ini"; }

    // The variables that pmenv looks at are set as the test says, or not at all.
    static std::map<std::string, const char*> environmentOf(const Environment& given) {
        std::map<std::string, const char*> all{{"HOME", "/home/user"}, {"KR_BIN", nullptr},   {"MYDOCUMENTS", nullptr},
                                               {"PM_LOG", nullptr},    {"NO_COLOR", nullptr}, {"TERM", "xterm"}};
        for (const auto& [name, value] : given) all[name] = value.c_str();
        return all;
    }

    static Words pmenv(Words words) {
        words.insert(words.begin(), PMENV_BINARY);
        return words;
    }

    ProgramResult run(Words words, const Environment& environment = {}) const {
        const ScopedCwd here(directory_.path());
        return runProgram(pmenv(std::move(words)), environmentOf(environment));
    }

    // With --ini for this directory's settings.
    ProgramResult runHere(Words words, const Environment& environment = {}) const {
        words.insert(words.begin(), {"--ini", ini()});
        return run(std::move(words), environment);
    }

    TempDir directory_;
};

// --- get ------------------------------------------------------------------------------------------------------------

struct GetRow {
    Words words;
    int exitCode;
    std::string output;
    std::string errors;  // behind "pmenv: INI", each line
};

TEST_F(Pmenv, GetPrintsTheValueOrSaysWhatIsWrong) {
    const std::string cycle =
        ": cannot be expanded: its references lead back to themselves, or expanding them takes more than the limits "
        "allow\n";
    const GetRow rows[] = {
        {{"get", "KR_VERSION"}, 0, "12\n", ""},
        {{"get", "KR_VERSION", "KR_BUILD"}, 0, "12\n345\n", ""},
        {{"get", "BIN"}, 0, "/opt/pm/bin\n", ""},
        {{"get", "LOG"}, 0, "/home/user/logs\n", ""},
        {{"get", "EMPTY"}, 0, "\n", ""},
        {{"get", "engine.threads"}, 0, "8\n", ""},
        {{"get", "LOG", "--raw"}, 0, "$(HOME)/logs\n", ""},
        {{"get", "--raw", "LOOP"}, 0, "#(LOOP2)\n", ""},
        {{"get", "LOOP"}, 1, "", ":7: LOOP" + cycle},
        {{"get", "kr_version"}, 1, "", ": kr_version: no such setting; did you mean 'KR_VERSION'?\n"},
        {{"get", "KR_VERISON"}, 1, "", ": KR_VERISON: no such setting; did you mean 'KR_VERSION'?\n"},
        {{"get", "LOOP3"}, 1, "", ": LOOP3: no such setting; did you mean 'LOOP' or 'LOOP2'?\n"},
        {{"get", "NOTHING_LIKE_IT"}, 1, "", ": NOTHING_LIKE_IT: no such setting\n"},
        {{"get", "[x,y]"}, 1, "", ": [x,y]: no such setting\n"},
        {{"get", ""}, 1, "", ": : no such setting\n"},
        {{"get", "--", "--raw"}, 1, "", ": --raw: no such setting\n"},
        {{"get", "NONE", "KR_BUILD"}, 1, "345\n", ": NONE: no such setting\n"},
    };
    for (const GetRow& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const ProgramResult outcome = runHere(row.words);
        EXPECT_EQ(outcome.status, row.exitCode);
        EXPECT_EQ(outcome.out, row.output);
        EXPECT_EQ(outcome.err, row.errors.empty() ? "" : "pmenv: " + ini() + row.errors);
    }
}

TEST_F(Pmenv, GetNamesALongValueAsOverTheLimit) {
    const std::string half(1024, 'x');
    directory_.writeFile("pressmark.ini",
                         "HALF = " + half + "\nWHOLE = #(HALF)#(HALF)\nFITS = #(HALF)" + half.substr(1) + "\n");
    EXPECT_EQ(runHere({"get", "FITS"}).out.size(), 2048u);
    const ProgramResult outcome = runHere({"get", "WHOLE"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        outcome.err,
        HasSubstr(":2: WHOLE: cannot be expanded: its expanded value has 2048 characters, the limit is 2047\n"));
}

TEST_F(Pmenv, GetJsonHasNullForWhatIsAbsent) {
    const ProgramResult outcome = runHere({"get", "KR_VERSION", "NONE", "LOOP", "EMPTY", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(json::parse(outcome.out),
              (json{{"KR_VERSION", "12"}, {"NONE", nullptr}, {"LOOP", nullptr}, {"EMPTY", ""}}));
}

TEST_F(Pmenv, JsonReplacesBytesThatAreNoUtf8) {
    directory_.writeFile("pressmark.ini", "A = x\xff\"\\\x01y\n");
    const ProgramResult outcome = runHere({"get", "A", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(json::parse(outcome.out).at("A"), "x\xef\xbf\xbd\"\\\x01y");
    EXPECT_EQ(runHere({"get", "A"}).out, "x\xff\"\\\x01y\n") << "the plain form gives the bytes themselves";
}

// --- list -----------------------------------------------------------------------------------------------------------

TEST_F(Pmenv, ListShowsTheFileAndEverySettingAligned) {
    directory_.writeFile("pressmark.ini",
                         "KR_BUILD = 345\nLOG = $(HOME)/logs\n[a]\nb = grüße\nb = grüße!\ntab = 1\t2\n");
    const ProgramResult outcome = runHere({"list"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, ini() +
                               "\n\n"
                               "KEY       STORED        EXPANDED\n"
                               "KR_BUILD  345           345\n"
                               "LOG       $(HOME)/logs  /home/user/logs\n"
                               "a.b       grüße!        grüße!\n"
                               "a.tab     1\\t2          1\\t2\n");
}

TEST_F(Pmenv, ListCutsNothingOnAPipe) {
    const std::string longValue(5000, 'v');
    directory_.writeFile("pressmark.ini", "LONG = " + longValue + "\nSHORT = s\n");
    const ProgramResult outcome = runHere({"list"});
    EXPECT_THAT(outcome.out, HasSubstr("LONG   " + longValue));
    EXPECT_THAT(outcome.out, HasSubstr("\nSHORT  s" + std::string(61, ' ') + "s\n")) << "and moves no other line far";
}

TEST_F(Pmenv, ListCutsLongValuesOnATerminal) {
    directory_.writeFile(
        "pressmark.ini", "LONG = " + std::string(500, 'v') + "\nSHORT = s\nWIDE = " + [] {
            std::string wide;
            for (int i = 0; i < 100; ++i) wide += "日";
            return wide;
        }() + "\n");
    TerminalRun terminal(pmenv({"--ini", ini(), "list"}), environmentOf({}), 50, 24);
    EXPECT_EQ(terminal.finish(), 0);
    EXPECT_THAT(terminal.output(), HasSubstr("\x1b[1mKEY"));
    EXPECT_THAT(terminal.output(),
                HasSubstr("\r\nLONG   " + std::string(19, 'v') + "…  " + std::string(20, 'v') + "…\r\n"));
    EXPECT_THAT(terminal.output(), HasSubstr("\r\nWIDE   日日日日日日日日日…"));
}

TEST_F(Pmenv, ListHasNoColourUnderNoColor) {
    TerminalRun terminal(pmenv({"--ini", ini(), "list"}), environmentOf({{"NO_COLOR", "1"}}), 80, 24);
    EXPECT_EQ(terminal.finish(), 1) << "one setting cannot be expanded";
    EXPECT_THAT(terminal.output(), HasSubstr("KR_VERSION"));
    EXPECT_THAT(terminal.output(), Not(HasSubstr("\x1b")));
}

TEST_F(Pmenv, ListNamesWhatCannotBeExpanded) {
    const ProgramResult outcome = runHere({"list"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\nLOOP            #(LOOP2)      (cannot be expanded)\n"));
    EXPECT_THAT(outcome.err, StartsWith("pmenv: " + ini() + ":7: LOOP: cannot be expanded: "));
}

TEST_F(Pmenv, ListJsonGivesEachKeyWithItsLine) {
    directory_.writeFile("pressmark.ini", "A = #(A)\nB = 1\nB = $(HOME)\n");
    const ProgramResult outcome = runHere({"list", "--json"});
    EXPECT_EQ(outcome.status, 1);
    const json list = json::parse(outcome.out);
    EXPECT_EQ(list.at("file"), ini());
    ASSERT_EQ(list.at("settings").size(), 2u);
    EXPECT_EQ(list["settings"][0].at("expanded"), nullptr);
    EXPECT_THAT(list["settings"][0].at("problem").get<std::string>(), StartsWith("cannot be expanded"));
    EXPECT_EQ(list["settings"][1],
              (json{{"key", "B"}, {"line", 3}, {"stored", "$(HOME)"}, {"expanded", "/home/user"}}));
}

// --- the settings file ----------------------------------------------------------------------------------------------

TEST_F(Pmenv, IniTakesADirectoryAndLooksNowhereElse) {
    EXPECT_EQ(run({"get", "KR_VERSION", "--ini", directory_.path()}).out, "12\n");
    EXPECT_EQ(run({"get", "KR_VERSION", "--ini=" + ini()}).out, "12\n");

    const std::string empty = directory_.makeDirectory("empty");
    const ProgramResult outcome = run({"get", "KR_VERSION", "--ini", empty}, {{"KR_BIN", directory_.path()}});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, StartsWith("pmenv: cannot load the settings: " + empty + "/pressmark.ini: "));
}

TEST_F(Pmenv, FindsTheSettingsInKrBinThenHome) {
    const std::string other = directory_.makeDirectory("other");
    directory_.writeFile("other/pressmark.ini", "KR_VERSION = 13\n");
    EXPECT_EQ(run({"get", "KR_VERSION"}, {{"KR_BIN", directory_.path()}, {"HOME", other}}).out, "12\n");
    EXPECT_EQ(run({"get", "KR_VERSION"}, {{"KR_BIN", "/nonexistent"}, {"HOME", other}}).out, "13\n");
    EXPECT_THAT(run({"list"}, {{"KR_BIN", "/nonexistent"}, {"HOME", other}}).out,
                StartsWith(other + "/pressmark.ini\n"));
}

TEST_F(Pmenv, FindsTheSettingsBesideItselfThroughALink) {
    const std::string copy = directory_ / "pmenv-copy";
    std::filesystem::copy_file(PMENV_BINARY, copy);
    const std::string elsewhere = directory_.makeDirectory("elsewhere");
    std::filesystem::create_symlink(copy, elsewhere + "/pmenv");
    const ProgramResult outcome = runProgram({elsewhere + "/pmenv", "get", "KR_BUILD"}, environmentOf({}));
    EXPECT_EQ(outcome.out, "345\n") << outcome.err;
}

TEST_F(Pmenv, NamesEveryPlaceWhenTheSettingsAreNotFound) {
    directory_.writeFile("file");
    const ProgramResult outcome =
        run({"list"}, {{"KR_BIN", "/nonexistent::" + directory_ / "file" + ":/"}, {"HOME", ""}});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    const std::string itself = std::filesystem::canonical(PMENV_BINARY).parent_path();
    EXPECT_EQ(outcome.err, "pmenv: pressmark.ini not found; looked in\n  1. " + itself +
                               ": no such file there\n"
                               "  2. $KR_BIN, /nonexistent: no such directory\n"
                               "  3. $KR_BIN, " +
                               directory_ / "file" +
                               ": not a directory\n"
                               "  4. $KR_BIN, /: no such file there\n"
                               "  5. HOME: variable is empty\n"
                               "Set KR_BIN to the directory that holds it, or choose a file with --ini.\n");
}

TEST_F(Pmenv, ShowsWhereARejectedFileIsWrong) {
    directory_.writeFile("pressmark.ini", "A = 1\n  nonsense\n");
    for (const Words& words : {Words{"list"}, Words{"get", "A"}, Words{"resolve", "#A"}}) {
        const ProgramResult outcome = runHere(words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  "pmenv: cannot load the settings: " + ini() + ":2:3: missing '=', expected KEY = value\n");
    }
}

// The process variable refers to itself, so that the value has a cycle when the file is loaded.
TEST_F(Pmenv, NamesAValueThatWasLeftOutAtLoading) {
    directory_.writeFile("pressmark.ini", "GOOD = 1\nBAD = a${SELF}\n");
    const Environment environment{{"SELF", "${SELF}"}};
    const std::string reason =
        "its references lead back to themselves, or expanding them takes more than the limits allow\n";

    const ProgramResult good = runHere({"get", "GOOD"}, environment);
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "1\n");
    EXPECT_EQ(good.err, "pmenv: warning: " + ini() + ":2: BAD is left out: " + reason);

    const ProgramResult bad = runHere({"get", "BAD"}, environment);
    EXPECT_EQ(bad.status, 1);
    EXPECT_THAT(bad.err, HasSubstr("pmenv: " + ini() + ": BAD: is left out (line 2): " + reason));
}

TEST_F(Pmenv, PmLogDoesNotChangeWhatIsSaid) {
    directory_.writeFile("pressmark.ini", "GOOD = 1\nBAD = ${SELF}\n");
    const std::string quiet = runHere({"get", "GOOD"}, {{"SELF", "${SELF}"}, {"PM_LOG", "none"}}).err;
    const std::string loud = runHere({"get", "GOOD"}, {{"SELF", "${SELF}"}, {"PM_LOG", "all"}}).err;
    EXPECT_THAT(quiet, HasSubstr("BAD is left out"));
    EXPECT_EQ(quiet, loud);
}

// --- find and resolve -----------------------------------------------------------------------------------------------

TEST_F(Pmenv, FindPrintsTheFirstHit) {
    directory_.makeDirectory("a");
    directory_.makeDirectory("b");
    directory_.writeFile("b/x.cfg");
    directory_.writeFile("pressmark.ini", "INCLUDE_PATH = " + directory_ / "a:" + directory_ / "b\n");
    const std::string hit = directory_ / "b/x.cfg\n";
    EXPECT_EQ(run({"find", "x.cfg", "a", "$HERE"}, {{"HERE", directory_ / "b"}}).out, hit);
    EXPECT_EQ(run({"find", "sub/x.cfg", "HOME"}, {{"HOME", directory_ / "b"}}).out, hit);
    EXPECT_EQ(runHere({"find", "x.cfg", "#INCLUDE_PATH"}).out, hit);
    EXPECT_EQ(run({"find", "x.cfg", "a", "b"}).status, 0);
}

TEST_F(Pmenv, FindNamesEveryPlaceInOrder) {
    directory_.makeDirectory("a");
    directory_.makeDirectory("links");
    std::filesystem::create_symlink("/nonexistent/x", directory_ / "links/x");
    const ProgramResult outcome = runHere(
        {"find", "x", "$UNSET", "$EMPTY", "MYDOCUMENTS", "a:nowhere", "::", "links", "#BIN", "#EMPTY", "#LOOP", "#BIM"},
        {{"EMPTY", ""}});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "pmenv: x: not found; looked in\n"
              "  1. $UNSET: variable not set\n"
              "  2. $EMPTY: variable is empty\n"
              "  3. MYDOCUMENTS: variable not set\n"
              "  4. a:nowhere, a: no such file there\n"
              "  5. a:nowhere, nowhere: no such directory\n"
              "  6. ::: names no directory\n"
              "  7. links: a link to nothing there\n"
              "  8. #BIN, /opt/pm/bin: no such directory\n"
              "  9. #EMPTY: the setting is empty\n"
              "  10. #LOOP: cannot be expanded: its references lead back to themselves, or expanding them takes more "
              "than the "
              "limits allow\n"
              "  11. #BIM: no such setting; did you mean 'BIN'?\n");
}

TEST_F(Pmenv, FindEndsAtAnEmptyVariable) {
    const ProgramResult outcome = run({"find", "pressmark.ini", "a", "", "."});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "pmenv: pressmark.ini: not found; looked in\n"
              "  1. a: no such directory\n"
              "  2. '': an empty variable; it ends the search\n");
}

TEST_F(Pmenv, FindJsonTellsThePlaces) {
    const json found = json::parse(run({"find", "pressmark.ini", "$NONE", ".", "--json"}).out);
    EXPECT_EQ(found.at("path"), "./pressmark.ini");
    EXPECT_EQ(found.at("variable"), ".");

    const ProgramResult outcome = run({"find", "x", "$NONE", ".", "--json"});
    EXPECT_EQ(outcome.status, 1);
    const json missing = json::parse(outcome.out);
    EXPECT_EQ(missing.at("path"), nullptr);
    EXPECT_EQ(missing.at("tried"),
              (json{{{"variable", "$NONE"}, {"directory", nullptr}, {"problem", "variable not set"}},
                    {{"variable", "."}, {"directory", "."}, {"problem", "no such file there"}}}));
}

TEST_F(Pmenv, ResolveTellsWhatAVariableStandsFor) {
    struct Row {
        std::string variable;
        int exitCode;
        std::string output;
        std::string errors;
    };
    const Row rows[] = {
        {"HOME", 0, "/home/user\n", ""},
        {"$X", 0, "/a::/b\n", ""},
        {"#LOG", 0, "/home/user/logs\n", ""},
        {"#EMPTY", 0, "\n", ""},
        {".", 0, ".\n", ""},
        {"/x:/y", 0, "/x:/y\n", ""},
        {"$UNSET", 1, "", "pmenv: '$UNSET' stands for nothing: variable not set\n"},
        {"#BAS", 1, "", "pmenv: '#BAS' stands for nothing: no such setting; did you mean 'BASE'?\n"},
        {"", 1, "", "pmenv: '' stands for nothing: an empty variable; it ends the search\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.variable);
        const ProgramResult outcome = runHere({"resolve", row.variable}, {{"X", "/a::/b"}});
        EXPECT_EQ(outcome.status, row.exitCode);
        EXPECT_EQ(outcome.out, row.output);
        EXPECT_EQ(outcome.err, row.errors);
    }
}

TEST_F(Pmenv, ResolveJsonTellsWhatIsWrongWithEachDirectory) {
    const json answer = json::parse(run({"resolve", "/:/nonexistent:" + ini(), "--json"}).out);
    EXPECT_EQ(answer.at("value"), "/:/nonexistent:" + ini());
    ASSERT_EQ(answer.at("directories").size(), 3u);
    EXPECT_EQ(answer["directories"][0].at("problem"), nullptr);
    EXPECT_EQ(answer["directories"][1].at("problem"), "no such directory");
    EXPECT_EQ(answer["directories"][2].at("problem"), "not a directory");
}

TEST_F(Pmenv, SearchesWithoutASettingNeedNoSettingsFile) {
    EXPECT_EQ(run({"find", "pressmark.ini", "."}).status, 0);
    EXPECT_EQ(run({"resolve", "."}).status, 0);
    const ProgramResult outcome = run({"find", "x", "#BASE"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("pmenv: pressmark.ini not found; looked in\n"));
}

// --- path -----------------------------------------------------------------------------------------------------------

TEST_F(Pmenv, PathCommandsAnswerAsTheLibraryDoes) {
    struct Row {
        Words words;
        std::string output;
    };
    const Row rows[] = {
        {{"path", "split", "/usr/lib/x.tar.gz"}, "directory  /usr/lib\nname       x.tar\nextension  gz\n"},
        {{"path", "split", ".profile"}, "directory  \nname       \nextension  profile\n"},
        {{"path", "split", "/usr/lib"}, "directory  /usr/lib\nname       \nextension  \n"},
        {{"path", "make", "/usr/lib", "x.tar", "gz"}, "/usr/lib/x.tar.gz\n"},
        {{"path", "make", "/usr/lib/", "x"}, "/usr/lib/x\n"},
        {{"path", "make", "", "x", "gz"}, "x.gz\n"},
        {{"path", "shorten", "/home/user/projects/reports/weekly.md", "30"}, "/home/user/projec...\\weekly.md\n"},
        {{"path", "shorten", "short", "30"}, "short\n"},
        {{"path", "abs", "/usr/../usr/lib/none.so"}, "/usr/lib/none.so\n"},
        {{"path", "split", "a/b.c", "--json"},
         "{\n  \"directory\": \"a\",\n  \"name\": \"b\",\n  \"extension\": \"c\"\n}\n"},
        {{"path", "make", "a", "b", "--json"}, "{\n  \"path\": \"a/b\"\n}\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const ProgramResult outcome = run(row.words);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.out, row.output);
        EXPECT_EQ(outcome.err, "");
    }
}

TEST_F(Pmenv, PathCommandsRefuseWhatTheLibraryCannot) {
    const std::string longPath(4096, 'p');
    struct Row {
        Words words;
        std::string errors;
    };
    const Row rows[] = {
        {{"path", "shorten", "/a/weekly.md", "12"},
         "pmenv: /a/weekly.md: cannot be shortened to 12 characters, its name and extension need 13\n"},
        {{"path", "make", std::string(4000, 'd'), std::string(95, 'n')},
         "pmenv: the composed path is longer than 4095 characters\n"},
        {{"path", "split", longPath},
         "pmenv: the path has 4096 characters, the limit is 4095: " + longPath.substr(0, 60) + "...\n"},
        {{"path", "abs", "/nonexistent/x.c"}, "pmenv: /nonexistent/x.c: there is no directory /nonexistent\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words).substr(0, 100));
        const ProgramResult outcome = run(row.words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, row.errors);
    }
}

TEST_F(Pmenv, PathAbsSearchesABareNameInIncludePath) {
    directory_.makeDirectory("include");
    directory_.writeFile("include/x.h");
    directory_.writeFile("pressmark.ini", "INCLUDE_PATH = " + directory_ / "include\n");
    const std::string real = std::filesystem::canonical(directory_.path());
    EXPECT_EQ(run({"path", "abs", "pressmark.ini"}).out, real + "/pressmark.ini\n") << "without any settings";
    EXPECT_EQ(runHere({"path", "abs", "x.h"}).out, real + "/include/x.h\n");
    const ProgramResult outcome = runHere({"path", "abs", "y.h"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "pmenv: y.h: not found; looked in\n  1. .: no such file there\n  2. #INCLUDE_PATH, " +
                               directory_ / "include: no such file there\n");
}

// --- usage ----------------------------------------------------------------------------------------------------------

TEST_F(Pmenv, WrongUsageIsNamedAndExitsWithTwo) {
    struct Row {
        Words words;
        std::string errors;
    };
    const Row rows[] = {
        {{}, "a command is needed; see 'pmenv --help'"},
        {{"path"}, "'path' needs a command; see 'pmenv --help'"},
        {{"lst"}, "there is no command 'lst'; did you mean 'list'? See 'pmenv --help'"},
        {{"pth"}, "there is no command 'pth'; did you mean 'path'? See 'pmenv --help'"},
        {{"path", "splt", "x"}, "there is no command 'path splt'; did you mean 'path split'? See 'pmenv --help'"},
        {{"get"}, "'get' needs NAME; see 'pmenv get --help'"},
        {{"find", "x"}, "'find' needs VAR; see 'pmenv find --help'"},
        {{"path", "make", "d"}, "'path make' needs NAME; see 'pmenv path make --help'"},
        {{"list", "x"}, "'list' takes no further argument 'x'; see 'pmenv list --help'"},
        {{"list", "--raw"}, "there is no option '--raw' of 'list'; see 'pmenv list --help'"},
        {{"list", "--jsn"}, "there is no option '--jsn' of 'list'; did you mean '--json'? See 'pmenv list --help'"},
        {{"list", "-x"}, "there is no option '-x'; see 'pmenv list --help'"},
        {{"list", "--json=yes"}, "--json takes no value; see 'pmenv list --help'"},
        {{"list", "--ini"}, "--ini needs a value: --ini FILE|DIR; see 'pmenv list --help'"},
        {{"list", "--ini="}, "--ini needs a settings file or a directory, not an empty text"},
        {{"path", "shorten", "x", "0"}, "WIDTH is a whole number from 1 to 4095, not '0'"},
        {{"path", "shorten", "x", "1x"}, "WIDTH is a whole number from 1 to 4095, not '1x'"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const ProgramResult outcome = run(row.words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "pmenv: " + row.errors + "\n");
    }
}

TEST_F(Pmenv, VersionIsOnStandardOutput) {
    const ProgramResult outcome = run({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, MatchesRegex("pmenv [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(Pmenv, OutputThatCannotBeWrittenIsAnError) {
    const ProgramResult outcome =
        runProgram({"/bin/sh", "-c", std::string(PMENV_BINARY) + " --ini " + ini() + " list >/dev/full"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("pmenv: cannot write the result to standard output"));
}

TEST_F(Pmenv, FindsItselfWhenItsNameIsEmpty) {
    const ProgramResult outcome = runProgram({"/bin/bash", "-c", "exec -a '' " + std::string(PMENV_BINARY) + " list"},
                                             environmentOf({{"HOME", ""}}));
    const std::string itself = std::filesystem::canonical(PMENV_BINARY).parent_path();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("1. " + itself + ": no such file there\n"));
}

// --- help, manual page and completion -------------------------------------------------------------------------------

const std::vector<Words>& allCommands() {
    static const std::vector<Words> commands{
        {"get"},         {"list"},   {"find"}, {"resolve"}, {"path", "split"}, {"path", "make"}, {"path", "shorten"},
        {"path", "abs"}, {"report"}, {"stats"}};
    return commands;
}

std::string joined(const Words& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

std::set<std::string> optionsIn(const std::string& help) {
    std::set<std::string> options;
    static const std::regex option("^  (--[a-z-]+)");
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, option)) options.insert(match[1]);
    }
    return options;
}

class PmenvHelp : public Pmenv {
protected:
    std::string help(Words words) const {
        words.push_back("--help");
        const ProgramResult outcome = run(words);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        return outcome.out;
    }

    // What the completion offers behind `words` for the beginning of a word.
    Words complete(Words words, const std::string& beginning) const {
        words.insert(words.begin(), PMENV_BINARY);
        words.push_back(beginning);
        std::string script = "source " + std::string(PMENV_SOURCE) + "/pmenv.bash; COMP_WORDS=(";
        for (const std::string& word : words) script += " '" + word + "'";
        script += "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _pmenv; printf '%s\\n' \"${COMPREPLY[@]}\"";
        const ProgramResult outcome = [&] {
            const ScopedCwd here(directory_.path());
            return runProgram({"/bin/bash", "-c", script}, environmentOf({{"HOME", directory_.path()}}));
        }();
        EXPECT_EQ(outcome.err, "");
        Words offered;
        std::istringstream lines(outcome.out);
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty()) offered.push_back(line);
        }
        return offered;
    }
};

TEST_F(PmenvHelp, NamesEveryCommand) {
    const std::string overview = help({});
    std::set<std::string> named;
    static const std::regex command("\n  ((path )?[a-z]+)   ");
    for (std::sregex_iterator i(overview.begin(), overview.end(), command), end; i != end; ++i) named.insert((*i)[1]);
    std::set<std::string> expected;
    for (const Words& words : allCommands()) expected.insert(joined(words));
    EXPECT_EQ(named, expected);
    EXPECT_THAT(help({"path"}), HasSubstr("path shorten"));
    EXPECT_THAT(help({"path"}), Not(HasSubstr("resolve")));
}

TEST_F(PmenvHelp, EveryCommandHasExamples) {
    EXPECT_THAT(help({}), HasSubstr("\nExamples:\n  pmenv "));
    for (const Words& words : allCommands()) {
        EXPECT_THAT(help(words), HasSubstr("\nExamples:\n  pmenv " + joined(words))) << joined(words);
    }
}

TEST_F(PmenvHelp, ManualPageNamesEveryCommandAndOption) {
    if (access("/usr/bin/man", X_OK) != 0) GTEST_SKIP() << "there is no man on this machine";
    const ProgramResult page =
        runProgram({"/usr/bin/man", "--warnings", "-Tutf8", "-P", "cat", "-l", std::string(PMENV_SOURCE) + "/pmenv.1"},
                   {{"MANWIDTH", "100"}, {"LC_ALL", "C.UTF-8"}});
    ASSERT_EQ(page.status, 0) << page.err;
    EXPECT_EQ(page.err, "");
    const std::string text = std::regex_replace(page.out, std::regex("\x1b\\[[0-9;]*m|.\b"), "");
    const std::string version = run({"--version"}).out;
    EXPECT_THAT(text, HasSubstr("\n" + version.substr(0, version.size() - 1) + " ")) << "at the foot of the page";
    for (const Words& words : allCommands()) {
        EXPECT_THAT(text, HasSubstr("pmenv " + joined(words)));
        for (const std::string& option : optionsIn(help(words))) EXPECT_THAT(text, HasSubstr("\n       " + option));
    }
}

TEST_F(PmenvHelp, CompletionOffersEveryCommandAndExactlyItsOptions) {
    std::set<std::string> firsts;
    for (const Words& words : allCommands()) {
        firsts.insert(words[0]);
        const Words offered = complete(words, "--");
        EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), optionsIn(help(words))) << joined(words);
    }
    const Words offered = complete({}, "");
    EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), firsts);
    EXPECT_THAT(complete({"path"}, ""), ElementsAre("split", "make", "shorten", "abs"));
    EXPECT_THAT(complete({"path"}, "s"), ElementsAre("split", "shorten"));
}

TEST_F(PmenvHelp, CompletionOffersTheNamesOfSettings) {
    EXPECT_THAT(complete({"get"}, "KR_"), ElementsAre("KR_VERSION", "KR_BUILD"));
    directory_.makeDirectory("other");
    directory_.writeFile("other/pressmark.ini", "KR_OTHER = 1\n");
    EXPECT_THAT(complete({"--ini", "other", "get"}, "KR_"), ElementsAre("KR_OTHER"));
    EXPECT_THAT(complete({"--ini"}, "oth"), ElementsAre("other"));
    EXPECT_THAT(complete({"resolve"}, "M"), ElementsAre("MYDOCUMENTS"));
}

}  // namespace
