// pmenv diff: which settings differ, why, and what is said when that cannot be told.
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"
#include "support/Sanitized.h"
#include "support/repeated.h"

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class PmenvDiff : public Pmenv {
protected:
    ProgramResult diff(const std::string& a, const std::string& b, Words more = {},
                       const Environment& environment = {}) const {
        directory_.writeFile("a.ini", a);
        directory_.writeFile("b.ini", b);
        more.insert(more.begin(), {"diff", "a.ini", "b.ini"});
        return run(more, environment);
    }

    // What is said of the settings, without the names of the files and the summary.
    std::string differences(const std::string& a, const std::string& b, Words more = {},
                            const Environment& environment = {}) const {
        const ProgramResult outcome = diff(a, b, std::move(more), environment);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err, "");
        const std::string head = "A  a.ini\nB  b.ini\n\n";
        EXPECT_EQ(outcome.out.substr(0, head.size()), head);
        return outcome.out.substr(head.size(), outcome.out.rfind("\n\n") + 1 - head.size());
    }

    std::string summary(const std::string& a, const std::string& b) const {
        const std::string out = diff(a, b).out;
        return out.substr(out.rfind('\n', out.size() - 2) + 1);
    }
};

// --- values ---------------------------------------------------------------------------------------------------------

TEST_F(PmenvDiff, NoDifferenceIsSaid) {
    const ProgramResult outcome = diff("A = 1\nB = #(A)\n", "; the same, written differently\nB = 1\nA = #{B}\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "no difference in 2 settings\n");
    EXPECT_EQ(diff("", "").out, "no difference in 0 settings\n");
    EXPECT_EQ(diff("A = 1\n",
                   "\xef\xbb\xbf"
                   "A=\"1\"\r")
                  .out,
              "no difference in 1 setting\n");
}

TEST_F(PmenvDiff, SettingsThatDifferAndThoseThatOneHas) {
    const ProgramResult outcome = diff("SAME = 1\nHOST = a\nOLD = yes\n", "NEW =\nHOST = b\nSAME = 1\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "A  a.ini\n"
              "B  b.ini\n"
              "\n"
              "HOST\n"
              "  A  a\n"
              "  B  b\n"
              "  because of its text\n"
              "    A  a at 2:8\n"
              "    B  b at 2:8\n"
              "\n"
              "OLD\n"
              "  only A  yes\n"
              "\n"
              "NEW\n"
              "  only B  (empty)\n"
              "\n"
              "1 setting differs, 1 only in A, 1 only in B; 1 do not differ\n");
}

TEST_F(PmenvDiff, ValuesCannotBeMistaken) {
    EXPECT_THAT(differences("A =\n", "A = (empty)\n"), HasSubstr("  A  (empty)\n  B  \"(empty)\"\n"));
    EXPECT_THAT(differences("A = x\n", "A = \"x \"\n"), HasSubstr("  A  x\n  B  \"x \"\n"));
    EXPECT_THAT(differences("A = x\n", "A = \"\x1b[31m\"\n"), HasSubstr("  B  \"\\x1b[31m\"\n"));
}

TEST_F(PmenvDiff, ValuesThatCannotBeReadAreAlike) {
    EXPECT_EQ(diff("A = #(A)\n", "A = #(B)\nB = #(A)\n").out.substr(0, 3), "A  ") << "B is only in one";
    EXPECT_EQ(diff("A = #(A)\n", "A = x#(A)\n").status, 0);
    EXPECT_THAT(differences("A = #(A)\n", "A = 1\n"),
                HasSubstr("  A  (no value: its references lead back to themselves)\n  B  1\n"));
}

TEST_F(PmenvDiff, ValuesThatAreTooLongAreSaidToBe) {
    const std::string longest = std::string(2047, 'x');
    EXPECT_THAT(
        differences("A = " + longest + "\n", "A = " + longest + "x\n"),
        testing::StartsWith("A\n  A  " + longest + "\n  B  (no value: it has 2,048 characters, the limit is 2,047)\n"));
    EXPECT_EQ(diff("A = " + longest + "x\n", "A = " + longest + "y\n").status, 0) << "programs get nothing from both";
}

TEST_F(PmenvDiff, LongReasonsAreCut) {
    const std::string text(120, 'x');
    EXPECT_THAT(differences("A = " + text + "\n", "A = " + text + "x\n"),
                testing::EndsWith("    A  " + text + " at 1:5\n    B  " + text.substr(1) + "… at 1:5\n"));
    const std::string whole(2047, 'x');
    const json answer = json::parse(diff("A = " + whole + "\n", "A = " + whole + "x\n", {"--json"}).out);
    const json& reason = answer["files"][0]["settings"][0]["because"][0];
    EXPECT_EQ(reason.at("a"), (json{{"line", 1}, {"column", 5}, {"text", whole}}));
    EXPECT_EQ(reason.at("b"), (json{{"line", 1}, {"column", 5}, {"text", whole}, {"textLength", 2048}}));
}

TEST_F(PmenvDiff, SettingThatWasLeftOutIsSaidToBe) {
    EXPECT_EQ(differences("A = ${PM_LOOP}\n", "A = 1\n", {}, {{"PM_LOOP", "${PM_LOOP}"}}),
              "A\n  only B  1  (line 1 is left out there, its references lead back to themselves)\n");
    EXPECT_EQ(diff("A = ${PM_LOOP}\n", "", {}, {{"PM_LOOP", "${PM_LOOP}"}}).status, 0)
        << "programs get nothing from both";
    const json answer =
        json::parse(diff("A = ${PM_LOOP}\nB = 1\n", "A = 1\n", {"--json"}, {{"PM_LOOP", "${PM_LOOP}"}}).out);
    const json& settings = answer["files"][0]["settings"];
    EXPECT_EQ(settings.at(0).count("leftOut"), 0U);
    EXPECT_EQ(settings.at(1).at("leftOut"), "line 1 is left out there, its references lead back to themselves");
}

TEST_F(PmenvDiff, RawComparesTheStoredTexts) {
    EXPECT_EQ(diff("A = 1\nB = #(A)\n", "A = 1\nB = 1\n").status, 0);
    EXPECT_EQ(differences("A = 1\nB = #(A)\n", "A = 1\nB = 1\n", {"--raw"}),
              "B\n  A  #(A)\n  B  1\n  because of its text\n    A  #(A) at 2:5\n    B  1 at 2:5\n");
    EXPECT_EQ(diff("A = 1\nB = #(A)\n", "A = 1\nB = #(A)\n", {"--raw"}).status, 0);
    EXPECT_THAT(differences("A = 1\nB = #(A)\n", "A = 2\nB = #(A)\n", {"--raw"}), Not(HasSubstr("\nB\n")));
}

TEST_F(PmenvDiff, SummaryCounts) {
    EXPECT_EQ(summary("A = 1\nB = 1\n", "A = 2\nB = 2\nC = 1\n"),
              "2 settings differ, 0 only in A, 1 only in B; 0 do not differ\n");
}

// --- reasons --------------------------------------------------------------------------------------------------------

TEST_F(PmenvDiff, ReferenceToASettingThatDiffersIsTheReason) {
    EXPECT_EQ(differences("BASE = /a\nDIR = #(BASE)/x\nLOG = #{DIR}/log\n",
                          "BASE = /b\n\nDIR = #(BASE)/x\nLOG = #{DIR}/log\n"),
              "BASE\n  A  /a\n  B  /b\n  because of its text\n    A  /a at 1:8\n    B  /b at 1:8\n"
              "\n"
              "DIR\n  A  /a/x\n  B  /b/x\n  because of #(BASE)\n    A  /a at 1:8\n    B  /b at 1:8\n"
              "\n"
              "LOG\n  A  /a/x/log\n  B  /b/x/log\n  because of #(BASE)\n    A  /a at 1:8\n    B  /b at 1:8\n");
}

TEST_F(PmenvDiff, WayToTheReasonIsTold) {
    EXPECT_THAT(
        differences("BASE = /a\nROOT = #(BASE)\nDIR = #(ROOT)/x\n", "BASE = /b\nROOT = #(BASE)\nDIR = #(ROOT)/x\n"),
        HasSubstr("DIR\n  A  /a/x\n  B  /b/x\n  because of #(BASE) in #(ROOT)\n"));
    EXPECT_THAT(
        differences("BASE = /a\nROOT = #{BASE}\nDIR = #{ROOT}/x\n", "BASE = /b\nROOT = #{BASE}\nDIR = #{ROOT}/x\n"),
        HasSubstr("DIR\n  A  /a/x\n  B  /b/x\n  because of #{BASE} in #{ROOT}\n"));
}

TEST_F(PmenvDiff, VariableIsTheReason) {
    directory_.writeFile("a.env", "# of the staging host\n\nUSER_DIR=/home/a\n");
    directory_.writeFile("b.env", "USER_DIR=/home/c\r\nUSER_DIR=/home/b\r\n");
    const std::string text = "DIR = ${USER_DIR}/x\nREAD = $(USER_DIR)/x\nBOTH = #(DIR)\n";
    EXPECT_EQ(
        differences(text, text, {"--env-a", "a.env", "--env-b", "b.env"}),
        "DIR\n  A  /home/a/x\n  B  /home/b/x\n  because of ${USER_DIR}\n    A  /home/a\n    B  /home/b\n"
        "\n"
        "READ\n  A  /home/a/x\n  B  /home/b/x\n  because of $(USER_DIR)\n    A  /home/a\n    B  /home/b\n"
        "\n"
        "BOTH\n  A  /home/a/x\n  B  /home/b/x\n  because of ${USER_DIR} in #(DIR)\n    A  /home/a\n    B  /home/b\n");
    EXPECT_THAT(differences(text, text, {"--env-a", "a.env"}), HasSubstr("    A  /home/a\n    B  not set\n"))
        << "the environment of this command";
    EXPECT_EQ(diff("A = $(HOME)\n", "A =\n", {"--env-a", "a.env"}).status, 0) << "A has no other variables";
}

TEST_F(PmenvDiff, MissingSettingIsTheReason) {
    EXPECT_THAT(differences("X = 1\nA = <#(X)>\n", "A = <#(X)>\n"),
                HasSubstr("A\n  A  <1>\n  B  <>\n  because of #(X)\n    A  1 at 1:5\n    B  not defined\n"));
    EXPECT_THAT(differences("X = 1\nA = <#{X}>\n", "A = <#{X}>\nX = 1\n"),
                HasSubstr("  because of #{X}\n    A  1 at 1:5\n    B  not defined before line 2\n"));
    EXPECT_THAT(differences("A = 1\nA = <#{A}>\n", "A = <#{A}>\n"),
                testing::EndsWith("  because of #{A}\n    A  1 at 1:5\n    B  not defined before line 1\n"));
    const json answer = json::parse(diff("A = 1\nA = <#{A}>\n", "A = <#{A}>\n", {"--json"}).out);
    const json& reason = answer["files"][0]["settings"][0]["because"][0];
    EXPECT_EQ(reason.at("a"), (json{{"line", 1}, {"column", 5}, {"text", "1"}}));
    EXPECT_EQ(reason.at("b"), (json{{"text", nullptr}, {"definedBelow", 1}}));
}

TEST_F(PmenvDiff, ReferenceInTheValueOfAVariableIsTheReason) {
    directory_.writeFile("a.env", "PM_X=<$(PM_Y)>\nPM_Y=1\n");
    directory_.writeFile("b.env", "PM_X=<$(PM_Y)>\n");
    EXPECT_EQ(differences("A = $(PM_X)\n", "A = $(PM_X)\n", {"--env-a", "a.env", "--env-b", "b.env"}),
              "A\n  A  <1>\n  B  <>\n  because of $(PM_Y) in $(PM_X)\n    A  1\n    B  not set\n");
}

TEST_F(PmenvDiff, ReferenceInTheValueOfALoadedVariableIsTheReason) {
    directory_.writeFile("a.env", "PM_X=<${PM_Y}>\nPM_Y=1\n");
    directory_.writeFile("b.env", "PM_X=<${PM_Y}>\n");
    EXPECT_EQ(differences("A = ${PM_X}\n", "A = ${PM_X}\n", {"--env-a", "a.env", "--env-b", "b.env"}),
              "A\n  A  <1>\n  B  <>\n  because of ${PM_Y} in ${PM_X}\n    A  1\n    B  not set\n");
}

TEST_F(PmenvDiff, OneReasonIsToldOnceWhicheverWayLeadsThere) {
    const std::string ways = "B = #(X)\nC = #(X)\nALL = #(B)#(C)\n";
    EXPECT_THAT(differences("X = 1\n" + ways, "X = 2\n" + ways),
                testing::EndsWith("\nALL\n  A  11\n  B  22\n"
                                  "  because of #(X) in #(B)\n    A  1 at 1:5\n    B  2 at 1:5\n"));
}

TEST_F(PmenvDiff, ReasonsThatAreNearlyAlikeAreToldEach) {
    EXPECT_THAT(differences("X = 1\nALL = #(X)#{X}\n", "X = 2\nALL = #(X)#{X}\n"),
                testing::EndsWith("\nALL\n  A  11\n  B  22\n"
                                  "  because of #{X}\n    A  1 at 1:5\n    B  2 at 1:5\n"
                                  "  because of #(X)\n    A  1 at 1:5\n    B  2 at 1:5\n"));
    const std::string twice = "X = 1\nB = #{X}\nX = 2\nC = #{X}\nALL = #(B)#(C)\n";
    const std::string once = "X = 3\nB = #{X}\n\nC = #{X}\nALL = #(B)#(C)\n";
    EXPECT_THAT(differences(twice, once),
                testing::EndsWith("\nALL\n  A  12\n  B  33\n"
                                  "  because of #{X} in #(B)\n    A  1 at 1:5\n    B  3 at 1:5\n"
                                  "  because of #{X} in #(C)\n    A  2 at 3:5\n    B  3 at 1:5\n"));
    EXPECT_THAT(differences(once, twice),
                testing::EndsWith("\nALL\n  A  33\n  B  12\n"
                                  "  because of #{X} in #(B)\n    A  3 at 1:5\n    B  1 at 1:5\n"
                                  "  because of #{X} in #(C)\n    A  3 at 1:5\n    B  2 at 3:5\n"));
}

TEST_F(PmenvDiff, TheSameTextElsewhereIsAReasonOfItsOwn) {
    const auto twice = [](const std::string& x) {
        return "X = " + x + "\nB = #{X}\nX = " + x + "\nC = #{X}\nALL = #(B)#(C)\n";
    };
    EXPECT_THAT(differences(twice("1"), twice("2")),
                testing::EndsWith("\nALL\n  A  11\n  B  22\n"
                                  "  because of #{X} in #(B)\n    A  1 at 1:5\n    B  2 at 1:5\n"
                                  "  because of #{X} in #(C)\n    A  1 at 3:5\n    B  2 at 3:5\n"));
}

// More levels than are kept of one setting's references.
TEST_F(PmenvDiff, ReasonAtTheEndOfALongChainIsFound) {
    std::string chain;
    for (int i = 1; i < 30; ++i) chain += "S" + std::to_string(i) + " = #(S" + std::to_string(i - 1) + ")\n";
    EXPECT_THAT(differences("S0 = a\n" + chain, "S0 = b\n" + chain),
                HasSubstr("S29\n  A  a\n  B  b\n  because of #(S0) in #(S28), #(S27), #(S26), #(S25), #(S24), #(S23), "
                          "#(S22), #(S21) and 20 more\n    A  a at 1:6\n    B  b at 1:6\n"));
    EXPECT_THAT(differences("S0 = a\n" + chain, "S0 = b\n" + chain), HasSubstr(", #(S2) and 1 more\n"));
    const json answer = json::parse(diff("S0 = a\n" + chain, "S0 = b\n" + chain, {"--json"}).out);
    const json& settings = answer["files"][0]["settings"];
    for (const std::size_t last : {9U, 10U, 11U}) {
        const json& reason = settings.at(last).at("because").at(0);
        EXPECT_EQ(reason.at("through").size(), 8U);
        EXPECT_EQ(reason.value("throughLeftOut", 0U), last - 9);
        EXPECT_EQ(reason.count("throughLeftOut"), last > 9 ? 1U : 0U);
    }
}

TEST_F(PmenvDiff, TextAndReferenceMayBothBeReasons) {
    EXPECT_THAT(differences("X = 1\nA = a#(X)\n", "X = 2\nA = b#(X)\n"),
                HasSubstr("  because of its text\n    A  a#(X) at 2:5\n    B  b#(X) at 2:5\n  because of #(X)\n"));
}

TEST_F(PmenvDiff, ManyReasonsAreCounted) {
    std::string a, b, all = "ALL = ";
    for (int i = 0; i < 9; ++i) {
        a += "X" + std::to_string(i) + " = a\n";
        b += "X" + std::to_string(i) + " = b\n";
        all += "#(X" + std::to_string(i) + ")";
    }
    EXPECT_THAT(differences(a + all, b + all),
                HasSubstr("  because of #(X4)\n    A  a at 5:6\n    B  b at 5:6\n  and of 4 more\n"));
    all = "ALL = #(X0)#(X1)#(X2)#(X3)#(X4)";
    EXPECT_THAT(differences(a + all, b + all), testing::EndsWith("    B  b at 5:6\n"));
    EXPECT_THAT(differences(a + all + "#(X5)", b + all + "#(X5)"), testing::EndsWith("  and of 1 more\n"));
    for (const std::size_t more : {0U, 1U}) {
        const std::string text = all + (more > 0 ? "#(X5)" : "");
        const json answer = json::parse(diff(a + text, b + text, {"--json"}).out);
        const json& setting = answer["files"][0]["settings"].back();
        EXPECT_EQ(setting.at("because").size(), 5U);
        EXPECT_EQ(setting.value("becauseMore", 0U), more);
        EXPECT_EQ(setting.count("becauseMore"), more);
    }
}

// Each setting refers to the next. What the last one is can be followed through two hundred.
TEST_F(PmenvDiff, ReasonsAreFollowedUpToALimit) {
    const auto chainTo = [](int last, const std::string& value) {
        std::string chain;
        for (int i = 0; i < last; ++i) chain += "S" + std::to_string(i) + " = #(S" + std::to_string(i + 1) + ")\n";
        return chain + "S" + std::to_string(last) + " = " + value + "\n";
    };
    const std::string way = "#(S1), #(S2), #(S3), #(S4), #(S5), #(S6), #(S7), #(S8) and ";
    EXPECT_THAT(differences(chainTo(200, "a"), chainTo(200, "b")),
                testing::StartsWith("S0\n  A  a\n  B  b\n  because of #(S200) in " + way +
                                    "191 more\n    A  a at 201:8\n    B  b at 201:8\n\n"));
    EXPECT_THAT(differences(chainTo(201, "a"), chainTo(201, "b")),
                testing::StartsWith("S0\n  A  a\n  B  b\n  because of #(S201) in " + way +
                                    "192 more, which 'pmenv explain' tells more about\n\n"));
}

TEST_F(PmenvDiff, ReasonBehindAReferenceThatIsNotKeptIsNotInvented) {
    std::string all = "ALL = ";
    for (int i = 0; i < 30; ++i) all += "#(SAME" + std::to_string(i) + ")";
    all += "#(X)\n";
    EXPECT_THAT(
        differences("X = a\n" + all, "X = b\n" + all),
        HasSubstr("ALL\n  A  a\n  B  b\n  because of references that were not kept; 'pmenv explain' shows more\n"));
}

// --- secrets --------------------------------------------------------------------------------------------------------

TEST_F(PmenvDiff, SecretsDifferHidden) {
    const std::string secret = kCanary;
    EXPECT_EQ(differences("TOKEN = 1" + secret + "\nURL = x#(TOKEN)\n", "TOKEN = 2" + secret + "\nURL = x#(TOKEN)\n"),
              "TOKEN\n  A  (hidden)\n  B  (hidden)\n  differs in what is hidden\n"
              "  because of its text\n    A  (hidden) at 1:9\n    B  (hidden) at 1:9\n"
              "\n"
              "URL\n  A  x(hidden)\n  B  x(hidden)\n  differs in what is hidden\n"
              "  because of #(TOKEN)\n    A  (hidden) at 1:9\n    B  (hidden) at 1:9\n");
    EXPECT_EQ(diff("TOKEN = " + secret + "\n", "TOKEN = " + secret + "\n").status, 0);
    EXPECT_THAT(diff("TOKEN = 1" + secret + "\n", "TOKEN = 2\n", {"--show-secrets"}).out,
                HasSubstr("  A  1" + secret + "\n  B  2\n"));
    const json answer = json::parse(diff("TOKEN = 1" + secret + "\n", "TOKEN = 2" + secret + "\n", {"--json"}).out);
    EXPECT_EQ(answer["files"][0]["settings"][0]["a"],
              (json{{"line", 1}, {"column", 9}, {"value", "(hidden)"}, {"valueHidden", true}}));
}

// --- JSON -----------------------------------------------------------------------------------------------------------

TEST_F(PmenvDiff, JsonHasTheSame) {
    const json answer = json::parse(
        diff("X = 1\nA = <#(X)>\nOLD = 1\nSAME = 1\n", "\nX = 2\nA = <#(X)>\nLOOP = #(LOOP)\nSAME = 1\n", {"--json"})
            .out);
    EXPECT_EQ(answer["equal"], false);
    const json file = answer["files"].at(0);
    EXPECT_EQ(file["a"], "a.ini");
    EXPECT_EQ(file["b"], "b.ini");
    EXPECT_EQ(file["same"], 1);
    ASSERT_EQ(file["settings"].size(), 4U);
    const json& setting = file["settings"][1];
    EXPECT_EQ(setting["key"], "A");
    EXPECT_EQ(setting["a"], (json{{"line", 2}, {"column", 5}, {"value", "<1>"}}));
    EXPECT_EQ(setting["b"], (json{{"line", 3}, {"column", 5}, {"value", "<2>"}}));
    ASSERT_EQ(setting["because"].size(), 1U);
    const json& reason = setting["because"][0];
    EXPECT_EQ(reason.at("reference"), "#(X)");
    EXPECT_EQ(reason.at("through"), json::array());
    EXPECT_EQ(reason.at("known"), true);
    EXPECT_EQ(reason.at("a"), (json{{"line", 1}, {"column", 5}, {"text", "1"}}));
    EXPECT_EQ(reason.at("b"), (json{{"line", 2}, {"column", 5}, {"text", "2"}}));
    EXPECT_EQ(file["settings"][2].at("b"), nullptr);
    EXPECT_EQ(file["settings"][3].at("a"), nullptr);
    EXPECT_EQ(file["settings"][3]["b"].at("value"), nullptr);
    EXPECT_EQ(file["settings"][3]["b"]["problem"], "its references lead back to themselves");
    const json equal = json::parse(diff("A = 1\n", "A = 1\n", {"--json"}).out);
    EXPECT_EQ(equal["equal"], true);
    EXPECT_EQ(equal["files"][0]["same"], 1);
    EXPECT_EQ(equal["files"][0]["settings"], json::array());
}

// --- files ----------------------------------------------------------------------------------------------------------

TEST_F(PmenvDiff, DirectoriesAreComparedByTheNamesOfTheirFiles) {
    for (const char* const directory : {"a/sub", "b/sub"}) directory_.makeDirectory(directory);
    directory_.writeFile("a/same.ini", "A = 1\n");
    directory_.writeFile("b/same.ini", "A = 1\n");
    directory_.writeFile("a/sub/x.ini", "A = 1\n");
    directory_.writeFile("b/sub/x.ini", "A = 2\n");
    directory_.writeFile("a/old.ini", "A = 1\n");
    directory_.writeFile("b/new.ini", "A = 1\n");
    directory_.writeFile("b/notes.txt", "A = 1\n");
    const ProgramResult outcome = run({"diff", "a", "b"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "only A  a/old.ini\n\n"
              "A  a/sub/x.ini\nB  b/sub/x.ini\n\n"
              "A\n  A  1\n  B  2\n  because of its text\n    A  1 at 1:5\n    B  2 at 1:5\n\n"
              "only B  b/new.ini\n\n"
              "1 setting differs, 0 only in A, 0 only in B, 2 files only in one; 1 do not differ\n");
    const json answer = json::parse(run({"diff", "a", "b", "--json"}).out);
    EXPECT_EQ(answer["files"].size(), 4U);
    EXPECT_EQ(answer["files"][0], (json{{"a", "a/old.ini"}, {"b", nullptr}}));
    EXPECT_EQ(run({"diff", "a", "a"}).status, 0);
    directory_.writeFile("a/same.ini", "no setting\n");
    const ProgramResult refused = run({"diff", "a", "b"});
    EXPECT_EQ(refused.status, 4) << "whatever else differs";
    EXPECT_THAT(refused.out, HasSubstr("; 0 do not differ, 1 comparison not made\n"));
    EXPECT_EQ(refused.err, "pmenv: cannot load the settings: a/same.ini:1:1: missing '=', expected KEY = value\n");
    EXPECT_EQ(json::parse(run({"diff", "a", "b", "--json"}).out)["files"][1],
              (json{{"a", "a/same.ini"},
                    {"b", "b/same.ini"},
                    {"problem", "cannot load the settings: a/same.ini:1:1: missing '=', expected KEY = value"}}));
}

TEST_F(PmenvDiff, WhatWasFoundStandsBeforeWhatCannotBeReadInOneLog) {
    for (const char* const directory : {"a", "b"}) directory_.makeDirectory(directory);
    directory_.writeFile("a/1.ini", "A = 1\n");
    directory_.writeFile("a/2.ini", "no setting\n");
    directory_.writeFile("b/2.ini", "A = 1\n");
    const ScopedCwd here(directory_.path());
    EXPECT_THAT(runProgram({"/bin/bash", "-c", "\"$0\" diff a b 2>&1", PMENV_BINARY}).out,
                testing::MatchesRegex("only A  a/1.ini\n\npmenv: .* a/2.ini:1:1: .*\n0 settings differ.*\n"));
}

TEST_F(PmenvDiff, FilesMayBePipes) {
    directory_.writeFile("a.ini", "A = 1\n");
    const ScopedCwd here(directory_.path());
    const auto shell = [](const std::string& line) { return runProgram({"/bin/bash", "-c", line, PMENV_BINARY}); };
    EXPECT_EQ(shell("\"$0\" diff a.ini - <a.ini").out, "no difference in 1 setting\n");
    EXPECT_THAT(shell("\"$0\" diff <(echo A = 2) a.ini").out, HasSubstr("  A  2\n  B  1\n"));
    EXPECT_THAT(shell("echo no | \"$0\" diff a.ini -").err,
                testing::StartsWith("pmenv: cannot load the settings: <stdin>:1:1: "));
}

TEST_F(PmenvDiff, WhatCannotBeToldHasACodeOfItsOwn) {
    const ProgramResult none = run({"diff", "none.ini", "pressmark.ini"});
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.err, "pmenv: cannot load the settings: none.ini: cannot open the file: No such file or directory\n");
    EXPECT_EQ(diff("A = 1\n", "[x\n").status, 4);
    directory_.makeDirectory("empty");
    EXPECT_EQ(run({"diff", "empty", "empty"}).status, 4);
    directory_.writeFile("a.env", "A=1\n\nPASSWORD " + std::string(kCanary) + "\n");
    const ProgramResult variables = diff("A = 1\n", "A = 1\n", {"--env-b", "a.env"});
    EXPECT_EQ(variables.status, 4);
    EXPECT_EQ(variables.err, "pmenv: cannot read the variables: a.env:3: expected NAME=value\n");
    EXPECT_THAT(diff("A = 1\n", "A = 1\n", {"--env-a", "none.env"}).err,
                HasSubstr("none.env: No such file or directory"));
    EXPECT_EQ(diff("A = 1\n", "A = 1\n", {"--env-a", "."}).status, 4);
    directory_.writeFile("a.env", std::string("A=1\n \t\nB=\0\n", 11));
    EXPECT_EQ(diff("A = 1\n", "A = 1\n", {"--env-a", "a.env"}).err,
              "pmenv: cannot read the variables: a.env:3: a NUL byte\n");
    for (const char* const line : {"NAME\n", "=value\n", "A B=value\n"}) {
        directory_.writeFile("a.env", line);
        EXPECT_EQ(diff("A = 1\n", "A = 1\n", {"--env-a", "a.env"}).err,
                  "pmenv: cannot read the variables: a.env:1: expected NAME=value\n");
    }
    const ScopedCwd here(directory_.path());
    EXPECT_EQ(runProgram({"/bin/bash", "-c", "\"$0\" diff a.ini a.ini >/dev/full", PMENV_BINARY}).status, 4);
}

TEST_F(PmenvDiff, VariablesHaveALimitOfLength) {
    const std::string largest = "#" + std::string((16U << 20) - 1, 'x');
    directory_.writeFile("a.env", largest + "\nPM_X=\n");
    EXPECT_EQ(diff("A = 1\n", "A = 1\n", {"--env-a", "a.env"}).err,
              "pmenv: cannot read the variables: a.env:2: the file is larger than 16 MiB\n");
    directory_.writeFile("a.env", largest + "\n\n");
    EXPECT_EQ(diff("A = 1\n", "A = 1\n", {"--env-a", "a.env"}).status, 0);
}

TEST_F(PmenvDiff, WrongUsage) {
    directory_.makeDirectory("d");
    directory_.writeFile("a.ini", "A = 1\n");
    for (const Words& words : std::vector<Words>{
             {"diff", "a.ini"}, {"diff", "a.ini", "d"}, {"diff", "-", "-"}, {"diff", "a.ini", "a.ini", "--ini", "."}}) {
        EXPECT_EQ(run(words).status, 2) << words.back();
    }
    const std::string different = "pmenv: 'd' is a directory and 'a.ini' is none; see 'pmenv diff --help'\n";
    EXPECT_EQ(run({"diff", "a.ini", "d"}).err, different);
    EXPECT_EQ(run({"diff", "d", "a.ini"}).err, different);
}

// --- input that asks for too much -----------------------------------------------------------------------------------

TEST_F(PmenvDiff, ManySettings) {
    constexpr int kSettings = kSanitized ? 4'000 : 20'000;
    std::string a, b;
    for (int i = 0; i < kSettings; ++i) {
        const std::string number = std::to_string(i);
        a += "S" + number + " = " + (i % 2 == 0 ? "#{S" + std::to_string(i - 2) + "}" : "$(HOME)#(S0)") + "\n";
        b += "S" + number + " = " + (i % 2 == 0 ? "#{S" + std::to_string(i - 2) + "}" : "$(HOME)#(S0)") + "\n";
    }
    const ProgramResult outcome = diff(a, b + "S0 = x\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\n" + std::to_string(kSettings / 2 + 1) +
                                       " settings differ, 0 only in A, "
                                       "0 only in B; " +
                                       std::to_string(kSettings / 2 - 1) + " do not differ\n"));
    EXPECT_EQ(diff(a, a).out, "no difference in " + std::to_string(kSettings) + " settings\n");
}

