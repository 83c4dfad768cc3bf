// Ticks and their labels.
#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "chart/axis.h"

namespace {

std::string labels(const std::vector<Tick>& ticks, bool majorOnly = false) {
    std::string all;
    for (const Tick& tick : ticks) {
        if (tick.major || !majorOnly) all += (all.empty() ? "" : " | ") + tick.label;
    }
    return all;
}

TEST(Axis, ValuesHaveRoundTicksUpToTheMost) {
    const struct {
        double most;
        ChartUnit unit;
        const char* labels;
    } rows[] = {
        {100, ChartUnit::Percent, "0 % | 25 % | 50 % | 75 % | 100 %"},
        {30, ChartUnit::Percent, "0 % | 10 % | 20 % | 30 %"},
        {300, ChartUnit::Percent, "0 % | 100 % | 200 % | 300 %"},
        {130, ChartUnit::Percent, "0 % | 50 % | 100 % | 150 %"},
        {0.7, ChartUnit::Percent, "0 % | 0.2 % | 0.4 % | 0.6 % | 0.8 %"},
        {1, ChartUnit::Processors, "0 | 0.25 | 0.5 | 0.75 | 1"},
        {2, ChartUnit::Processors, "0 | 0.5 | 1 | 1.5 | 2"},
        {64, ChartUnit::Processors, "0 | 20 | 40 | 60 | 80"},
        {0, ChartUnit::Processors, "0 | 0.25 | 0.5 | 0.75 | 1"},
        {3.5 * 1024 * 1024, ChartUnit::Bytes, "0 B | 1 MiB | 2 MiB | 3 MiB | 4 MiB"},
        {1, ChartUnit::Bytes, "0 B | 1 B"},
        {812, ChartUnit::Milliseconds, "0 ms | 250 ms | 500 ms | 750 ms | 1000 ms"},
        {59000, ChartUnit::Milliseconds, "0 ms | 20 s | 40 s | 60 s"},
    };
    for (const auto& row : rows) EXPECT_EQ(labels(valueTicks(row.most, row.unit)), row.labels) << row.most;
    const std::vector<Tick> ticks = valueTicks(100, ChartUnit::Percent);
    for (std::size_t i = 0; i < ticks.size(); ++i) EXPECT_EQ(ticks[i].at, 25.0 * static_cast<double>(i));
}

TEST(Axis, TenThousandMillisecondsAreSeconds) {
    EXPECT_EQ(valueText(9999, ChartUnit::Milliseconds), "9999 ms");
    EXPECT_EQ(valueText(10000, ChartUnit::Milliseconds), "10 s");
}

TEST(Axis, TimesHaveTicksAtRoundTimes) {
    const struct {
        double seconds;
        const char* labels;
        const char* major;
    } rows[] = {
        {0.5, "0 | 0.1 s | 0.2 s | 0.3 s | 0.4 s | 0.5 s", "0 | 0.2 s | 0.4 s"},
        {10, "0 | 1 s | 2 s | 3 s | 4 s | 5 s | 6 s | 7 s | 8 s | 9 s | 10 s", "0 | 5 s | 10 s"},
        {2, "0 | 0.2 s | 0.4 s | 0.6 s | 0.8 s | 1 s | 1.2 s | 1.4 s | 1.6 s | 1.8 s | 2 s", "0 | 1 s | 2 s"},
        {90, "0 | 10 s | 20 s | 30 s | 40 s | 50 s | 1:00 | 1:10 | 1:20 | 1:30", "0 | 30 s | 1:00 | 1:30"},
        {600, "0 | 1 min | 2 min | 3 min | 4 min | 5 min | 6 min | 7 min | 8 min | 9 min | 10 min",
         "0 | 5 min | 10 min"},
        {5400, "0 | 10 min | 20 min | 30 min | 40 min | 50 min | 1:00 h | 1:10 h | 1:20 h | 1:30 h",
         "0 | 30 min | 1:00 h | 1:30 h"},
        {36000, "0 | 1 h | 2 h | 3 h | 4 h | 5 h | 6 h | 7 h | 8 h | 9 h | 10 h", "0 | 3 h | 6 h | 9 h"},
        {10 * 86400.0, "0 | 1 d | 2 d | 3 d | 4 d | 5 d | 6 d | 7 d | 8 d | 9 d | 10 d", "0 | 7 d"},
        {168 * 86400.0, "0 | 14 d | 28 d | 42 d | 56 d | 70 d | 84 d | 98 d | 112 d | 126 d | 140 d | 154 d | 168 d",
         "0 | 56 d | 112 d | 168 d"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(labels(timeTicks(row.seconds)), row.labels) << row.seconds;
        EXPECT_EQ(labels(timeTicks(row.seconds), true), row.major) << row.seconds;
    }
}

TEST(Axis, HasUpToTwelveStepsOfTheSmallestRoundTimeThatFits) {
    const struct {
        double step;
        const char* text;
    } rows[] = {{0.1, "0.1 s"},     {0.2, "0.2 s"},     {0.5, "0.5 s"},     {1, "1 s"},           {2, "2 s"},
                {5, "5 s"},         {10, "10 s"},       {15, "15 s"},       {30, "30 s"},         {60, "1 min"},
                {120, "2 min"},     {300, "5 min"},     {600, "10 min"},    {900, "15 min"},      {1800, "30 min"},
                {3600, "1 h"},      {2 * 3600, "2 h"},  {3 * 3600, "3 h"},  {6 * 3600, "6 h"},    {12 * 3600, "12 h"},
                {24 * 3600, "1 d"}, {2 * 86400, "2 d"}, {7 * 86400, "7 d"}, {14 * 86400, "14 d"}, {28 * 86400, "28 d"}};
    const char* coarser = nullptr;
    for (std::size_t i = std::size(rows); i-- > 0; coarser = rows[i].text) {
        const std::vector<Tick> ticks = timeTicks(11.9 * rows[i].step);
        ASSERT_EQ(ticks.size(), 12u) << rows[i].text;
        EXPECT_EQ(ticks[0].at, 0);
        EXPECT_EQ(ticks[1].at, rows[i].step);
        EXPECT_EQ(ticks[1].label, rows[i].text);
        if (coarser != nullptr) {
            EXPECT_EQ(timeTicks(12.1 * rows[i].step)[1].label, coarser);
        }
    }
    EXPECT_EQ(timeTicks(12).size(), 13u);
    EXPECT_EQ(timeTicks(60).size(), 13u);
}

TEST(Axis, AnyLengthHasFewTicks) {
    for (int power = 0; power < 125; ++power) {
        const double seconds = 0.01 * std::pow(1.3, power);
        const std::vector<Tick> ticks = timeTicks(seconds);
        EXPECT_GE(ticks.size(), 1u) << seconds;
        EXPECT_LE(ticks.size(), 13u) << seconds;
        EXPECT_LE(ticks.back().at, seconds * 1.001);
    }
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const double none : {0.0, -1.0, kInfinity, std::numeric_limits<double>::quiet_NaN()}) {
        const std::vector<Tick> ticks = timeTicks(none);
        ASSERT_EQ(ticks.size(), 1u) << none;
        EXPECT_EQ(ticks[0].at, 0);
        EXPECT_EQ(ticks[0].label, "0");
    }
}

TEST(Axis, TellsTimesOfTheRun) {
    EXPECT_EQ(elapsedText(7.24, true), "0:07.2");
    EXPECT_EQ(elapsedText(59.96, true), "1:00.0");
    EXPECT_EQ(elapsedText(59.96, false), "1:00");
    EXPECT_EQ(elapsedText(59.5, false), "1:00");
    EXPECT_EQ(elapsedText(59.4, false), "0:59");
    EXPECT_EQ(elapsedText(3599, false), "59:59");
    EXPECT_EQ(elapsedText(3600, false), "1:00:00");
    EXPECT_EQ(elapsedText(3905, false), "1:05:05");
    EXPECT_EQ(elapsedText(7200, false), "2:00:00");
    EXPECT_EQ(elapsedText(-1, false), "0:00");
}

TEST(Axis, TellsLengthsOfTime) {
    const struct {
        double seconds;
        const char* text;
    } rows[] = {{0, "0 s"},     {0.01, "less than 0.1 s"}, {0.05, "0.1 s"},       {2.5, "2.5 s"}, {119, "119 s"},
                {120, "2 min"}, {750, "12 min 30 s"},      {3599, "59 min 59 s"}, {3600, "1 h"},  {3920, "1 h 5 min"},
                {36000, "10 h"}};
    for (const auto& row : rows) EXPECT_EQ(durationText(row.seconds), row.text);
}

}  // namespace
