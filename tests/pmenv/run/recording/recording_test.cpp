// What is written is read again, exactly; and a recording is judged as the run itself.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "recording/texts.h"
#include "support/TempDir.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// --- texts ----------------------------------------------------------------------------------------------------------

TEST(RecordedTexts, EveryByteComesBack) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    EXPECT_EQ(recording::fromUtf8(recording::toUtf8(all)), all);
    for (int byte = 0; byte < 256; ++byte) {
        const std::string one = "a" + std::string(1, static_cast<char>(byte)) + "b";
        EXPECT_EQ(nlohmann::json::parse(recording::jsonText(one)), recording::toUtf8(one)) << byte;
        EXPECT_EQ(recording::fromUtf8(recording::toUtf8(one)), one) << byte;
    }
}

TEST(RecordedTexts, OnlyWhatIsNoUtf8IsEscaped) {
    const struct {
        std::string bytes, text;
    } rows[] = {
        {"", ""},
        {"sender", "sender"},
        {"a\\b", "a\\\\b"},
        {"\xff", "\\xff"},
        {"\\xff", "\\\\xff"},
        {"\xc3\xa4", "\xc3\xa4"},                      // two bytes
        {"\xe2\x82\xac", "\xe2\x82\xac"},              // three
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},      // four
        {"\xc3", "\\xc3"},                             // cut off
        {"\xe2\x82", "\\xe2\\x82"},                    //
        {"\xc0\xaf", "\\xc0\\xaf"},                    // longer than needed
        {"\xe0\x80\xaf", "\\xe0\\x80\\xaf"},           //
        {"\xf0\x80\x80\xaf", "\\xf0\\x80\\x80\\xaf"},  //
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},           // half of a pair
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last character
        {"\xf5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},  //
    };
    for (const auto& row : rows) {
        EXPECT_EQ(recording::toUtf8(row.bytes), row.text);
        EXPECT_EQ(recording::fromUtf8(row.text), row.bytes);
    }
}

TEST(RecordedTexts, WhatIsNoEscapeStays) {
    for (const std::string text : {"\\", "\\x", "\\xf", "\\xfg", "\\y", "a\\"}) {
        EXPECT_EQ(recording::fromUtf8(text), text);
    }
}

// --- rounding -------------------------------------------------------------------------------------------------------

TEST(AsRecorded, RoundsToWhatIsWritten) {
    Evidence evidence;
    evidence.to = 1.00000049;
    evidence.machine.memoryAvailableShare = 1.0 / 3;
    evidence.engines.push_back(engineThat({}, 0));
    evidence.engines[0].lateTurns = 2.0004;
    evidence.engines[0].ran = 0.1234567;
    const Evidence rounded = asRecorded(evidence);
    EXPECT_EQ(rounded.to, 1.0);
    EXPECT_EQ(rounded.machine.memoryAvailableShare, 0.333333);
    EXPECT_EQ(rounded.engines[0].lateTurns, 2.0);
    EXPECT_EQ(rounded.engines[0].ran, 0.123457);
    EXPECT_FALSE(rounded.machine.busy);
}

TEST(AsRecorded, RoundsOnce) {
    for (const Evidence& evidence : RandomRun(1).of(50)) {
        EXPECT_EQ(Described::of(asRecorded(evidence)), Described::of(evidence));
    }
}

