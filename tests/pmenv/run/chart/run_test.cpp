// The figures of a run over time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChartRuns.h"
#include "chart/recordedRun.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/TempDir.h"

namespace {

double meanAt(const Series& series, double time) {
    const auto place = static_cast<std::size_t>(time / series.width());
    return series.columns().at(place).known() ? series.columns()[place].mean() : -1;
}

TEST(RunFigures, FollowWhatTheEnginesDid) {
    const ChartRun run = spoiledRun();
    const RunFigures& figures = run.figures;
    EXPECT_DOUBLE_EQ(meanAt(figures[Figure::HeldBackWorst], 1), 0);
    EXPECT_DOUBLE_EQ(meanAt(figures[Figure::HeldBackWorst], 5), 1);
    EXPECT_NEAR(meanAt(figures[Figure::ThreadRunning], 1), 0.2, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::ThreadRunning], 5), 1, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::EngineProcessors], 5), 1, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::OtherProcessors], 5), 0.1, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::MemoryInUse], 5), 0.25, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::Descriptors], 5), 0.02, 1e-9);
    EXPECT_EQ(figures.processors(), 2);
}

TEST(RunFigures, FewEnginesAreShownEachManyByTheWorstAndTheMedian) {
    EXPECT_EQ(spoiledRun(10, 4).figures.engines().size(), 4u);
    const ChartRun many = chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20}, 50);
        evidence.engines[7] = engineThat({100}, evidence.from, 107);
    });
    EXPECT_TRUE(many.figures.engines().empty());
    EXPECT_DOUBLE_EQ(meanAt(many.figures[Figure::HeldBackWorst], 5), 1);
    EXPECT_DOUBLE_EQ(meanAt(many.figures[Figure::HeldBackMedian], 5), 0);
    EXPECT_NEAR(meanAt(many.figures[Figure::ThreadRunning], 5), 1, 1e-9);
}

TEST(RunFigures, OfManyEnginesTheMedianIsThatInTheMiddle) {
    const ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        for (const double ran : {100, 100, 20, 20, 100}) {
            const int pid = 100 + static_cast<int>(evidence.engines.size());
            evidence.engines.push_back(engineThat({ran}, evidence.from, pid));
        }
    });
    EXPECT_DOUBLE_EQ(meanAt(run.figures[Figure::HeldBackMedian], 5), 1);
}

TEST(RunFigures, EnginesThatWereManyAreNotShownEachLater) {
    const ChartRun run =
        chartRunOf(10, [](Evidence& evidence) { fillEngines(evidence, {20}, evidence.from < 5 ? 5 : 2); });
    EXPECT_TRUE(run.figures.engines().empty());
}

TEST(RunFigures, TellTheThreadWithTheLeastSlack) {
    const ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        for (const Did& did : {Did{40, 20}, Did{20, 40}, Did{24}, Did{100}}) {
            const int pid = 100 + static_cast<int>(evidence.engines.size());
            evidence.engines.push_back(engineThat(did, evidence.from, pid));
        }
        if (evidence.from >= 5) evidence.engines[2].busiest->seconds = 0.06;  // which it was busy throughout
        evidence.engines[3].busiest->seconds = 0;
    });
    EXPECT_NEAR(meanAt(run.figures[Figure::ThreadRunning], 1), 0.4, 1e-9) << "the first of two alike";
    EXPECT_NEAR(meanAt(run.figures[Figure::ThreadWaiting], 1), 0.2, 1e-9);
    EXPECT_NEAR(meanAt(run.figures[Figure::ThreadRunning], 6), 1, 1e-9);
}

