// Recordings on full disks, and marks that others add.
#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <future>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "failure.h"
#include "kernel/files.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "recording/line.h"
#include "support/TempDir.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

template <class Action>
std::string failureOf(Action action) {
    try {
        action();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "";
}

// --- full disks -----------------------------------------------------------------------------------------------------

TEST(RecordingWriter, ThatCannotBeginSaysWhy) {
    const TempDir dir;
    EXPECT_EQ(failureOf([] { RecordingWriter("/dev/full", someHeader()); }),
              "cannot record to /dev/full: No space left on device");
    EXPECT_THAT(failureOf([&] { RecordingWriter(dir.path(), someHeader()); }), EndsWith(": Is a directory"));
    EXPECT_THAT(failureOf([&] { RecordingWriter(dir / "none/run", someHeader()); }),
                EndsWith("/none/run: No such file or directory"));
}

int nextDescriptor() {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(descriptor);
    return descriptor;
}

TEST(RecordingWriter, LeavesNoFileOpenAndNoProgram) {
    const TempDir dir;
    const int before = nextDescriptor();
    record(dir / "run", RandomRun(1).of(3));
    failureOf([] { RecordingWriter("/dev/full", someHeader()); });
    EXPECT_EQ(nextDescriptor(), before);
    struct stat file {};
    ASSERT_EQ(stat((dir / "run").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0111U, 0U);
}

[[noreturn]] void recordWithoutInput(const std::string& path) {
    close(STDIN_FILENO);
    failureOf([] { RecordingWriter("/dev/full", someHeader()); });
    const std::string failure = failureOf([&] { record(path, RandomRun(1).of(3)); });
    std::fputs(failure.c_str(), stderr);
    _exit(nextDescriptor() == STDIN_FILENO ? 0 : 1);
}

TEST(RecordingWriter, RecordsInAProgramWithoutStandardInput) {
    const TempDir dir;
    const std::string path = dir / "run";
    EXPECT_EXIT(recordWithoutInput(path), testing::ExitedWithCode(0), "^$");
    EXPECT_EQ(readRecording(path).run.size(), 3U);
}

// In a child, because the limit is the whole process's.
[[noreturn]] void recordWithinLimit(const std::string& path, const std::vector<Evidence>& run) {
    const rlimit limit{8000, 8000};
    setrlimit(RLIMIT_FSIZE, &limit);
    RecordingWriter writer(path, someHeader());
    for (const Evidence& evidence : run) writer.write(evidence);
    writer.write(RecordedOutcome{});
    _exit(writer.complete() ? 1 : 0);
}

TEST(RecordingWriter, TellsOnceThatNothingMoreCanBeWritten) {
    const TempDir dir;
    const std::vector<Evidence> run = RandomRun(5).of(60);
    const std::string path = dir / "run";
    EXPECT_EXIT(recordWithinLimit(path, run), testing::ExitedWithCode(0),
                "^pmenv: warning: the recording .*/run ends here: File too large; the watch goes on\n$");
    const ReadRecording read = readRecording(path);
    EXPECT_GT(read.run.size(), 1U);
    EXPECT_LT(read.run.size(), run.size());
    EXPECT_EQ(describe(read.run), describe({run.begin(), run.begin() + static_cast<std::ptrdiff_t>(read.run.size())}));
    EXPECT_EQ(read.warnings.size(), 1U);
}

TEST(RecordingWriter, WhoseReaderHasGoneGoesOn) {
    const TempDir dir;
    const std::string path = dir / "pipe";
    mkfifo(path.c_str(), 0600);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    RecordingWriter writer(path, someHeader());
    close(reader);
    testing::internal::CaptureStderr();
    writer.write(Mark{1, "x"});
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("ends here: Broken pipe"));
    EXPECT_FALSE(writer.complete());
}

TEST(RecordingWriter, LeavesSignalsAsTheyWere) {
    const TempDir dir;
    sigset_t blocked, before, after;
    sigemptyset(&blocked);
    for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&blocked, signal);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    sigprocmask(SIG_SETMASK, nullptr, &before);
    RecordingWriter writer(dir / "run", someHeader());
    sigprocmask(SIG_SETMASK, nullptr, &after);
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGTERM}) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal));
    }
}

