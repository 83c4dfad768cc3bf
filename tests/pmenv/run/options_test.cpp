// The options of stats and judge: the numbers that they take.
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commandLine.h"
#include "failure.h"
#include "judgeLimits.h"
#include "statsOptions.h"

using testing::ElementsAre;

Command judgeCommand();
Command statsCommand();

namespace {

// "interval 1 to 86400", "count 0 to 1e+09 whole"
std::vector<std::string> rangesOf(const Command& command) {
    std::vector<std::string> ranges;
    for (const Option& option : command.options) {
        if (option.kind != Option::Kind::Number) continue;
        std::ostringstream range;
        range << option.name << " " << option.least << " to " << option.most << (option.whole ? " whole" : "");
        ranges.push_back(range.str());
    }
    return ranges;
}

TEST(StatsOptions, NumbersHaveTheirRanges) {
    EXPECT_THAT(rangesOf(statsCommand()),
                ElementsAre("interval 1 to 86400", "count 0 to 1e+09 whole", "duration 1 to 1e+09"));
}

StatsOptions optionsOf(std::vector<std::string> words) {
    words.insert(words.begin(), "stats");
    const Grammar grammar{{{"json", Option::Kind::Flag, nullptr, ""}}, {statsCommand()}};
    return readStatsOptions(CommandLine::parse(grammar, words));
}

std::string refusalOf(const std::vector<std::string>& words) {
    try {
        optionsOf(words);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exitCode(), kExitUsage);
        return failure.what();
    }
    return "taken";
}

TEST(StatsOptions, OneSampleUnlessMoreAreWanted) {
    EXPECT_EQ(optionsOf({}).count, 1u);
    EXPECT_EQ(optionsOf({}).interval, 1);
    EXPECT_EQ(optionsOf({}).duration, std::nullopt);
    EXPECT_EQ(optionsOf({"--count", "0"}).count, 0u);
    EXPECT_EQ(optionsOf({"--count", "3", "--interval", "2.5"}).count, 3u);
    EXPECT_EQ(optionsOf({"--count", "3", "--interval", "2.5"}).interval, 2.5);
    EXPECT_EQ(optionsOf({"--duration", "5"}).count, 0u);
    EXPECT_EQ(optionsOf({"--duration", "5"}).duration, 5);
    EXPECT_EQ(optionsOf({"--watch"}).count, 0u);
    EXPECT_EQ(optionsOf({"--watch", "--count", "4"}).count, 4u);
}

TEST(StatsOptions, FormatsAndWhatBelongsToThem) {
    using Format = StatsOptions::Format;
    EXPECT_EQ(optionsOf({}).format, Format::Table);
    EXPECT_EQ(optionsOf({"--json"}).format, Format::JsonLines);
    EXPECT_EQ(optionsOf({"--csv"}).format, Format::Csv);
    EXPECT_EQ(optionsOf({"--openmetrics"}).format, Format::OpenMetrics);
    EXPECT_FALSE(optionsOf({"--openmetrics", "--machine"}).parts.perProcess);
    EXPECT_TRUE(optionsOf({"--openmetrics", "--per-process"}).parts.perProcess);
    EXPECT_FALSE(optionsOf({"--openmetrics", "--per-process"}).parts.machine);
    EXPECT_TRUE(optionsOf({"--openmetrics", "--machine"}).parts.machine);
    EXPECT_EQ(optionsOf({"--openmetrics", "--output", "a", "--count", "2"}).output, "a");
    EXPECT_EQ(optionsOf({}).record, "");
    EXPECT_EQ(optionsOf({"--record", "b"}).record, "b");
    EXPECT_FALSE(optionsOf({}).watch);
    EXPECT_TRUE(optionsOf({"--watch"}).watch);
}

