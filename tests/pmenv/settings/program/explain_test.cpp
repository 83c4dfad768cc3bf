// pmenv explain as a user runs it, on tests/golden/explain/pressmark.ini and on files that ask for too much.
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"
#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"
#include "support/TerminalRun.h"
#include "support/repeated.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const std::map<std::string, const char*>& environmentOfTests() {
    static const std::map<std::string, const char*> variables{{"EXPLAIN_DIR", "/home/user"},
                                                              {"EXPLAIN_SUB", "12"},
                                                              {"EXPLAIN_LOOP", "x${EXPLAIN_LOOP}"},
                                                              {"EXPLAIN_ESCAPE", "\x1b[31mred"},
                                                              {"NO_COLOR", nullptr},
                                                              {"TERM", "xterm"},
                                                              {"PM_LOG", nullptr},
                                                              {"HOME", "/home/user"},
                                                              {"KR_BIN", nullptr}};
    return variables;
}

ProgramResult explainIn(const std::string& directory, Words words) {
    words.insert(words.begin(), {PMENV_BINARY, "--ini", "pressmark.ini", "explain"});
    const ScopedCwd here(directory);
    return runProgram(words, environmentOfTests());
}

// --- every kind of answer -------------------------------------------------------------------------------------------

struct Golden {
    const char* name;  // of the files with the expected output
    int exitCode;
    Words words;
};

std::ostream& operator<<(std::ostream& out, const Golden& golden) { return out << golden.name; }

class PmenvExplainGolden : public testing::TestWithParam<Golden> {
protected:
    static ProgramResult run(const Words& more = {}) {
        Words words = GetParam().words;
        words.insert(words.end(), more.begin(), more.end());
        return explainIn(GOLDEN_DIR "/explain", words);
    }
    static std::string expected(const char* extension) {
        return readFileText(std::string(GOLDEN_DIR "/explain/") + GetParam().name + extension);
    }
};

TEST_P(PmenvExplainGolden, Tree) {
    const ProgramResult outcome = run();
    EXPECT_EQ(outcome.status, GetParam().exitCode);
    EXPECT_EQ(outcome.out, expected(".txt"));
    EXPECT_EQ(outcome.err, "");
}

TEST_P(PmenvExplainGolden, Json) {
    const ProgramResult outcome = run({"--json"});
    EXPECT_EQ(outcome.status, GetParam().exitCode);
    EXPECT_EQ(outcome.out, expected(".json"));
    EXPECT_EQ(outcome.err, "");
}

INSTANTIATE_TEST_SUITE_P(PmenvExplain, PmenvExplainGolden,
                         testing::Values(Golden{"plain", 0, {"PLAIN"}}, Golden{"blanks", 0, {"BLANKS"}},
                                         Golden{"nested", 0, {"NESTED"}}, Golden{"both", 0, {"BOTH"}},
                                         Golden{"chain", 0, {"CHAIN"}}, Golden{"section", 0, {"engine.DIR"}},
                                         Golden{"typo", 0, {"TYPO"}}, Golden{"early", 0, {"EARLY"}},
                                         Golden{"twice", 0, {"TWICE"}}, Golden{"cycle", 1, {"LOOP_A"}},
                                         Golden{"lead-in", 1, {"LEAD_IN"}}, Golden{"at-load", 1, {"AT_LOAD"}},
                                         Golden{"partly", 0, {"PARTLY"}}, Golden{"lost", 0, {"LOST"}},
                                         Golden{"formed", 0, {"FORMED"}}, Golden{"around", 0, {"AROUND"}},
                                         Golden{"control", 0, {"CONTROL"}}, Golden{"too-long", 1, {"TOOLONG"}},
                                         Golden{"text", 0, {"--text", "any $(EXPLAIN_DIR) #(NESTED) ${HOME}"}},
                                         Golden{"text-cycle", 1, {"--text", "#(LOOP_B)"}},
                                         Golden{"text-plain", 0, {"--text", "nothing in it"}},
                                         Golden{"run-time", 0, {"PLAIN", "--set", "PLAIN=#(NESTED)", "--set", "X=1"}},
                                         Golden{"run-time-only", 0, {"X", "--set", "PLAIN=1", "--set=X=a=b"}}),
                         [](const auto& test) {
                             std::string name = test.param.name;
                             for (std::size_t i; (i = name.find('-')) != std::string::npos;) name[i] = '_';
                             return name;
                         });

// --- names that are not defined -------------------------------------------------------------------------------------

