// pmenv walk: the files of a directory, and what it says when it falls short.
#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"
#include "support/TerminalRun.h"

using nlohmann::json;
using testing::HasSubstr;

namespace {

std::multiset<std::string> pathsOf(const std::string& text, char end = '\n') {
    std::multiset<std::string> paths;
    std::istringstream stream(text);
    for (std::string path; std::getline(stream, path, end);) paths.insert(path);
    return paths;
}

class PmenvWalk : public Pmenv {
protected:
    PmenvWalk() {
        directory_.makeDirectory("d/s/t");
        for (const char* const file : {"d/a", "d/b", "d/s/a", "d/s/t/c"}) directory_.writeFile(file);
    }

    // By way of bash, which sets limits and makes pipes: pmenv is $0.
    ProgramResult shell(const std::string& script) const {
        const ScopedCwd here(directory_.path());
        return runProgram({"/bin/bash", "-c", script, PMENV_BINARY}, environmentOf({}));
    }

    // FindFile leaves directories open, which pmenv ends with: no leak that the sanitizer is to report.
    const ScopedEnv leaks_{"ASAN_OPTIONS", "detect_leaks=0"};
};

TEST_F(PmenvWalk, PrintsTheFilesOfTheDirectory) {
    using Paths = std::multiset<std::string>;
    const ProgramResult outcome = run({"walk", "d"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(pathsOf(outcome.out), (Paths{"d/a", "d/b"}));
    EXPECT_EQ(pathsOf(run({"walk", "d", "--recurse"}).out), (Paths{"d/a", "d/b", "d/s/a", "d/s/t/c"}));
    EXPECT_EQ(pathsOf(run({"walk", "d", "--recurse", "--skip", "a"}).out), (Paths{"d/b", "d/s/t/c"}));
    EXPECT_EQ(pathsOf(run({"walk", "d", "--recurse", "--skip", "s"}).out).size(), 4u) << "directories are entered";
    EXPECT_EQ(run({"walk", "d/s/t", "--skip", "c"}).out, "");
}

TEST_F(PmenvWalk, JsonIsAnArrayOfPaths) {
    directory_.writeFile("d/s/t/x\xff");
    json paths = json::parse(run({"walk", "d/s/t", "--json"}).out);
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (json{"d/s/t/c", "d/s/t/x\xef\xbf\xbd"}));
    EXPECT_EQ(run({"walk", "d", "--json", "--skip", "a"}).out, "[\n  \"d/b\"\n]\n");
    EXPECT_EQ(run({"walk", directory_.makeDirectory("empty"), "--json"}).out, "[]\n");
}

TEST_F(PmenvWalk, GivesTheBytesOfAName) {
    directory_.writeFile("d/s/t/x\xff\ny");
    EXPECT_EQ(pathsOf(run({"walk", "d/s/t", "--null"}).out, '\0'),
              (std::multiset<std::string>{"d/s/t/c", "d/s/t/x\xff\ny"}));
    EXPECT_EQ(run({"walk", "d/s/t", "--skip", "c"}).out, "d/s/t/x\xff\ny\n");
}

TEST_F(PmenvWalk, EscapesOnATerminalOnly) {
    directory_.writeFile("d/s/t/x\x1b[2J\ny");
    const std::string there = directory_ / "d/s/t";
    TerminalRun lines(pmenv({"walk", there, "--skip", "c"}), environmentOf({}), 80, 24);
    EXPECT_EQ(lines.finish(), 0);
    EXPECT_EQ(lines.output(), there + "/x\\x1b[2J\\ny\r\n");
    TerminalRun null(pmenv({"walk", there, "--skip", "c", "--null"}), environmentOf({}), 80, 24);
    EXPECT_EQ(null.finish(), 0);
    EXPECT_THAT(null.output(), HasSubstr("/x\x1b[2J"));
}

TEST_F(PmenvWalk, RefusesWhatIsNoDirectory) {
    EXPECT_EQ(run({"walk", "none"}).err, "pmenv: 'none': no such directory\n");
    EXPECT_EQ(run({"walk", ""}).err, "pmenv: '': no such directory\n");
    EXPECT_EQ(run({"walk", std::string(4096, 'd')}).status, 1);
    const ProgramResult outcome = run({"walk", "d/a", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "pmenv: 'd/a': not a directory\n");
}

TEST_F(PmenvWalk, EndsInALoopOfLinks) {
    std::filesystem::create_directory_symlink(".", directory_ / "d/s/t/loop");
    const ProgramResult outcome = run({"walk", "d", "--recurse", "--skip", "a"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(pathsOf(outcome.out).size(), 1u + 41 + 1) << "b, c once for each link, and the link that is one too many";
}

// Whatever the limit, either all files are there or an error says that some are not.
TEST_F(PmenvWalk, SaysWhenDescriptorsRunOut) {
    for (const char* const more : {"d/s/t/u/v", "d/s/e", "d/1/2/3", "d/4"}) {
        directory_.writeFile(std::string(directory_.makeDirectory(more), directory_.path().size() + 1) + "/f");
    }
    const auto all = pathsOf(run({"walk", "d", "--recurse"}).out);
    ASSERT_EQ(all.size(), 8u);
    std::set<int> seen;
    for (int limit = 6; limit <= 40; ++limit) {
        SCOPED_TRACE(limit);
        const ProgramResult outcome = shell("ulimit -n " + std::to_string(limit) + "; exec \"$0\" walk d --recurse");
        EXPECT_EQ(outcome.status == 0, pathsOf(outcome.out) == all);
        for (const std::string& path : pathsOf(outcome.out))
            EXPECT_EQ(all.count(path), 1u) << path << " is a directory";
        if (outcome.status == 0) {
            EXPECT_EQ(outcome.err, "");
        } else if (!outcome.out.empty()) {
            EXPECT_EQ(outcome.err,
                      "pmenv: 'd': the walk is incomplete, no further directory could be opened: Too many open files\n"
                      "A walk keeps each directory that it has entered open, and pmenv may have " +
                          std::to_string(limit) + " files open. Walk the subdirectories one by one.\n");
        }
        seen.insert(outcome.status);
    }
    EXPECT_THAT(seen, testing::IsSupersetOf({0, 1}));
}

// While only directories are entered, no file shows that they have run out.
TEST_F(PmenvWalk, SaysWhenDescriptorsRunOutInAChainOfDirectories) {
    std::string deepest = directory_.makeDirectory("chain");
    for (int i = 0; i < 15; ++i) deepest += "/x";
    std::filesystem::create_directories(deepest);
    directory_.writeFile(deepest.substr(directory_.path().size() + 1) + "/last");
    std::set<int> seen;
    for (int limit = 5; limit <= 45; ++limit) {
        SCOPED_TRACE(limit);
        const ProgramResult outcome =
            shell("ulimit -n " + std::to_string(limit) + "; exec \"$0\" walk chain --recurse");
        EXPECT_EQ(outcome.status == 0, outcome.out.find("/last\n") != std::string::npos);
        EXPECT_EQ(outcome.status == 0, outcome.err.empty());
        seen.insert(outcome.status);
    }
    EXPECT_THAT(seen, testing::ElementsAre(0, 1));
}

TEST_F(PmenvWalk, SaysWhyItHasEndedAndNotWhatItWouldHaveMet) {
    for (int i = 0; i < 50; ++i) {
        const std::string directory = "wide/" + std::to_string(i);
        const std::string name = directory + "/" + std::string(200, 'n');
        directory_.makeDirectory(directory);
        for (int j = 0; j < 15; ++j) directory_.writeFile(name + std::to_string(j));
    }
    const ProgramResult outcome = shell("ulimit -n 40; \"$0\" walk wide --recurse >/dev/full");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "pmenv: cannot write the result to standard output: No space left on device\n");
}

TEST_F(PmenvWalk, RaisesTheSoftLimitOfDescriptors) {
    for (int i = 0; i < 30; ++i) directory_.writeFile(std::string("d/f") + std::to_string(i));
    std::string deep = "d";
    for (int i = 0; i < 30; ++i) deep += "/x";
    directory_.makeDirectory(deep);
    directory_.writeFile(deep + "/last");
    const ProgramResult outcome = shell("ulimit -Sn 16; exec \"$0\" walk d --recurse");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr(deep + "/last\n"));
    EXPECT_EQ(shell("ulimit -n 16; exec \"$0\" walk d --recurse --json").out, "") << "no JSON of half a walk";
}

TEST_F(PmenvWalk, StopsWhenThePipeIsClosed) {
    const std::string name(150, 'n');
    for (int i = 0; i < 2000; ++i) directory_.writeFile("d/" + name + std::to_string(i));
    const ProgramResult outcome = shell("\"$0\" walk d | head -n 1 >/dev/null; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(outcome.out, "141\n") << "ended by the signal, as other programs are";
    EXPECT_EQ(outcome.err, "");

    // Where the signal is ignored. A walk that went on would meet the limit.
    std::string deep = "d";
    for (int i = 0; i < 30; ++i) deep += "/x";
    directory_.makeDirectory(deep);
    directory_.writeFile(deep + "/last");
    const ProgramResult ignoring =
        shell("trap '' PIPE; (ulimit -n 40; \"$0\" walk d --recurse) | head -n 1 >/dev/null; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(ignoring.out, "1\n");
    EXPECT_EQ(ignoring.err, "pmenv: cannot write the result to standard output: Broken pipe\n");
}

}  // namespace
