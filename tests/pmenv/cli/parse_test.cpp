// commandLine: words in, the command with its arguments and options out.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commandLine.h"
#include "failure.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Words = std::vector<std::string>;

const Grammar& grammar() {
    using Kind = Option::Kind;
    static const Grammar all{
        {{"ini", Kind::File, "FILE", ""}, {"help", Kind::Flag, nullptr, ""}, {"version", Kind::Flag, nullptr, ""}},
        {{"get", "", {{"NAME", ""}}, {{"raw", Kind::Flag, nullptr, ""}}, "", nullptr},
         {"find", "", {{"NAME", ""}, {"DIR", "", false, true}}, {}, "", nullptr},
         {"list", "", {{"PATTERN", "", true}}, {{"raw", Kind::Flag, nullptr, ""}}, "", nullptr},
         {"watch",
          "",
          {},
          {{"interval", Kind::Number, "SECONDS", "", 0.5, 100},
           {"count", Kind::Number, "N", "", 0, 1e9, true},
           {"engine", Kind::Text, "NAME", ""}},
          "",
          nullptr},
         {"path split", "", {{"PATH", ""}}, {}, "", nullptr},
         {"path make", "", {{"DIR", ""}, {"NAME", ""}}, {}, "", nullptr}}};
    return all;
}

CommandLine parsed(const Words& words) { return CommandLine::parse(grammar(), words); }

std::string refusal(const Words& words) {
    try {
        parsed(words);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exitCode(), kExitUsage);
        return failure.what();
    }
    return "taken";
}

// --- words ----------------------------------------------------------------------------------------------------------

TEST(CommandLine, OptionsStandAnywhere) {
    for (const Words& words : {Words{"--ini", "a", "--raw", "get", "X"}, Words{"get", "--raw", "X", "--ini=a"},
                               Words{"get", "X", "--ini", "a", "--raw"}}) {
        const CommandLine line = parsed(words);
        EXPECT_STREQ(line.command()->name, "get");
        EXPECT_THAT(line.arguments(), ElementsAre("X"));
        EXPECT_EQ(line.text("ini"), "a");
        EXPECT_TRUE(line.has("raw"));
    }
    EXPECT_FALSE(parsed({"get", "X"}).has("raw"));
    EXPECT_FALSE(parsed({"get", "X"}).has("ini"));
}

TEST(CommandLine, TwoDashesEndTheOptions) {
    const CommandLine line = parsed({"--raw", "get", "--", "--raw"});
    EXPECT_THAT(line.arguments(), ElementsAre("--raw"));
    EXPECT_TRUE(line.has("raw"));
    EXPECT_THAT(parsed({"find", "--", "--", "-x", "a"}).arguments(), ElementsAre("--", "-x", "a"));
    EXPECT_THAT(parsed({"--", "get", "-h"}).arguments(), ElementsAre("-h"));
}

TEST(CommandLine, ADashAloneAndAnEmptyWordAreArguments) {
    EXPECT_THAT(parsed({"find", "-", ""}).arguments(), ElementsAre("-", ""));
    EXPECT_EQ(refusal({"get", "-x"}), "there is no option '-x'; see 'pmenv get --help'");
}

TEST(CommandLine, AnOptionsValueIsTheNextWordWhateverItIs) {
    EXPECT_EQ(parsed({"--ini", "--raw", "list"}).text("ini"), "--raw");
    EXPECT_FALSE(parsed({"--ini", "--raw", "list"}).has("raw"));
    EXPECT_EQ(parsed({"--ini=a=b", "list"}).text("ini"), "a=b");
    EXPECT_EQ(parsed({"--ini=", "list"}).text("ini", "c"), "");
    EXPECT_EQ(parsed({"list"}).text("ini", "c"), "c");
    EXPECT_EQ(parsed({"--ini=a", "--ini", "b", "list"}).text("ini"), "b") << "the last one";
}

TEST(CommandLine, ShortHelp) {
    EXPECT_TRUE(parsed({"-h"}).asksForHelp());
    EXPECT_TRUE(parsed({"get", "-h"}).asksForHelp());
    EXPECT_FALSE(parsed({"get", "X"}).asksForHelp());
    EXPECT_TRUE(parsed({"--version"}).asksForVersion());
    EXPECT_FALSE(parsed({"--help"}).asksForVersion());
}

// --- commands -------------------------------------------------------------------------------------------------------

TEST(CommandLine, ACommandMayHaveTwoWords) {
    const CommandLine line = parsed({"path", "--ini=a", "make", "d", "n"});
    EXPECT_STREQ(line.command()->name, "path make");
    EXPECT_THAT(line.arguments(), ElementsAre("d", "n"));
    EXPECT_EQ(line.group(), "");
    const CommandLine group = parsed({"path", "--help"});
    EXPECT_EQ(group.command(), nullptr);
    EXPECT_EQ(group.group(), "path");
    EXPECT_EQ(parsed({"--help"}).group(), "");
    EXPECT_STREQ(parsed({"get", "--help"}).command()->name, "get") << "without its arguments";
}

