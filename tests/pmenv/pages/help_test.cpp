// The help and the manual page agree.
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commands.h"
#include "pmenv/PmenvTest.h"
#include "pmenv/pages/commandWords.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// The words of each command's name.
std::vector<Words> allCommands() {
    std::vector<Words> commands;
    for (const Command& command : pmenvGrammar().commands) commands.push_back(wordsOf(command));
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
    ASSERT_TRUE(isInstalled("/usr/bin/man"));
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

}  // namespace
