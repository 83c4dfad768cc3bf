// Path texts, path variables, file search and file tests.
#include <climits>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "krenv.h"
#include "krenvState.h"
#include "support/InChild.h"
#include "support/LogCapture.h"
#include "support/LogExpectations.h"
#include "support/ScopedEnv.h"
#include "support/Settings.h"
#include "support/TempDir.h"

namespace {

constexpr const char* kEnd = nullptr;  // ends a variable list: a pointer, not an int

// "dir|name|ext"
std::string split(KREnvContainerClass& env, const char* path) {
    char wild[] = "wild", *dir = wild, *name = wild, *ext = wild;
    env.KRPSplitPath(path, &dir, &name, &ext);
    return std::string(dir) + "|" + name + "|" + ext;
}

std::string orNull(const char* text) { return text != nullptr ? text : "<null>"; }

// An empty working directory, so that no name is by chance that of a directory there.
class Paths : public testing::Test {
protected:
    TempDir dir;
    ScopedCwd cwd{dir.path()};
    KREnvContainerClass env;
};
using KRPSplitPath = Paths;
using KRPMakePath = Paths;
using KRPAdjustPathLen = Paths;
using CurrentDirectory = Paths;
using KRPResolvePathVar = Paths;
using SearchInPath = Paths;
using KRPFindfile = Paths;
using KRPResolveFilePath = Paths;
using KRPGetFullName = Paths;
using FileTests = Paths;

// --- splitting ------------------------------------------------------------------------------------------------------

TEST_F(KRPSplitPath, CutsAtTheLastSeparatorAndTheLastDot) {
    const struct {
        const char* path;
        const char* parts;
    } rows[] = {
        {"/usr/lib/x.tar.gz", "/usr/lib|x.tar|gz"},
        {"/x", "|x|"},
        {"a\\b.c", "a|b|c"},
        {"a/b\\c/d", "a/b\\c|d|"},
        {"a\\b/c\\d", "a\\b/c|d|"},
        {".profile", "||profile"},
        {"x.", "|x|"},
        {"dir/", "dir||"},
        {"dir.d/x", "dir.d|x|"},
        {"a//b", "a/|b|"},
        {"", "||"},
        {"x", "|x|"},
        {"..x", "|.|x"},
        {"a/.b.c", "a|.b|c"},
        {"/nonexistent/", "/nonexistent||"},
        {"\\x.y", "|x|y"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.parts, split(env, row.path)) << row.path;
}

TEST_F(KRPSplitPath, AnExistingDirectoryIsAllDirectory) {
    dir.makeDirectory("sub.d");
    EXPECT_EQ("sub.d||", split(env, "sub.d"));
    EXPECT_EQ("sub.d/||", split(env, "sub.d/"));
    EXPECT_EQ(dir.path() + "||", split(env, dir.path().c_str()));
    EXPECT_EQ("/||", split(env, "/"));
    EXPECT_EQ(".||", split(env, "."));
}

TEST_F(KRPSplitPath, EachOutPointerMayBeNull) {
    char* name = nullptr;
    env.KRPSplitPath("a/b.c", nullptr, &name, nullptr);
    EXPECT_STREQ("b", name);
    env.KRPSplitPath("a/b.c", nullptr, nullptr, nullptr);
}

TEST_F(KRPSplitPath, GettersRefreshAllParts) {
    const char* const name = env.KRPGetPathName("a/b.c");
    EXPECT_STREQ("b", name);
    EXPECT_STREQ("x", env.KRPGetPathDirectory("x/y.z"));
    EXPECT_STREQ("y", name);
    EXPECT_STREQ("e", env.KRPGetPathExt("d.e"));
    EXPECT_STREQ("d", name);
}

TEST_F(KRPSplitPath, ObjectsDoNotDisturbEachOther) {
    KREnvContainerClass other;
    const char* const name = env.KRPGetPathName("a/b.c");
    other.KRPGetPathName("x/y.z");
    EXPECT_STREQ("b", name);
}

TEST_F(KRPSplitPath, APartOfTheLastSplitCanBeSplit) {
    EXPECT_STREQ("b", env.KRPGetPathName(env.KRPGetPathDirectory("a/b/c")));
    EXPECT_STREQ("y", env.KRPGetPathExt(env.KRPGetPathName("x.y.z")));
}

// The caller's pointers were left as they were, wild as a rule.
TEST_F(KRPSplitPath, NullIsAnErrorAndThreeEmptyParts) {
    const char* const name = env.KRPGetPathName("a/b.c");
    LogCapture log;
    EXPECT_EQ("||", split(env, nullptr));
    EXPECT_STREQ("", name);
    expectBareErrors(log, 1);
    log.clear();
    EXPECT_EQ(nullptr, env.KRPGetPathDirectory(nullptr));
    EXPECT_EQ(nullptr, env.KRPGetPathName(nullptr));
    EXPECT_EQ(nullptr, env.KRPGetPathExt(nullptr));
    expectBareErrors(log, 3);
}

TEST_F(KRPSplitPath, ALongPathIsCutTo4095Characters) {
    LogCapture log;
    EXPECT_EQ("|" + std::string(4095, 'n') + "|", split(env, std::string(4095, 'n').c_str()));
    EXPECT_EQ("|" + std::string(4095, 'n') + "|", split(env, std::string(4096, 'n').c_str()));
    expectBareErrors(log, 0);
    EXPECT_EQ("|" + std::string(4095, 'n') + "|", split(env, std::string(4097, 'n').c_str()));
    expectBareErrors(log, 1);
    EXPECT_EQ("d|" + std::string(4093, 'n') + "|", split(env, ("d/" + std::string(9000, 'n') + ".e").c_str()));
    expectBareErrors(log, 2);
}

// --- composing ------------------------------------------------------------------------------------------------------

TEST_F(KRPMakePath, JoinsDirectoryNameAndExtension) {
    const struct {
        const char *dir, *name, *ext, *path;
    } rows[] = {
        {"d/", "n", "e", "d/n.e"},     {"d", "n", "", "d/n"},      {"a\\", "n", "e", "a\\/n.e"},
        {"/", "n", "e", "/n.e"},       {"d", "", "", "d/"},        {"d", "", "e", "d/.e"},
        {"d//", "n", ".e", "d//n..e"}, {"d", "n.", "e", "d/n..e"}, {"d", "/n", "e", "d//n.e"},
    };
    for (const auto& row : rows) EXPECT_STREQ(row.path, KREnvContainerClass().KRPMakePath(row.dir, row.name, row.ext));
}

TEST_F(KRPMakePath, WithoutADirectoryAppendsToTheLastComposition) {
    EXPECT_STREQ("b", env.KRPMakePath("", "b", ""));
    EXPECT_STREQ("bb", env.KRPMakePath("", "b", ""));
    EXPECT_STREQ("bbc.e", env.KRPMakePath("", "c", "e"));
    EXPECT_STREQ("d/n", env.KRPMakePath("d", "n", ""));
    EXPECT_STREQ("d/n.x", env.KRPMakePath("", "", "x"));
}

TEST_F(KRPMakePath, TakesItsOwnResultAsAPart) {
    const char* const made = env.KRPMakePath("a", "b", "");
    EXPECT_STREQ("a/b/c", env.KRPMakePath(made, "c", ""));
    EXPECT_STREQ("d/a/b/c", env.KRPMakePath("d", made, ""));
}

TEST_F(KRPMakePath, RefusesNullArgumentsWithOneErrorEach) {
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPMakePath(nullptr, "n", "e"));
    EXPECT_EQ(nullptr, env.KRPMakePath("d", nullptr, "e"));
    EXPECT_EQ(nullptr, env.KRPMakePath("d", "n", nullptr));
    expectBareErrors(log, 3);
    EXPECT_EQ(nullptr, env.KRPMakePath(nullptr, nullptr, nullptr));
    expectBareErrors(log, 6);
    EXPECT_STREQ("x", env.KRPMakePath("", "x", "")) << "nothing was composed";
}

TEST_F(KRPMakePath, RefusesWhatDoesNotFitAndKeepsTheBuffer) {
    const std::string name(4093, 'n');
    EXPECT_EQ("d/" + name, env.KRPMakePath("d", name.c_str(), ""));
    const char* const kept = env.KRPMakePath("kept", "", "");
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPMakePath("d", (name + "n").c_str(), ""));
    EXPECT_EQ(nullptr, env.KRPMakePath("d", name.c_str(), "e"));
    EXPECT_EQ(nullptr, env.KRPMakePath("", name.c_str(), ""));
    EXPECT_EQ(nullptr, env.KRPMakePath(std::string(10000, 'd').c_str(), "n", "e"));
    expectBareErrors(log, 4);
    EXPECT_STREQ("kept/", kept);
}

