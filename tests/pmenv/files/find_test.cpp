// pmenv find: the first file in the directories of path variables, or every place that was tried.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::StartsWith;

namespace {

using PmenvFind = Pmenv;

TEST_F(PmenvFind, PrintsTheFirstHit) {
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

TEST_F(PmenvFind, NamesEveryPlaceInOrder) {
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
              "limits allow; 'pmenv explain' shows why\n"
              "  11. #BIM: no such setting; did you mean 'BIN'?\n");
}

TEST_F(PmenvFind, SaysWhyANameIsTooLong) {
    const auto placesOf = [this](const std::string& name) {
        const std::string err = run({"find", name, "."}).err;
        return err.substr(err.find('\n') + 1);
    };
    EXPECT_EQ(placesOf(std::string(255, 'n')), "  1. .: no such file there\n");
    EXPECT_EQ(placesOf(std::string(256, 'n')), "  1. .: File name too long\n");
    EXPECT_EQ(placesOf(std::string(4094, 'n')), "  1. .: the path is longer than 4095 characters\n");
}

TEST_F(PmenvFind, EndsAtAnEmptyVariable) {
    const ProgramResult outcome = run({"find", "pressmark.ini", "a", "", "."});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "pmenv: pressmark.ini: not found; looked in\n"
              "  1. a: no such directory\n"
              "  2. '': an empty variable; it ends the search\n");
}

TEST_F(PmenvFind, JsonTellsThePlaces) {
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

TEST_F(PmenvFind, SearchesWithoutASettingNeedNoSettingsFile) {
    EXPECT_EQ(run({"find", "pressmark.ini", "."}).status, 0);
    EXPECT_EQ(run({"resolve", "."}).status, 0);
    const ProgramResult outcome = run({"find", "x", "#BASE"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, StartsWith("pmenv: pressmark.ini not found; looked in\n"));
}

}  // namespace