TEST(RecordingWriter, WritesWholeLinesAtOnce) {
    const TempDir dir;
    RecordingWriter writer(dir / "run", someHeader());
    for (const Evidence& evidence : RandomRun(1).of(20)) {
        writer.write(evidence);
        EXPECT_THAT(readFileText(dir / "run"), EndsWith("}\n"));
    }
}

void ignoreSignal(int) {}

// Reads all of a pipe, after what fills it was interrupted by signals several times.
std::string readAfterInterruptions(int pipe, pthread_t writer) {
    for (int i = 0; i < 20; ++i) {
        pthread_kill(writer, SIGUSR1);
        usleep(2000);
    }
    std::string all(1 << 20, '\0');
    std::size_t length = 0;
    for (ssize_t count; (count = read(pipe, &all[length], all.size() - length)) > 0;) {
        length += static_cast<std::size_t>(count);
    }
    return all.substr(0, length);
}

// A pipe takes a part of it, until there is a reader; a signal ends the wait for one.
TEST(AppendedLine, GoesOnWhereASignalInterruptedIt) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = ignoreSignal;
    sigaction(SIGUSR1, &action, &before);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    auto received = std::async(std::launch::async, readAfterInterruptions, ends[0], pthread_self());
    const std::string line(200'000, 'x');
    EXPECT_EQ(recording::appendLine(ends[1], line), 0);
    close(ends[1]);
    EXPECT_TRUE(received.get() == line + "\n");
    close(ends[0]);
    sigaction(SIGUSR1, &before, nullptr);
}

// --- marks ----------------------------------------------------------------------------------------------------------

RecordingHeader headerOfNow() { return headerOfThisHost({}, {}, {}); }

TEST(AppendedMark, LiesOnTheClockOfTheWatch) {
    const TempDir dir;
    RecordingHeader header = headerOfNow();
    header.clock -= 100;
    header.start += std::chrono::hours(5);  // somebody has set the time meanwhile
    record(dir / "run", RandomRun(1).of(3), header, false);
    appendMark(dir / "run", "a mark\xff\n");
    const ReadRecording read = readRecording(dir / "run");
    ASSERT_EQ(read.marks.size(), 1U);
    EXPECT_EQ(read.marks[0].text, "a mark\xff\n");
    EXPECT_NEAR(read.marks[0].time, 100, 50);
    EXPECT_EQ(read.run.size(), 3U);
}

TEST(AppendedMark, OfAnotherHostGoesByTheTimeOfDay) {
    const TempDir dir;
    RecordingHeader header = headerOfNow();
    header.boot = "another";
    header.clock += 12345;
    header.start -= std::chrono::seconds(200);
    record(dir / "run", {}, header, false);
    appendMark(dir / "run", "x");
    EXPECT_NEAR(readRecording(dir / "run").marks.at(0).time, 200, 50);
}

TEST(AppendedMark, ComesBetweenLinesThatAreWritten) {
    const TempDir dir;
    const std::vector<Evidence> run = RandomRun(2).of(50);
    RecordingWriter writer(dir / "run", headerOfNow());
    for (const Evidence& evidence : run) {
        writer.write(evidence);
        appendMark(dir / "run", "m");
    }
    const ReadRecording read = readRecording(dir / "run");
    EXPECT_EQ(read.marks.size(), 50U);
    EXPECT_EQ(describe(read.run), describe(run));
}

// In a child, because the limit is the whole process's.
[[noreturn]] void markWithinLimit(const std::string& path, std::size_t room) {
    const rlim_t size = readFileText(path).size() + room;
    const rlimit limit{size, size};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string failure = failureOf([&] { appendMark(path, "a mark that does not fit"); });
    std::fputs(failure.c_str(), stderr);
    _exit(0);
}