TEST(CommandLine, WhatIsNoCommandIsRefused) {
    EXPECT_EQ(refusal({}), "a command is needed; see 'pmenv --help'");
    EXPECT_EQ(refusal({"--ini", "a"}), "a command is needed; see 'pmenv --help'");
    EXPECT_EQ(refusal({"path"}), "'path' needs a command; see 'pmenv --help'");
    EXPECT_EQ(refusal({"pat"}), "there is no command 'pat'; did you mean 'path'? See 'pmenv --help'");
    EXPECT_EQ(refusal({"path", "splitt"}),
              "there is no command 'path splitt'; did you mean 'path split'? See 'pmenv --help'");
    EXPECT_EQ(refusal({"split", "a"}), "there is no command 'split'; see 'pmenv --help'");
    EXPECT_EQ(refusal({"something"}), "there is no command 'something'; see 'pmenv --help'");
}

TEST(CommandLine, ArgumentsAreAsManyAsTheCommandHas) {
    EXPECT_THAT(parsed({"list"}).arguments(), IsEmpty());
    EXPECT_THAT(parsed({"list", "a"}).arguments(), ElementsAre("a"));
    EXPECT_EQ(refusal({"list", "a", "b", "c"}), "'list' takes no further argument 'b'; see 'pmenv list --help'");
    EXPECT_EQ(refusal({"watch", "a"}), "'watch' takes no further argument 'a'; see 'pmenv watch --help'");
    EXPECT_EQ(refusal({"get"}), "'get' needs NAME; see 'pmenv get --help'");
    EXPECT_EQ(refusal({"find", "a"}), "'find' needs DIR; see 'pmenv find --help'");
    EXPECT_THAT(parsed({"find", "a", "b", "c", "d"}).arguments(), ElementsAre("a", "b", "c", "d"));
    EXPECT_EQ(refusal({"path", "make", "d"}), "'path make' needs NAME; see 'pmenv path make --help'");
}

// --- options --------------------------------------------------------------------------------------------------------

TEST(CommandLine, WhatIsNoOptionIsRefused) {
    EXPECT_EQ(refusal({"--inni"}), "there is no option '--inni'; did you mean '--ini'? See 'pmenv --help'");
    EXPECT_EQ(refusal({"get", "X", "--rwa"}),
              "there is no option '--rwa' of 'get'; did you mean '--raw'? See 'pmenv get --help'");
    EXPECT_EQ(refusal({"watch", "--raw"}), "there is no option '--raw' of 'watch'; see 'pmenv watch --help'");
    EXPECT_EQ(refusal({"--raw"}), "there is no option '--raw'; see 'pmenv --help'");
    EXPECT_EQ(refusal({"list", "--raw=1"}), "--raw takes no value; see 'pmenv list --help'");
    EXPECT_EQ(refusal({"list", "--ini"}), "--ini needs a value: --ini FILE; see 'pmenv list --help'");
    EXPECT_EQ(refusal({"path", "--none"}), "there is no option '--none'; see 'pmenv --help'");
}

TEST(CommandLine, AnOptionMayBeGivenSeveralTimes) {
    const CommandLine line = parsed({"watch", "--engine", "a", "--engine=b"});
    EXPECT_THAT(line.texts("engine"), ElementsAre("a", "b"));
    EXPECT_EQ(line.text("engine"), "b");
    EXPECT_THAT(parsed({"watch"}).texts("engine"), IsEmpty());
}

TEST(CommandLine, Numbers) {
    const struct {
        const char* text;
        double number;
    } taken[] = {{"0.5", 0.5}, {"100", 100}, {"2.25", 2.25}, {".75", 0.75}, {"1e1", 10}, {"007", 7}};
    for (const auto& row : taken)
        EXPECT_EQ(parsed({"watch", "--interval", row.text}).number("interval", 1), row.number);
    EXPECT_EQ(parsed({"watch"}).number("interval", 1), 1);
    EXPECT_EQ(parsed({"watch", "--interval", "2", "--interval", "3"}).number("interval", 1), 3);
    EXPECT_EQ(parsed({"watch", "--count", "1000000000"}).number("count", 1), 1e9);
    for (const char* const text : {"0.49", "100.01", "", "x", "1x", "-1", "+1", " 1", "1 ", "nan", "inf", "1e999"}) {
        EXPECT_EQ(refusal({"watch", "--interval", text}), "--interval needs a number from 0.5 to 100, not '" +
                                                              std::string(text) + "'; see 'pmenv watch --help'");
    }
    EXPECT_EQ(refusal({"watch", "--count", "1.5"}),
              "--count needs a whole number from 0 to 1000000000, not '1.5'; see 'pmenv watch --help'");
}

}  // namespace
