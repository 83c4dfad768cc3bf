// What held engines back between two samples of stats.
#include <gtest/gtest.h>

#include "Runs.h"
#include "judgement/heldBackSums.h"

namespace {

Evidence interval(double from, const EngineEvidence& engine) {
    Evidence evidence;
    evidence.from = from;
    evidence.to = from + kInterval;
    evidence.engines = {engine};
    return evidence;
}

TEST(HeldBackSums, IsAShareOfTheTimeSinceTheLastCall) {
    HeldBackSums sums(0.010);
    sums.add(interval(0, engineThat({100, 0}, 0)));
    for (int i = 1; i < 4; ++i) sums.add(interval(kInterval * i, engineThat({5, 0}, kInterval * i)));
    auto figures = sums.take();
    ASSERT_EQ(figures.size(), 1u);
    EXPECT_NEAR((figures[{100, 5000}].heldBackPercent.value_or(-1)), 25, 1e-9);
    EXPECT_TRUE(sums.take().empty());
    sums.add(interval(1, engineThat({5, 0}, 1)));
    figures = sums.take();
    EXPECT_EQ((figures[{100, 5000}].heldBackPercent), 0);
}

// 0.0 % would say that all was well.
TEST(HeldBackSums, IsUnknownWhereMoreIsInDoubt) {
    EngineEvidence unread = engineThat({5, 0}, 1);
    unread.readable = false;
    unread.busiest = std::nullopt;
    EngineEvidence tooLong = engineThat({5, 0}, 1);
    tooLong.to = tooLong.from + kLongestSeenThrough + 1;
    EngineEvidence ports = engineThat({5, 0}, 1);
    ports.portsAtMost = true;
    ports.portShare = 0.99;
    for (const EngineEvidence& doubtful : {unread, tooLong, ports}) {
        HeldBackSums sums(0.010);
        sums.add(interval(0, engineThat({5, 0}, 0)));
        sums.add(interval(1, doubtful));
        const auto figures = sums.take();
        ASSERT_EQ(figures.size(), 1u);
        EXPECT_EQ(figures.begin()->second.heldBackPercent, std::nullopt);
        EXPECT_EQ(figures.begin()->second.worstThread, engineThat({5, 0}, 0).busiest->tid);
    }
}

TEST(HeldBackSums, IsKnownWhereLessIsInDoubt) {
    EngineEvidence ignored = engineThat({5, 0}, 1);
    ignored.busiest = std::nullopt;
    EngineEvidence unread = ignored;
    unread.readable = false;
    for (const EngineEvidence& doubtful : {ignored, unread}) {
        HeldBackSums sums(0.010);
        for (int i = 0; i < 2; ++i) sums.add(interval(kInterval * i, engineThat({100, 0}, kInterval * i)));
        sums.add(interval(1, doubtful));
        EXPECT_NEAR(sums.take().begin()->second.heldBackPercent.value_or(-1), 200.0 / 3, 1e-9) << "at least";
        sums.add(interval(2, engineThat({100, 0}, 2)));
        sums.add(interval(3, doubtful));
        EXPECT_EQ(sums.take().begin()->second.heldBackPercent, std::nullopt) << "as much again";
    }
}

TEST(HeldBackSums, TheWorstThreadIsThatOfTheWorstInterval) {
    HeldBackSums sums(0.010);
    EngineEvidence busy = engineThat({60, 20}, 0);
    busy.busiest->tid = 102;
    busy.busiest->name = "busy";
    sums.add(interval(0, engineThat({5, 0}, 0)));
    sums.add(interval(1, busy));
    sums.add(interval(2, engineThat({50, 0}, 2)));
    const auto figures = sums.take();
    EXPECT_EQ(figures.begin()->second.worstThread, 102);
    EXPECT_EQ(figures.begin()->second.worstThreadName, "busy");
    EXPECT_NEAR(figures.begin()->second.worstThreadPercent, 80, 1e-9);
}

TEST(HeldBackSums, NoShareIsLargerThanTheWhole) {
    for (const double length : {0.1, 0.3, 0.7, 1.1, 2.9, 3.3790001}) {
        HeldBackSums sums(0.010);
        EngineEvidence engine = engineThat({100.3, 0}, 0);
        engine.to = engine.from + length;
        sums.add(interval(0, engine));
        const auto figures = sums.take();
        EXPECT_EQ(figures.begin()->second.heldBackPercent, 100) << length;
        EXPECT_EQ(figures.begin()->second.worstThreadPercent, 100);
    }
}

TEST(HeldBackSums, ThrottledTimeIsUnknownWithoutAGroupAndMayPassTheTime) {
    HeldBackSums sums(0.010);
    sums.add(interval(0, engineThat({5, 0}, 0)));
    EXPECT_FALSE(sums.take().begin()->second.throttledPercent);
    EngineEvidence engine = engineThat({5, 0}, 0);
    engine.group.throttled = 2 * kInterval;
    sums.add(interval(0, engine));
    engine.group.throttled = kInterval;
    sums.add(interval(1, engine));
    EXPECT_NEAR(sums.take().begin()->second.throttledPercent.value_or(0), 150, 1e-9);
}

TEST(HeldBackSums, WhatCouldNotBeReadIsNotAmongThem) {
    HeldBackSums sums(0.010);
    EngineEvidence engine = engineThat({5, 0}, 0);
    engine.busiest = std::nullopt;
    sums.add(interval(0, engine));
    engine = engineThat({5, 0}, 0);
    engine.to = engine.from;  // found just now
    sums.add(interval(1, engine));
    EXPECT_TRUE(sums.take().empty());
}

}  // namespace
