// stats --record as its users run it.
#include <algorithm>
#include <csignal>
#include <string>

#include "judgement/findings.h"
#include "pmenv/PmenvTest.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/LoadEngine.h"
#include "support/TempDir.h"
#include "support/TerminalRun.h"

using json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

long linesIn(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

// The outcome is what the evidence was judged while it was gathered.
TEST(PmenvStatsRecord, IsJudgedDrawnAndExportedLikeOneOfJudge) {
    LoadEngine busy("burn");
    const std::string pid = std::to_string(busy.pid());
    const TempDir dir;
    const ProgramResult result = runPmenv({"stats", "--json", "--duration", "2", "--record", dir / "run"});
    busy.stop();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_GE(linesIn(result.out), 2);

    const ReadRecording read = readRecording(dir / "run");
    ASSERT_TRUE(read.outcome);
    EXPECT_TRUE(read.warnings.empty());
    EXPECT_EQ(read.header.limits.percentile, 99);
    EXPECT_GE(read.run.back().to, 2);
    EXPECT_GT(read.outcome->cpuSeconds, 0);

    const json judged = json::parse(runPmenv({"judge", dir / "run", "--json"}).out);
    EXPECT_EQ(judged.at("verdict"), outcomeText(read.outcome->outcome));
    EXPECT_EQ(judged.at("believedPercentile"), read.outcome->believed ? json(*read.outcome->believed) : json());
    EXPECT_EQ(judged.at("recording").at("complete"), true);
    EXPECT_THAT(judged.at("engines").dump(), HasSubstr("\"pid\":" + pid + ","));
    EXPECT_THAT(runPmenv({"chart", dir / "run"}).out, StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(runPmenv({"export", dir / "run", "--openmetrics"}).out, HasSubstr(",pid=\"" + pid + "\"} "));
}

TEST(PmenvStatsRecord, ASignalEndsTheRecordingAndTheProgram) {
    const TempDir dir;
    const ProgramResult result =
        runProgram({"/bin/sh", "-c",
                    "\"$0\" stats --csv --count 0 --record \"$1\" & "
                    "for i in $(seq 300); do \"$0\" mark here --record \"$1\" 2>&- && break; sleep 0.1; done; "
                    "kill -TERM $!; wait $!",
                    PMENV_BINARY, dir / "run"},
                   {{"NO_COLOR", "1"}});
    EXPECT_EQ(result.status, 128 + SIGTERM);
    const ReadRecording read = readRecording(dir / "run");
    EXPECT_TRUE(read.outcome);
    EXPECT_EQ(read.marks.size(), 1U);
}

TEST(PmenvStatsRecord, TheEndOfTheLiveScreenEndsIt) {
    const TempDir dir;
    TerminalRun screen({PMENV_BINARY, "stats", "--watch", "--record", dir / "run"}, {{"TERM", "xterm"}}, 100, 30);
    ASSERT_TRUE(screen.waitFor("q quits"));
    screen.type("q");
    EXPECT_EQ(screen.finish(), 0);
    EXPECT_TRUE(readRecording(dir / "run").outcome);
}

TEST(PmenvStatsRecord, MeasuresNothingWithoutAPlaceForIt) {
    const ProgramResult result = runPmenv({"stats", "--count", "0", "--record", "/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "pmenv: cannot record to /dev/full: No space left on device\n");
}

// Room for the header and little more.
constexpr char kLimited[] = "ulimit -f 2; exec \"$@\"";

TEST(PmenvStatsRecord, ThatEndsEarlyLeavesTheFiguresAsTheyAre) {
    const LoadEngine idle("idle");
    const TempDir dir;
    // Through a pipe, because the output, too, would be a file that may not grow.
    const ProgramResult result =
        runProgram({"/bin/bash", "-o", "pipefail", "-c",
                    "ulimit -f 1; printf 'a line\n' | { \"$@\" | wc -l; code=$?; cat; exit $code; }", "bash",
                    PMENV_BINARY, "stats", "--json", "--count", "2", "--record", dir / "run"},
                   {{"NO_COLOR", "1"}});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "2\na line\n") << "nothing reads what is typed meanwhile";
    EXPECT_EQ(result.err,
              "pmenv: warning: the recording " + dir / "run" + " ends here: File too large; the watch goes on\n");
}

// What is said on the screen goes with it.
TEST(PmenvStatsRecord, ThatEndsEarlyIsToldBehindTheLiveScreen) {
    const LoadEngine idle("idle");
    const TempDir dir;
    TerminalRun screen(
        {"/bin/sh", "-c", kLimited, "sh", PMENV_BINARY, "stats", "--watch", "--count", "2", "--record", dir / "run"},
        {{"TERM", "xterm"}}, 100, 30);
    EXPECT_EQ(screen.finish(), 1);
    const std::size_t left = screen.output().rfind("\x1b[?1049l");
    ASSERT_NE(left, std::string::npos);
    EXPECT_THAT(screen.output().substr(left), HasSubstr("the recording " + dir / "run" + " ended before the watch"));
}

}  // namespace