TEST_F(KRPMakePath, ConcatDirAndNameKeepsNameAndExtension) {
    EXPECT_STREQ("dir/x.txt", env.KRPConcatDirAndName("dir", "sub/x.txt"));
    EXPECT_STREQ("dir/x", env.KRPConcatDirAndName("dir/", "x."));
    EXPECT_STREQ("dir/", env.KRPConcatDirAndName("dir", "/"));
    EXPECT_STREQ("dir/x.txt", env.KRPConcatDirAndName("", "x.txt")) << "carried over";
}

TEST_F(KRPMakePath, ReplacePathExtAndName) {
    EXPECT_STREQ("d/n.new", env.KRPReplacePathExt("d/n.old", "new"));
    EXPECT_STREQ("d/n", env.KRPReplacePathExt("d/n.old", ""));
    EXPECT_STREQ("d/other.old", env.KRPReplacePathName("d/n.old", "other"));
    KREnvContainerClass fresh;
    EXPECT_STREQ("n.new", fresh.KRPReplacePathExt("n.old", "new"));
    EXPECT_STREQ("n.newn.new", fresh.KRPReplacePathExt("n.old", "new")) << "carried over";
    EXPECT_STREQ("n.newn.newx.old", fresh.KRPReplacePathName("n.old", "x"));
}

TEST_F(KRPMakePath, TheOthersLeaveThePartsOfTheirPath) {
    char *folder = nullptr, *name = nullptr, *ext = nullptr;
    env.KRPSplitPath("", &folder, &name, &ext);
    const auto parts = [&] { return std::string(folder) + "|" + name + "|" + ext; };
    env.KRPConcatDirAndName("x", "a/b.c");
    EXPECT_EQ("a|b|c", parts());
    env.KRPReplacePathExt("d/e.f", "x");
    EXPECT_EQ("d|e|f", parts());
    env.KRPReplacePathName("g/h.i", "x");
    EXPECT_EQ("g|h|i", parts());
    char out[20];
    EXPECT_STREQ("jjjj...\\k.l", env.KRPAdjustPathLen("jjjjjjjjjjjj/k.l", out, 11));
    EXPECT_EQ("jjjjjjjjjjjj|k|l", parts());
    EXPECT_STREQ("m/n.o", env.KRPAdjustPathLen("m/n.o", out, 11));
    EXPECT_EQ("jjjjjjjjjjjj|k|l", parts()) << "a path that fits is not split";
}