TEST(RunFigures, TellTheLargestOfAllEngines) {
    const ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20}, 3);
        evidence.machine.stolen = 0.1;
        evidence.machine.swapUsedBytes = 4096;
        evidence.engines[0].group.throttled = 0.05;
        evidence.engines[0].group.memoryShare = 0.6;
        evidence.engines[1].group.throttled = 0.025;
        evidence.engines[1].group.memoryShare = 0.7;
        evidence.engines[0].portShare = 0.3;
        evidence.engines[1].portShare = 0.2;
        evidence.engines[2].portShare = 0.9;
        evidence.engines[2].portsAtMost = true;
    });
    const RunFigures& figures = run.figures;
    EXPECT_NEAR(meanAt(figures[Figure::StolenProcessors], 5), 0.4, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::SwapBytes], 5), 4096, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::Throttled], 5), 0.2, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::GroupMemory], 5), 0.7, 1e-9);
    EXPECT_NEAR(meanAt(figures[Figure::Ports], 5), 0.3, 1e-9);
}

TEST(RunFigures, WhatHasNoLengthCountsNothing) {
    RunFigures figures(0.01);
    Evidence evidence = intervalFrom(0);
    fillEngines(evidence, {20});
    evidence.engines[0].to = evidence.engines[0].from;
    figures.add(evidence);
    EXPECT_FALSE(figures[Figure::HeldBackWorst].anyKnown());
    EXPECT_TRUE(figures.engines().empty());
    evidence.from = evidence.to;
    evidence.machine.processors = 8;
    figures.add(evidence);
    EXPECT_EQ(figures.processors(), 2);
}

TEST(RunFigures, WhatIsNotToldIsNotKnown) {
    const ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        if (evidence.from >= 5) return;
        fillEngines(evidence, {20});
        evidence.machine.stolen.reset();
        evidence.engines[0].portShare.reset();
    });
    const RunFigures& figures = run.figures;
    EXPECT_FALSE(figures[Figure::StolenProcessors].anyKnown());
    EXPECT_FALSE(figures[Figure::Ports].anyKnown());
    EXPECT_FALSE(figures[Figure::Throttled].anyKnown());
    EXPECT_DOUBLE_EQ(figures[Figure::HeldBackWorst].unknownSeconds(), 5);
    EXPECT_DOUBLE_EQ(figures[Figure::OtherProcessors].unknownSeconds(), 5);
    EXPECT_DOUBLE_EQ(figures[Figure::EngineProcessors].unknownSeconds(), 0);  // no engine ran
}

TEST(RunFigures, WhatStandsInForEnginesDoesNotCountBesideThem) {
    const ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20}, 2);
        evidence.engines[1] = engineThat({100}, evidence.from, 101);
        evidence.engines[1].standIn = true;
    });
    EXPECT_EQ(run.figures.engines().size(), 1u);
    EXPECT_DOUBLE_EQ(meanAt(run.figures[Figure::HeldBackWorst], 5), 0);
    EXPECT_NEAR(meanAt(run.figures[Figure::EngineProcessors], 5), 0.2, 1e-9);
}

TEST(RunFigures, AnEngineWhoseAccountsCannotBeReadIsNotKnown) {
    const ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20});
        evidence.engines[0].readable = false;
        evidence.engines[0].busiest.reset();
    });
    EXPECT_FALSE(run.figures[Figure::HeldBackWorst].anyKnown());
    EXPECT_FALSE(run.figures[Figure::ThreadRunning].anyKnown());
    const ChartRun threadless = chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20});
        evidence.engines[0].busiest.reset();
    });
    EXPECT_FALSE(threadless.figures[Figure::HeldBackWorst].anyKnown());
}

// The memory is read once a second only; what lies between two readings is no gap, but what lies before the first is.
TEST(RunFigures, MemoryLastsFromOneReadingToTheNext) {
    const ChartRun run = chartRunOf(60, [](Evidence& evidence) {
        const bool read = static_cast<int>(evidence.to * 4) % 4 == 0 && (evidence.from < 20 || evidence.from >= 40);
        if (read) evidence.machine.memoryAvailableShare = 0.5;
    });
    EXPECT_NEAR(run.figures[Figure::MemoryInUse].unknownSeconds(), 0.75 + 20 + 0.75, 0.1);
}