// The watch's next line stood behind half a mark, and the recording could not be read any more.
TEST(AppendedMark, ThatDoesNotFitLeavesNothingBehind) {
    const TempDir dir;
    const std::vector<Evidence> run = RandomRun(2).of(2);
    const std::string path = dir / "run";
    RecordingWriter writer(path, headerOfNow());
    writer.write(run[0]);
    for (const std::size_t room : {0U, 1U, 20U}) {
        EXPECT_EXIT(markWithinLimit(path, room), testing::ExitedWithCode(0),
                    "no mark was added to .*/run: File too large");
    }
    writer.write(run[1]);
    EXPECT_EQ(describe(readRecording(path).run), describe(run));
}

TEST(AppendedMark, LeavesNoFileOpen) {
    const TempDir dir;
    record(dir / "run", RandomRun(1).of(3), headerOfNow(), false);
    const int before = nextDescriptor();
    appendMark(dir / "run", "x");
    EXPECT_EQ(nextDescriptor(), before);
}

// The watch is just writing it.
TEST(AppendedMark, WaitsForTheEndOfALineThatIsSeenInPart) {
    const TempDir dir;
    record(dir / "run", RandomRun(1).of(3), headerOfNow(), false);
    const std::string whole = readFileText(dir / "run");
    dir.writeFile("run", whole.substr(0, whole.size() - 10));
    std::thread watch([&] {
        usleep(100'000);
        std::ofstream(dir / "run", std::ios::app) << whole.substr(whole.size() - 10);
    });
    EXPECT_EQ(failureOf([&] { appendMark(dir / "run", "x"); }), "");
    watch.join();
    EXPECT_EQ(readFileText(dir / "run").substr(0, whole.size()), whole);
    EXPECT_EQ(readRecording(dir / "run").marks.size(), 1U);
}

[[noreturn]] void markWithoutInput(const std::string& path) {
    close(STDIN_FILENO);
    const std::string failure = failureOf([&] { appendMark(path, "x"); });
    std::fputs(failure.c_str(), stderr);
    _exit(nextDescriptor() == STDIN_FILENO ? 0 : 1);
}

TEST(AppendedMark, IsAddedByAProgramWithoutStandardInput) {
    const TempDir dir;
    record(dir / "run", RandomRun(1).of(3), headerOfNow(), false);
    const std::string path = dir / "run";
    EXPECT_EXIT(markWithoutInput(path), testing::ExitedWithCode(0), "^$");
    EXPECT_EQ(readRecording(path).marks.size(), 1U);
}

TEST(AppendedMark, IsRefusedWhereNoWatchGoesOn) {
    const TempDir dir;
    const auto failure = [&](const std::string& name) {
        const std::string before = readFileText(dir / name);
        const std::string text = failureOf([&] { appendMark(dir / name, "x"); });
        EXPECT_EQ(readFileText(dir / name), before) << name;
        return text;
    };
    EXPECT_THAT(failure("none"), EndsWith("/none: No such file or directory"));
    record(dir / "over", RandomRun(1).of(3), headerOfNow());
    EXPECT_THAT(failure("over"), EndsWith("/over: its watch is over"));
    dir.writeFile("cut", readFileText(dir / "over").substr(0, 1000));
    EXPECT_THAT(failure("cut"), EndsWith("/cut: its last line is cut off, so that its watch is over"));
    record(dir / "plain", RandomRun(1).of(3), headerOfNow(), false);
    const std::string plain = readFileText(dir / "plain");
    const gzFile compressed = gzopen((dir / "compressed").c_str(), "wb");
    gzwrite(compressed, plain.data(), static_cast<unsigned>(plain.size()));
    gzclose(compressed);
    EXPECT_THAT(failure("compressed"), EndsWith("/compressed: it is compressed, so that its watch is over"));
    dir.writeFile("foreign", "a diary\n");
    EXPECT_THAT(failure("foreign"), HasSubstr("/foreign:1:1: "));
    dir.writeFile("empty");
    EXPECT_THAT(failure("empty"), HasSubstr("/empty:1:1: the file is empty"));
}

}  // namespace