TEST_F(PmenvDiff, LongChainsOfSettingsThatDiffer) {
    std::string chain;
    for (int i = 1; i < 5'000; ++i) chain += "S" + std::to_string(i) + " = #{S" + std::to_string(i - 1) + "}\n";
    const ProgramResult outcome = diff("S0 = a\n" + chain, "S0 = b\n" + chain);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("S4999\n  A  a\n  B  b\n  because of #{S0} in #{S4998}, "));
}

TEST_F(PmenvDiff, FileThatKeepsTheLibraryBusyIsRefusedInTime) {
    std::string text = "X = " + std::string(10'000, 'x') + "\n";
    for (int i = 0; i < 12'000; ++i) text += "Y" + std::to_string(i) + " = " + repeated("#(X)", 10) + "\n";
    const ProgramResult outcome = diff(text, text);
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.err, "pmenv: a.ini: expanding the values takes too much work; 'pmenv check' tells where\n");
}

// --- against get ----------------------------------------------------------------------------------------------------

class SideGenerator {
public:
    explicit SideGenerator(unsigned seed) : random_(seed) {}

    std::string file() {
        std::string text = below(9) == 0 ? "\xef\xbb\xbf" : "";
        for (std::size_t entries = 1 + below(10); entries > 0; --entries) {
            if (below(12) == 0) text += anyOf({"[]\n", "[s]\n", "; x\r\n"});
            text += name() + anyOf({"=", " = "}) + value() + anyOf({"\n", "\r\n"});
        }
        return text;
    }
    // The same with some entries changed, taken out or put in.
    std::string changed(const std::string& file) {
        std::string text;
        std::size_t at = 0;
        while (at < file.size()) {
            const std::size_t end = std::min(file.find('\n', at), file.size() - 1) + 1;
            const std::size_t fate = below(6);
            if (fate > 0) text += file.substr(at, end - at);
            if (fate == 1) text += name() + " = " + value() + "\n";
            at = end;
        }
        return text;
    }

private:
    std::size_t below(std::size_t end) { return static_cast<std::size_t>(random_()) % end; }
    std::string anyOf(const std::vector<std::string>& texts) { return texts[below(texts.size())]; }
    std::string name() { return anyOf({"A", "B", "C", "D", "E_TOKEN", "s.A"}); }
    std::string value() {
        std::string value;
        for (std::size_t pieces = below(4); pieces > 0; --pieces) {
            value += anyOf(
                {"#(" + name() + ")", "#{" + name() + "}", "$(PM_1)", "${PM_2}", "x", "y ", "#(", "${PM_1} #{A}"});
        }
        return value;
    }

    std::mt19937 random_;
};

constexpr unsigned kPairs = kSanitized ? 15 : 60;  // of files that are compared

TEST_F(PmenvDiff, SaysDifferentExactlyWhereGetDoes) {
    const Environment environment{{"PM_1", "one#(A)"}, {"PM_2", "$(PM_1)"}};
    std::size_t different = 0;
    std::size_t same = 0;
    for (unsigned seed = 0; seed < kPairs; ++seed) {
        SideGenerator generator(seed);
        const std::string a = generator.file();
        const std::string b = seed % 10 == 9 ? a : generator.changed(a);
        const json answer = json::parse(diff(a, b, {"--json", "--show-secrets"}, environment).out);
        std::set<std::string> said;
        for (const json& setting : answer["files"][0]["settings"]) said.insert(setting["key"]);
        const Words names{"A", "B", "C", "D", "E_TOKEN", "s.A", "s.B", "s.C", "s.D", "s.E_TOKEN", "s.s.A"};
        const auto valuesOf = [&](const char* file, const char* form) {
            Words words{"--ini", file, "get", "--json"};
            words.insert(words.end(), names.begin(), names.end());
            if (*form != '\0') words.emplace_back(form);
            return json::parse(run(words, environment).out);
        };
        const json valuesA = valuesOf("a.ini", ""), valuesB = valuesOf("b.ini", "");
        const json storedA = valuesOf("a.ini", "--raw"), storedB = valuesOf("b.ini", "--raw");
        for (const std::string& name : names) {
            const bool oneHas = storedA[name].is_null() != storedB[name].is_null();
            const bool expected = oneHas || valuesA[name] != valuesB[name];
            EXPECT_EQ(expected, said.count(name) == 1) << name << " of\n" << a << "and\n" << b;
            ++(expected ? different : same);
        }
        EXPECT_EQ(said.empty(), answer["equal"] == true);
    }
    EXPECT_GT(different, kPairs * 2 / 3);
    EXPECT_GT(same, kPairs * 2 / 3);
}

// Whether an explanation tells of what diff gives as the reason: that text at that place, or that value of a variable.
bool tellsOf(const json& explanation, const json& reason, const json& side) {
    if (explanation.is_object()) {
        const bool isPlace = side.contains("line") && explanation.contains("place") &&
                             !explanation["place"].is_null() && explanation["place"]["line"] == side["line"];
        const bool isReference =
            !side.contains("line") && explanation.value("reference", json()) == reason["reference"];
        if ((isPlace || isReference) && explanation.value("raw", json()) == side["text"]) return true;
    }
    return explanation.is_structured() && std::any_of(explanation.begin(), explanation.end(),
                                                      [&](const json& part) { return tellsOf(part, reason, side); });
}

TEST_F(PmenvDiff, ReasonsAreWhatExplainTells) {
    const Environment environment{{"PM_1", "one#(A)"}, {"PM_2", "$(PM_1)"}};
    std::size_t reasons = 0;
    for (unsigned seed = 100; seed < 100 + kPairs; ++seed) {
        SideGenerator generator(seed);
        const std::string a = generator.file();
        const std::string b = generator.changed(a);
        const json answer = json::parse(diff(a, b, {"--json", "--show-secrets"}, environment).out);
        for (const json& setting : answer["files"][0]["settings"]) {
            if (setting["because"].empty()) continue;
            const auto explained = [&](const char* file) {
                return json::parse(
                    run({"--ini", file, "explain", setting["key"], "--json", "--show-secrets"}, environment).out);
            };
            const json explainedA = explained("a.ini"), explainedB = explained("b.ini");
            for (const json& reason : setting["because"]) {
                SCOPED_TRACE(reason.dump() + " of\n" + a + "and\n" + b);
                EXPECT_TRUE(tellsOf(explainedA, reason, reason["a"])) << explainedA;
                EXPECT_TRUE(tellsOf(explainedB, reason, reason["b"])) << explainedB;
                ++reasons;
            }
        }
    }
    EXPECT_GT(reasons, kPairs * 2 / 5);
}

TEST_F(PmenvDiff, OfAFileWithItselfIsEmpty) {
    std::size_t compared = 0;
    for (const auto& sample : std::filesystem::directory_iterator(CORPUS_DIR)) {
        SCOPED_TRACE(sample.path());
        const ProgramResult outcome = run({"diff", sample.path(), sample.path()});
        EXPECT_TRUE(outcome.status == 0 || (outcome.status == 4 && outcome.out.empty() == false)) << outcome.out;
        if (outcome.status != 0) continue;
        EXPECT_THAT(outcome.out, testing::StartsWith("no difference in "));
        ++compared;
    }
    EXPECT_GT(compared, 25U);
}

}  // namespace