ChartRun recordedRunOf(const RecordingHeader& header, std::vector<std::string> missing = {}) {
    const TempDir dir;
    std::vector<Evidence> run;
    MadeRun().each(10, [&](Evidence& evidence) {
        evidence.engines.push_back(engineThat(evidence.from < 4 ? Did{5} : Did{100}, evidence.from));
        evidence.missingNames = missing;
        run.push_back(asRecorded(evidence));
    });
    {
        RecordingWriter writer(dir / "run", header);
        for (const Evidence& evidence : run) writer.write(evidence);
        writer.write(Mark{2.5, "ramp"});
        writer.write(RecordedOutcome{});
    }
    return readRecordedRun(dir / "run");
}

std::string textsOf(const NamedTexts& texts) {
    std::string all;
    for (const auto& [name, text] : texts) all += name + ": " + text + "\n";
    return all;
}

TEST(RecordedRun, TellsTheHostAndWhatHappened) {
    RecordingHeader header = someHeader();
    const ChartRun run = recordedRunOf(header);
    EXPECT_EQ(run.host, "gen1");
    EXPECT_EQ(run.start, header.start);
    EXPECT_THAT(textsOf(run.facts),
                testing::MatchesRegex("host: gen1\nkernel: Linux 6.1.0 x86_64\nprocessors: 2\nmemory: 7.5 GiB\n"
                                      "watch began: 2026-11-22T[^\n]*\nrecording: [^\n]*/run\n"
                                      "recorded by: pmenv 1.0.0\n"));
    EXPECT_EQ(run.seconds, 10);
    EXPECT_EQ(run.judgedFrom, 0);
    EXPECT_EQ(run.judged.outcome, Outcome::Spoiled);
    EXPECT_NEAR(meanAt(run.figures[Figure::ThreadRunning], 5), 1, 1e-9);
    ASSERT_EQ(run.marks.size(), 1u);
    EXPECT_EQ(run.marks[0].text, "ramp");
    EXPECT_TRUE(run.remarks.empty());
    header.limits.skip = 3;
    EXPECT_EQ(recordedRunOf(header).judgedFrom, 3);
}

TEST(RecordedRun, TellsOfEnginesThatWereNotSeen) {
    const ChartRun run = recordedRunOf(someHeader(), {"wrk", "hey"});
    EXPECT_THAT(run.remarks,
                testing::ElementsAre("no process named 'wrk' was seen", "no process named 'hey' was seen"));
}

TEST(RecordedRun, ListsTheOptionsThatWereGiven) {
    RecordingHeader header = someHeader();
    EXPECT_EQ(textsOf(recordedRunOf(header).options), "percentile: 99\ntolerance: 10 ms\n");
    header.limits.enginePercent = 70;
    EXPECT_EQ(textsOf(recordedRunOf(header).options),
              "percentile: 99\ntolerance: 10 ms\nlimit on one engine: 70 % of one processor\nsustained for: 10 s\n");
    header.limits = {99.9, 0.9, 0.5, 3, 80.0, std::nullopt, 5, 10.0, 64.0};
    header.choice = {{"wrk", "hey"}, 77};
    header.ignored = {"gc", "log"};
    header.command = {"run.sh", "-x"};
    EXPECT_EQ(textsOf(recordedRunOf(header).options),
              "percentile: 99.9\ntolerance: 900 ms\nleft out at the beginning: 0.5 s\nengines: 3\n"
              "limit on the machine's processors: 80 %\nsustained for: 5 s\navailable memory at least: 10 %\n"
              "growth of swap at most: 64 MiB\nengines by name: wrk, hey\nengines by process id: 77\n"
              "ignored threads: gc, log\ncommand: run.sh -x\n");
}

TEST(RunFigures, TenHoursTakeBoundedMemory) {
    RunFigures figures(0.01);
    Evidence evidence;
    fillEngines(evidence, {20}, 6);
    for (int second = 0; second < 36000; ++second) {
        evidence.from = second;
        evidence.to = second + 1;
        figures.add(evidence);
    }
    for (std::size_t i = 0; i < kFigures; ++i) {
        EXPECT_LE(figures[static_cast<Figure>(i)].columns().size(), Series::kMostColumns);
    }
}

}  // namespace
