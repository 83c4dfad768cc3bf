// The figures of a run over time.
#include <gtest/gtest.h>

#include "ChartRuns.h"

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
}

// The memory is read once a second only; what lies between two readings is no gap, but what lies before the first is.
TEST(RunFigures, MemoryLastsFromOneReadingToTheNext) {
    const ChartRun run = chartRunOf(60, [](Evidence& evidence) {
        const bool read = static_cast<int>(evidence.to * 4) % 4 == 0 && (evidence.from < 20 || evidence.from >= 40);
        if (read) evidence.machine.memoryAvailableShare = 0.5;
    });
    EXPECT_NEAR(run.figures[Figure::MemoryInUse].unknownSeconds(), 0.75 + 20 + 0.75, 0.1);
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