TEST_F(KRPMakePath, TheOthersRefuseNullArguments) {
    const char* const kept = env.KRPMakePath("kept", "", "");
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPConcatDirAndName(nullptr, "p"));
    EXPECT_EQ(nullptr, env.KRPConcatDirAndName("d", nullptr));
    EXPECT_EQ(nullptr, env.KRPReplacePathExt(nullptr, "e"));
    EXPECT_EQ(nullptr, env.KRPReplacePathExt("p", nullptr));
    EXPECT_EQ(nullptr, env.KRPReplacePathName(nullptr, "n"));
    EXPECT_EQ(nullptr, env.KRPReplacePathName("p", nullptr));
    expectBareErrors(log, 6);
    EXPECT_STREQ("kept/", kept);
}

// --- shortening -----------------------------------------------------------------------------------------------------

TEST_F(KRPAdjustPathLen, CutsTheMiddle) {
    const struct {
        const char* path;
        int maxLen;
        const char* out;
    } rows[] = {
        {"/home/user/projects/reports/weekly.md", 30, "/home/user/projec...\\weekly.md"},
        {"/home/user/projects/reports/weekly.md", 38, "/home/user/projects/reports/weekly.md"},
        {"/home/user/projects/reports/weekly.md", 37, "/home/user/projects/repo...\\weekly.md"},
        {"/home/user/projects/reports/weekly.md", 13, "...\\weekly.md"},
        {"/home/user/projects/reports/weekly.md", 12, "<null>"},
        {"/home/user/projects/reports/weekly", 30, "/home/user/projects...\\weekly."},
        {"abc", 4, "abc"},
        {"abc", 3, "<null>"},
        {"", 1, ""},
        {"/abcdefghij", 0, "<null>"},
    };
    for (const auto& row : rows) {
        char out[100] = "untouched";
        char* const result = env.KRPAdjustPathLen(row.path, out, row.maxLen);
        EXPECT_EQ(row.out, orNull(result)) << row.path << " in " << row.maxLen;
        if (result == nullptr) {
            EXPECT_STREQ("untouched", out);
        } else {
            EXPECT_EQ(out, result);
            if (std::strlen(row.path) >= static_cast<std::size_t>(row.maxLen)) {
                EXPECT_EQ(static_cast<std::size_t>(row.maxLen), std::strlen(out));
            }
        }
    }
}

TEST_F(KRPAdjustPathLen, AWidthThatIsNotPositiveIsAnErrorAndGoesOn) {
    char out[100] = "untouched";
    LogCapture log;
    EXPECT_EQ(out, env.KRPAdjustPathLen("/some/path", out, -1));
    EXPECT_STREQ("/some/path", out) << "a negative width counts as a huge one";
    expectBareErrors(log, 1);
    EXPECT_EQ(nullptr, env.KRPAdjustPathLen("/some/path", out, 0));
    expectBareErrors(log, 2);
    EXPECT_EQ(out, env.KRPAdjustPathLen("/other", out, INT_MIN));
    EXPECT_STREQ("/other", out);
    log.clear();
    EXPECT_EQ(nullptr, env.KRPAdjustPathLen("/some/path", out, 1));
    expectBareErrors(log, 0);
}

TEST_F(KRPAdjustPathLen, RefusesNullArguments) {
    char out[10] = "kept";
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPAdjustPathLen(nullptr, out, 5));
    EXPECT_EQ(nullptr, env.KRPAdjustPathLen("p", nullptr, 5));
    expectBareErrors(log, 2);
    EXPECT_STREQ("kept", out);
}

TEST_F(KRPAdjustPathLen, ShortensInPlaceAndVeryLongPaths) {
    char path[100] = "/home/user/projects/reports/weekly.md";
    EXPECT_STREQ("/home/user/projec...\\weekly.md", env.KRPAdjustPathLen(path, path, 30));
    const std::string longPath = "/" + std::string(6000, 'd') + "/n.e";
    std::vector<char> out(6000);
    const char* const result = env.KRPAdjustPathLen(longPath.c_str(), out.data(), 5000);
    ASSERT_NE(nullptr, result);
    EXPECT_EQ(5000U, std::strlen(result));
}

// --- the working directory ------------------------------------------------------------------------------------------

TEST_F(CurrentDirectory, IsTheWorkingDirectory) {
    const std::string here = std::filesystem::current_path();
    EXPECT_EQ(here, orNull(env.KRPGetCwd()));
    char buffer[4096];
    EXPECT_EQ(buffer, KRPGetCurrentDir(buffer, sizeof buffer));
    EXPECT_EQ(here, buffer);
    EXPECT_EQ(buffer, KRPGetCurrentDir(buffer, static_cast<int>(here.size() + 1)));
    EXPECT_EQ(nullptr, KRPGetCurrentDir(buffer, static_cast<int>(here.size())));
}

TEST_F(CurrentDirectory, RefusesBuffersThatAreNone) {
    char buffer[8] = "kept";
    EXPECT_EQ(nullptr, KRPGetCurrentDir(nullptr, 100));
    EXPECT_EQ(nullptr, KRPGetCurrentDir(buffer, 0));
    EXPECT_EQ(nullptr, KRPGetCurrentDir(buffer, -1));
    EXPECT_STREQ("kept", buffer);
}

