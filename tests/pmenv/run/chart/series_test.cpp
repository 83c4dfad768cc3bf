// One figure over time in a bounded number of columns.
#include <limits>

#include <gtest/gtest.h>

#include "chart/series.h"

namespace {

TEST(Series, AnIntervalIsAColumn) {
    Series series;
    series.add(0, 0.25, 1);
    series.add(0.25, 0.5, 3);
    ASSERT_EQ(series.columns().size(), 2u);
    EXPECT_DOUBLE_EQ(series.columns()[0].mean(), 1);
    EXPECT_DOUBLE_EQ(series.columns()[1].mean(), 3);
    EXPECT_DOUBLE_EQ(series.most(), 3);
}

// Intervals are never exactly a quarter of a second long. A sliver of one must not appear in its neighbour's column, and no
// column between two intervals may stay empty.
TEST(Series, IntervalsThatAreALittleLongerOrShorterLeaveNoGapAndNoSliver) {
    for (const double length : {0.2, 0.2503, 0.26, 0.4}) {
        Series series;
        int count = 0;
        for (double now = 0; now < 60; now += length) series.add(now, now + length, count++ % 2 == 0 ? 0 : 1);
        EXPECT_DOUBLE_EQ(series.unknownSeconds(), 0) << length;
    }
    Series series;
    series.add(0, 0.2503, 0);
    series.add(0.2503, 0.5, 1);
    EXPECT_DOUBLE_EQ(series.columns()[0].most, 0);
    EXPECT_DOUBLE_EQ(series.columns()[1].least, 1);
}

TEST(Series, ALongIntervalFillsAllItsColumns) {
    Series series;
    series.add(0, 10, 7);
    ASSERT_EQ(series.columns().size(), 40u);
    for (const Series::Column& column : series.columns()) EXPECT_DOUBLE_EQ(column.mean(), 7);
}

TEST(Series, AnIntervalWithoutAMiddleGoesToTheColumnInWhichItLies) {
    Series series;
    series.add(0, 1, 1);
    series.add(0.5, 0.55, 9);
    ASSERT_EQ(series.columns().size(), 4u);
    EXPECT_DOUBLE_EQ(series.columns()[2].most, 9);
    EXPECT_DOUBLE_EQ(series.columns()[2].seconds, 0.3);
    EXPECT_DOUBLE_EQ(series.columns()[1].most, 1);
    EXPECT_DOUBLE_EQ(series.columns()[3].most, 1);
}

TEST(Series, ColumnsAreJoinedOnlyWhenThereAreTooMany) {
    const double fits = 0.25 * static_cast<double>(Series::kMostColumns);
    Series series;
    series.add(0, fits, 1);
    EXPECT_EQ(series.columns().size(), Series::kMostColumns);
    EXPECT_DOUBLE_EQ(series.width(), 0.25);
    series.add(fits, fits + 0.25, 1);
    EXPECT_EQ(series.columns().size(), Series::kMostColumns / 2);
    EXPECT_DOUBLE_EQ(series.width(), 0.5);
}

TEST(Series, AJoinedColumnHasTheLeastAndTheMostOfBoth) {
    Series series;
    series.add(0, 0.25, 7);
    series.add(0.25, 0.5, 5);
    series.add(0.5, 0.25 * static_cast<double>(Series::kMostColumns) + 0.25, 0.5);
    EXPECT_DOUBLE_EQ(series.columns()[0].least, 5);
    EXPECT_DOUBLE_EQ(series.columns()[0].most, 7);
    EXPECT_DOUBLE_EQ(series.columns()[0].mean(), 6);
    EXPECT_DOUBLE_EQ(series.columns()[1].least, 0.5);
    EXPECT_DOUBLE_EQ(series.most(), 7);
}

TEST(Series, TenHoursKeepMeanLeastAndMost) {
    Series series;
    for (int i = 0; i < 10 * 3600 * 4; ++i) series.add(i * 0.25, (i + 1) * 0.25, i == 70000 ? 9 : i % 2);
    EXPECT_LE(series.columns().size(), Series::kMostColumns);
    EXPECT_GT(series.columns().size(), Series::kMostColumns / 2);
    EXPECT_DOUBLE_EQ(series.most(), 9);
    double sum = 0;
    double seconds = 0;
    for (const Series::Column& column : series.columns()) {
        EXPECT_DOUBLE_EQ(column.least, 0);
        sum += column.sum;
        seconds += column.seconds;
    }
    EXPECT_NEAR(seconds, 36000, 1e-6);
    EXPECT_NEAR(sum / seconds, 0.5, 0.001);
    const auto spike = static_cast<std::size_t>(70000 * 0.25 / series.width());
    EXPECT_DOUBLE_EQ(series.columns()[spike].most, 9);
}

TEST(Series, WhatIsNotKnownIsNotZero) {
    Series series;
    series.add(0, 1, 5);
    series.add(1, 3, std::nullopt);
    series.add(3, 4, 5);
    EXPECT_DOUBLE_EQ(series.unknownSeconds(), 2);
    EXPECT_FALSE(series.columns()[5].known());
    EXPECT_TRUE(series.anyKnown());
    Series nothing;
    nothing.add(0, 4, std::nullopt);
    EXPECT_FALSE(nothing.anyKnown());
    EXPECT_DOUBLE_EQ(nothing.most(), 0);
    EXPECT_DOUBLE_EQ(nothing.unknownSeconds(), 4);
}

// A gap stays a gap when columns become one, unless something beside it is known.
TEST(Series, KeepsLongGapsInLongRuns) {
    Series series;
    for (int i = 0; i < 36000; ++i) {
        series.add(i, i + 1, i >= 10000 && i < 20000 ? std::nullopt : std::optional(1.0));
    }
    EXPECT_NEAR(series.unknownSeconds(), 10000, 2 * series.width());
}

TEST(Series, RefusesTimesThatAreNone) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    Series series;
    series.add(0, 0, 1);
    series.add(2, 1, 1);
    series.add(-1, 1, 1);
    series.add(0, kInfinity, 1);
    series.add(std::numeric_limits<double>::quiet_NaN(), 1, 1);
    EXPECT_TRUE(series.columns().empty());
    series.add(0, 1, kInfinity);
    EXPECT_FALSE(series.anyKnown());
    series.add(0, 1e300, 1);
    EXPECT_LE(series.columns().size(), Series::kMostColumns);
}

}  // namespace