TEST(AsRecorded, KeepsWhatIsTooLargeWithinBounds) {
    Evidence evidence;
    evidence.to = 1e300;
    evidence.machine.swapUsedBytes = ~std::uint64_t{0};
    EXPECT_EQ(asRecorded(evidence).to, 1e9);
    EXPECT_EQ(asRecorded(evidence).machine.swapUsedBytes, 1'000'000'000'000'000U);
}

// --- there and back -------------------------------------------------------------------------------------------------

TEST(Recording, KeepsTheEvidenceAndTheVerdict) {
    const TempDir dir;
    for (unsigned seed = 1; seed <= 40; ++seed) {
        const std::vector<Evidence> run = RandomRun(seed).of(60);
        record(dir / "run", run);
        const ReadRecording read = readRecording(dir / "run");
        ASSERT_EQ(describe(read.run), describe(run)) << seed;
        ASSERT_EQ(judged(read.run), judged(run)) << seed;
        EXPECT_THAT(read.warnings, IsEmpty());
    }
}

TEST(Recording, KeepsTheHeader) {
    const TempDir dir;
    RecordingHeader header = someHeader();
    header.choice = {{"wrk", "\xff"}, 77};
    header.ignored = {"log writer"};
    header.limits.percentile = 99.9;
    header.limits.skip = 2.5;
    header.limits.tolerance = 0.0123;
    header.limits.engines = 3;
    header.limits.machinePercent = 95.5;
    header.limits.swapMegabytes = 0.1;
    header.command = {"run.sh", "a b", "\n"};
    record(dir / "run", {}, header);
    const RecordingHeader read = readRecording(dir / "run").header;
    EXPECT_EQ(read.major, 1);
    EXPECT_EQ(read.minor, 0);
    EXPECT_EQ(read.pmenv, "1.0.0");
    EXPECT_EQ(read.host, "gen1");
    EXPECT_EQ(read.kernel, "Linux 6.1.0 x86_64");
    EXPECT_EQ(read.processors, 2);
    EXPECT_EQ(read.memoryBytes, 8'000'000'000U);
    EXPECT_EQ(read.start, header.start);
    EXPECT_EQ(read.clock, 4711.25);
    EXPECT_EQ(read.boot, "4e0b6a3c-0001");
    EXPECT_THAT(read.choice.names, ElementsAre("wrk", "\xff"));
    EXPECT_EQ(read.choice.pid, 77);
    EXPECT_THAT(read.ignored, ElementsAre("log writer"));
    EXPECT_EQ(read.limits.percentile, 99.9);
    EXPECT_EQ(read.limits.skip, 2.5);
    EXPECT_EQ(read.limits.tolerance, 0.0123);
    EXPECT_EQ(read.limits.engines, 3U);
    EXPECT_EQ(read.limits.machinePercent, 95.5);
    EXPECT_FALSE(read.limits.enginePercent);
    EXPECT_EQ(read.limits.sustain, 10);
    EXPECT_FALSE(read.limits.memoryPercent);
    EXPECT_EQ(read.limits.swapMegabytes, 0.1);
    EXPECT_THAT(read.command, ElementsAre("run.sh", "a b", "\n"));
}

TEST(Recording, TellsThisHost) {
    const RecordingHeader header = headerOfThisHost({{"wrk"}, 1}, {"gc"}, {});
    EXPECT_FALSE(header.host.empty());
    EXPECT_THAT(header.kernel, HasSubstr("Linux "));
    EXPECT_GT(header.processors, 0);
    EXPECT_GT(header.memoryBytes, 1'000'000U);
    EXPECT_GT(header.clock, 0);
    EXPECT_THAT(header.choice.names, ElementsAre("wrk"));
    EXPECT_THAT(header.ignored, ElementsAre("gc"));
}

TEST(Recording, KeepsMarksAndTheOutcome) {
    const TempDir dir;
    {
        RecordingWriter writer(dir / "run", someHeader());
        writer.write(asRecorded(RandomRun(1).of(1)[0]));
        writer.write(Mark{1.5, "ramp-up \"over\"\xff"});
        writer.write(RecordedOutcome{Outcome::Spoiled, 98.2, 1.0 / 3});
        EXPECT_TRUE(writer.complete());
    }
    const ReadRecording read = readRecording(dir / "run");
    ASSERT_EQ(read.marks.size(), 1U);
    EXPECT_EQ(read.marks[0].time, 1.5);
    EXPECT_EQ(read.marks[0].text, "ramp-up \"over\"\xff");
    ASSERT_TRUE(read.outcome);
    EXPECT_EQ(read.outcome->outcome, Outcome::Spoiled);
    EXPECT_EQ(read.outcome->believed, 98.2);
    EXPECT_EQ(read.outcome->cpuSeconds, 1.0 / 3);
}

// Situations as testers would tell them, of all kinds of verdicts.
TEST(Recording, IsJudgedAsTheRun) {
    const TempDir dir;
    const Did situations[] = {
        {5}, {100}, {20, 80}, {20, 10, 70}, {5, 0, 0, 90}, {5, 0, 0, 0, 95}, {30, 0, 0, 0, 0, 70}};
    for (const Did& did : situations) {
        std::vector<Evidence> run;
        MadeRun().each(10, [&](Evidence& evidence) {
            evidence.engines.push_back(engineThat(evidence.from < 5 ? did : Did{5}, evidence.from));
            evidence.machine.busy = 0.1;
            evidence.machine.idle = 0.4;
            run.push_back(asRecorded(evidence));
        });
        record(dir / "run", run);
        EXPECT_EQ(judged(readRecording(dir / "run").run), judged(run));
    }
}

// --- size -----------------------------------------------------------------------------------------------------------

// 50 engines for an hour are to stay below 50 MB, which is 69 bytes for each engine and interval.
TEST(Recording, OfManyEnginesIsSmall) {
    const TempDir dir;
    std::mt19937 random(1);
    const auto about = [&random](double value) {
        return value * std::uniform_real_distribution<double>(0.5, 1.5)(random);
    };
    std::vector<Evidence> run;
    for (int i = 0; i < 200; ++i) {
        Evidence evidence;
        evidence.from = 1000 + i * 0.25;
        evidence.to = evidence.from + 0.25;
        evidence.machine.busy = about(0.3);
        evidence.machine.idle = about(0.2);
        evidence.machine.stolen = 0;
        evidence.wakes = {25, 0, about(0.0004)};
        evidence.others = {{"cc1plus", i / 4 + 0.1, 2}, {"sshd", 0.5, 1}};
        for (int pid = 10'000; pid < 10'050; ++pid) {
            EngineEvidence engine = engineThat({}, evidence.from, pid);
            ThreadEvidence& thread = *engine.busiest;
            thread.tid = pid + static_cast<int>(random() % 20);  // of twenty threads, another one each time
            thread.seconds = 0.25 + about(0.0001);
            thread.parts.running = about(0.01);
            thread.parts.waiting = about(0.001);
            thread.turns = 100 + random() % 100;
            engine.turns = thread.turns * 19;
            engine.ran = thread.parts.running * 15;
            engine.waited = thread.parts.waiting * 15;
            engine.lateTurns = about(2);
            engine.group.throttled = 0;
            engine.descriptorShare = 0.01 * (i / 4);
            engine.portShare = 0.012345 * (i / 4);
            evidence.engines.push_back(engine);
        }
        run.push_back(asRecorded(evidence));
    }
    record(dir / "run", run);
    record(dir / "none", {});
    const double bytes =
        static_cast<double>(std::filesystem::file_size(dir / "run") - std::filesystem::file_size(dir / "none"));
    const double hour = bytes / static_cast<double>(run.size()) * 4 * 3600;
    RecordProperty("bytesOfAnHour", std::to_string(hour));
    EXPECT_LT(hour, 50e6);
}

}  // namespace