TEST_F(CurrentDirectory, IsNullWhereTheDirectoryIsGone) {
    const std::string gone = dir.makeDirectory("gone");
    const ScopedCwd there(gone);
    ASSERT_EQ(0, rmdir(gone.c_str()));
    char buffer[4096];
    EXPECT_EQ(nullptr, env.KRPGetCwd());
    EXPECT_EQ(nullptr, KRPGetCurrentDir(buffer, sizeof buffer));
}

TEST_F(CurrentDirectory, KRPAbsPathFollowsLinksAndIgnoresTheSize) {
    dir.writeFile("file");
    ASSERT_EQ(0, symlink("file", (dir / "link").c_str()));
    char resolved[4096];
    EXPECT_TRUE(KRPAbsPath("./link", resolved, 0));
    EXPECT_EQ(std::filesystem::canonical(dir.path()).string() + "/file", resolved);
    EXPECT_FALSE(KRPAbsPath("missing", resolved, sizeof resolved));
    EXPECT_FALSE(KRPAbsPath("", resolved, sizeof resolved));
    EXPECT_FALSE(KRPAbsPath(nullptr, resolved, sizeof resolved));
    EXPECT_FALSE(KRPAbsPath("./link", nullptr, 0));
}

// --- path variables -------------------------------------------------------------------------------------------------

TEST_F(KRPResolvePathVar, KnowsItsForms) {
    const Settings settings("SET = #(INNER):/b\nINNER = /a\nEMPTY =\nLOOP = #(LOOP)\n");
    const ScopedEnv path("PATH", "/p1:/p2"), home("HOME", "/home/u"), documents("MYDOCUMENTS", "/docs");
    const ScopedEnv x("KRENV_TEST_X", "$(HOME):#(SET)"), empty("KRENV_TEST_EMPTY", ""),
        unset("KRENV_TEST_UNSET", nullptr);
    const ScopedEnv braces("{X}", "in braces");
    const struct {
        const char* var;
        const char* plain;
        const char* noKREnv;
    } rows[] = {
        {"PATH", "/p1:/p2", "/p1:/p2"},
        {"HOME", "/home/u", "/home/u"},
        {"MYDOCUMENTS", "/docs", "/docs"},
        {"$PATH", "/p1:/p2", "/p1:/p2"},
        {"$KRENV_TEST_X", "$(HOME):#(SET)", "$(HOME):#(SET)"},
        {"$KRENV_TEST_UNSET", "<null>", "<null>"},
        {"$KRENV_TEST_EMPTY", "<null>", "<null>"},
        {"$", "<null>", "<null>"},
        {"${X}", "in braces", "in braces"},
        {"#SET", "/a:/b", "#SET"},
        {"#EMPTY", "", "#EMPTY"},
        {"#MISSING", "<null>", "#MISSING"},
        {"#LOOP", "<null>", "#LOOP"},
        {"#", "<null>", "#"},
        {"relative/dir", "relative/dir", "relative/dir"},
        {".", ".", "."},
        {"path", "path", "path"},
        {"PATHS", "PATHS", "PATHS"},
        {"/opt/x:/opt/y", "/opt/x:/opt/y", "/opt/x:/opt/y"},
        {"", "<null>", "<null>"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.plain, orNull(env.KRPResolvePathVar(row.var))) << row.var;
        EXPECT_EQ(row.noKREnv, orNull(env.KRPResolvePathVarNoKREnv(row.var))) << row.var << ", NoKREnv";
    }
}

TEST_F(KRPResolvePathVar, AbsentVariablesAreNull) {
    const ScopedEnv path("PATH", nullptr), home("HOME", nullptr), documents("MYDOCUMENTS", nullptr);
    for (const char* const var : {"PATH", "HOME", "MYDOCUMENTS"}) EXPECT_EQ(nullptr, env.KRPResolvePathVar(var)) << var;
}

TEST_F(KRPResolvePathVar, EmptyVariablesAreNull) {
    const ScopedEnv path("PATH", ""), home("HOME", ""), documents("MYDOCUMENTS", "");
    for (const char* const var : {"PATH", "HOME", "MYDOCUMENTS"}) EXPECT_EQ(nullptr, env.KRPResolvePathVar(var)) << var;
}

TEST_F(KRPResolvePathVar, KeepsItsTextWhenAskedForAnEmptyVariable) {
    const char* const resolved = env.KRPResolvePathVarNoKREnv("text");
    EXPECT_EQ(nullptr, env.KRPResolvePathVarNoKREnv(""));
    EXPECT_STREQ("text", resolved);
}

TEST_F(KRPResolvePathVar, TakesItsOwnResult) {
    const char* const resolved = env.KRPResolvePathVarNoKREnv("/a/long/literal/directory");
    EXPECT_STREQ("/a/long/literal/directory", env.KRPResolvePathVarNoKREnv(resolved));
}

TEST_F(KRPResolvePathVar, LongValuesAreWhole) {
    const std::string value(100'000, 'v');
    const ScopedEnv x("KRENV_TEST_X", value.c_str());
    EXPECT_EQ(value, orNull(env.KRPResolvePathVarNoKREnv("$KRENV_TEST_X")));
}

TEST_F(KRPResolvePathVar, RefusesNull) {
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPResolvePathVar(nullptr));
    EXPECT_EQ(nullptr, env.KRPResolvePathVarNoKREnv(nullptr));
    expectBareErrors(log, 2);
}

