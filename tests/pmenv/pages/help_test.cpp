// Help, manual page and completion agree.
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commands.h"
#include "pmenv/PmenvTest.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

// The words of each command's name.
std::vector<Words> allCommands() {
    std::vector<Words> commands;
    for (const Command& command : pmenvGrammar().commands) {
        std::istringstream name(command.name);
        commands.emplace_back(std::istream_iterator<std::string>(name), std::istream_iterator<std::string>());
    }
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

    // What the completion offers behind `words` for the beginning of a word.
    Words complete(Words words, const std::string& beginning) const {
        words.insert(words.begin(), PMENV_BINARY);
        words.push_back(beginning);
        std::string script = "source " + std::string(PMENV_COMPLETION) + "; COMP_WORDS=(";
        for (const std::string& word : words) script += " '" + word + "'";
        script += "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _pmenv; printf '%s\\n' \"${COMPREPLY[@]}\"";
        const ProgramResult outcome = [&] {
            const ScopedCwd here(directory_.path());
            return runProgram({"/bin/bash", "-c", script}, environmentOf({{"HOME", directory_.path()}}));
        }();
        EXPECT_EQ(outcome.err, "");
        Words offered;
        std::istringstream lines(outcome.out);
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty()) offered.push_back(line);
        }
        return offered;
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
    if (access("/usr/bin/man", X_OK) != 0) GTEST_SKIP() << "there is no man on this machine";
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

TEST_F(PmenvHelp, CompletionOffersEveryCommandAndExactlyItsOptions) {
    std::set<std::string> firsts;
    for (const Words& words : allCommands()) {
        firsts.insert(words[0]);
        const Words offered = complete(words, "--");
        EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), optionsIn(help(words))) << joined(words);
    }
    const Words offered = complete({}, "");
    EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), firsts);
    EXPECT_THAT(complete({"path"}, ""), ElementsAre("split", "make", "shorten", "abs"));
    EXPECT_THAT(complete({"path"}, "s"), ElementsAre("split", "shorten"));
}

TEST_F(PmenvHelp, CompletionOffersTheNamesOfSettings) {
    EXPECT_THAT(complete({"get"}, "KR_"), ElementsAre("KR_VERSION", "KR_BUILD"));
    directory_.makeDirectory("other");
    directory_.writeFile("other/pressmark.ini", "KR_OTHER = 1\n");
    EXPECT_THAT(complete({"--ini", "other", "get"}, "KR_"), ElementsAre("KR_OTHER"));
    EXPECT_THAT(complete({"explain"}, "KR_B"), ElementsAre("KR_BUILD"));
    EXPECT_THAT(complete({"--ini"}, "oth"), ElementsAre("other"));
    EXPECT_THAT(complete({"resolve"}, "M"), ElementsAre("MYDOCUMENTS"));
}

TEST_F(PmenvHelp, CompletionOffersFilesBelowTheSettingKrBin) {
    directory_.makeDirectory("bin");
    directory_.writeFile("bin/engine.ini");
    EXPECT_THAT(complete({"get", "--file"}, "e"), ElementsAre()) << "there is no such setting";
    directory_.writeFile("pressmark.ini", "KR_BIN = " + directory_ / "bin\n");
    EXPECT_THAT(complete({"get", "--file"}, "e"), ElementsAre("engine.ini"));
    EXPECT_THAT(complete({"get", "--file", "engine.ini"}, "KR"), ElementsAre()) << "that file's names are not known";
    EXPECT_THAT(complete({"walk"}, "b"), ElementsAre("bin"));
    EXPECT_THAT(complete({"walk", "--skip"}, "b"), ElementsAre());
}

}  // namespace
