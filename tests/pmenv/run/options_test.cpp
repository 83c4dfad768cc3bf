// The options of stats and judge: the numbers that they take.
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commandLine.h"
#include "failure.h"
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

}  // namespace
