// The command line: what is refused, and what every command has in common.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commandLine.h"
#include "failure.h"
#include "help.h"
#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

using PmenvCommandLine = Pmenv;

TEST_F(PmenvCommandLine, WrongUsageIsNamedAndExitsWithTwo) {
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
        {{"report", "x"}, "'report' takes no further argument 'x'; see 'pmenv report --help'"},
        {{"list", "--raw"}, "there is no option '--raw' of 'list'; see 'pmenv list --help'"},
        {{"list", "--jsn"}, "there is no option '--jsn' of 'list'; did you mean '--json'? See 'pmenv list --help'"},
        {{"list", "-x"}, "there is no option '-x'; see 'pmenv list --help'"},
        {{"list", "--json=yes"}, "--json takes no value; see 'pmenv list --help'"},
        {{"list", "--ini"}, "--ini needs a value: --ini FILE|DIR; see 'pmenv list --help'"},
        {{"list", "--ini="}, "--ini needs a settings file or a directory, not an empty text"},
        {{"get", "X", "--file="}, "--file needs the name of a settings file, not an empty text"},
        {{"list", "--file="}, "--file needs the name of a settings file, not an empty text"},
        {{"explain", "X", "--file="}, "--file needs the name of a settings file, not an empty text"},
        {{"explain", "--text", "X", "--file=x"}, "--text and --file do not go together; see 'pmenv explain --help'"},
        {{"list", "a", "b"}, "'list' takes no further argument 'b'; see 'pmenv list --help'"},
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

TEST_F(PmenvCommandLine, VersionIsOnStandardOutput) {
    const ProgramResult outcome = run({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, MatchesRegex("pmenv [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

// Also behind an error message, and where much was to be written.
TEST_F(PmenvCommandLine, OutputThatCannotBeWrittenIsAnErrorWithItsReason) {
    const std::string reason = "pmenv: cannot write the result to standard output: No space left on device\n";
    for (const char* const words : {"list", "list --json", "check", "explain BASE", "get BASE", "check --rules"}) {
        const ProgramResult outcome =
            runProgram({"/bin/sh", "-c", std::string(PMENV_BINARY) + " --ini " + ini() + " " + words + " >/dev/full"},
                       environmentOf({}));
        EXPECT_EQ(outcome.status, 1) << words;
        EXPECT_THAT(outcome.err, EndsWith(reason)) << words;
    }
    std::string many;
    for (int i = 0; i < 20'000; ++i) many += "KEY" + std::to_string(i) + " = #(NONE)\n";
    directory_.writeFile("pressmark.ini", many + "LOOP = #(LOOP)\n");
    for (const char* const words : {"list", "check"}) {
        const ProgramResult outcome =
            runProgram({"/bin/sh", "-c", std::string(PMENV_BINARY) + " --ini " + ini() + " " + words + " >/dev/full"});
        EXPECT_THAT(outcome.err, EndsWith(reason)) << words;
    }
}

TEST_F(PmenvCommandLine, SettingsAreChosenOnce) {
    for (const Words& words :
         {Words{"list"}, Words{"get", "BASE"}, Words{"explain", "BASE"}, Words{"check"}, Words{"resolve", "#BASE"}}) {
        Words twice = words;
        twice.insert(twice.end(), {"--ini", ini(), "--ini=" + ini()});
        const ProgramResult outcome = run(twice);
        EXPECT_EQ(outcome.status, 2) << words[0];
        EXPECT_EQ(outcome.err, "pmenv: --ini is given twice; which settings are meant?\n");
    }
}

TEST_F(PmenvCommandLine, FindsItselfWhenItsNameIsEmpty) {
    const ProgramResult outcome = runProgram({"/bin/bash", "-c", "exec -a '' " + std::string(PMENV_BINARY) + " list"},
                                             environmentOf({{"HOME", ""}}));
    const std::string itself = std::filesystem::canonical(PMENV_BINARY).parent_path();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("1. " + itself + ": no such file there\n"));
}

// --- a program behind -- ---------------------------------------------------------------------------------------------

int runNothing(const CommandLine&) { return 0; }

Grammar grammarWithPrograms() {
    Grammar grammar;
    grammar.globalOptions = {{"help", Option::Kind::Flag, nullptr, "print help"}};
    grammar.commands = {
        {"watch",
         "watches",
         {{"FILE", "a file", true, true}},
         {{"for", Option::Kind::Text, "S", "time"}},
         "",
         runNothing,
         "",
         "the program to watch"},
        {"print", "prints", {{"TEXT", "a text", true, true}}, {}, "", runNothing},
    };
    return grammar;
}

CommandLine parsedWithProgram(const Words& words) {
    static const Grammar grammar = grammarWithPrograms();
    return CommandLine::parse(grammar, words);
}

TEST(CommandLineWithAProgram, WhatStandsBehindTheDashesIsTakenAsItIs) {
    const CommandLine line =
        parsedWithProgram({"watch", "--for", "5", "--", "prog", "--for", "--", "-h", "", "\xff\n", "--help"});
    EXPECT_THAT(line.program(), ElementsAre("prog", "--for", "--", "-h", "", "\xff\n", "--help"));
    EXPECT_THAT(line.arguments(), IsEmpty());
    EXPECT_EQ(line.text("for"), "5");
    EXPECT_FALSE(line.asksForHelp());
}

TEST(CommandLineWithAProgram, ArgumentsInFrontOfTheDashesStayArguments) {
    const CommandLine line = parsedWithProgram({"watch", "a", "b", "--", "prog", "c"});
    EXPECT_THAT(line.arguments(), ElementsAre("a", "b"));
    EXPECT_THAT(line.program(), ElementsAre("prog", "c"));
    EXPECT_THAT(parsedWithProgram({"watch", "a", "b"}).program(), IsEmpty());
    EXPECT_THAT(parsedWithProgram({"--", "watch", "prog"}).program(), ElementsAre("prog"));
}

TEST(CommandLineWithAProgram, OtherCommandsTakeFurtherArgumentsBehindTheDashes) {
    const CommandLine line = parsedWithProgram({"print", "a", "--", "-b"});
    EXPECT_THAT(line.arguments(), ElementsAre("a", "-b"));
    EXPECT_THAT(line.program(), IsEmpty());
}

TEST(CommandLineWithAProgram, DashesWithoutAProgramAreRefused) {
    try {
        parsedWithProgram({"watch", "--"});
        FAIL() << "accepted";
    } catch (const Failure& failure) {
        EXPECT_STREQ(failure.what(), "a command is needed behind --; see 'pmenv watch --help'");
        EXPECT_EQ(failure.exitCode(), kExitUsage);
    }
}

// --- a program with one command -------------------------------------------------------------------------------------

TEST(ProgramOfOneCommand, IsCalledByItsOwnName) {
    const auto callOfCommand = [](const char* name) { return callOf({name, "watches", {}, {}, "", runNothing}); };
    EXPECT_EQ(callOfCommand("pmenv-watch"), "pmenv-watch");
    EXPECT_EQ(callOfCommand("watch"), "pmenv watch");
    EXPECT_EQ(callOfCommand("pmenv"), "pmenv pmenv");
    EXPECT_EQ(callOfCommand("xpmenv-watch"), "pmenv xpmenv-watch");
}

TEST(ProgramOfOneCommand, NeedsNoCommand) {
    Grammar grammar = grammarWithPrograms();
    EXPECT_EQ(programOf(grammar), nullptr);
    grammar.commands.pop_back();
    EXPECT_EQ(programOf(grammar), nullptr) << "pmenv watch is no program";
    grammar.commands[0].name = "pmenv-watch";
    EXPECT_EQ(programOf(grammar), &grammar.commands[0]);
    const CommandLine line = CommandLine::parse(grammar, {"a", "--for", "5", "b"});
    EXPECT_THAT(line.arguments(), ElementsAre("a", "b"));
    EXPECT_EQ(line.text("for"), "5");
    grammar.commands.push_back(grammar.commands[0]);
    EXPECT_EQ(programOf(grammar), nullptr);
}

TEST(CommandLineWithAProgram, TheHelpShowsIt) {
    const Grammar grammar = grammarWithPrograms();
    const std::string help = commandHelp(grammar, grammar.commands[0]);
    EXPECT_THAT(help, HasSubstr("Usage: pmenv watch [FILE...] [OPTION]... [-- COMMAND [ARGUMENT]...]\n"));
    EXPECT_THAT(help, HasSubstr("\n  COMMAND   the program to watch\n"));
    EXPECT_THAT(commandHelp(grammar, grammar.commands[1]), HasSubstr("Usage: pmenv print [TEXT...] [OPTION]...\n"));
}

}  // namespace
