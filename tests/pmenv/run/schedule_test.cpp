// schedule: when samples are due.
#include <gtest/gtest.h>

#include "schedule.h"

namespace {

constexpr double kNoon = 1'795'262'400;  // seconds since 1970

TEST(Schedule, SamplesAreDueOnFullIntervals) {
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon + 0.25, 1), 0.75);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon + 12, 60), 48);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon, 5), 5);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon + 1, 1.5), 2) << "12:00:03 is a multiple of one and a half seconds";
}

TEST(Schedule, LatenessIsNotCarriedOn) {
    double clock = kNoon;
    for (int i = 1; i <= 1000; ++i) clock += untilNextSample(clock, 1) + 0.01;  // each one a hundredth of a second late
    EXPECT_NEAR(clock, kNoon + 1000, 0.02);
}

TEST(Schedule, ASampleIsNoLessThanHalfAnIntervalAfterTheLast) {
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon + 0.75, 1), 1.25);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon + 0.5, 1), 0.5);
    EXPECT_NEAR(untilNextSample(kNoon - 0.001, 1), 1.001, 1e-6) << "woken a little early";
}

TEST(Schedule, TheLastSampleComesAtTheEnd) {
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon, 10, 100), 10);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon, 10, 15), 10) << "half an interval is left for the last one";
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon, 10, 14), 14);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon, 10, 3), 3);
    EXPECT_DOUBLE_EQ(untilNextSample(kNoon, 10, -1), 0);
}

}  // namespace