TEST_F(KRPResolvePathVar, KRPGetUserDirAndMyDocumentsKeepTheirBufferWhenUnset) {
    const char* text = nullptr;
    const char* documents = nullptr;
    {
        const ScopedEnv home("HOME", "/home/u"), documentsVariable("MYDOCUMENTS", "/docs");
        text = env.KRPGetUserDir();
        documents = env.KRPGetMyDocuments();
    }
    const ScopedEnv home("HOME", nullptr), documentsVariable("MYDOCUMENTS", nullptr);
    EXPECT_EQ(nullptr, env.KRPGetUserDir());
    EXPECT_EQ(nullptr, env.KRPGetMyDocuments());
    EXPECT_STREQ("/home/u", text);
    EXPECT_STREQ("/docs", documents);
}

// It was cut, and what was left of it was searched: another directory.
TEST_F(KRPResolvePathVar, AHomeThatDoesNotFitIsNone) {
    const std::string longest(4095, 'h');
    for (const char* const name : {"HOME", "MYDOCUMENTS"}) {
        const auto get = [&] { return name[0] == 'H' ? env.KRPGetUserDir() : env.KRPGetMyDocuments(); };
        const ScopedEnv fits(name, longest.c_str());
        const char* const kept = get();
        EXPECT_EQ(longest, orNull(kept));
        const ScopedEnv tooLong(name, (longest + "x").c_str());
        EXPECT_EQ(nullptr, get());
        EXPECT_EQ(nullptr, env.KRPResolvePathVar(name));
        EXPECT_EQ(longest, kept) << "the buffer is as it was";
    }
}

// --- file search ----------------------------------------------------------------------------------------------------

TEST_F(SearchInPath, TakesTheFirstExistingFileFromLeftToRight) {
    const std::string a = dir.makeDirectory("a"), b = dir.makeDirectory("b");
    dir.writeFile("b/only-b");
    dir.writeFile("a/both");
    dir.writeFile("b/both");
    EXPECT_EQ(b + "/only-b", orNull(env.searchInPath("only-b", (a + ":" + b).c_str())));
    EXPECT_EQ(a + "/both", orNull(env.searchInPath("both", (a + ":" + b).c_str())));
    EXPECT_EQ(b + "/both", orNull(env.searchInPath("both", (b + ":" + a).c_str())));
    EXPECT_EQ("<null>", orNull(env.searchInPath("neither", (a + ":" + b).c_str())));
}

TEST_F(SearchInPath, SkipsWhatIsNoDirectoryAndEmptyEntries) {
    const std::string file = dir.writeFile("file"), a = dir.makeDirectory("a");
    dir.writeFile("a/x");
    EXPECT_EQ(a + "/x", orNull(env.searchInPath("x", (file + ":/nonexistent:" + a).c_str())));
    EXPECT_EQ(a + "/x", orNull(env.searchInPath("x", ("::" + a + "::").c_str())));
    EXPECT_EQ("<null>", orNull(env.searchInPath("x", ":::")));
    EXPECT_EQ("<null>", orNull(env.searchInPath("x", "")));
    EXPECT_EQ("<null>", orNull(env.searchInPath("x", nullptr)));
}

TEST_F(SearchInPath, LooksForTheLastComponentOnly) {
    const std::string a = dir.makeDirectory("a");
    dir.writeFile("a/file.ext");
    EXPECT_EQ(a + "/file.ext", orNull(env.searchInPath("dir/file.ext", a.c_str())));
    EXPECT_EQ(a + "/file.ext", orNull(env.KRPPathFileExist(a.c_str(), "dir/file.ext")));
}

TEST_F(SearchInPath, AFailedSearchKeepsTheLastFind) {
    dir.writeFile("x");
    const char* const found = env.searchInPath("x", dir.path().c_str());
    EXPECT_EQ(nullptr, env.searchInPath("missing", dir.path().c_str()));
    EXPECT_EQ(dir / "x", found);
}

TEST_F(SearchInPath, KRPSearchPathLooksInPath) {
    dir.writeFile("x");
    const ScopedEnv path("PATH", dir.path().c_str());
    EXPECT_EQ(dir / "x", orNull(env.KRPSearchPath("x")));
    EXPECT_EQ("<null>", orNull(env.KRPSearchPath("sh")));
    const ScopedEnv unset("PATH", nullptr);
    EXPECT_EQ("<null>", orNull(env.KRPSearchPath("x")));
}

TEST_F(SearchInPath, KRPPathFileExistTakesAnythingOfThatName) {
    dir.makeDirectory("sub/inner");
    EXPECT_EQ(dir / "sub/inner", orNull(env.KRPPathFileExist((dir / "sub").c_str(), "inner")));
    EXPECT_EQ("<null>", orNull(env.KRPPathFileExist(dir.path().c_str(), "missing")));
}

TEST_F(SearchInPath, KRPPathFileExistRefusesNull) {
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPPathFileExist(nullptr, "x"));
    expectBareErrors(log, 0);
    EXPECT_EQ(nullptr, env.KRPPathFileExist("/", nullptr));
    expectBareErrors(log, 1);
    EXPECT_EQ(nullptr, env.KRPPathFileExist(nullptr, nullptr));
    expectBareErrors(log, 2);
}

