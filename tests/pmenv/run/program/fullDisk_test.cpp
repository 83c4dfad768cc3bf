// What records on a real disk that is full: one of a page, in a mount namespace of the test's own.
#include <algorithm>
#include <string>

#include "pmenv/PmenvTest.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/TempDir.h"

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr std::size_t kPage = 4096;

// In namespaces of its own, where no engine of another test runs. Each engine makes the lines longer, so that a few of them
// fill the page.
class FullDisk : public testing::Test {
protected:
    void SetUp() override {
        directory_.makeDirectory("disk");
        if (onTheDisk("true").status != 0) GTEST_SKIP() << "no disk can be mounted in a namespace here";
    }

    // Runs the script, for which $0 is pmenv and $1 the recording, and copies the recording off the disk.
    ProgramResult onTheDisk(const std::string& script) const {
        return runProgram(
            {"/usr/bin/unshare", "--user", "--map-root-user", "--mount", "--pid", "--fork", "--mount-proc", "/bin/sh",
             "-c",
             "mount -t tmpfs -o size=4k tiny \"$2/disk\" || exit 99; "
             "for i in 1 2 3 4 5 6 7 8 9 10 11 12; do { " LOAD_ENGINE " idle & } | head -n 1 >/dev/null; done; " +
                 script + "; code=$?; cp \"$1\" \"$2/copy\" 2>/dev/null; exit $code",
             PMENV_BINARY, directory_ / "disk/run", directory_.path()},
            {{"NO_COLOR", "1"}});
    }

    // The recording fills the disk and is whole up to there.
    void expectWhatFits() const {
        const std::string text = readFileText(directory_ / "copy");
        EXPECT_EQ(text.back(), '\n');
        EXPECT_GT(text.size(), kPage / 2);
        EXPECT_LE(text.size(), kPage);
        const ReadRecording read = readRecording(directory_ / "copy");
        EXPECT_FALSE(read.outcome);
        EXPECT_THAT(read.warnings, testing::ElementsAre(HasSubstr("the recording breaks off at second ")));
        ASSERT_FALSE(read.run.empty());
        for (std::size_t i = 1; i < read.run.size(); ++i) EXPECT_EQ(read.run[i].from, read.run[i - 1].to);
    }

    TempDir directory_;
};

std::string endsHere(const std::string& path) {
    return "pmenv: warning: the recording " + path + " ends here: No space left on device; the watch goes on\n";
}

TEST_F(FullDisk, EndsTheRecordingAndNotTheWatch) {
    const ProgramResult result = onTheDisk("\"$0\" judge --duration 2 --record \"$1\"");
    EXPECT_THAT(result.status, AnyOf(1, 3, 4));
    EXPECT_THAT(result.err, HasSubstr(endsHere(directory_ / "disk/run")));
    EXPECT_THAT(result.out, HasSubstr("watched "));
    expectWhatFits();
}

TEST_F(FullDisk, LeavesTheExitCodeOfTheCommand) {
    const ProgramResult result = onTheDisk("\"$0\" judge --record \"$1\" -- sh -c 'sleep 2; exit 42'");
    EXPECT_EQ(result.status, 42);
    EXPECT_THAT(result.err, AllOf(HasSubstr(endsHere(directory_ / "disk/run")), HasSubstr("exit code 42")));
    expectWhatFits();
}

TEST_F(FullDisk, LeavesTheFigures) {
    const ProgramResult result = onTheDisk("\"$0\" stats --json --count 2 --record \"$1\"");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, endsHere(directory_ / "disk/run"));
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
    expectWhatFits();
}

// Otherwise the next line of the watch would stand behind half a mark, and the recording could not be read.
TEST_F(FullDisk, TakesNoHalfMark) {
    const ProgramResult result = onTheDisk(
        "\"$0\" judge --duration 2 --record \"$1\" >/dev/null 2>&1 & "
        "for i in $(seq 300); do \"$0\" mark small --record \"$1\" 2>/dev/null && break; sleep 0.1; done; "
        "\"$0\" mark \"$(head -c 4000 /dev/zero | tr '\\0' x)\" --record \"$1\"; code=$?; wait; (exit $code)");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "pmenv: no mark was added to " + directory_ / "disk/run" + ": No space left on device\n");
    expectWhatFits();
    EXPECT_EQ(readRecording(directory_ / "copy").marks.size(), 1U);
}

}  // namespace
