// All commands: what their help shows can be typed, and their numbers have bounds.
#include <algorithm>
#include <chrono>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commandLine.h"
#include "commands.h"
#include "failure.h"
#include "pmenv/PmenvTest.h"
#include "pmenv/pages/commandWords.h"

using testing::HasSubstr;

namespace {

// --- numbers --------------------------------------------------------------------------------------------------------

// The command with as many arguments as it needs.
Words typed(const Command& command) {
    Words words = wordsOf(command);
    for (const Argument& argument : command.arguments) {
        if (!argument.optional) words.push_back("x");
    }
    return words;
}

bool accepts(const Command& command, const Option& option, const std::string& number) {
    Words words = typed(command);
    words.push_back(std::string("--") + option.name + "=" + number);
    try {
        CommandLine::parse(pmenvGrammar(), words);
        return true;
    } catch (const Failure& failure) {
        EXPECT_THAT(failure.what(), HasSubstr(std::string("--") + option.name + " needs a ")) << command.name;
        EXPECT_EQ(kExitUsage, failure.exitCode());
        return false;
    }
}

TEST(Grammar, EveryNumberIsTakenUpToItsBoundsAndRefusedBeyond) {
    std::size_t numbers = 0;
    for (const Command& command : pmenvGrammar().commands) {
        for (const Option& option : command.options) {
            if (option.kind != Option::Kind::Number) continue;
            SCOPED_TRACE(std::string(command.name) + " --" + option.name);
            ++numbers;
            EXPECT_LT(option.least, option.most);
            EXPECT_TRUE(accepts(command, option, std::to_string(option.least)));
            EXPECT_TRUE(accepts(command, option, std::to_string(option.most)));
            EXPECT_FALSE(accepts(command, option, std::to_string(option.least - 0.5)));
            EXPECT_FALSE(accepts(command, option, std::to_string(option.most + 0.5)));
            EXPECT_EQ(!option.whole, accepts(command, option, std::to_string(option.least + 0.5)));
            for (const char* const text : {"", "x", "1x", "-1", "+1", " 1", "nan", "inf", "1e999"}) {
                EXPECT_FALSE(accepts(command, option, text)) << text;
            }
        }
    }
    EXPECT_GT(numbers, 5U);
}

// --- examples -------------------------------------------------------------------------------------------------------

struct Example {
    std::string line;         // "pmenv get KR_VERSION"
    std::string description;  // "prints 12"
};

std::vector<Example> examplesOf(const Command& command) {
    std::vector<Example> examples;
    std::istringstream lines(command.examples);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t gap = std::min(line.find("  "), line.size());
        const std::size_t description = std::min(line.find_first_not_of(' ', gap), line.size());
        examples.push_back({line.substr(0, gap), line.substr(description)});
    }
    return examples;
}

// The words of the first command of a line, as a shell parts them.
Words partedByAShell(const std::string& line, const std::string& directory) {
    const ScopedCwd here(directory);
    const std::string script =
        "pmenv() { printf '%s\\n' \"$@\" >&3; return 0; }; { " + line + " || :; } 3>words >output 2>&1";
    EXPECT_EQ(0, runProgram({"/bin/bash", "-c", script}).status) << line;
    Words words;
    std::istringstream parted(readFileText("words"));
    for (std::string word; std::getline(parted, word);) words.push_back(word);
    return words;
}

TEST(Grammar, EveryExampleCanBeTyped) {
    const TempDir directory;
    std::size_t examples = 0;
    for (const Command& command : pmenvGrammar().commands) {
        for (const Example& example : examplesOf(command)) {
            SCOPED_TRACE(example.line);
            ++examples;
            EXPECT_THAT(example.line, HasSubstr(std::string("pmenv ") + command.name));
            EXPECT_NO_THROW({
                const CommandLine line =
                    CommandLine::parse(pmenvGrammar(), partedByAShell(example.line, directory.path()));
                EXPECT_STREQ(command.name, line.command()->name);
            });
        }
    }
    EXPECT_GT(examples, 25U);
}

