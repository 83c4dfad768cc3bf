// What is written is read again, exactly; and a recording is judged as the run itself.
#include <gmock/gmock.h>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "recording/texts.h"
#include "support/Sanitized.h"
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
        {"\xc3\xa4", "\xc3\xa4"},                  // two bytes
        {"\xe2\x82\xac", "\xe2\x82\xac"},          // three
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},  // four
        {"\xc2\x80\xdf\xbf", "\xc2\x80\xdf\xbf"},  // the first and the last of two
        {"\xe0\xa0\x80\xef\xbf\xbf", "\xe0\xa0\x80\xef\xbf\xbf"},
        {"\xed\x9f\xbf\xee\x80\x80", "\xed\x9f\xbf\xee\x80\x80"},
        {"\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
        {"\xe2\xb8\x80", "\xe2\xb8\x80"},
        {"\xc3\xa4\xff", "\xc3\xa4\\xff"},
        {"\xe2\x82\xac\xff", "\xe2\x82\xac\\xff"},
        {"\xf0\x9f\x98\x80\xff", "\xf0\x9f\x98\x80\\xff"},
        {"\xc3(", "\\xc3("},  // broken by another character
        {"\xe2(\xac", "\\xe2(\\xac"},
        {"\xe2\x82(", "\\xe2\\x82("},
        {"\xf1(\x98\x80", "\\xf1(\\x98\\x80"},
        {"\xf1\x90(\x80", "\\xf1\\x90(\\x80"},
        {"\xf1\x90\x80(", "\\xf1\\x90\\x80("},
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
    for (const std::string text : {"\\", "\\x", "\\xf", "\\xfg", "\\xgf", "\\y", "\\y41", "a\\"}) {
        EXPECT_EQ(recording::fromUtf8(text), text);
    }
    EXPECT_EQ(recording::fromUtf8("\\x0a\\xa0\\x00!"), std::string("\n\xa0\0!", 4));
}

TEST(RecordedTexts, WhatLiesBehindATextIsNoPartOfIt) {
    EXPECT_EQ(recording::toUtf8(std::string_view("\xc3\xa4", 1)), "\\xc3");
    EXPECT_EQ(recording::toUtf8(std::string_view("a\\", 1)), "a");
    EXPECT_EQ(recording::fromUtf8(std::string_view("\\x41", 3)), "\\x4");
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

TEST(AsRecorded, KeepsWhatNeedsNoRounding) {
    Evidence evidence = intervalFrom(0.25);
    evidence.wakes.longest = 0.125;
    evidence.engines.push_back(engineThat({40, 20, 4, 8, 12, 16}, 0.25));
    EngineEvidence& engine = evidence.engines[0];
    engine.ran = 0.15;
    engine.turns = 150;
    engine.waited = 0.2;
    engine.lateTurns = 0.5;
    engine.busiest->seconds = 0.26;
    engine.busiest->waitedBefore = 0.01;
    EXPECT_EQ(Described::of(asRecorded(evidence)), Described::of(evidence));
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
    constexpr unsigned kRuns = kSanitized ? 10 : 40;
    for (unsigned seed = 1; seed <= kRuns; ++seed) {
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

// An engine that does nothing but in the second interval.
TEST(Recording, LeavesOutWhatIsZeroOrAsBefore) {
    const TempDir dir;
    std::vector<Evidence> run(4);
    for (std::size_t i = 0; i < run.size(); ++i) {
        run[i].from = static_cast<double>(i);
        run[i].to = run[i].from + 1;
        run[i].machine.processors = 2;
        EngineEvidence engine;
        engine.key = {7, 9};
        engine.name = "e";
        engine.from = run[i].from;
        engine.to = run[i].to;
        engine.readable = true;
        engine.busiest = ThreadEvidence();
        engine.busiest->tid = 8;
        engine.busiest->name = "t";
        engine.busiest->seconds = 1;
        run[i].engines = {engine};
    }
    run[1].wakes.wakes = 1;
    EngineEvidence& busy = run[1].engines[0];
    busy.busiest->seconds = 1.25;
    busy.busiest->parts.running = 0.5;
    busy.busiest->parts.waiting = 0.25;
    busy.busiest->turns = 10;
    busy.ran = 0.75;
    busy.turns = 11;
    busy.waited = 0.5;
    busy.lateTurns = 1.5;
    run[2].wakes.late = 1;
    run[2].from = 2.5;
    run[2].engines[0].to = 2.75;
    run[3].wakes.longest = 0.001;
    run[3].engines[0].busiest.reset();
    record(dir / "run", run, someHeader(), false);
    const std::string text = readFileText(dir / "run");
    EXPECT_EQ(text.substr(text.find('\n') + 1),
              R"({"to":1000000,"machine":{"processors":2},"engines":[[0,{"pid":7,"start":9,"name":"e","tid":8,)"
              R"("thread":"t","readable":1}]]})"
              "\n"
              R"({"to":2000000,"wakes":[1,0,0],"engines":[[0,0,500000,10,250000,250000,250000,1,250000,1500]]})"
              "\n"
              R"({"to":3000000,"from":2500000,"wakes":[0,1,0],"engines":[[0,0,0,0,0,250000,)"
              R"({"from":2000000,"to":2750000}]]})"
              "\n"
              R"({"to":4000000,"wakes":[0,0,1000],"engines":[[0,null]]})"
              "\n");
}

TEST(Recording, KeepsZeros) {
    const TempDir dir;
    RecordingHeader header = someHeader();
    header.memoryBytes = 0;
    header.start = {};
    header.clock = 0;
    header.choice.pid = 0;
    header.limits = {0, 0, 0, 0, 0.0, 0.0, 0, 0.0, 0.0};
    EngineEnd end;
    end.status = 0;
    std::vector<Evidence> run(1);
    run[0].to = 1;
    run[0].machine.processors = 2;
    run[0].ends = {end};
    {
        RecordingWriter writer(dir / "run", header);
        writer.write(run[0]);
        writer.write(RecordedOutcome{Outcome::Clean, 0.0, 0});
    }
    const ReadRecording read = readRecording(dir / "run");
    EXPECT_EQ(read.header.memoryBytes, 0U);
    EXPECT_EQ(read.header.start, header.start);
    EXPECT_EQ(read.header.clock, 0);
    EXPECT_EQ(read.header.choice.pid, 0);
    const JudgeLimits& limits = read.header.limits;
    EXPECT_EQ(limits.percentile + limits.tolerance + limits.skip + limits.sustain, 0);
    EXPECT_EQ(limits.engines, 0U);
    EXPECT_EQ(limits.machinePercent, 0);
    EXPECT_EQ(limits.enginePercent, 0);
    EXPECT_EQ(limits.memoryPercent, 0);
    EXPECT_EQ(limits.swapMegabytes, 0);
    EXPECT_EQ(describe(read.run), describe(run));
    ASSERT_TRUE(read.outcome);
    EXPECT_EQ(read.outcome->believed, 0);
    EXPECT_EQ(read.outcome->cpuSeconds, 0);
}

TEST(Recording, TellsThisHost) {
    JudgeLimits limits;
    limits.percentile = 95;
    const RecordingHeader header = headerOfThisHost({{"wrk"}, 1}, {"gc"}, limits);
    EXPECT_FALSE(header.host.empty());
    EXPECT_FALSE(header.pmenv.empty());
    EXPECT_EQ(header.limits.percentile, 95);
    EXPECT_THAT(header.kernel, HasSubstr("Linux "));
    EXPECT_EQ(header.processors, sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(header.boot + "\n", readFileText("/proc/sys/kernel/random/boot_id"));
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
