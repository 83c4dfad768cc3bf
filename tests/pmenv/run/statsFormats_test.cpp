// statsFormats: a sample as programs read it.
#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleFigures.h"
#include "chart/csv.h"
#include "isoTime.h"
#include "statsFormats.h"

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

namespace {

Figures sample() {
    Figures figures = figuresAt(3);
    figures.cpuPercent = 12.5;
    figures.engines = {engine(7, std::nullopt, std::nullopt), engine(8, 25.0, 1000), engine(9, 75.0, 3000)};
    figures.engines[1].heldBack = HeldBackFigures{12.5, 40.0, 88, "a,b", 97.5};
    figures.engines[2].heldBack = HeldBackFigures{50.0, std::nullopt, 99, "sender", 6.25};
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
        R"({"time":"2001-09-09T01:46:40.123Z","host":"loadhost","processors":4,"cpuPercent":12.5,)"
        R"("memoryBytes":10737418240,"freeBytes":8589934592,"availableBytes":10737418240,"swapBytes":2147483648,"swapUsedBytes":0,"engines":[)"
        R"({"pid":7,"name":"PMLoadEngineMai","cpuPercentOfOne":null,"residentBytes":null,)"
        R"("heldBackPercent":null,"throttledPercent":null,"worstThread":null},)"
        R"({"pid":8,"name":"PMLoadEngineMai","cpuPercentOfOne":25.0,"residentBytes":1000,)"
        R"("heldBackPercent":12.5,"throttledPercent":40.0,"worstThread":{"tid":88,"name":"a,b","busyPercent":97.5}},)"
        R"({"pid":9,"name":"PMLoadEngineMai","cpuPercentOfOne":75.0,"residentBytes":3000,)"
        R"("heldBackPercent":50.0,"throttledPercent":null,"worstThread":{"tid":99,"name":"sender","busyPercent":6.25}}]})");
    EXPECT_THAT(statsJson(unknownSample()).dump(),
                AllOf(HasSubstr("\"cpuPercent\":null"), HasSubstr("\"availableBytes\":null"),
                      HasSubstr("\"swapUsedBytes\":null")));
}

TEST(StatsFormats, CsvHasALineForEachEngine) {
    const std::string machine =
        "2001-09-09T01:46:40.123Z,loadhost,4,12.5,10737418240,8589934592,10737418240,2147483648,0,";
    EXPECT_EQ(statsCsv(sample()), machine + "7,,,,,,\n" + machine + "8,25.0,1000,12.5,40.0,\"a,b\",97.5\n" + machine +
                                      "9,75.0,3000,50.0,,sender,6.25\n");
    EXPECT_EQ(statsCsv(unknownSample()),
              "2001-09-09T01:46:40.123Z,loadhost,4,,10737418240,8589934592,,2147483648,,,,,,,,\n");
    const auto commas = [](const std::string& line) { return std::count(line.begin(), line.end(), ','); };
    EXPECT_EQ(commas(csvHeader()), commas(statsCsv(unknownSample())));
}

TEST(StatsFormats, CsvKeepsNamesOfAnyBytes) {
    std::string name;
    for (int byte = 1; byte < 256; ++byte) name += static_cast<char>(byte);
    Figures figures = sample();
    figures.host = name;
    figures.engines.resize(1);
    figures.engines[0].heldBack.emplace().worstThreadName = name;
    std::istringstream text(csvHeader() + statsCsv(figures));
    CsvReader reader(text);
    std::vector<std::string> names;
    std::vector<std::string> fields;
    ASSERT_EQ(reader.next(&names), CsvReader::Result::Row);
    ASSERT_EQ(reader.next(&fields), CsvReader::Result::Row);
    ASSERT_EQ(fields.size(), names.size());
    EXPECT_EQ(fields[1], name);
    EXPECT_EQ(fields[14], name);
    EXPECT_EQ(reader.next(&fields), CsvReader::Result::End);
}

TEST(StatsFormats, CsvKeepsAnOddHostNameInItsField) {
    Figures figures = figuresAt(0);
    figures.host = "a,\"b\"";
    EXPECT_THAT(statsCsv(figures), HasSubstr("Z,\"a,\"\"b\"\"\",4,"));
    figures.host = "a\nb";
    EXPECT_THAT(statsCsv(figures), HasSubstr("Z,\"a\nb\",4,"));
}

TEST(StatsFormats, TableNamesItsColumns) {
    Figures figures = figuresAt(0);
    figures.swapUsedBytes = kMiB;
    EXPECT_EQ(
        statsTable(figures, Style(-1), std::nullopt),
        "TIME                        CPU  PROCESSORS    MEMORY  AVAILABLE     FREE     SWAP  SWAP USED  ENGINES\n"
        "2001-09-09T01:46:40.123Z  5.0 %           4  10.0 GiB   10.0 GiB  8.0 GiB  2.0 GiB    1.0 MiB        0\n");
}

TEST(StatsFormats, TheBusiestEngineComesFirstAndOfEqualOnesTheOneWithTheLowerId) {
    const std::vector<std::vector<EngineFigures>> rows{
        {engine(9, 5.0), engine(7, std::nullopt), engine(6, 5.0), engine(5, std::nullopt), engine(8, 0.0)},
        {engine(5, std::nullopt), engine(7, std::nullopt), engine(6, 5.0), engine(9, 5.0), engine(8, 0.0)}};
    for (const std::vector<EngineFigures>& engines : rows) {
        std::vector<int> ids;
        for (const EngineFigures& each : byCpu(engines)) ids.push_back(each.processId);
        EXPECT_EQ(ids, (std::vector<int>{6, 9, 8, 5, 7}));
    }
}

TEST(StatsFormats, TableOfTheEnginesTellsWhatHeldThemBack) {
    const std::string text = statsTable(sample(), Style(-1), std::nullopt);
    EXPECT_EQ(text.substr(text.find("\n\n") + 2),
              "PID  OF ONE CPU   MEMORY  HELD BACK  THROTTLED  WORST THREAD  NAME\n"
              "  9      75.0 %  2.9 KiB     50.0 %          -  sender 6.2 %  PMLoadEngineMai\n"
              "  8      25.0 %   1000 B     12.5 %     40.0 %    a,b 97.5 %  PMLoadEngineMai\n"
              "  7           -        -          -          -             -  PMLoadEngineMai\n");
}

}  // namespace
