// pmenv get: values of settings, of pressmark.ini and of further files.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

using PmenvGet = Pmenv;

struct GetRow {
    Words words;
    int exitCode;
    std::string output;
    std::string errors;  // behind "pmenv: INI", each line
};

TEST_F(PmenvGet, PrintsTheValueOrSaysWhatIsWrong) {
    const std::string cycle =
        ": cannot be expanded: its references lead back to themselves, or expanding them takes more than the limits "
        "allow; 'pmenv explain' shows why\n";
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

TEST_F(PmenvGet, NamesALongValueAsOverTheLimit) {
    const std::string half(1024, 'x');
    directory_.writeFile("pressmark.ini",
                         "HALF = " + half + "\nWHOLE = #(HALF)#(HALF)\nFITS = #(HALF)" + half.substr(1) + "\n");
    EXPECT_EQ(runHere({"get", "FITS"}).out.size(), 2048u);
    const ProgramResult outcome = runHere({"get", "WHOLE"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(":2: WHOLE: cannot be expanded: its expanded value has 2048 characters, the "
                                       "limit is 2047; 'pmenv explain' shows why\n"));
}

TEST_F(PmenvGet, NamesALongValueWithACycleAsACycle) {
    directory_.writeFile("pressmark.ini", "LOOP = " + std::string(2100, 'x') + "#(LOOP)\n");
    EXPECT_THAT(runHere({"get", "LOOP"}).err,
                StartsWith("pmenv: " + ini() + ":1: LOOP: cannot be expanded: its references lead back to themselves"));
}

TEST_F(PmenvGet, JsonHasNullForWhatIsAbsent) {
    const ProgramResult outcome = runHere({"get", "KR_VERSION", "NONE", "LOOP", "EMPTY", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(json::parse(outcome.out),
              (json{{"KR_VERSION", "12"}, {"NONE", nullptr}, {"LOOP", nullptr}, {"EMPTY", ""}}));
}

TEST_F(PmenvGet, JsonReplacesBytesThatAreNoUtf8) {
    directory_.writeFile("pressmark.ini", "A = x\xff\"\\\x01y\n");
    const ProgramResult outcome = runHere({"get", "A", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(json::parse(outcome.out).at("A"), "x\xef\xbf\xbd\"\\\x01y");
    EXPECT_EQ(runHere({"get", "A"}).out, "x\xff\"\\\x01y\n") << "the plain form gives the bytes themselves";
}

TEST_F(PmenvGet, DefaultStandsForWhatDoesNotExist) {
    const GetRow rows[] = {
        {{"get", "NONE", "--default", "x y"}, 0, "x y\n", ""},
        {{"get", "NONE", "--default="}, 0, "\n", ""},
        {{"get", "NONE", "KR_BUILD", "EMPTY", "--default", "#(BASE)"}, 0, "#(BASE)\n345\n\n", ""},
        {{"get", "NONE", "--raw", "--default", "x"}, 0, "x\n", ""},
    };
    for (const GetRow& row : rows) {
        const ProgramResult outcome = runHere(row.words);
        EXPECT_EQ(outcome.status, row.exitCode) << testing::PrintToString(row.words);
        EXPECT_EQ(outcome.out, row.output);
        EXPECT_EQ(outcome.err, row.errors);
    }
    EXPECT_EQ(json::parse(runHere({"get", "NONE", "--json", "--default", "x"}).out), (json{{"NONE", "x"}}));
    const ProgramResult loop = runHere({"get", "LOOP", "--default", "x"});
    EXPECT_EQ(loop.status, 1) << "it exists, and cannot be read";
    EXPECT_EQ(loop.out, "");
}

TEST_F(PmenvGet, SuggestsTheKeyOfASection) {
    EXPECT_EQ(runHere({"get", "threads"}).err,
              "pmenv: " + ini() + ": threads: no such setting; did you mean 'engine.threads'?\n");
    EXPECT_EQ(runHere({"explain", "threads"}).err,
              "pmenv: " + ini() + ": threads: no such setting; did you mean 'engine.threads'?\n");
}

// --- get --file ----------------------------------------------------------------------------------------------------

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
        "allow; 'pmenv explain' shows why\n";
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

    directory_.writeFile("pressmark.ini", "KR_BIN = bin\n");
    EXPECT_EQ(runHere({"get", "--file", std::string(4092, 'n'), "A"}).err,
              "pmenv: the path has 4096 characters, the limit is 4095: bin/" + std::string(56, 'n') + "...\n");
    EXPECT_THAT(runHere({"get", "--file", std::string(4091, 'n'), "A"}).err, HasSubstr(": File name too long\n"));
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

}  // namespace
