// pmenv as a user runs it: arguments and environment in; standard output, standard error and exit code out.
#include <algorithm>
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

// --- get --file -----------------------------------------------------------------------------------------------------

// A pressmark.ini whose KR_BIN is the directory "bin", and engine.ini in there.
class PmenvGetFile : public Pmenv {
protected:
    PmenvGetFile() {
        directory_.makeDirectory("bin");
        directory_.writeFile("pressmark.ini", "BASE = /opt/pm\nKR_BIN = " + directory_.path() + "$(SUB)\n");
        directory_.writeFile("bin/engine.ini",
                             "PLUGINS = #(BASE)/plugins:$(HOME)\n"
                             "BASE = /elsewhere\n"
                             "STORED = #{BASE}\n"
                             "LOOP = #(LOOP1)$(SELF)\n"
                             "EMPTY =\n"
                             "[a]\n"
                             "b = 1\n"
                             "b = 2\n");
    }

    ProgramResult get(const Words& words) const {
        Words all{"get", "--file", "engine.ini"};
        all.insert(all.end(), words.begin(), words.end());
        return runHere(all, {{"SUB", "/bin"}, {"SELF", "$(SELF)"}, {"KR_BIN", "/nonexistent"}});
    }
};

TEST_F(PmenvGetFile, PrintsTheValueOrSaysWhatIsWrong) {
    const std::string cycle =
        ": cannot be expanded: its references lead back to themselves, or expanding them takes more than the limits "
        "allow\n";
    const GetRow rows[] = {
        {{"PLUGINS"}, 0, "/opt/pm/plugins:/home/user\n", ""},
        {{"PLUGINS", "--raw"}, 0, "#(BASE)/plugins:$(HOME)\n", ""},
        {{"STORED"}, 0, "#{BASE}\n", ""},
        {{"EMPTY", "a.b"}, 0, "\n2\n", ""},
        {{"LOOP"}, 1, "", ":4: LOOP" + cycle},
        {{"PLUGIN", "BASE"}, 1, "/elsewhere\n", ": PLUGIN: no such setting; did you mean 'PLUGINS'?\n"},
        {{"KR_BIN"}, 1, "", ": KR_BIN: no such setting\n"},
    };
    for (const GetRow& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const ProgramResult outcome = get(row.words);
        EXPECT_EQ(outcome.status, row.exitCode);
        EXPECT_EQ(outcome.out, row.output);
        EXPECT_EQ(outcome.err, row.errors.empty() ? "" : "pmenv: " + directory_ / "bin/engine.ini" + row.errors);
    }
}

