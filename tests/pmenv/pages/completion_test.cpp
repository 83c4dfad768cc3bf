// What the completions offer, in the shells themselves: bash, zsh and fish.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/rule.h"
#include "commands.h"
#include "pmenv/PmenvTest.h"
#include "pmenv/pages/commandWords.h"
#include "support/TerminalRun.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

namespace {

// In single quotes, for any of the shells.
std::string quoted(const std::string& word) { return "'" + word + "'"; }

std::string commandLine(const Words& words, const std::string& beginning) {
    std::string line = PMENV_BINARY;
    for (const std::string& word : words) line += " " + word;
    return line + " " + beginning;
}

Words linesOf(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

// The file of a shell's completion, filled in as the build does it.
std::string completionFor(const std::string& shell) {
    static const TempDir directory;
    const std::string name = "pmenv." + shell;
    if (std::filesystem::exists(directory / name)) return directory / name;
    const ProgramResult filled =
        runProgram({"/bin/sh", "-c", "exec \"$0\" <\"$1\"", PMENV_PAGES, PMENV_TEMPLATES "/" + name + ".in"}, {});
    EXPECT_EQ(filled.status, 0) << filled.err;
    return directory.writeFile(name, filled.out);
}

class PmenvCompletion : public Pmenv, public testing::WithParamInterface<const char*> {
protected:
    // What is offered behind `words` for the beginning of a word.
    Words complete(const Words& words, const std::string& beginning) const {
        const std::string shell = GetParam();
        if (shell == "bash") return completeInBash(words, beginning);
        return shell == "zsh" ? completeInZsh(words, beginning) : completeInFish(words, beginning);
    }

    // Settings are searched in `directory_`, which is HOME as well.
    std::map<std::string, const char*> environment() const {
        auto variables = environmentOf({});
        variables["HOME"] = directory_.path().c_str();
        variables["PATH"] = path_.c_str();
        for (const char* const other : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "ZDOTDIR"}) {
            variables[other] = nullptr;
        }
        return variables;
    }

    Words completeInBash(const Words& words, const std::string& beginning) const {
        std::string script = setUp_ + "source " + completionFor("bash") + "; COMP_WORDS=(" PMENV_BINARY;
        for (const std::string& word : words) script += " " + quoted(word);
        script += " " + quoted(beginning) +
                  "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); COMP_LINE=\"${COMP_WORDS[*]}\"; COMP_POINT=${#COMP_LINE}; "
                  "_pmenv; printf '%s\\n' \"${COMPREPLY[@]}\"";
        const ScopedCwd here(directory_.path());
        const ProgramResult outcome = runProgram({"/bin/bash", "-c", script}, environment());
        EXPECT_EQ(outcome.err, "");
        return linesOf(outcome.out);
    }

    Words completeInFish(const Words& words, const std::string& beginning) const {
        const std::string script =
            setUp_ + "source " + completionFor("fish") + "; complete -C \"" + commandLine(words, beginning) + "\"";
        const ScopedCwd here(directory_.path());
        const ProgramResult outcome = runProgram({"/usr/bin/fish", "--no-config", "-c", script}, environment());
        EXPECT_EQ(outcome.err, "");
        Words offered = linesOf(outcome.out);
        for (std::string& each : offered) each.erase(std::min(each.find('\t'), each.size()));
        return offered;
    }

    // zsh completes in its line editor only. As soon as that reads a line, the words are in it and are completed; what
    // the completion adds goes to a file. What zsh has of its own is looked up once for all tests.
    Words completeInZsh(const Words& words, const std::string& beginning) const {
        static const char* const kStart =
            "setopt no_beep no_always_last_prompt; PROMPT=; LISTMAX=100000\n"
            "autoload -Uz compinit && compinit -u -C -d " ZSH_KNOWS
            "\n"
            "autoload -Uz _pmenv && compdef _pmenv pmenv\n"
            "compadd() {\n"
            "    if ((${argv[(I)-[ADO]*]})); then builtin compadd \"$@\"; return; fi\n"
            "    local -a matches\n"
            "    builtin compadd -O matches \"$@\"\n"
            "    ((#matches)) && print -rl -- $matches >>$OFFERED\n"
            "    builtin compadd \"$@\"\n"
            "}\n"
            "zle-line-init() { BUFFER=$TYPED; CURSOR=${#BUFFER}; zle complete-word; exit 0 }\n"
            "zle -N zle-line-init\n";
        const TempDir start;
        std::filesystem::copy_file(completionFor("zsh"), start / "_pmenv");
        start.writeFile(".zshrc", "fpath=($ZDOTDIR $fpath)\n" + std::string(kStart) + setUp_);
        const std::string offered = start.writeFile("offered");
        const std::string typed = commandLine(words, beginning);
        auto variables = environment();
        variables["ZDOTDIR"] = start.path().c_str();
        variables["OFFERED"] = offered.c_str();
        variables["TYPED"] = typed.c_str();
        const ScopedCwd here(directory_.path());
        TerminalRun shell({"/bin/zsh", "-d", "-i"}, variables, 200, 50);
        EXPECT_EQ(shell.finish(), 0) << shell.output();
        Words matches = linesOf(readFileText(offered));  // some of them twice, when zsh looks twice
        std::sort(matches.begin(), matches.end());
        matches.erase(std::unique(matches.begin(), matches.end()), matches.end());
        return matches;
    }

    // A program that is on the path only in this test.
    void addProgram() {
        directory_.makeDirectory("programs");
        const std::string program = directory_.writeFile("programs/loadgenerator", "#!/bin/sh\n");
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        path_ = directory_ / "programs" + ":" + path_;
    }

    // The shell knows its options, --users and --time. What bash knows of programs is in the package bash-completion,
    // which wants to change options of the completion that is going on; in a test none is.
    void addProgramsCompletion() {
        const std::map<std::string, std::string> commands{
            {"bash",
             "source /usr/share/bash-completion/bash_completion; compopt() { :; }; "
             "complete -W '--users --time' loadgenerator; "},
            {"zsh", "_loadgenerator() { compadd -- --users --time }\ncompdef _loadgenerator loadgenerator\n"},
            {"fish", "complete -c loadgenerator -l users -x; complete -c loadgenerator -l time -x; "}};
        setUp_ = commands.at(GetParam());
    }

private:
    std::string setUp_;  // commands of the shell
    std::string path_ = std::getenv("PATH");
};

#ifdef KRENV_SANITIZED  // one shell shows what the sanitizers can see: how pmenv answers when it is asked for names
const auto kShells = testing::Values("bash");
#else
const auto kShells = testing::Values("bash", "zsh", "fish");
#endif
INSTANTIATE_TEST_SUITE_P(Shells, PmenvCompletion, kShells, [](const auto& shell) { return std::string(shell.param); });

std::set<std::string> optionsOf(const Command& command) {
    std::set<std::string> names;
    for (const Option& option : pmenvGrammar().globalOptions) names.insert("--" + std::string(option.name));
    for (const Option& option : command.options) names.insert("--" + std::string(option.name));
    return names;
}

std::set<std::string> firstWords() {
    std::set<std::string> words;
    for (const Command& command : pmenvGrammar().commands) words.insert(wordsOf(command)[0]);
    return words;
}

TEST_P(PmenvCompletion, OffersEveryCommand) {
    EXPECT_THAT(complete({}, ""), UnorderedElementsAreArray(firstWords()));
    EXPECT_THAT(complete({}, "re"), UnorderedElementsAre("report", "resolve"));
    EXPECT_THAT(complete({"path"}, ""), UnorderedElementsAre("abs", "make", "shorten", "split"));
    EXPECT_THAT(complete({"--json", "--ini", "get", "path"}, "s"), UnorderedElementsAre("shorten", "split"));
}

TEST_P(PmenvCompletion, OffersExactlyTheOptionsOfEachCommand) {
    for (const Command& command : pmenvGrammar().commands) {
        EXPECT_THAT(complete(wordsOf(command), "--"), UnorderedElementsAreArray(optionsOf(command))) << command.name;
    }
}

TEST_P(PmenvCompletion, OffersTheNamesOfSettings) {
    EXPECT_THAT(complete({"get"}, "KR_"), UnorderedElementsAre("KR_BUILD", "KR_VERSION"));
    EXPECT_THAT(complete({"get", "KR_BUILD", "--raw"}, "engine"), ElementsAre("engine.threads"));
    EXPECT_THAT(complete({"explain"}, "KR_B"), ElementsAre("KR_BUILD"));
    EXPECT_THAT(complete({"explain", "KR_BUILD"}, "KR_B"), IsEmpty()) << "it takes one";
}

TEST_P(PmenvCompletion, OffersTheSettingsOfTheChosenFile) {
    directory_.makeDirectory("other");
    directory_.writeFile("other/pressmark.ini", "KR_OTHER = 1\n");
    EXPECT_THAT(complete({"--ini", "other", "get"}, "KR_"), ElementsAre("KR_OTHER"));
    EXPECT_THAT(complete({"get", "--ini", "other"}, "KR_"), ElementsAre("KR_OTHER"));
}

TEST_P(PmenvCompletion, OffersFilesAndPathVariables) {
    directory_.makeDirectory("other");
    const auto withoutSlash = [](Words words) {
        for (std::string& word : words) word.erase(word.find_last_not_of('/') + 1);
        return words;
    };
    EXPECT_THAT(withoutSlash(complete({"--ini"}, "oth")), ElementsAre("other"));
    EXPECT_THAT(complete({"check"}, "press"), ElementsAre("pressmark.ini"));
    EXPECT_THAT(complete({"diff", "pressmark.ini"}, "press"), ElementsAre("pressmark.ini"));
    EXPECT_THAT(withoutSlash(complete({"walk"}, "oth")), ElementsAre("other"));
    EXPECT_THAT(complete({"walk"}, "press"), IsEmpty()) << "only directories can be walked";
    EXPECT_THAT(complete({"walk", "--skip"}, "oth"), IsEmpty());
    EXPECT_THAT(complete({"resolve"}, "M"), ElementsAre("MYDOCUMENTS"));
}

TEST_P(PmenvCompletion, OffersFilesBelowTheSettingKrBin) {
    directory_.makeDirectory("bin");
    directory_.writeFile("bin/engine.ini");
    EXPECT_THAT(complete({"get", "--file"}, "e"), IsEmpty()) << "there is no such setting";
    directory_.writeFile("pressmark.ini", "KR_BIN = " + directory_ / "bin" + "\n");
    EXPECT_THAT(complete({"get", "--file"}, "e"), ElementsAre("engine.ini"));
    EXPECT_THAT(complete({"get", "--file", "engine.ini"}, "KR"), IsEmpty()) << "that file's names are not known";
}

TEST_P(PmenvCompletion, OffersTheValuesOfAChoice) {
    EXPECT_THAT(complete({"check", "--ignore"}, ""), UnorderedElementsAreArray(ruleNames()));
    EXPECT_THAT(complete({"check", "--ignore"}, "un"), Not(IsEmpty()));
    EXPECT_THAT(complete({"check", "--format"}, ""), UnorderedElementsAre("text", "json", "sarif", "github"));
    EXPECT_THAT(complete({"check", "--format"}, "s"), ElementsAre("sarif"));
}

// As behind sudo or time: commands, and then files.
TEST_P(PmenvCompletion, OffersTheProgramToStart) {
    addProgram();
    directory_.writeFile("plan.jmx");
    EXPECT_THAT(complete({"judge", "--"}, "loadgen"), ElementsAre("loadgenerator"));
    EXPECT_THAT(complete({"judge", "--duration", "60", "--engine", "a", "--"}, "loadgen"),
                ElementsAre("loadgenerator"));
    EXPECT_THAT(complete({"judge", "--", "cat"}, "plan."), ElementsAre("plan.jmx"));
    EXPECT_THAT(complete({"judge", "--", "cat", "-n"}, "plan."), ElementsAre("plan.jmx"));
    EXPECT_THAT(complete({"judge", "--", "cat"}, "--du"), Not(Contains("--duration"))) << "an option of judge";
    EXPECT_THAT(complete({"judge", "--", "get"}, "KR_"), IsEmpty()) << "no command of pmenv";
    EXPECT_THAT(complete({"judge"}, "loadgen"), IsEmpty()) << "there may be a recording";
    EXPECT_THAT(complete({"get", "--"}, "loadgen"), IsEmpty()) << "it starts no program";
}

TEST_P(PmenvCompletion, OffersWhatTheShellKnowsOfTheProgram) {
    addProgram();
    addProgramsCompletion();
    EXPECT_THAT(complete({"judge", "--skip", "1", "--"}, "loadgen"), ElementsAre("loadgenerator"));
    EXPECT_THAT(complete({"judge", "--skip", "1", "--", "loadgenerator"}, "--us"), ElementsAre("--users"));
    EXPECT_THAT(complete({"judge", "--", "loadgenerator", "--users", "5"}, "--ti"), ElementsAre("--time"));
    EXPECT_THAT(complete({"judge"}, "--sk"), ElementsAre("--skip"));
}

// A shell parts "--format=sa" in its own way; bash does so before the completion sees it.
TEST_P(PmenvCompletion, OffersTheValueBehindAnEqualsSign) {
    if (GetParam() == std::string("bash")) {
        EXPECT_THAT(complete({"check", "--format", "="}, "sa"), ElementsAre("sarif"));
    } else {
        Words offered = complete({"check"}, "--format=sa");
        ASSERT_EQ(offered.size(), 1U);
        EXPECT_THAT(offered[0], testing::EndsWith("sarif"));
    }
}

}  // namespace
