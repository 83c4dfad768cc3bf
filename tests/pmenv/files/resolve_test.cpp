// pmenv resolve: what a path variable stands for.
#include <string>

#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;

namespace {

using PmenvResolve = Pmenv;

TEST_F(PmenvResolve, TellsWhatAVariableStandsFor) {
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

TEST_F(PmenvResolve, JsonTellsWhatIsWrongWithEachDirectory) {
    const json answer = json::parse(run({"resolve", "/:/nonexistent:" + ini(), "--json"}).out);
    EXPECT_EQ(answer.at("value"), "/:/nonexistent:" + ini());
    ASSERT_EQ(answer.at("directories").size(), 3u);
    EXPECT_EQ(answer["directories"][0].at("problem"), nullptr);
    EXPECT_EQ(answer["directories"][1].at("problem"), "no such directory");
    EXPECT_EQ(answer["directories"][2].at("problem"), "not a directory");
}

}  // namespace
