// pmenv path: split, make, shorten, abs.
#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;

namespace {

using PmenvPath = Pmenv;

TEST_F(PmenvPath, AnswerAsTheLibraryDoes) {
    struct Row {
        Words words;
        std::string output;
    };
    const Row rows[] = {
        {{"path", "split", "/usr/lib/x.tar.gz"}, "directory  /usr/lib\nname       x.tar\nextension  gz\n"},
        {{"path", "split", ".profile"}, "directory  \nname       \nextension  profile\n"},
        {{"path", "split", "/usr/lib"}, "directory  /usr/lib\nname       \nextension  \n"},
        {{"path", "make", "/usr/lib", "x.tar", "gz"}, "/usr/lib/x.tar.gz\n"},
        {{"path", "make", "/usr/lib/", "x"}, "/usr/lib/x\n"},
        {{"path", "make", "", "x", "gz"}, "x.gz\n"},
        {{"path", "shorten", "/home/user/projects/reports/weekly.md", "30"}, "/home/user/projec...\\weekly.md\n"},
        {{"path", "shorten", "short", "30"}, "short\n"},
        {{"path", "abs", "/usr/../usr/lib/none.so"}, "/usr/lib/none.so\n"},
        {{"path", "split", "a/b.c", "--json"},
         "{\n  \"directory\": \"a\",\n  \"name\": \"b\",\n  \"extension\": \"c\"\n}\n"},
        {{"path", "make", "a", "b", "--json"}, "{\n  \"path\": \"a/b\"\n}\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        const ProgramResult outcome = run(row.words);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.out, row.output);
        EXPECT_EQ(outcome.err, "");
    }
}

TEST_F(PmenvPath, RefuseWhatTheLibraryCannot) {
    const std::string longPath = "/first/" + std::string(4089, 'p');
    struct Row {
        Words words;
        std::string errors;
    };
    const Row rows[] = {
        {{"path", "shorten", "/a/weekly.md", "12"},
         "pmenv: /a/weekly.md: cannot be shortened to 12 characters, its name and extension need 13\n"},
        {{"path", "make", std::string(4000, 'd'), std::string(95, 'n')},
         "pmenv: the composed path is longer than 4095 characters\n"},
        {{"path", "split", longPath},
         "pmenv: the path has 4096 characters, the limit is 4095: " + longPath.substr(0, 60) + "...\n"},
        {{"path", "abs", "/nonexistent/x.c"}, "pmenv: /nonexistent/x.c: there is no directory /nonexistent\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words).substr(0, 100));
        const ProgramResult outcome = run(row.words);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, row.errors);
    }
    EXPECT_EQ(run({"path", "split", longPath.substr(1)}).status, 0) << "4095 characters";
}

TEST_F(PmenvPath, ShortenTakesAWidthUpToTheLongestPath) {
    for (const char* const width : {"", "0", "00001", "4096", "9999", "1 "}) {
        const ProgramResult outcome = run({"path", "shorten", "/a/weekly.md", width});
        EXPECT_EQ(outcome.status, 2) << width;
        EXPECT_EQ(outcome.err, std::string("pmenv: WIDTH is a whole number from 1 to 4095, not '") + width + "'\n");
    }
    EXPECT_EQ(run({"path", "shorten", "/a/weekly.md", "1"}).status, 1) << "too little for the name";
    EXPECT_EQ(run({"path", "shorten", "/a/weekly.md", "0001"}).status, 1);
    EXPECT_EQ(run({"path", "shorten", "/a/weekly.md", "4095"}).out, "/a/weekly.md\n");
    EXPECT_EQ(run({"path", "shorten", "/a/weekly.md", "13"}).out, "/a/weekly.md\n");
}

TEST_F(PmenvPath, AbsSearchesABareNameInIncludePath) {
    directory_.makeDirectory("include");
    directory_.writeFile("include/x.h");
    directory_.writeFile("pressmark.ini", "INCLUDE_PATH = " + directory_ / "include\n");
    const std::string real = std::filesystem::canonical(directory_.path());
    EXPECT_EQ(run({"path", "abs", "pressmark.ini"}).out, real + "/pressmark.ini\n") << "without any settings";
    EXPECT_EQ(runHere({"path", "abs", "x.h"}).out, real + "/include/x.h\n");
    const ProgramResult outcome = runHere({"path", "abs", "y.h"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "pmenv: y.h: not found; looked in\n  1. .: no such file there\n  2. #INCLUDE_PATH, " +
                               directory_ / "include: no such file there\n");
}

// The library cuts between bytes; what is shown stays UTF-8, and a few bytes shorter.
TEST_F(PmenvPath, ShortenNeverCutsACharacter) {
    const std::string path = "/home/grüße/日本語/x/weekly.md";
    std::set<std::string> beginnings;
    for (int width = 16; width <= 40; ++width) {
        const ProgramResult outcome = run({"path", "shorten", path, std::to_string(width)});
        ASSERT_EQ(outcome.status, 0) << width;
        const std::string shortened = outcome.out.substr(0, outcome.out.size() - 1);
        EXPECT_LE(shortened.size(), static_cast<std::size_t>(width));
        EXPECT_GE(shortened.size() + 3, std::min(path.size(), static_cast<std::size_t>(width))) << "no more is cut";
        EXPECT_EQ(json::parse(run({"path", "shorten", path, std::to_string(width), "--json"}).out).at("path"),
                  shortened)
            << "no byte of it is replaced";
        if (shortened != path) beginnings.insert(shortened.substr(0, shortened.find("...")));
    }
    EXPECT_THAT(beginnings,
                testing::IsSupersetOf({"/home/gr", "/home/grü", "/home/grüß", "/home/grüße/", "/home/grüße/日"}));
    EXPECT_EQ(run({"path", "shorten", "/a/\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80/b/x.md", "14"}).status,
              0);
}

}  // namespace