TEST_F(PmenvGetFile, JsonHasNullForWhatIsAbsent) {
    const ProgramResult outcome = get({"PLUGINS", "NONE", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(json::parse(outcome.out), (json{{"PLUGINS", "/opt/pm/plugins:/home/user"}, {"NONE", nullptr}}));
    EXPECT_EQ(json::parse(get({"PLUGINS", "--raw", "--json"}).out).at("PLUGINS"), "#(BASE)/plugins:$(HOME)");
}

TEST_F(PmenvGetFile, ShowsWhereARejectedFileIsWrong) {
    directory_.writeFile("bin/engine.ini", "A = 1\n  nonsense\n");
    const ProgramResult outcome = get({"A"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "pmenv: cannot load the settings: " + directory_ / "bin/engine.ini" +
                               ":2:3: missing '=', expected KEY = value\n");
}

TEST_F(PmenvGetFile, NamesAFileThatCannotBeRead) {
    std::filesystem::remove(directory_ / "bin/engine.ini");
    const ProgramResult outcome = get({"A"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "pmenv: cannot load the settings: " + directory_ / "bin/engine.ini" +
                               ": cannot open the file: No such file or directory\n");

    const std::string longName(4096, 'n');
    EXPECT_THAT(runHere({"get", "--file", longName, "A"}, {{"SUB", "/bin"}}).err,
                MatchesRegex("pmenv: the path has [0-9]+ characters, the limit is 4095: .*\\.\\.\\.\n"));
}

TEST_F(PmenvGetFile, SaysWhenKrBinNamesNoDirectory) {
    const std::string hint = "\nA further settings file is read from the directory that this setting names.\n";
    directory_.writeFile("pressmark.ini", "KR_BIM = /opt/pm\n");
    const ProgramResult missing = get({"A"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "pmenv: " + ini() + ": KR_BIN: no such setting; did you mean 'KR_BIM'?" + hint);

    directory_.writeFile("pressmark.ini", "KR_BIN = #(KR_BIN)\n");
    const ProgramResult loop = get({"A"});
    EXPECT_EQ(loop.status, 1);
    EXPECT_THAT(loop.err, StartsWith("pmenv: " + ini() + ": KR_BIN: cannot be expanded: "));
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

// --- identity -------------------------------------------------------------------------------------------------------

TEST_F(Pmenv, IdentityShowsAllEighteenValues) {
    const std::string file =
        directory_.writeFile("product.ini",
                             "PRODUCT_NAME = Pressmark\nPRODUCT_MESSAGE = a\tb\nPRODUCT_QUERY =\n"
                             "BMP_X_SIZE = 640px\nBMP_Y_SIZE = none\nPRODUCT_TYPE = 99999999999\n");
    const ProgramResult outcome = run({"identity", "product.ini"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out,
              "KEY                    VALUE\n"
              "PRODUCT_NAME           Pressmark\n"
              "PRODUCT_NAME_DISPLAY   (absent)\n"
              "PRODUCTS_LIST          (absent)\n"
              "PRODUCT_FILE_NAME      (absent)\n"
              "PRODUCT_VERSION        (absent)\n"
              "PRODUCT_VERSION_NAME   (absent)\n"
              "PRODUCT_MESSAGE        a\\tb\n"
              "PRODUCT_ERROR_MESSAGE  (absent)\n"
              "PRODUCT_QUERY\n"
              "EDITOR_TITLE           (absent)\n"
              "PRODUCT_INI_FILE       (absent)\n"
              "PRODUCT_INI_BACKUP     (absent)\n"
              "PRODUCT_HELP_FILE      (absent)\n"
              "PRODUCT_FRM_FILE       (absent)\n"
              "BMP_X_SIZE             640\n"
              "BMP_Y_SIZE             0\n"
              "PRODUCT_ICON_NUMBER    (absent)\n"
              "PRODUCT_TYPE           2147483647\n");
}

// Every key has its own value, so that none is answered by another's accessor.
TEST_F(Pmenv, IdentityJsonHasEachValueUnderItsKey) {
    const Words texts{"PRODUCT_NAME",      "PRODUCT_NAME_DISPLAY", "PRODUCTS_LIST",    "PRODUCT_FILE_NAME",
                      "PRODUCT_VERSION",   "PRODUCT_VERSION_NAME", "PRODUCT_MESSAGE",  "PRODUCT_ERROR_MESSAGE",
                      "PRODUCT_QUERY",     "EDITOR_TITLE",         "PRODUCT_INI_FILE", "PRODUCT_INI_BACKUP",
                      "PRODUCT_HELP_FILE", "PRODUCT_FRM_FILE"};
    json expected;
    std::string content;
    for (const std::string& key : texts) {
        content += key + " = value of " + key + "\n";
        expected[key] = "value of " + key;
    }
    int number = -1;
    for (const char* const key : {"BMP_X_SIZE", "BMP_Y_SIZE", "PRODUCT_ICON_NUMBER", "PRODUCT_TYPE"}) {
        content += std::string(key) + " = " + std::to_string(++number) + "\n";
        expected[key] = number;
    }
    directory_.writeFile("product.ini", content);
    EXPECT_EQ(json::parse(run({"identity", "product.ini", "--json"}).out), expected);

    directory_.writeFile("product.ini", "PRODUCT_NAME = x\n");
    for (auto& value : expected) value = nullptr;
    expected["PRODUCT_NAME"] = "x";
    EXPECT_EQ(json::parse(run({"identity", "product.ini", "--json"}).out), expected);
}

TEST_F(Pmenv, IdentityShowsWhatIsWrongWithTheFile) {
    directory_.writeFile("product.ini", "PRODUCT_NAME = x\n[open\n");
    const ProgramResult outcome = run({"identity", "product.ini"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, StartsWith("pmenv: cannot load the identity: product.ini:2:"));
    EXPECT_EQ(run({"identity", "none.ini"}).err,
              "pmenv: cannot load the identity: none.ini: cannot open the file: No such file or directory\n");
}

// --- walk -----------------------------------------------------------------------------------------------------------

std::multiset<std::string> pathsOf(const std::string& text, char end = '\n') {
    std::multiset<std::string> paths;
    std::istringstream stream(text);
    for (std::string path; std::getline(stream, path, end);) paths.insert(path);
    return paths;
}

class PmenvWalk : public Pmenv {
protected:
    PmenvWalk() {
        directory_.makeDirectory("d/s/t");
        for (const char* const file : {"d/a", "d/b", "d/s/a", "d/s/t/c"}) directory_.writeFile(file);
    }

    // By way of bash, which sets limits and makes pipes: pmenv is $0.
    ProgramResult shell(const std::string& script) const {
        const ScopedCwd here(directory_.path());
        return runProgram({"/bin/bash", "-c", script, PMENV_BINARY}, environmentOf({}));
    }

    // FindFile leaves directories open, which pmenv ends with: no leak that the sanitizer is to report.
    const ScopedEnv leaks_{"ASAN_OPTIONS", "detect_leaks=0"};
};

TEST_F(PmenvWalk, PrintsTheFilesOfTheDirectory) {
    using Paths = std::multiset<std::string>;
    const ProgramResult outcome = run({"walk", "d"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(pathsOf(outcome.out), (Paths{"d/a", "d/b"}));
    EXPECT_EQ(pathsOf(run({"walk", "d", "--recurse"}).out), (Paths{"d/a", "d/b", "d/s/a", "d/s/t/c"}));
    EXPECT_EQ(pathsOf(run({"walk", "d", "--recurse", "--skip", "a"}).out), (Paths{"d/b", "d/s/t/c"}));
    EXPECT_EQ(pathsOf(run({"walk", "d", "--recurse", "--skip", "s"}).out).size(), 4u) << "directories are entered";
    EXPECT_EQ(run({"walk", "d/s/t", "--skip", "c"}).out, "");
}

TEST_F(PmenvWalk, JsonIsAnArrayOfPaths) {
    directory_.writeFile("d/s/t/x\xff");
    json paths = json::parse(run({"walk", "d/s/t", "--json"}).out);
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (json{"d/s/t/c", "d/s/t/x\xef\xbf\xbd"}));
    EXPECT_EQ(run({"walk", "d", "--json", "--skip", "a"}).out, "[\n  \"d/b\"\n]\n");
    EXPECT_EQ(run({"walk", directory_.makeDirectory("empty"), "--json"}).out, "[]\n");
}

TEST_F(PmenvWalk, GivesTheBytesOfAName) {
    directory_.writeFile("d/s/t/x\xff\ny");
    EXPECT_EQ(pathsOf(run({"walk", "d/s/t", "--null"}).out, '\0'),
              (std::multiset<std::string>{"d/s/t/c", "d/s/t/x\xff\ny"}));
    EXPECT_EQ(run({"walk", "d/s/t", "--skip", "c"}).out, "d/s/t/x\xff\ny\n");
}

TEST_F(PmenvWalk, EscapesOnATerminalOnly) {
    directory_.writeFile("d/s/t/x\x1b[2J\ny");
    const std::string there = directory_ / "d/s/t";
    TerminalRun lines(pmenv({"walk", there, "--skip", "c"}), environmentOf({}), 80, 24);
    EXPECT_EQ(lines.finish(), 0);
    EXPECT_EQ(lines.output(), there + "/x\\x1b[2J\\ny\r\n");
    TerminalRun null(pmenv({"walk", there, "--skip", "c", "--null"}), environmentOf({}), 80, 24);
    EXPECT_EQ(null.finish(), 0);
    EXPECT_THAT(null.output(), HasSubstr("/x\x1b[2J"));
}

TEST_F(PmenvWalk, RefusesWhatIsNoDirectory) {
    EXPECT_EQ(run({"walk", "none"}).err, "pmenv: 'none': no such directory\n");
    EXPECT_EQ(run({"walk", ""}).err, "pmenv: '': no such directory\n");
    EXPECT_EQ(run({"walk", std::string(4096, 'd')}).status, 1);
    const ProgramResult outcome = run({"walk", "d/a", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "pmenv: 'd/a': not a directory\n");
}

TEST_F(PmenvWalk, EndsInALoopOfLinks) {
    std::filesystem::create_directory_symlink(".", directory_ / "d/s/t/loop");
    const ProgramResult outcome = run({"walk", "d", "--recurse", "--skip", "a"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(pathsOf(outcome.out).size(), 1u + 41 + 1) << "b, c once for each link, and the link that is one too many";
}

// Whatever the limit, either all files are there or an error says that some are not.
TEST_F(PmenvWalk, SaysWhenDescriptorsRunOut) {
    for (const char* const more : {"d/s/t/u/v", "d/s/e", "d/1/2/3", "d/4"}) {
        directory_.writeFile(std::string(directory_.makeDirectory(more), directory_.path().size() + 1) + "/f");
    }
    const auto all = pathsOf(run({"walk", "d", "--recurse"}).out);
    ASSERT_EQ(all.size(), 8u);
    std::set<int> seen;
    for (int limit = 6; limit <= 40; ++limit) {
        SCOPED_TRACE(limit);
        const ProgramResult outcome = shell("ulimit -n " + std::to_string(limit) + "; exec \"$0\" walk d --recurse");
        EXPECT_EQ(outcome.status == 0, pathsOf(outcome.out) == all);
        for (const std::string& path : pathsOf(outcome.out))
            EXPECT_EQ(all.count(path), 1u) << path << " is a directory";
        if (outcome.status == 0) {
            EXPECT_EQ(outcome.err, "");
        } else if (!outcome.out.empty()) {
            EXPECT_EQ(outcome.err,
                      "pmenv: 'd': the walk is incomplete, no further directory could be opened: Too many open files\n"
                      "A walk keeps each directory that it has entered open, and pmenv may have " +
                          std::to_string(limit) + " files open. Walk the subdirectories one by one.\n");
        }
        seen.insert(outcome.status);
    }
    EXPECT_THAT(seen, testing::IsSupersetOf({0, 1}));
}

TEST_F(PmenvWalk, RaisesTheSoftLimitOfDescriptors) {
    for (int i = 0; i < 30; ++i) directory_.writeFile(std::string("d/f") + std::to_string(i));
    std::string deep = "d";
    for (int i = 0; i < 30; ++i) deep += "/x";
    directory_.makeDirectory(deep);
    directory_.writeFile(deep + "/last");
    const ProgramResult outcome = shell("ulimit -Sn 16; exec \"$0\" walk d --recurse");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr(deep + "/last\n"));
    EXPECT_EQ(shell("ulimit -n 16; exec \"$0\" walk d --recurse --json").out, "") << "no JSON of half a walk";
}

TEST_F(PmenvWalk, StopsWhenThePipeIsClosed) {
    const std::string name(150, 'n');
    for (int i = 0; i < 2000; ++i) directory_.writeFile("d/" + name + std::to_string(i));
    const ProgramResult outcome = shell("\"$0\" walk d | head -n 1 >/dev/null; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(outcome.out, "141\n") << "ended by the signal, as other programs are";
    EXPECT_EQ(outcome.err, "");

    // Where the signal is ignored. A walk that went on would meet the limit.
    std::string deep = "d";
    for (int i = 0; i < 30; ++i) deep += "/x";
    directory_.makeDirectory(deep);
    directory_.writeFile(deep + "/last");
    const ProgramResult ignoring =
        shell("trap '' PIPE; (ulimit -n 40; \"$0\" walk d --recurse) | head -n 1 >/dev/null; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(ignoring.out, "1\n");
    EXPECT_EQ(ignoring.err, "pmenv: cannot write the result to standard output\n");
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
        {{"get", "X", "--file="}, "--file needs the name of a settings file, not an empty text"},
        {{"walk"}, "'walk' needs DIR; see 'pmenv walk --help'"},
        {{"walk", ".", "--null", "--json"}, "--null and --json do not go together; see 'pmenv walk --help'"},
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
        {"get"},           {"list"},         {"explain"},         {"check"},       {"find"},     {"resolve"},
        {"path", "split"}, {"path", "make"}, {"path", "shorten"}, {"path", "abs"}, {"identity"}, {"walk"},
        {"report"},        {"stats"}};
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
        std::string script = "source " + std::string(PMENV_COMPLETION) + "; COMP_WORDS=(";
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
    const ProgramResult page = runProgram({"/usr/bin/man", "--warnings", "-Tutf8", "-P", "cat", "-l", PMENV_PAGE},
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
    EXPECT_THAT(complete({"explain"}, "KR_B"), ElementsAre("KR_BUILD"));
    EXPECT_THAT(complete({"--ini"}, "oth"), ElementsAre("other"));
    EXPECT_THAT(complete({"resolve"}, "M"), ElementsAre("MYDOCUMENTS"));
}

TEST_F(PmenvHelp, CompletionOffersFilesBelowTheSettingKrBin) {
    directory_.makeDirectory("bin");
    directory_.writeFile("bin/engine.ini");
    EXPECT_THAT(complete({"get", "--file"}, "e"), ElementsAre()) << "there is no such setting";
    directory_.writeFile("pressmark.ini", "KR_BIN = " + directory_ / "bin\n");
    EXPECT_THAT(complete({"get", "--file"}, "e"), ElementsAre("engine.ini"));
    EXPECT_THAT(complete({"get", "--file", "engine.ini"}, "KR"), ElementsAre()) << "that file's names are not known";
    EXPECT_THAT(complete({"walk"}, "b"), ElementsAre("bin"));
    EXPECT_THAT(complete({"walk", "--skip"}, "b"), ElementsAre());
}

}  // namespace