// A host on which the examples of the commands about settings and files have something to say.
class PmenvExamples : public Pmenv {
protected:
    PmenvExamples() {
        directory_.makeDirectory("bin");
        directory_.makeDirectory("conf");
        directory_.makeDirectory("logs");
        directory_.makeDirectory("home");
        const std::string settings =
            "KR_VERSION = 12\nKR_BUILD = 345\nLOG_DIR = $(HOME)/logs\nUSERS = 10\nKR_BIN = " + directory_ / "bin" +
            "\nINCLUDE_PATH = /usr/include:" + directory_.path() + "\n[engine]\nTHREADS = 8\n";
        for (const char* const file : {"pressmark.ini", "new.ini", "conf/a.ini", "product.ini"}) {
            directory_.writeFile(file, settings);
        }
        directory_.writeFile("bin/engine.ini", "TIMEOUT = 30\n");
        directory_.writeFile("engine.cfg");
        directory_.writeFile("stdio.h");
        directory_.writeFile("logs/a.log", "x");
    }

    // The sanitizer looks for leaks, except in what a walk leaves open, as it is to.
    ProgramResult runLine(const std::string& line) const {
        const ScopedCwd here(directory_.path());
        const ScopedEnv leaks("ASAN_OPTIONS",
                              line.find("pmenv walk") == std::string::npos ? "detect_leaks=1" : "detect_leaks=0");
        const std::string script = "pmenv() { \"$0\" \"$@\"; }; " + line;
        return runProgram({"/bin/bash", "-c", script, PMENV_BINARY},
                          environmentOf({{"HOME", "/home/user"}, {"KR_BIN", directory_.path()}}));
    }
};

// "prints 12" is what it prints. Where others stand for it, as in "prints where stdio.h is", that it works is enough.
TEST_F(PmenvExamples, OfSettingsAndFilesDoWhatTheySay) {
    const std::set<std::string> elsewhere{"stats", "judge", "mark", "chart", "export", "fleet", "report"};
    std::size_t compared = 0;
    for (const Command& command : pmenvGrammar().commands) {
        if (elsewhere.count(wordsOf(command)[0]) != 0) continue;
        for (const Example& example : examplesOf(command)) {
            SCOPED_TRACE(example.line);
            const ProgramResult outcome = runLine(example.line);
            EXPECT_NE(outcome.status, 2) << outcome.err;
            const bool needsAnother =
                example.line.find(" /opt/pm") != std::string::npos || example.line.find("../") != std::string::npos;
            EXPECT_TRUE(needsAnother || outcome.status == 0) << outcome.out << outcome.err;
            std::istringstream words(example.description);
            std::string prints, printed;
            words >> prints;
            std::getline(words >> std::ws, printed);
            if (prints != "prints" || needsAnother || printed.find(' ') != std::string::npos) continue;
            EXPECT_EQ(outcome.out, printed + "\n");
            ++compared;
        }
    }
    EXPECT_GE(compared, 4U);
}

// The same example, over in a second and with its files in the directory of the test.
std::string shortened(std::string line) {
    const std::pair<const char*, const char*> changes[] = {
        {"--duration [0-9]+(.*)", "$1 -- sleep 0.3"},
        {"--skip [0-9]+", "--skip 0.1"},
        {"--interval [0-9]+", "--interval 1"},
        {"--count [0-9]+", "--count 1"},
        {"--watch", "--watch --count 1"},
        {"wrk -d .*", "sleep 0.5"},
        {"--pid 1234", "--pid $$$$ --duration 2"},
        {"/var/lib/node_exporter/", "./"},
    };
    for (const auto& [example, quick] : changes) line = std::regex_replace(line, std::regex(example), quick);
    return line;
}

TEST_F(PmenvExamples, OfWatchesAndRecordingsWork) {
    const std::set<std::string> tried{"stats", "judge", "chart", "export", "report"};
    std::string responses = "timeStamp,elapsed,label,responseCode,success\n";
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    const auto begin = now();
    for (const char* const file : {"run", "east", "west", "gen2"}) {
        EXPECT_NE(runLine("pmenv judge --record " + std::string(file) + ".pmrec -- sleep 0.3").status, 2);
    }
    for (auto time = begin; time < now(); time += 10) responses += std::to_string(time) + ",12,home,200,true\n";
    directory_.writeFile("run.jtl", responses);
    std::size_t examples = 0;
    for (const Command& command : pmenvGrammar().commands) {
        if (tried.count(wordsOf(command)[0]) == 0) continue;
        for (const Example& example : examplesOf(command)) {
            SCOPED_TRACE(shortened(example.line));
            ++examples;
            const ProgramResult outcome = runLine(shortened(example.line));
            const bool judges = wordsOf(command)[0] == "judge";
            EXPECT_TRUE(outcome.status == 0 || (judges && (outcome.status == 3 || outcome.status == 4)))
                << outcome.status << outcome.out << outcome.err;
        }
    }
    EXPECT_GT(examples, 15U);
}

}  // namespace
