// The command line: what is refused, and what every command has in common.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::HasSubstr;
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

TEST_F(PmenvCommandLine, VersionIsOnStandardOutput) {
    const ProgramResult outcome = run({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, MatchesRegex("pmenv [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(PmenvCommandLine, OutputThatCannotBeWrittenIsAnError) {
    const ProgramResult outcome =
        runProgram({"/bin/sh", "-c", std::string(PMENV_BINARY) + " --ini " + ini() + " list >/dev/full"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("pmenv: cannot write the result to standard output"));
}

TEST_F(PmenvCommandLine, FindsItselfWhenItsNameIsEmpty) {
    const ProgramResult outcome = runProgram({"/bin/bash", "-c", "exec -a '' " + std::string(PMENV_BINARY) + " list"},
                                             environmentOf({{"HOME", ""}}));
    const std::string itself = std::filesystem::canonical(PMENV_BINARY).parent_path();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("1. " + itself + ": no such file there\n"));
}

}  // namespace
