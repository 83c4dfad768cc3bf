// Which settings file is read, and what is said when there is none or when it is rejected.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

using PmenvSettingsFile = Pmenv;

TEST_F(PmenvSettingsFile, IniTakesADirectoryAndLooksNowhereElse) {
    EXPECT_EQ(run({"get", "KR_VERSION", "--ini", directory_.path()}).out, "12\n");
    EXPECT_EQ(run({"get", "KR_VERSION", "--ini=" + ini()}).out, "12\n");

    const std::string empty = directory_.makeDirectory("empty");
    const ProgramResult outcome = run({"get", "KR_VERSION", "--ini", empty}, {{"KR_BIN", directory_.path()}});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, StartsWith("pmenv: cannot load the settings: " + empty + "/pressmark.ini: "));
}

TEST_F(PmenvSettingsFile, FindsTheSettingsInKrBinThenHome) {
    const std::string other = directory_.makeDirectory("other");
    directory_.writeFile("other/pressmark.ini", "KR_VERSION = 13\n");
    EXPECT_EQ(run({"get", "KR_VERSION"}, {{"KR_BIN", directory_.path()}, {"HOME", other}}).out, "12\n");
    EXPECT_EQ(run({"get", "KR_VERSION"}, {{"KR_BIN", "/nonexistent"}, {"HOME", other}}).out, "13\n");
    EXPECT_THAT(run({"list"}, {{"KR_BIN", "/nonexistent"}, {"HOME", other}}).out,
                StartsWith(other + "/pressmark.ini\n"));
}

TEST_F(PmenvSettingsFile, FindsTheSettingsBesideItselfThroughALink) {
    const std::string copy = directory_ / "pmenv-copy";
    std::filesystem::copy_file(PMENV_BINARY, copy);
    const std::string elsewhere = directory_.makeDirectory("elsewhere");
    std::filesystem::create_symlink(copy, elsewhere + "/pmenv");
    // pmenv looks for its libraries beside itself, too, and the copy has none there.
    const std::filesystem::path build = std::filesystem::path(PMENV_BINARY).parent_path() / "../..";
    const std::string libraries = (build / "src").string() + ":" + (build / "facilities").string();
    const ProgramResult outcome =
        runProgram({elsewhere + "/pmenv", "get", "KR_BUILD"}, environmentOf({{"LD_LIBRARY_PATH", libraries}}));
    EXPECT_EQ(outcome.out, "345\n") << outcome.err;
}

TEST_F(PmenvSettingsFile, NamesEveryPlaceWhenTheSettingsAreNotFound) {
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

TEST_F(PmenvSettingsFile, ShowsWhereARejectedFileIsWrong) {
    directory_.writeFile("pressmark.ini", "A = 1\n  nonsense\n");
    for (const Words& words : {Words{"list"}, Words{"get", "A"}, Words{"resolve", "#A"}}) {
        const ProgramResult outcome = runHere(words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  "pmenv: cannot load the settings: " + ini() + ":2:3: missing '=', expected KEY = value\n");
    }
}

// The environment variable refers to itself, so that the value has a cycle when the file is loaded.
TEST_F(PmenvSettingsFile, NamesAValueThatWasLeftOutAtLoading) {
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
    EXPECT_THAT(bad.err, HasSubstr("pmenv: " + ini() + ": BAD: is left out (line 2): " +
                                   reason.substr(0, reason.size() - 1) + "; 'pmenv explain' shows why\n"));
}

TEST_F(PmenvSettingsFile, PmLogDoesNotChangeWhatIsSaid) {
    directory_.writeFile("pressmark.ini", "GOOD = 1\nBAD = ${SELF}\n");
    const std::string quiet = runHere({"get", "GOOD"}, {{"SELF", "${SELF}"}, {"PM_LOG", "none"}}).err;
    const std::string loud = runHere({"get", "GOOD"}, {{"SELF", "${SELF}"}, {"PM_LOG", "all"}}).err;
    EXPECT_THAT(quiet, HasSubstr("BAD is left out"));
    EXPECT_EQ(quiet, loud);
}

}  // namespace