TEST(StatsOptions, WhatDoesNotGoTogetherIsRefused) {
    const struct {
        std::vector<std::string> words;
        const char* why;
    } rows[] = {
        {{"--json", "--csv"}, "--json and --csv do not go together"},
        {{"--csv", "--openmetrics"}, "--csv and --openmetrics do not go together"},
        {{"--watch", "--json"}, "--watch and --json do not go together"},
        {{"--count", "2", "--duration", "5"}, "--count and --duration do not go together"},
        {{"--output", "x"}, "--output needs --openmetrics"},
        {{"--per-process"}, "--per-process needs --openmetrics"},
        {{"--machine", "--csv"}, "--machine needs --openmetrics"},
        {{"--openmetrics", "--output="}, "--output needs the name of a file"},
        {{"--openmetrics", "--count", "0"}, "--openmetrics of more than one sample needs --output FILE"},
        {{"--openmetrics", "--duration", "2"}, "--openmetrics of more than one sample needs --output FILE"},
        {{"--verdict"}, "--verdict is now the command 'pmenv judge --duration SECONDS'"},
    };
    for (const auto& row : rows) EXPECT_EQ(refusalOf(row.words), row.why + std::string("; see 'pmenv stats --help'"));
    EXPECT_EQ(refusalOf({"--openmetrics", "--count", "1"}), "taken");
}

TEST(JudgeOptions, NumbersHaveTheirRanges) {
    EXPECT_THAT(rangesOf(judgeCommand()),
                ElementsAre("duration 2 to 1e+09", "skip 0 to 1e+09", "percentile 0 to 100", "tolerance 1 to 60000",
                            "pid 1 to 4.1943e+06 whole", "engines 1 to 1e+09 whole", "cpu-limit 0 to 1000",
                            "engine-limit 0 to 100000", "sustain 0 to 1e+09", "memory-limit 0 to 100",
                            "swap-limit 0 to 1e+09", "from 0 to 1e+09", "to 0 to 1e+09"));
}

CommandLine judgeLine(std::vector<std::string> words) {
    words.insert(words.begin(), "judge");
    const Grammar grammar{{{"json", Option::Kind::Flag, nullptr, ""}}, {judgeCommand()}};
    return CommandLine::parse(grammar, words);
}

TEST(JudgeOptions, LimitsAreWhatIsAskedForAndElseWhatTheyWere) {
    JudgeLimits before;
    before.percentile = 50;
    before.tolerance = 0.5;
    before.skip = 1;
    before.engines = 2;
    before.machinePercent = 3;
    before.enginePercent = 4;
    before.sustain = 5;
    before.memoryPercent = 6;
    before.swapMegabytes = 7;
    const JudgeLimits kept = judgeLimits(judgeLine({}), before);
    EXPECT_EQ(kept.percentile, 50);
    EXPECT_EQ(kept.tolerance, 0.5);
    EXPECT_EQ(kept.skip, 1);
    EXPECT_EQ(kept.engines, 2u);
    EXPECT_EQ(kept.machinePercent, 3);
    EXPECT_EQ(kept.enginePercent, 4);
    EXPECT_EQ(kept.sustain, 5);
    EXPECT_EQ(kept.memoryPercent, 6);
    EXPECT_EQ(kept.swapMegabytes, 7);

    const JudgeLimits asked = judgeLimits(
        judgeLine({"--percentile", "95", "--tolerance", "20", "--skip", "11", "--engines", "12", "--cpu-limit", "13",
                   "--engine-limit", "14", "--sustain", "0", "--memory-limit", "16", "--swap-limit", "17"}),
        before);
    EXPECT_EQ(asked.percentile, 95);
    EXPECT_EQ(asked.tolerance, 0.02);
    EXPECT_EQ(asked.skip, 11);
    EXPECT_EQ(asked.engines, 12u);
    EXPECT_EQ(asked.machinePercent, 13);
    EXPECT_EQ(asked.enginePercent, 14);
    EXPECT_EQ(asked.sustain, 0);
    EXPECT_EQ(asked.memoryPercent, 16);
    EXPECT_EQ(asked.swapMegabytes, 17);
}

TEST(JudgeOptions, HowLongToPassALimitNeedsALimit) {
    EXPECT_EQ(judgeLimits(judgeLine({"--sustain", "5", "--cpu-limit", "80"})).sustain, 5);
    EXPECT_EQ(judgeLimits(judgeLine({"--sustain", "5", "--engine-limit", "80"})).sustain, 5);
    EXPECT_THROW(judgeLimits(judgeLine({"--sustain", "5", "--memory-limit", "80"})), Failure);
}

TEST(JudgeOptions, AFileNeedsAName) {
    EXPECT_EQ(fileOption(judgeLine({}), "junit"), "");
    EXPECT_EQ(fileOption(judgeLine({"--junit", "a"}), "junit"), "a");
    EXPECT_THROW(fileOption(judgeLine({"--junit", ""}), "junit"), Failure);
}

}  // namespace
