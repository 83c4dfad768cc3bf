// atomicFile: a file that is replaced keeps what its owner has chosen.
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "atomicFile.h"
#include "failure.h"
#include "support/InChild.h"
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
    EXPECT_EQ(027U, umask(0)) << "it is left as it was";
    replaceFile(directory_ / "b", "new");
    umask(before);
    EXPECT_EQ(0640U, modeOf(directory_ / "a"));
    EXPECT_EQ(0666U, modeOf(directory_ / "b"));
}

// A collector that reads all files of a directory, or all with some ending, skips it.
TEST_F(ReplaceFile, TheTemporaryFileStandsBesideItAndIsHidden) {
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, directory_.path().c_str(), IN_CREATE), 0);
    replaceFile(directory_ / "name.prom", "new");
    alignas(inotify_event) char events[4096];
    const ssize_t length = read(watch, events, sizeof events);
    close(watch);
    ASSERT_GT(length, 0);
    const std::string name = reinterpret_cast<const inotify_event*>(events)->name;
    EXPECT_EQ(0U, name.find(".name.prom."));
    EXPECT_NE(".prom", fs::path(name).extension());
}

TEST_F(ReplaceFile, LeavesNoDescriptorOpen) {
    const auto next = [] {
        const int descriptor = dup(STDERR_FILENO);
        close(descriptor);
        return descriptor;
    };
    const int before = next();
    replaceFile(directory_ / "a", "new");
    EXPECT_EQ(before, next());
}

TEST_F(ReplaceFile, WorksWithoutStandardInput) {
    EXPECT_EQ("done", inChild([this] {
                  close(STDIN_FILENO);
                  replaceFile(directory_ / "a", "new");
                  return std::string(dup(STDERR_FILENO) == STDIN_FILENO ? "done" : "the descriptor is still open");
              }));
    EXPECT_EQ("new", readFileText(directory_ / "a"));
    EXPECT_EQ(1U, files());
}

TEST_F(ReplaceFile, WhatFitsOnlyInPartLeavesTheOldFile) {
    const std::string path = directory_.writeFile("a", "old");
    EXPECT_EQ("cannot write " + path + ": File too large", inChild([&] {
                  std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit three{3, 3};
                  setrlimit(RLIMIT_FSIZE, &three);
                  try {
                      replaceFile(path, "longer");
                      return std::string("written");
                  } catch (const Failure& failure) {
                      return std::string(failure.what());
                  }
              }));
    EXPECT_EQ("old", readFileText(path));
    EXPECT_EQ(1U, files());
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

TEST_F(ReplaceFile, ACircleOfLinksStays) {
    fs::create_symlink("loop", directory_ / "loop");
    try {
        replaceFile(directory_ / "loop", "new");
        ADD_FAILURE() << "a link was replaced by a file";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.what(), "cannot write " + (directory_ / "loop") + ": Too many levels of symbolic links");
    }
    EXPECT_TRUE(fs::is_symlink(directory_ / "loop"));
}

// The system follows 40.
TEST_F(ReplaceFile, AsManyLinksAreFollowedAsTheSystemDoes) {
    const std::string file = directory_.writeFile("0", "old");
    for (int i = 1; i <= 41; ++i) fs::create_symlink(std::to_string(i - 1), directory_ / std::to_string(i));
    replaceFile(directory_ / "40", "new");
    EXPECT_EQ("new", readFileText(file));
    EXPECT_THROW(replaceFile(directory_ / "41", "newer"), Failure);
    EXPECT_EQ("new", readFileText(file));
    EXPECT_TRUE(fs::is_symlink(directory_ / "1"));
}

}  // namespace