TEST(PmenvExplain, SuggestsTheNearestNames) {
    const ProgramResult outcome = explainIn(GOLDEN_DIR "/explain", {"NESTD"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "pmenv: pressmark.ini: NESTD: no such setting; did you mean 'NESTED'?\n");
}

TEST(PmenvExplain, JsonOfWhatIsNotDefinedHasNoValue) {
    const ProgramResult outcome = explainIn(GOLDEN_DIR "/explain", {"NESTD", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("no such setting"));
    const json answer = json::parse(outcome.out);
    EXPECT_TRUE(answer.at("value").is_null());
    EXPECT_EQ(answer.at("failure").at("reason"), "not defined");
    EXPECT_EQ(answer.at("explanation").at("nearest"), json{"NESTED"});
}

// --- what asks for too much -----------------------------------------------------------------------------------------

class PmenvExplainLimits : public testing::Test {
protected:
    ProgramResult explain(const std::string& settings, Words words) const {
        directory_.writeFile("pressmark.ini", settings);
        return explainIn(directory_.path(), std::move(words));
    }

    TempDir directory_;
};

std::string chainOf(int settings) {
    std::string text;
    for (int i = 0; i < settings; ++i) text += "C" + std::to_string(i) + " = #(C" + std::to_string(i + 1) + ")\n";
    return text;
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
    return count;
}

TEST_F(PmenvExplainLimits, DeepChainIsShownToTwentyLevels) {
    const ProgramResult outcome = explain(chainOf(511) + "C511 = end\n", {"C0"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(countOf(outcome.out, "├─ #("), 20U);
    EXPECT_THAT(outcome.out, HasSubstr("├─ … 491 more, not shown\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\n└ value   end\n"));
}

TEST_F(PmenvExplainLimits, OneReferenceThatIsNotShownIsCounted) {
    const ProgramResult deep = explain(chainOf(21) + "C21 = end\n", {"C0"});
    EXPECT_EQ(countOf(deep.out, "├─ #("), 20U);
    EXPECT_THAT(deep.out, HasSubstr("│ text    #(C21)\n"));
    EXPECT_THAT(deep.out, HasSubstr("├─ … 1 more, not shown\n"));
    EXPECT_THAT(explain(chainOf(20) + "C20 = end\n", {"C0"}).out, Not(HasSubstr("not shown")));
    EXPECT_THAT(explain("B = " + repeated("#(A)", 21) + "\nA =\n", {"B"}).out, HasSubstr("\n├─ … 1 more, not shown\n"));
}

TEST_F(PmenvExplainLimits, LongNamesAreCut) {
    const std::string name = repeated("N", 100);
    const std::string settings = name + " = 1\n" + name + "M = 1\n";
    EXPECT_THAT(explain(settings, {name}).out, HasSubstr("\n" + name + ": setting at 1:104\n"));
    EXPECT_THAT(explain(settings, {name + "M"}).out, HasSubstr("\n" + name.substr(1) + "…: setting at 2:105\n"));
}

TEST_F(PmenvExplainLimits, TooDeepChainHasNoValue) {
    const ProgramResult outcome = explain(chainOf(600), {"C0"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\n└ no value: its references are nested deeper than 512 levels\n"));
    EXPECT_LT(outcome.out.size(), 10'000U);
}

TEST_F(PmenvExplainLimits, ManyReferencesAreShownToTwenty) {
    const std::string settings =
        "FITS = " + repeated("#(N)", 65'520) + "\nOVER = " + repeated("#(N)", 65'600) + "\nN =\n";
    const ProgramResult fits = explain(settings, {"FITS"});
    EXPECT_EQ(fits.status, 0);
    EXPECT_THAT(fits.out, HasSubstr("\n├─ … 65,500 more, not shown\n└ value   (empty)\n"));
    EXPECT_LT(fits.out.size(), 10'000U);
    const json tree = json::parse(explain(settings, {"FITS", "--json"}).out).at("explanation");
    EXPECT_EQ(tree.at("steps").size(), 20U);
    EXPECT_EQ(tree.at("stepsLeftOut"), 65'500);
    EXPECT_EQ(tree.at("steps").at(0).count("stepsLeftOut"), 0U) << "nothing is left out there";

    const ProgramResult over = explain(settings, {"OVER"});
    EXPECT_EQ(over.status, 1);
    EXPECT_THAT(over.out, HasSubstr("\n└ no value: it takes more than 65,536 substitutions\n"));
    EXPECT_EQ(json::parse(explain(settings, {"OVER", "--json"}).out).at("failure").at("reason"), "substitutions");
}

TEST_F(PmenvExplainLimits, LongCycleIsShownWithItsEnds) {
    const ProgramResult outcome = explain(chainOf(300) + "C300 = #(C0)\n", {"C0"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\n  C0 -> C1 -> C2 -> C3 -> C4 -> C5 -> C6 -> C7 -> C8 -> C9 -> C10 -> C11 -> "
                                       "… 286 more … -> C298 -> C299 -> C300 -> C0\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\n  C11 at 12:7: #(C12)\n  …\n  C298 at 299:8: "));
}

TEST_F(PmenvExplainLimits, JsonOfALongCycleHasItsEnds) {
    for (const std::size_t leftOut : {0U, 1U, 286U}) {
        const int last = static_cast<int>(leftOut) + 14;
        const std::string settings = chainOf(last) + "C" + std::to_string(last) + " = #(C0)\n";
        const json failure = json::parse(explain(settings, {"C0", "--json"}).out).at("failure");
        EXPECT_EQ(failure.at("reason"), "cycle");
        ASSERT_EQ(failure.at("chain").size(), 16U);
        EXPECT_EQ(failure.at("chain").at(11).at("name"), "C11");
        EXPECT_EQ(failure.at("chain").at(12).at("name"), "C" + std::to_string(last - 2));
        EXPECT_EQ(failure.at("chain").at(15).at("name"), "C0");
        EXPECT_EQ(failure.value("chainLeftOut", 0U), leftOut);
        EXPECT_EQ(failure.count("chainLeftOut"), leftOut > 0 ? 1U : 0U);
    }
}

TEST_F(PmenvExplainLimits, JsonNamesTheLimit) {
    const auto reasonOf = [this](const std::string& settings) {
        return json::parse(explain(settings, {"C0", "--json"}).out).at("failure").at("reason").get<std::string>();
    };
    EXPECT_EQ(reasonOf(chainOf(600)), "levels");
    EXPECT_EQ(reasonOf("C0 = #(L)#(L)\nL = " + repeated("x", 600'000) + "\n"), "text length");
    EXPECT_EQ(reasonOf("C0 = " + repeated("x", 500'000) + repeated("#(N)", 1000) + "\nN =\n"), "searching");
    EXPECT_EQ(reasonOf("C0 = " + repeated("x", 2048) + "\n"), "too long");
}

TEST_F(PmenvExplainLimits, JsonTellsOfOneReferenceThatIsLeftOutAndOfTheFirstLine) {
    const std::string settings = "A = <#{A}>\nB = " + repeated("#(A)", 21) + "\n";
    EXPECT_EQ(
        json::parse(explain(settings, {"A", "--json"}).out).at("explanation").at("steps").at(0).at("definedBelow"), 1);
    EXPECT_EQ(json::parse(explain(settings, {"B", "--json"}).out).at("explanation").at("stepsLeftOut"), 1);
}

// Each level has the one below twice: 65,536 references in sixteen settings, loaded and read.
TEST_F(PmenvExplainLimits, WideTreeIsShownToItsFirstTwoHundred) {
    std::string settings = "D0 = x\n";
    for (int i = 1; i <= 15; ++i) {
        const std::string below = std::to_string(i - 1);
        settings += "D" + std::to_string(i) + " = #(D" + below + ")#{D" + below + "}\n";
    }
    const ProgramResult outcome = explain(settings, {"D15"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_LE(countOf(outcome.out, ", when "), 200U);
    EXPECT_GE(countOf(outcome.out, " more, not shown\n"), 1U);
    EXPECT_LT(outcome.out.size(), 200'000U);
}

TEST_F(PmenvExplainLimits, LongTextsOnTheWayAreCut) {
    const std::string settings =
        "LONG = " + repeated("x", 1'000'000) + "\nA = #(LONG)\n" + repeated("N", 5000) + " = v\n";
    const ProgramResult outcome = explain(settings, {"A"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("│  └ value   " + repeated("x", 239) + "… (1,000,000 characters)\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\n└ no value: it has 1,000,000 characters, the limit is 2,047\n"));

    const json step = json::parse(explain(settings, {"A", "--json"}).out).at("explanation").at("steps").at(0);
    EXPECT_EQ(step.at("value"), repeated("x", 2047));
    EXPECT_EQ(step.at("valueLength"), 1'000'000);

    EXPECT_LT(explain(settings, {"--text", "#(" + repeated("N", 5000) + ")"}).out.size(), 1000U);
}

TEST_F(PmenvExplainLimits, ManyEntriesOfAKeyAreNamedToTheTenth) {
    const ProgramResult outcome = explain(repeated("A = 1\n", 50'000), {"A"});
    EXPECT_EQ(outcome.out,
              "pressmark.ini\n\nA: setting at 50000:5\n"
              "│ note    replaces the value of lines 1, 2, 3, 4, 5, 6, 7, 8, 9, 10 and 49,989 more\n"
              "└ value   1\n");
    EXPECT_THAT(explain(repeated("A = 1\n", 20), {"A"}).out,
                HasSubstr("replaces the value of lines 1, 2, 3, 4, 5, 6, 7, 8, 9, 10 and 9 more\n"));
    for (const std::size_t more : {0U, 1U}) {
        const json answer = json::parse(explain(repeated("A = 1\n", 11 + more), {"A", "--json"}).out);
        EXPECT_EQ(answer.at("explanation").at("replaced"), json({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
        EXPECT_EQ(answer.at("explanation").value("replacedMore", 0U), more);
        EXPECT_EQ(answer.at("explanation").count("replacedMore"), more);
    }
}

// --- further settings files -----------------------------------------------------------------------------------------

class PmenvExplainFurther : public PmenvExplainLimits {
protected:
    PmenvExplainFurther() {
        directory_.makeDirectory("bin");
        directory_.writeFile("bin/engine.ini",
                             "A = 1\nA = #(BASE)/#{BASE}/#(A)\nLOOP = #(LOOP)\nX = #(PING)\nLONG = #(MANY)\n");
    }
    ProgramResult explainFurther(Words words) const {
        words.insert(words.end(), {"--file", "engine.ini"});
        return explain("KR_BIN = bin\nBASE = /opt\nLOOP = #(LOOP)\nPING = #(PONG)\nPONG = #(PING)\nMANY = " +
                           repeated("x", 2048) + "\n",
                       words);
    }
};

TEST_F(PmenvExplainFurther, TreeNamesBothFilesOnce) {
    const ProgramResult outcome = explainFurther({"A"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out,
              "bin/engine.ini\n"
              "references mean pressmark.ini\n"
              "\n"
              "A: setting at 2:5\n"
              "│ text    #(BASE)/#{BASE}/#(A)\n"
              "│ note    replaces the value of line 1\n"
              "├─ #(BASE) at 2:5, when read: setting of pressmark.ini at 2:8\n"
              "│  └ value   /opt\n"
              "├─ #(A) at 2:21, when read: not defined anywhere\n"
              "│  └ value   (empty)\n"
              "└ value   /opt/#{BASE}/\n");
}

TEST_F(PmenvExplainFurther, JsonNamesBothFiles) {
    const json answer = json::parse(explainFurther({"A", "--json"}).out);
    EXPECT_EQ(answer.at("file"), "bin/engine.ini");
    EXPECT_EQ(answer.at("pressmark"), "pressmark.ini");
    EXPECT_EQ(answer.at("value"), "/opt/#{BASE}/");
    EXPECT_EQ(answer.at("explanation").at("place"), (json{{"line", 2}, {"column", 5}}));
    EXPECT_EQ(answer.at("explanation").at("replaced"), json::array({1}));
    EXPECT_EQ(answer.at("explanation").at("steps").at(0).at("at"), (json{{"line", 2}, {"column", 5}}));
    EXPECT_EQ(json::parse(explain("A = 1\n", {"A", "--json"}).out).count("pressmark"), 0u);
}

TEST_F(PmenvExplainFurther, FailuresAreToldAsOfAnyText) {
    const ProgramResult loop = explainFurther({"LOOP"});
    EXPECT_EQ(loop.status, 1);
    EXPECT_THAT(loop.out, HasSubstr("\n  LOOP -> LOOP\n  LOOP at 3:8: #(LOOP)\n"));
    EXPECT_THAT(explainFurther({"X"}).out, HasSubstr("\n  PING -> PONG -> PING\n  PING at 4:8: #(PONG)\n"));
    EXPECT_THAT(explainFurther({"LONG"}).out, HasSubstr("\n└ no value: it has 2,048 characters, the limit is 2,047\n"));
    EXPECT_EQ(explainFurther({"LOPO"}).err, "pmenv: bin/engine.ini: LOPO: no such setting; did you mean 'LOOP'?\n");
    directory_.writeFile("bin/engine.ini", "A = 1\n nonsense\n");
    EXPECT_EQ(explainFurther({"A"}).err,
              "pmenv: cannot load the settings: bin/engine.ini:2:2: missing '=', expected KEY = value\n");
}

// --- texts that could be mistaken -----------------------------------------------------------------------------------

TEST_F(PmenvExplainLimits, NothingIsToldFromATextThatSaysSo) {
    const std::string settings = "A = #(E)#(W)\nE =\nW = (empty)\nB = C:\\temp\nC = C:\\\temp\n";
    EXPECT_THAT(explain(settings, {"A"}).out, HasSubstr("│  └ value   (empty)\n├─ #(W)"));
    EXPECT_THAT(explain(settings, {"A"}).out, HasSubstr("│  └ value   \"(empty)\"\n└ value   \"(empty)\"\n"));
    EXPECT_THAT(explain(settings, {"B"}).out, HasSubstr("└ value   C:\\temp\n"));
    EXPECT_THAT(explain(settings, {"C"}).out, HasSubstr("└ value   \"C:\\\\\\temp\"\n"));
}

// --- the terminal, usage --------------------------------------------------------------------------------------------

TEST_F(PmenvExplainLimits, TerminalHasColourAndCutsAllButTheFinalText) {
    const std::string longText = repeated("0123456789", 20);
    const std::string ini = directory_.writeFile("pressmark.ini", "A = #(B)\nB = " + longText + "\n");
    TerminalRun run({PMENV_BINARY, "--ini", ini, "explain", "A"}, environmentOfTests(), 60, 20);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.output(), StartsWith(ini + "\r\n\r\n\x1b[1mA\x1b[0m: setting at 1:5\r\n"));
    EXPECT_THAT(run.output(), HasSubstr("│  └ value   " + longText.substr(0, 46) + "…\r\n"));
    EXPECT_THAT(run.output(), HasSubstr("└ value   \x1b[32m" + longText + "\x1b[0m\r\n"));
    constexpr unsigned short kNarrow[] = {33, 24, 10};
    for (const unsigned short columns : kNarrow) {
        TerminalRun narrow({PMENV_BINARY, "--ini", ini, "explain", "A"}, environmentOfTests(), columns, 20);
        EXPECT_EQ(narrow.finish(), 0);
        EXPECT_THAT(narrow.output(), HasSubstr("│  └ value   " + longText.substr(0, 19) + "…\r\n")) << columns;
    }
}

TEST_F(PmenvExplainLimits, NamesCannotSteerTheTerminal) {
    const ProgramResult outcome = explain("NAME\x1b[1m = 1\nA = #(NAME\x1b[1n)\n", {"A"});
    EXPECT_THAT(outcome.out, HasSubstr("#(NAME\\x1b[1n) at 2:5"));
    EXPECT_THAT(outcome.out, HasSubstr("did you mean 'NAME\\x1b[1m'?\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("\x1b")));
}

TEST(PmenvExplain, HasNoColourUnderNoColor) {
    std::map<std::string, const char*> variables = environmentOfTests();
    variables["NO_COLOR"] = "1";
    TerminalRun run({PMENV_BINARY, "--ini", GOLDEN_DIR "/explain", "explain", "NESTED"}, variables, 200, 20);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.output(), HasSubstr("#(MIDDLE)"));
    EXPECT_THAT(run.output(), Not(HasSubstr("\x1b")));
}

TEST(PmenvExplain, WrongUsageIsNamedAndExitsWithTwo) {
    struct Row {
        Words words;
        std::string errors;
    };
    const std::string refused =
        ": the run-time table refuses it; it holds 1024 names, names and values of 255 characters";
    const Row rows[] = {
        {{}, "'explain' needs NAME or --text; see 'pmenv explain --help'"},
        {{"A", "--text", "x"}, "NAME and --text do not go together; see 'pmenv explain --help'"},
        {{"--text", "x", "--file", "f"}, "--text and --file do not go together; see 'pmenv explain --help'"},
        {{"--text", "x", "--keys", "k"}, "--text and --keys do not go together; see 'pmenv explain --help'"},
        {{"A", "B"}, "'explain' takes no further argument 'B'; see 'pmenv explain --help'"},
        {{"A", "--set", "A"}, "--set needs NAME=VALUE, with a '='; see 'pmenv explain --help'"},
        {{"A", "--set", "A=" + repeated("x", 256)}, "--set A" + refused},
        {{"A", "--set", "B" + repeated("n", 255) + "=x"}, "--set B" + repeated("n", 59) + refused},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const ProgramResult outcome = explainIn(GOLDEN_DIR "/explain", row.words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "pmenv: " + row.errors + "\n");
    }
}

TEST_F(PmenvExplainLimits, RejectedFileIsNamedWithLineAndColumn) {
    const ProgramResult outcome = explain("A = 1\n  nonsense\n", {"A"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "pmenv: cannot load the settings: pressmark.ini:2:3: missing '=', expected KEY = value\n");
}

}  // namespace
