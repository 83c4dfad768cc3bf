// judge --record, judge FILE... and mark as their users run them.
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "pmenv/PmenvTest.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/LoadEngine.h"
#include "support/TempDir.h"

using json = nlohmann::json;
using testing::AllOf;
using testing::AnyOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

json judgedJson(const Words& words) {
    Words all{"judge", "--json"};
    all.insert(all.end(), words.begin(), words.end());
    const ProgramResult result = runPmenv(all);
    const json judged = json::parse(result.out);
    EXPECT_EQ(judged.at("exitCode"), result.status);
    return judged;
}

// Ten seconds in which the engine did this in its first second, and was idle then.
std::vector<Evidence> runThat(const Did& did) {
    std::vector<Evidence> evidences;
    MadeRun().each(10, [&](Evidence& evidence) {
        evidence.engines.push_back(engineThat(evidence.from < 1 ? did : Did{5}, evidence.from));
        evidences.push_back(asRecorded(evidence));
    });
    return evidences;
}

RecordingHeader headerOf(const std::string& host) {
    RecordingHeader header = someHeader();
    header.host = host;
    return header;
}

const Did kIdle{5};
const Did kStopped{0, 0, 0, 0, 100};

// --- one ------------------------------------------------------------------------------------------------------------

TEST(PmenvJudgeRecording, GivesExactlyTheLiveVerdict) {
    const LoadEngine busy("burn");
    const LoadEngine idle("idle");
    const TempDir dir;
    const std::vector<Words> choices = {{}, {"--engine", "no-such-program", "--percentile", "50", "--cpu-limit", "1"}};
    for (const Words& choice : choices) {
        Words words{"--duration", "2", "--record", dir / "run"};
        words.insert(words.end(), choice.begin(), choice.end());
        const json live = judgedJson(words);
        json again = judgedJson({dir / "run"});
        EXPECT_EQ(again.at("recording"), (json{{"file", dir / "run"}, {"complete", true}}));
        again.erase("recording");
        EXPECT_EQ(again, live);
    }
}

TEST(PmenvJudgeRecording, TakesOtherLimits) {
    const TempDir dir;
    record(dir / "run", runThat(kStopped));
    EXPECT_EQ(judgedJson({dir / "run"}).at("verdict"), "spoiled");
    EXPECT_EQ(judgedJson({dir / "run", "--percentile", "80"}).at("verdict"), "clean");
    EXPECT_EQ(judgedJson({dir / "run", "--percentile", "80", "--engines", "2"}).at("verdict"), "spoiled");
}

TEST(PmenvJudgeRecording, KeepsTheLimitsThatItWasRecordedWith) {
    const TempDir dir;
    RecordingHeader header = someHeader();
    header.limits.percentile = 80;
    record(dir / "run", runThat(kStopped), header);
    EXPECT_EQ(judgedJson({dir / "run"}).at("percentile"), 80);
    EXPECT_EQ(judgedJson({dir / "run"}).at("verdict"), "clean");
    EXPECT_EQ(judgedJson({dir / "run", "--percentile", "99"}).at("verdict"), "spoiled");
}