TEST_F(SearchInPath, AHostileListIsSurvived) {
    std::string list;
    for (int i = 0; i < 20'000; ++i) list += "/nonexistent" + std::to_string(i) + ":";
    list += std::string(100'000, 'd') + ":" + dir.path();
    dir.writeFile("x");
    EXPECT_EQ(dir / "x", orNull(env.searchInPath("x", list.c_str())));
}

TEST_F(KRPFindfile, TriesVariablesInOrder) {
    const std::string a = dir.makeDirectory("a"), b = dir.makeDirectory("b"), c = dir.makeDirectory("c");
    dir.writeFile("b/x");
    dir.writeFile("c/x");
    const Settings settings("LIST = /nonexistent:#(C)\nC = " + c + "\n");
    const ScopedEnv variable("KRENV_TEST_B", b.c_str()), unset("KRENV_TEST_UNSET", nullptr);
    EXPECT_EQ(b + "/x", orNull(env.KRPFindfile("x", a.c_str(), "$KRENV_TEST_B", "#LIST", kEnd)));
    EXPECT_EQ(c + "/x", orNull(env.KRPFindfile("x", a.c_str(), "#LIST", "$KRENV_TEST_B", kEnd)));
    EXPECT_EQ(c + "/x", orNull(env.KRPFindfile("x", "$KRENV_TEST_UNSET", "#MISSING", "#LIST", kEnd)));
    EXPECT_EQ("<null>", orNull(env.KRPFindfile("x", a.c_str(), kEnd)));
    EXPECT_EQ("<null>", orNull(env.KRPFindfile("missing", a.c_str(), "$KRENV_TEST_B", "#LIST", kEnd)));
}

TEST_F(KRPFindfile, AnEmptyTextEndsTheList) {
    dir.writeFile("x");
    EXPECT_EQ(dir / "x", orNull(env.KRPFindfile("x", "/nonexistent", dir.path().c_str(), "")));
    EXPECT_EQ("<null>", orNull(env.KRPFindfile("x", "/nonexistent", "", dir.path().c_str(), kEnd)));
}

TEST_F(KRPFindfile, AnEmptyFirstVariableEndsTheList) {
    dir.writeFile("x");
    EXPECT_EQ("<null>", orNull(env.KRPFindfile("x", "", dir.path().c_str(), kEnd)));
    EXPECT_EQ("<null>", orNull(env.KRPFindfileNoKREnv("x", "", dir.path().c_str(), kEnd)));
}

TEST_F(KRPFindfile, NoKREnvTakesHashTextsLiterally) {
    const std::string a = dir.makeDirectory("a");
    dir.makeDirectory("#LIST");
    dir.writeFile("a/x");
    const Settings settings("LIST = " + a + "\n");
    EXPECT_EQ(a + "/x", orNull(env.KRPFindfile("x", "#LIST", kEnd)));
    EXPECT_EQ("<null>", orNull(env.KRPFindfileNoKREnv("x", "#LIST", kEnd)));
    dir.writeFile("#LIST/x");
    EXPECT_EQ("#LIST/x", orNull(env.KRPFindfileNoKREnv("x", "#LIST", kEnd)));
}

TEST_F(KRPFindfile, RefusesANullVariable) {
    dir.writeFile("x");
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPFindfile("x", kEnd, dir.path().c_str(), kEnd));
    EXPECT_EQ(nullptr, env.KRPFindfileNoKREnv("x", kEnd, dir.path().c_str(), kEnd));
    expectBareErrors(log, 2);
}

TEST_F(KRPFindfile, RefusesANullName) {
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPFindfile(nullptr, dir.path().c_str(), kEnd));
    expectBareErrors(log, 1);
}

TEST_F(KRPFindfile, HoldsTheLockForTheWholeSearch) {
    LogCapture capture;  // enables the levels
    bool wasFree = true;
    nLogging::gSetSink([&](const nLogging::Record&) {
        std::thread([&] {
            wasFree = gIniFileMutex.tryAcquire();
            if (wasFree) gIniFileMutex.release();
        }).join();
    });
    EXPECT_EQ(nullptr, env.KRPFindfile(nullptr, dir.path().c_str(), kEnd));
    EXPECT_FALSE(wasFree);
    EXPECT_TRUE(gIniFileMutex.tryAcquire()) << "released at the end";
    gIniFileMutex.release();
}

TEST_F(KRPFindfile, ASinkThatSearchesItselfDoesNotBlock) {
    dir.writeFile("x");
    LogCapture capture;
    std::string found;
    nLogging::gSetSink([&](const nLogging::Record&) {
        KREnvContainerClass other;
        found = orNull(other.KRPFindfile("x", dir.path().c_str(), kEnd));
    });
    env.KRPFindfile(nullptr, dir.path().c_str(), kEnd);
    EXPECT_EQ(dir / "x", found);
}

