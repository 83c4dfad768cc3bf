// atomicFile: a file that is replaced keeps what its owner has chosen.
#include <filesystem>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "atomicFile.h"
#include "failure.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return status.st_mode & 07777;
}

class ReplaceFile : public testing::Test {
protected:
    std::size_t files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory_.path()), {}));
    }

    const TempDir directory_;
};

TEST_F(ReplaceFile, KeepsTheMode) {
    const std::string path = directory_.writeFile("a", "old");
    for (const mode_t mode : {0600U, 0644U, 0660U, 0755U}) {
        ASSERT_EQ(0, chmod(path.c_str(), mode));
        replaceFile(path, "new");
        EXPECT_EQ(mode, modeOf(path));
        EXPECT_EQ("new", readFileText(path));
    }
    EXPECT_EQ(1U, files()) << "no temporary file is left";
}

TEST_F(ReplaceFile, ANewFileHasTheUsualMode) {
    const mode_t before = umask(027);
    replaceFile(directory_ / "a", "new");
    umask(before);
    EXPECT_EQ(0640U, modeOf(directory_ / "a"));
}

TEST_F(ReplaceFile, ALinkStaysALink) {
    directory_.makeDirectory("d");
    const std::string target = directory_.writeFile("d/target", "old");
    ASSERT_EQ(0, chmod(target.c_str(), 0600));
    fs::create_symlink("d/target", directory_ / "link");
    fs::create_symlink("link", directory_ / "linkToLink");
    replaceFile(directory_ / "linkToLink", "new");
    EXPECT_EQ("new", readFileText(target));
    EXPECT_EQ(0600U, modeOf(target));
    EXPECT_TRUE(fs::is_symlink(directory_ / "link"));
    EXPECT_TRUE(fs::is_symlink(directory_ / "linkToLink"));
}

TEST_F(ReplaceFile, ALinkToNothingGetsItsFile) {
    directory_.makeDirectory("d");
    fs::create_symlink("d/target", directory_ / "link");
    replaceFile(directory_ / "link", "new");
    EXPECT_EQ("new", readFileText(directory_ / "d/target"));
    EXPECT_TRUE(fs::is_symlink(directory_ / "link"));
}

TEST_F(ReplaceFile, WhatCannotBeWrittenIsAFailureAndStays) {
    directory_.makeDirectory("d/full");
    EXPECT_THROW(replaceFile(directory_ / "d", "new"), Failure);
    EXPECT_THROW(replaceFile(directory_ / "none/a", "new"), Failure);
    EXPECT_EQ(1U, files());
    fs::create_symlink("loop", directory_ / "loop");
    EXPECT_THROW(replaceFile(directory_ / "loop/a", "new"), Failure);
}

}  // namespace