TEST(PmenvJudgeRecording, RefusesAnotherTolerance) {
    const TempDir dir;
    record(dir / "run", runThat(kIdle));
    EXPECT_EQ(runPmenv({"judge", dir / "run", "--tolerance", "10"}).status, 0);
    const ProgramResult result = runPmenv({"judge", dir / "run", "--tolerance", "20"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("was recorded with a tolerance of 10 ms, by which late turns were counted"));
}

TEST(PmenvJudgeRecording, CanBeNarrowed) {
    const TempDir dir;
    record(dir / "run", runThat(kStopped));
    const json beginning = judgedJson({dir / "run", "--to", "4"});
    EXPECT_EQ(beginning.at("seconds"), 4);
    EXPECT_EQ(beginning.at("heldBackShare"), 0.25);
    EXPECT_TRUE(beginning.at("watcher").at("cpuSeconds").is_null());
    EXPECT_EQ(judgedJson({dir / "run", "--to", "3.9"}).at("seconds"), 3.75) << "whole intervals";
    for (const char* const option : {"--from", "--skip"}) {
        const json later = judgedJson({dir / "run", option, "2"});
        EXPECT_EQ(later.at("from"), 2);
        EXPECT_EQ(later.at("seconds"), 8);
        EXPECT_EQ(later.at("heldBackShare"), 0);
        EXPECT_EQ(later.at("watcher").at("cpuSeconds"), 0.125);
    }
}

TEST(PmenvJudgeRecording, ThatBreaksOffIsJudgedAndTold) {
    const TempDir dir;
    record(dir / "run", runThat(kIdle), someHeader(), false);
    const ProgramResult result = runPmenv({"judge", dir / "run", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "pmenv: warning: " + (dir / "run") +
                              ": the recording breaks off at second 10; what the watch saw afterwards is not in it\n");
    EXPECT_EQ(json::parse(result.out).at("recording").at("complete"), false);
    EXPECT_TRUE(json::parse(result.out).at("watcher").at("cpuSeconds").is_null());
}

TEST(PmenvJudgeRecording, ThatIsDamagedIsRefused) {
    const TempDir dir;
    record(dir / "run", runThat(kIdle));
    dir.writeFile("run", readFileText(dir / "run") + "what?\n");
    const ProgramResult result = runPmenv({"judge", dir / "run"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "pmenv: " + (dir / "run") + ":43:1: Invalid value.\n");
}

// Names of any bytes but NUL.
std::string everyByte() {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    return bytes;
}

class HostileRecording : public testing::Test {
protected:
    HostileRecording() {
        RecordingHeader header = headerOf(everyByte());
        header.command = header.ignored = header.choice.names = {everyByte(), "]]></failure><script>x</script>"};
        std::vector<Evidence> evidences = runThat(kStopped);
        for (Evidence& evidence : evidences) {
            evidence.engines[0].name = evidence.engines[0].busiest->name = everyByte();
            evidence.engines[0].group.throttledGroup = everyByte();
            evidence.others = {{everyByte(), 1, 1}};
            evidence.missingNames = {everyByte()};
        }
        RecordingWriter writer(path_, header);
        for (const Evidence& evidence : evidences) writer.write(evidence);
        writer.write(Mark{2, everyByte()});
        writer.write(RecordedOutcome{Outcome::Clean, 100.0, 0.125});
    }

    void expectWellFormed(const std::string& file) const {
        ASSERT_TRUE(isInstalled("/usr/bin/xmllint"));
        EXPECT_EQ(runProgram({"/usr/bin/xmllint", "--noout", "--nonet", file}).err, "");
    }

    TempDir dir_;
    std::string path_ = dir_ / "run";
};

TEST_F(HostileRecording, IsShownEscaped) {
    const std::string text = runPmenv({"judge", path_}).out;
    EXPECT_THAT(text, HasSubstr("\\x01\\x02\\x03\\x04\\x05\\x06\\x07\\x08\\t\\n"));
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

// Which bytes are no text cannot be said in JSON; everything else is as it was.
TEST_F(HostileRecording, IsValidJson) {
    const json engine = judgedJson({path_}).at("engines")[0];
    EXPECT_EQ(engine.at("name").get<std::string>().substr(0, 0x7f), everyByte().substr(0, 0x7f));
}

TEST_F(HostileRecording, IsAValidReport) {
    EXPECT_EQ(runPmenv({"judge", path_, "--junit", dir_ / "report.xml"}).status, 3);
    EXPECT_THAT(readFileText(dir_ / "report.xml"), HasSubstr("(\\x01\\x02"));
    expectWellFormed(dir_ / "report.xml");
}

TEST_F(HostileRecording, IsAValidPage) {
    const ProgramResult page = runPmenv({"chart", path_});
    EXPECT_EQ(page.status, 0) << page.err;
    EXPECT_EQ(page.out.find("<script"), std::string::npos);
    expectWellFormed(dir_.writeFile("page.xml", page.out));
}

// --- several --------------------------------------------------------------------------------------------------------

TEST(PmenvJudgeRecordings, TheWorstComesFirstAndDecides) {
    const TempDir dir;
    record(dir / "clean", runThat(kIdle), headerOf("gen1"));
    record(dir / "short", {runThat(kIdle)[0]}, headerOf("gen2"));
    record(dir / "spoiled", runThat(kStopped), headerOf("gen3"));
    const struct {
        Words files;
        int status;
        const char* verdict;
    } rows[] = {
        {{"clean", "clean"}, 0, "clean: all 2 load generators kept their schedule\n"},
        {{"clean", "short"},
         4,
         "cannot tell: of 1 of 2 load generators it cannot be told whether they kept their schedule\n"},
        {{"clean", "short", "spoiled"}, 3, "spoiled: 1 of 3 load generators spoiled the run\n"},
    };
    for (const auto& row : rows) {
        Words words{"judge"};
        for (const std::string& file : row.files) words.push_back(dir / file);
        const ProgramResult result = runPmenv(words);
        EXPECT_EQ(result.status, row.status);
        EXPECT_THAT(result.out, StartsWith(row.verdict));
    }
    const std::string text = runPmenv({"judge", dir / "clean", dir / "short", dir / "spoiled"}).out;
    EXPECT_LT(text.find("gen3"), text.find("gen2"));
    EXPECT_LT(text.find("gen2"), text.find("gen1"));
    EXPECT_THAT(text, HasSubstr("percentiles up to p90 can be believed; p99 was asked for"));

    const json judged = judgedJson({dir / "clean", dir / "short", dir / "spoiled"});
    EXPECT_EQ(judged.at("verdict"), "spoiled");
    ASSERT_EQ(judged.at("generators").size(), 3U);
    EXPECT_EQ(judged.at("generators")[0], judgedJson({dir / "spoiled"}));
    EXPECT_EQ(judged.at("generators")[2], judgedJson({dir / "clean"}));
}

TEST(PmenvJudgeRecordings, TheTableHasALineForEach) {
    const TempDir dir;
    record(dir / "clean", runThat(kIdle), headerOf("gen1"));
    record(dir / "short", {runThat(kIdle)[0]}, headerOf("gen2"));
    record(dir / "none", {}, headerOf("gen3"));
    record(dir / "spoiled", runThat(kStopped), headerOf("gen4"));
    const ScopedCwd here(dir.path());
    EXPECT_EQ(
        runPmenv({"judge", "clean", "short", "none", "spoiled"}).out,
        "spoiled: 1 of 4 load generators spoiled the run\n\n"
        "VERDICT      HOST  ENGINES  WATCHED  RECORDING  REASON\n"
        "spoiled      gen4        1     10 s  spoiled    percentiles up to p90 can be believed; p99 was asked for\n"
        "cannot tell  gen2        1    0.2 s  short      the watch was too short: 0.2 s\n"
        "cannot tell  gen3        0      0 s  none       the watch was too short: 0 s\n"
        "clean        gen1        1     10 s  clean      no percentile is in doubt; p99 was asked for; descriptors "
        "and local ports could not be read\n");
    EXPECT_EQ(runPmenv({"judge", "short", "clean", "none"}).status, 4);
}

// Of those with the same verdict, the one that was held back more.
TEST(PmenvJudgeRecordings, TheMoreAGeneratorWasHeldBackTheEarlierItComes) {
    const TempDir dir;
    record(dir / "less", runThat(kStopped), headerOf("gen1"));
    std::vector<Evidence> half = runThat(kStopped);
    half.resize(20);
    record(dir / "more", half, headerOf("gen2"));
    for (const Words& files : {Words{"less", "more"}, Words{"more", "less"}}) {
        const json judged = judgedJson({dir / files[0], dir / files[1]});
        EXPECT_EQ(judged.at("generators")[0].at("host"), "gen2");
        EXPECT_EQ(judged.at("generators")[1].at("host"), "gen1");
    }
}

TEST(PmenvJudgeRecordings, ReportsHaveACaseForEach) {
    const TempDir dir;
    record(dir / "clean", runThat(kIdle), headerOf("gen1"));
    record(dir / "spoiled", runThat(kStopped), headerOf("gen2"));
    EXPECT_EQ(runPmenv({"judge", dir / "clean", dir / "spoiled", "--junit", dir / "report"}).status, 3);
    EXPECT_THAT(readFileText(dir / "report"), AllOf(HasSubstr("tests=\"2\" failures=\"1\" errors=\"0\""),
                                                    HasSubstr("name=\"gen1\""), HasSubstr("name=\"gen2\"")));
}

// --- options --------------------------------------------------------------------------------------------------------

TEST(PmenvJudgeRecording, WrongUsageIsRefused) {
    const TempDir dir;
    record(dir / "run", runThat(kIdle));
    const struct {
        Words words;
        const char* error;
    } rows[] = {
        {{"judge", dir / "run", "--duration", "5"}, "--duration is for a watch, and a recording is judged here"},
        {{"judge", dir / "run", "--engine", "x"}, "--engine is for a watch, and a recording is judged here"},
        {{"judge", dir / "run", "--pid", "1"}, "--pid is for a watch, and a recording is judged here"},
        {{"judge", dir / "run", "--ignore-thread", "x"},
         "--ignore-thread is for a watch, and a recording is judged here"},
        {{"judge", dir / "run", "--record", "x"}, "--record is for a watch, and a recording is judged here"},
        {{"judge", dir / "run", "--", "true"}, "a command is for a watch, and a recording is judged here"},
        {{"judge", dir / "run", "--from", "1", "--skip", "1"},
         "--from and --skip do not go together: both say where to begin"},
        {{"judge", dir / "run", "--junit", ""}, "--junit needs the name of a file"},
        {{"judge", "--from", "5"}, "--from needs a recording"},
        {{"judge", "--to", "5"}, "--to needs a recording"},
        {{"judge", "--record", ""}, "--record needs the name of a file"},
        {{"mark", "x"}, "a mark needs --record FILE"},
        {{"mark", "--record", "x"}, "'mark' needs TEXT"},
    };
    for (const auto& row : rows) {
        const ProgramResult result = runPmenv(row.words);
        EXPECT_EQ(result.status, 2) << row.error;
        EXPECT_THAT(result.err, StartsWith("pmenv: " + std::string(row.error) + "; see 'pmenv ")) << row.error;
    }
    const ProgramResult missing = runPmenv({"judge", dir / "none"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "pmenv: cannot read " + (dir / "none") + ": No such file or directory\n");
}

// --- recording ------------------------------------------------------------------------------------------------------

TEST(PmenvRecord, KeepsWhatWasWatchedAndHow) {
    const TempDir dir;
    const Words command{"/bin/sh", "-c", "exit 0"};
    Words words{"judge", "--record", dir / "run", "--ignore-thread", "GC", "--skip", "3", "--"};
    words.insert(words.end(), command.begin(), command.end());
    EXPECT_EQ(runPmenv(words).status, 4);
    const ReadRecording read = readRecording(dir / "run");
    EXPECT_EQ(read.header.command, command);
    EXPECT_EQ(read.header.ignored, Words{"GC"});
    EXPECT_EQ(read.header.limits.skip, 3);
    ASSERT_FALSE(read.run.empty());
    EXPECT_EQ(read.run[0].from, 0);
    EXPECT_TRUE(read.outcome);
}

TEST(PmenvRecord, DoesNotStartACommandThatCannotBeRecorded) {
    const TempDir dir;
    const ProgramResult result =
        runPmenv({"judge", "--record", "/dev/full", "--", "/bin/sh", "-c", "echo >\"$0\"", dir / "started"});
    EXPECT_EQ(result.status, 1);
    EXPECT_FALSE(std::filesystem::exists(dir / "started"));
}

TEST(PmenvRecord, DoesNotWatchWithoutAPlaceForIt) {
    const ProgramResult result = runPmenv({"judge", "--duration", "600", "--record", "/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "pmenv: cannot record to /dev/full: No space left on device\n");
}

TEST(PmenvRecord, GoesOnWhenTheDiskIsFull) {
    const LoadEngine idle("idle");
    const TempDir dir;
    const ProgramResult result =
        runProgram({"/bin/sh", "-c",
                    "ulimit -f 2; printf 'a line\n' | "
                    "{ \"$0\" judge --duration 2 --record \"$1\" >/dev/null; code=$?; cat; exit $code; }",
                    PMENV_BINARY, dir / "run"},
                   {{"NO_COLOR", "1"}});
    EXPECT_THAT(result.status, AnyOf(1, 3, 4));
    EXPECT_EQ(result.out, "a line\n") << "a watch reads no input";
    EXPECT_THAT(result.err, HasSubstr("pmenv: warning: the recording " + (dir / "run") +
                                      " ends here: File too large; the watch goes on\n"));
    EXPECT_EQ(result.err.find("ends here"), result.err.rfind("ends here"));
    EXPECT_EQ(readRecording(dir / "run").warnings.size(), 1U);
}

TEST(PmenvMark, StandsInTheRecordingAtItsTime) {
    const LoadEngine idle("idle");
    const TempDir dir;
    const ProgramResult result =
        runProgram({"/bin/sh", "-c",
                    "\"$0\" judge --duration 4 --record \"$1\" & "
                    "until \"$0\" mark 'the load begins' --record \"$1\" 2>&-; do sleep 0.1; done; "
                    "wait; \"$0\" mark late --record \"$1\"",
                    PMENV_BINARY, dir / "run"},
                   {{"NO_COLOR", "1"}});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, EndsWith("no mark was added to " + (dir / "run") + ": its watch is over\n"));
    const ReadRecording read = readRecording(dir / "run");
    ASSERT_EQ(read.marks.size(), 1U);
    EXPECT_EQ(read.marks[0].text, "the load begins");
    EXPECT_GE(read.marks[0].time, 0);
    EXPECT_LE(read.marks[0].time, 4.5);
}

}  // namespace
