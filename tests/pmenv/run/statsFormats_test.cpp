// statsFormats: a sample and a verdict as programs read them.
#include <algorithm>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleFigures.h"
#include "statsFormats.h"
#include "verdict.h"

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

Figures sample() {
    Figures figures = figuresAt(3);
    figures.cpuPercent = 12.5;
    figures.engines = {engine(7, std::nullopt, std::nullopt), engine(8, 25.0, 1000), engine(9, 75.0, 3000)};
    return figures;
}

Figures unknownSample() {
    Figures figures = figuresAt(3);
    figures.cpuPercent.reset();
    figures.availableBytes.reset();
    figures.swapUsedBytes.reset();
    return figures;
}

TEST(StatsFormats, TimeIsUtcToTheMillisecond) { EXPECT_EQ(isoTime(figuresAt(0).time), "2001-09-09T01:46:40.123Z"); }

TEST(StatsFormats, JsonIsExactAndUnknownIsNull) {
    EXPECT_EQ(
        statsJson(sample()).dump(),
        R"({"time":"2001-09-09T01:46:40.123Z","processors":4,"cpuPercent":12.5,"memoryBytes":10737418240,)"
        R"("freeBytes":8589934592,"availableBytes":10737418240,"swapBytes":2147483648,"swapUsedBytes":0,"engines":[)"
        R"({"pid":7,"name":"PMLoadEngineMai","cpuPercentOfOne":null,"residentBytes":null},)"
        R"({"pid":8,"name":"PMLoadEngineMai","cpuPercentOfOne":25.0,"residentBytes":1000},)"
        R"({"pid":9,"name":"PMLoadEngineMai","cpuPercentOfOne":75.0,"residentBytes":3000}]})");
    EXPECT_THAT(statsJson(unknownSample()).dump(),
                AllOf(HasSubstr("\"cpuPercent\":null"), HasSubstr("\"availableBytes\":null"),
                      HasSubstr("\"swapUsedBytes\":null")));
}

TEST(StatsFormats, CsvHasALineForEachEngine) {
    const std::string machine = "2001-09-09T01:46:40.123Z,4,12.5,10737418240,8589934592,10737418240,2147483648,0,";
    EXPECT_EQ(statsCsv(sample()), machine + "7,,\n" + machine + "8,25.0,1000\n" + machine + "9,75.0,3000\n");
    EXPECT_EQ(statsCsv(unknownSample()), "2001-09-09T01:46:40.123Z,4,,10737418240,8589934592,,2147483648,,,,\n");
    const auto commas = [](const std::string& line) { return std::count(line.begin(), line.end(), ','); };
    EXPECT_EQ(commas(csvHeader()), commas(statsCsv(unknownSample())));
}

TEST(StatsFormats, ExpositionSumsTheEnginesOfAName) {
    const std::string text = statsOpenMetrics(sample(), false);
    for (const char* const line : {"\npmenv_machine_cpu_ratio 0.125\n", "\npmenv_machine_memory_bytes 10737418240\n",
                                   "# TYPE pmenv_engines gauge\npmenv_engines{name=\"PMLoadEngineMai\"} 3\n",
                                   "\npmenv_engines_cpu_ratio{name=\"PMLoadEngineMai\"} 1.0\n",
                                   "\npmenv_engines_cpu_max_ratio{name=\"PMLoadEngineMai\"} 0.75\n",
                                   "\npmenv_engines_memory_bytes{name=\"PMLoadEngineMai\"} 4000\n",
                                   "\npmenv_engines_memory_max_bytes{name=\"PMLoadEngineMai\"} 3000\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
    }
    EXPECT_THAT(text, Not(HasSubstr("pid")));
    EXPECT_EQ(text.substr(text.size() - 6), "# EOF\n");
}

TEST(StatsFormats, ExpositionNamesProcessesOnlyWhenAsked) {
    const std::string text = statsOpenMetrics(sample(), true);
    EXPECT_THAT(text, HasSubstr("\npmenv_engine_cpu_ratio{name=\"PMLoadEngineMai\",pid=\"8\"} 0.25\n"));
    EXPECT_THAT(text, HasSubstr("\npmenv_engine_memory_bytes{name=\"PMLoadEngineMai\",pid=\"9\"} 3000\n"));
    EXPECT_THAT(text, Not(HasSubstr("pid=\"7\""))) << "nothing is known of it yet";
}

TEST(StatsFormats, ExpositionLeavesOutWhatIsUnknown) {
    const std::string text = statsOpenMetrics(unknownSample(), true);
    EXPECT_THAT(text, Not(HasSubstr("cpu_ratio")));
    EXPECT_THAT(text, Not(HasSubstr("available")));
    EXPECT_THAT(text, HasSubstr("\npmenv_engines{name=\"PMLoadEngineMai\"} 0\n"));
}

TEST(StatsFormats, ExpositionEscapesNames) {
    Figures figures = figuresAt(0);
    figures.engines = {{7, "a\"b\\c\nd", 1.0, 1}};
    EXPECT_THAT(statsOpenMetrics(figures, false), HasSubstr("{name=\"a\\\"b\\\\c\\nd\"} 1\n"));
}

TEST(StatsFormats, VerdictAsJson) {
    VerdictLimits limits;
    limits.seconds = 0;
    Verdict verdict(limits);
    verdict.add(figuresAt(0));
    EXPECT_EQ(verdictJson(verdict).at("verdict"), "healthy");
    Figures busy = figuresAt(1);
    busy.engines = {engine(7, 99.0)};
    busy.availableBytes.reset();
    verdict.add(busy);
    const Json json = verdictJson(verdict);
    EXPECT_EQ(json.at("verdict"), "saturated");
    ASSERT_EQ(json.at("findings").size(), 1u);
    EXPECT_EQ(json["findings"][0].at("kind"), "engineCpu");
    EXPECT_EQ(json["findings"][0].at("pid"), 7);
    EXPECT_EQ(json["findings"][0].at("worst"), 99.0);
}

}  // namespace