TEST_F(KRPFindfile, ConcurrentSearchesDoNotMix) {
    constexpr int kThreads = 4;
    for (int i = 0; i < kThreads; ++i) {
        dir.makeDirectory(std::to_string(i));
        dir.writeFile(std::to_string(i) + "/file" + std::to_string(i));
    }
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            KREnvContainerClass own;
            const std::string number = std::to_string(i), list = dir / "0:" + dir / "1:" + dir / "2:" + dir / "3";
            for (int n = 0; n < 200; ++n) {
                const char* const found =
                    own.KRPFindfile(("file" + number).c_str(), "/nonexistent", list.c_str(), kEnd);
                right += orNull(found) == dir / (number + "/file" + number) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(kThreads * 200, right);
}

TEST_F(KRPResolveFilePath, PlacesTheNameInTheFirstExistingDirectory) {
    EXPECT_EQ("/tmp/x.log", orNull(env.KRPResolveFilePath("x.log", "/nonexistent:/tmp")));
    EXPECT_EQ("/tmp/x.log", orNull(env.KRPResolveFilePathNoKREnv("x.log", "/nonexistent:/tmp:/")));
    EXPECT_EQ("/tmp/x.log", orNull(env.KRPResolveFilePath("sub/x.log", "/tmp")));
    const Settings settings("LOGS = /nonexistent:/tmp\n");
    EXPECT_EQ("/tmp/x.log", orNull(env.KRPResolveFilePath("x.log", "#LOGS")));
    EXPECT_EQ("<null>", orNull(env.KRPResolveFilePathNoKREnv("x.log", "#LOGS")));
}

TEST_F(KRPResolveFilePath, IsNullWithoutAnExistingDirectory) {
    const ScopedEnv unset("KRENV_TEST_UNSET", nullptr);
    EXPECT_EQ("<null>", orNull(env.KRPResolveFilePath("x", "$KRENV_TEST_UNSET")));
    EXPECT_EQ("<null>", orNull(env.KRPResolveFilePath("x", "/nonexistent:/etc/passwd")));
    EXPECT_EQ("<null>", orNull(env.KRPResolveFilePath("x", "")));
}

TEST_F(KRPResolveFilePath, RefusesNullArgumentsWithOneErrorEach) {
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPResolveFilePath(nullptr, "/tmp"));
    EXPECT_EQ(nullptr, env.KRPResolveFilePath("x", nullptr));
    EXPECT_EQ(nullptr, env.KRPResolveFilePathNoKREnv(nullptr, "/tmp"));
    EXPECT_EQ(nullptr, env.KRPResolveFilePathNoKREnv("x", nullptr));
    expectBareErrors(log, 4);
    EXPECT_EQ(nullptr, env.KRPResolveFilePath(nullptr, nullptr));
    expectBareErrors(log, 6);
}

// --- full names -----------------------------------------------------------------------------------------------------

TEST_F(KRPGetFullName, MakesTheDirectoryAbsoluteWhateverTheSize) {
    dir.makeDirectory("sub");
    const std::string here = std::filesystem::current_path();
    char out[4096];
    EXPECT_EQ(here + "/sub/x.y", orNull(env.KRPGetFullName("sub/x.y", out, 0))) << "the file need not exist";
    EXPECT_EQ(here + "/x.y", orNull(env.KRPGetFullName("sub/../x.y", out, -1)));
    EXPECT_EQ(here + "/sub/", orNull(env.KRPGetFullName("sub", out, 1)));
    EXPECT_EQ("<null>", orNull(env.KRPGetFullName("missing/x.y", out, sizeof out)));
    EXPECT_EQ(here + "/sub/", out) << "a failure leaves the caller's text alone";
}

TEST_F(KRPGetFullName, SearchesABareNameInTheWorkingDirectoryAndIncludePath) {
    const std::string here = std::filesystem::current_path();
    const std::string include = dir.makeDirectory("include");
    const Settings settings("INCLUDE_PATH = /nonexistent:" + include + "\n");
    dir.writeFile("include/x.y");
    char out[4096];
    EXPECT_EQ(std::filesystem::canonical(include).string() + "/x.y",
              orNull(env.KRPGetFullName("x.y", out, sizeof out)));
    dir.writeFile("x.y");
    EXPECT_EQ(here + "/x.y", orNull(env.KRPGetFullName("x.y", out, sizeof out)));
    EXPECT_EQ("<null>", orNull(env.KRPGetFullName("missing", out, sizeof out)));
}

TEST_F(KRPGetFullName, TheFoundNameOfABareNameMustNotBeLongerThanTheSize) {
    dir.writeFile("x.y");
    char out[4096] = "kept";
    EXPECT_EQ("<null>", orNull(env.KRPGetFullName("x.y", out, 4))) << "./x.y has 5 characters";
    EXPECT_EQ("<null>", orNull(env.KRPGetFullName("x.y", out, -1)));
    EXPECT_STREQ("kept", out);
    EXPECT_EQ(std::filesystem::current_path().string() + "/x.y", orNull(env.KRPGetFullName("x.y", out, 5)));
}

TEST_F(KRPGetFullName, TakesAPartOfTheLastSplit) {
    dir.makeDirectory("a");
    char out[4096];
    const char* const full = env.KRPGetFullName(env.KRPGetPathDirectory("a/b.c/d.e"), out, sizeof out);
    EXPECT_EQ(std::filesystem::current_path().string() + "/a/b.c", orNull(full));
}

TEST_F(KRPGetFullName, IsEmptyForABareNameBelowTheDeepestPath) {
    const std::string text = inChild([this]() -> std::string {
        const std::string component(250, 'd');
        for (int depth = 0; depth < 20; ++depth) {
            if (mkdir(component.c_str(), 0777) != 0 || chdir(component.c_str()) != 0) return "cannot go down";
        }
        std::ofstream("x.y").close();
        char out[4096] = "left over";
        return orNull(env.KRPGetFullName("x.y", out, sizeof out));
    });
    EXPECT_EQ("", text);
}

TEST_F(KRPGetFullName, RefusesNullArguments) {
    char out[4096] = "kept";
    LogCapture log;
    EXPECT_EQ(nullptr, env.KRPGetFullName(nullptr, out, sizeof out));
    expectBareErrors(log, 1);
    EXPECT_EQ(nullptr, env.KRPGetFullName("x", nullptr, 0));
    EXPECT_STREQ("kept", out);
}

// --- file tests -----------------------------------------------------------------------------------------------------

// A socket of that name, for the length of a scope.
class ListeningSocket {
public:
    explicit ListeningSocket(const std::string& path) : descriptor_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str());
        bound_ = bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~ListeningSocket() { close(descriptor_); }
    bool bound() const { return bound_; }

private:
    int descriptor_;
    bool bound_ = false;
};

TEST_F(FileTests, KRPFileExistAcceptsAnythingThatStatCanExamine) {
    const std::string file = dir.writeFile("file");
    ASSERT_EQ(0, symlink("/nonexistent", (dir / "dangling").c_str()));
    const struct {
        std::string path;
        bool exists;
    } rows[] = {{file, true},
                {dir.path(), true},
                {"/dev/null", true},
                {dir / "missing", false},
                {dir / "dangling", false},
                {"", false},
                {file + "/x", false},
                {std::string(5000, 'x'), false}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.exists, env.KRPFileExist(row.path.c_str())) << row.path;
        EXPECT_EQ(row.exists, env.KRPFileExist(row.path.c_str(), true)) << row.path;
        EXPECT_EQ(row.exists, env.KRPFileExist(row.path.c_str(), false)) << row.path;
    }
    EXPECT_FALSE(env.KRPFileExist(nullptr));
    EXPECT_FALSE(env.KRPFileExist(nullptr, true));
}

TEST_F(FileTests, KRPIsClosedFileADirectoryTestsOneBit) {
    const ListeningSocket listening(dir / "socket");
    ASSERT_TRUE(listening.bound());
    EXPECT_TRUE(KRPIsClosedFileADirectory(dir.path().c_str()));
    EXPECT_TRUE(KRPIsClosedFileADirectory((dir / "socket").c_str())) << "sockets share the bit";
    EXPECT_FALSE(KRPIsClosedFileADirectory(dir.writeFile("file").c_str()));
    EXPECT_FALSE(KRPIsClosedFileADirectory("/dev/null"));
    EXPECT_FALSE(KRPIsClosedFileADirectory((dir / "missing").c_str()));
    EXPECT_FALSE(KRPIsClosedFileADirectory(""));
    EXPECT_FALSE(KRPIsClosedFileADirectory(nullptr));
}

TEST_F(FileTests, KRPIsClosedFileADirectoryFollowsLinks) {
    ASSERT_EQ(0, symlink(dir.makeDirectory("sub").c_str(), (dir / "link").c_str()));
    EXPECT_TRUE(KRPIsClosedFileADirectory((dir / "link").c_str()));
}

TEST_F(FileTests, KRPIsOpenFileADirectory) {
    std::FILE* const directory = std::fopen(dir.path().c_str(), "r");
    std::FILE* const file = std::fopen(dir.writeFile("file").c_str(), "r");
    ASSERT_TRUE(directory != nullptr && file != nullptr);
    EXPECT_TRUE(KRPIsOpenFileADirectory(directory));
    EXPECT_FALSE(KRPIsOpenFileADirectory(file));
    close(fileno(file));
    EXPECT_FALSE(KRPIsOpenFileADirectory(file)) << "fstat fails";
    EXPECT_FALSE(KRPIsOpenFileADirectory(nullptr));
    std::fclose(directory);
    std::fclose(file);
}

TEST_F(FileTests, FilelengthKeepsTheOffset) {
    const int fd = open(dir.writeFile("file", "0123456789").c_str(), O_RDONLY);
    EXPECT_EQ(10, filelength(fd));
    EXPECT_EQ(0, lseek(fd, 0, SEEK_CUR));
    ASSERT_EQ(4, lseek(fd, 4, SEEK_SET));
    EXPECT_EQ(10, filelength(fd));
    EXPECT_EQ(4, lseek(fd, 0, SEEK_CUR));
    close(fd);
    EXPECT_EQ(-1, filelength(fd)) << "closed";
}

TEST_F(FileTests, FilelengthAnswersIn32Bits) {
    const int fd = open((dir / "sparse").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(0, ftruncate(fd, 0x7fffffff));
    EXPECT_EQ(0x7fffffff, filelength(fd));
    ASSERT_EQ(0, ftruncate(fd, 0x80000000LL));
    EXPECT_EQ(-1, filelength(fd));
    EXPECT_EQ(0, lseek(fd, 0, SEEK_CUR));
    ASSERT_EQ(0, ftruncate(fd, 0x100000010LL));
    EXPECT_EQ(-1, filelength(fd));
    close(fd);
}

TEST_F(FileTests, FilelengthOfAPipeFails) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    EXPECT_EQ(-1, filelength(ends[0]));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(FileTests, FilesBeyond2GiBExist) {
    const int fd = open((dir / "sparse").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(0, ftruncate(fd, 0x100000010LL));
    close(fd);
    EXPECT_TRUE(env.KRPFileExist((dir / "sparse").c_str()));
}

TEST_F(FileTests, NothingIsLogged) {
    LogCapture log;
    env.KRPFileExist("/nonexistent");
    env.KRPFileExist(nullptr);
    KRPIsClosedFileADirectory("/nonexistent");
    filelength(-1);
    env.searchInPath("x", "/nonexistent");
    expectBareErrors(log, 0);
}

}  // namespace
