// The parts of pmenv that work on values alone: the verdict, the live screen's lines, numbers as people and programs
// read them, tables and suggestions.
#include <clocale>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "figures.h"
#include "nearest.h"
#include "screen.h"
#include "statsFormats.h"
#include "table.h"
#include "text.h"
#include "units.h"
#include "verdict.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr std::uint64_t kGiB = 1024ULL * 1024 * 1024;
constexpr std::uint64_t kMiB = 1024ULL * 1024;

// A machine at rest with 10 GiB, all of it available.
Figures figuresAt(double seconds) {
    Figures figures{};
    figures.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'000'000'000'123));
    figures.seconds = seconds;
    figures.processors = 4;
    figures.cpuPercent = 5.0;
    figures.memoryBytes = 10 * kGiB;
    figures.freeBytes = 8 * kGiB;
    figures.availableBytes = 10 * kGiB;
    figures.swapBytes = 2 * kGiB;
    figures.swapUsedBytes = 0;
    return figures;
}

EngineFigures engine(int processId, std::optional<double> percent, std::optional<std::uint64_t> bytes = 3 * kMiB) {
    return {processId, kEngineName, percent, bytes};
}

// --- verdict --------------------------------------------------------------------------------------------------------

class VerdictTest : public testing::Test {
protected:
    // One sample a second from the second after the last one, each with the machine at `percent`.
    void machine(std::optional<double> percent, int samples) {
        for (int i = 0; i < samples; ++i) {
            Figures figures = figuresAt(next_++);
            figures.cpuPercent = percent;
            verdict_.add(figures);
        }
    }

    void engines(const std::vector<EngineFigures>& engines, int samples) {
        for (int i = 0; i < samples; ++i) {
            Figures figures = figuresAt(next_++);
            figures.engines = engines;
            verdict_.add(figures);
        }
    }

    void available(std::optional<std::uint64_t> bytes) {
        Figures figures = figuresAt(next_++);
        figures.availableBytes = bytes;
        verdict_.add(figures);
    }

    void swapUsed(std::optional<std::uint64_t> bytes) {
        Figures figures = figuresAt(next_++);
        figures.swapUsedBytes = bytes;
        verdict_.add(figures);
    }

    Finding onlyFinding() const {
        EXPECT_EQ(verdict_.findings().size(), 1u);
        return verdict_.findings().empty() ? Finding{} : verdict_.findings()[0];
    }

    Verdict verdict_{VerdictLimits{}};
    double next_ = 0;
};

TEST_F(VerdictTest, NothingSeenIsHealthy) {
    EXPECT_FALSE(verdict_.saturated());
    EXPECT_EQ(verdict_.seconds(), 0);
}

TEST_F(VerdictTest, MachineAtItsLimitForTenSecondsIsSaturated) {
    machine(5.0, 1);
    machine(90.0, 9);
    EXPECT_FALSE(verdict_.saturated()) << "nine seconds";
    machine(90.0, 1);
    ASSERT_TRUE(verdict_.saturated());
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::MachineCpu);
    EXPECT_EQ(onlyFinding().since, 0);
    EXPECT_EQ(onlyFinding().seconds, 10);
    EXPECT_EQ(onlyFinding().worst, 90.0);
    EXPECT_TRUE(onlyFinding().lasting);
}

TEST_F(VerdictTest, MachineJustUnderItsLimitIsHealthy) {
    machine(89.99, 1000);
    EXPECT_FALSE(verdict_.saturated());
    EXPECT_EQ(verdict_.busiestMachine(), 89.99);
    EXPECT_EQ(verdict_.seconds(), 999);
}

TEST_F(VerdictTest, ADipBeginsAnew) {
    machine(5.0, 1);
    for (int i = 0; i < 20; ++i) {
        machine(100.0, 9);
        machine(89.0, 1);
    }
    EXPECT_FALSE(verdict_.saturated());
}

TEST_F(VerdictTest, AnUnknownFigureNeitherEndsNorLengthensAStretch) {
    machine(5.0, 1);
    machine(95.0, 5);
    machine(std::nullopt, 4);
    EXPECT_FALSE(verdict_.saturated());
    machine(95.0, 1);
    EXPECT_EQ(onlyFinding().seconds, 10);
}

TEST_F(VerdictTest, TheFirstSampleHasNothingBeforeIt) {
    machine(95.0, 10);
    EXPECT_FALSE(verdict_.saturated()) << "ten samples are nine seconds";
    machine(95.0, 1);
    EXPECT_TRUE(verdict_.saturated());
}

TEST_F(VerdictTest, KeepsTheLongestStretchAndTellsWhetherOneLasts) {
    machine(5.0, 1);
    machine(92.0, 20);
    machine(5.0, 5);
    EXPECT_FALSE(onlyFinding().lasting);
    machine(99.0, 9);
    EXPECT_FALSE(onlyFinding().lasting) << "not long enough yet";
    machine(99.0, 1);
    EXPECT_TRUE(onlyFinding().lasting);
    EXPECT_EQ(onlyFinding().seconds, 20);
    EXPECT_EQ(onlyFinding().worst, 92.0);
    machine(99.0, 11);
    EXPECT_EQ(onlyFinding().seconds, 21);
    EXPECT_EQ(onlyFinding().since, 25);
    EXPECT_EQ(onlyFinding().worst, 99.0);
}

TEST_F(VerdictTest, OneEngineAtItsLimitIsSaturatedOnAnIdleMachine) {
    engines({engine(7, std::nullopt), engine(8, 3.0)}, 2);
    engines({engine(7, 95.0), engine(8, 94.0)}, 10);
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::EngineCpu);
    EXPECT_EQ(onlyFinding().processId, 7);
    EXPECT_EQ(verdict_.busiestEngine(), 95.0);
    EXPECT_EQ(verdict_.engineCount(), 2u);
}

TEST_F(VerdictTest, EnginesAreFollowedEachOnItsOwn) {
    engines({engine(7, 0.0), engine(8, 0.0)}, 1);
    for (int i = 0; i < 10; ++i) {
        engines({engine(7, 100.0), engine(8, 0.0)}, 5);
        engines({engine(7, 0.0), engine(8, 100.0)}, 5);
    }
    EXPECT_FALSE(verdict_.saturated());
}

TEST_F(VerdictTest, AnEngineThatEndsEndsItsStretch) {
    engines({engine(7, 0.0)}, 1);
    engines({engine(7, 100.0)}, 9);
    engines({}, 1);
    engines({engine(7, 100.0)}, 9);
    EXPECT_FALSE(verdict_.saturated());
    engines({engine(7, 100.0)}, 1);
    EXPECT_TRUE(onlyFinding().lasting);
    engines({}, 1);
    EXPECT_FALSE(onlyFinding().lasting);
}

TEST_F(VerdictTest, LittleAvailableMemoryIsFoundAtOnce) {
    available(kGiB);
    EXPECT_FALSE(verdict_.saturated()) << "exactly a tenth";
    available(kGiB - 1);
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::Memory);
    EXPECT_EQ(onlyFinding().since, 1);
    EXPECT_TRUE(onlyFinding().lasting);
    available(kGiB / 2);
    available(5 * kGiB);
    EXPECT_FALSE(onlyFinding().lasting);
    EXPECT_EQ(onlyFinding().worst, 5.0);
    EXPECT_EQ(verdict_.leastMemory(), 5.0);
}

TEST_F(VerdictTest, UnknownMemoryIsNoFinding) {
    available(std::nullopt);
    EXPECT_FALSE(verdict_.saturated());
    EXPECT_EQ(verdict_.leastMemory(), std::nullopt);
}

TEST_F(VerdictTest, GrowingSwapIsFoundFromItsLeastOn) {
    swapUsed(std::nullopt);
    swapUsed(500 * kMiB);
    swapUsed(400 * kMiB);
    swapUsed(401 * kMiB);
    EXPECT_FALSE(verdict_.saturated()) << "full but not growing";
    swapUsed(401 * kMiB + 1);
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::Swap);
    EXPECT_EQ(onlyFinding().since, 4);
    swapUsed(450 * kMiB);
    swapUsed(400 * kMiB);
    EXPECT_FALSE(onlyFinding().lasting);
    EXPECT_EQ(onlyFinding().worst, 50.0 * kMiB);
    EXPECT_EQ(verdict_.swapGrowth(), 50 * kMiB);
}

TEST(Verdict, LimitsAreOptions) {
    VerdictLimits limits;
    limits.machinePercent = 50;
    limits.enginePercent = 20;
    limits.seconds = 2;
    limits.memoryPercent = 60;
    limits.swapMegabytes = 0;
    Verdict verdict(limits);
    for (const double second : {0.0, 1.0, 2.0}) {
        Figures figures = figuresAt(second);
        figures.cpuPercent = 50.0;
        figures.engines = {engine(7, 20.0)};
        figures.availableBytes = 5 * kGiB;
        figures.swapUsedBytes = static_cast<std::uint64_t>(second);
        verdict.add(figures);
    }
    std::vector<Finding::Kind> kinds;
    for (const Finding& finding : verdict.findings()) kinds.push_back(finding.kind);
    EXPECT_THAT(kinds, ElementsAre(Finding::Kind::MachineCpu, Finding::Kind::EngineCpu, Finding::Kind::Memory,
                                   Finding::Kind::Swap));
}

TEST_F(VerdictTest, SaysInWordsWhatIsWrong) {
    machine(5.0, 3);
    machine(99.5, 12);
    engines({engine(7, 0.0)}, 1);
    engines({engine(7, 101.0)}, 10);
    available(kGiB / 2);
    swapUsed(3 * kMiB);
    EXPECT_EQ(
        verdictText(verdict_),
        "Saturated: this load generator was itself the bottleneck (watched for 27 s, 1 load engine).\n"
        "  - the machine's processors were at or over 90.0 % for 12 s, from second 2 on (up to 99.5 %): load is sent "
        "late; "
        "use more load generators\n"
        "  - load engine 7 was at or over 95.0 % of one processor for 10 s, from second 15 on (up to 101.0 %): it "
        "sends "
        "its load late; spread its work over more engines\n"
        "  - available memory fell to 5.0 %, under 10.0 % from second 26 on: the machine may start to swap; run fewer "
        "users here\n"
        "  - swap in use grew by 3.0 MiB, from second 27 on: engines wait for the disk; run fewer users here\n");
}

TEST_F(VerdictTest, SaysInWordsThatAllIsWell) {
    machine(5.0, 61);
    EXPECT_EQ(verdictText(verdict_),
              "Healthy: this load generator was not the bottleneck (watched for 60 s, 0 load engines).\n"
              "  processors of the machine: at most 5.0 %\n"
              "  busiest load engine: at most - of one processor\n"
              "  available memory: at least 100.0 %\n"
              "  growth of swap in use: 0 B\n");
}

// --- numbers --------------------------------------------------------------------------------------------------------

TEST(Units, BytesForPeople) {
    const struct {
        std::optional<std::uint64_t> bytes;
        const char* text;
    } rows[] = {
        {std::nullopt, "-"},
        {0, "0 B"},
        {1023, "1023 B"},
        {1024, "1.0 KiB"},
        {1024 * 1024 - 1, "1.0 MiB"},
        {1536 * kMiB, "1.5 GiB"},
        {15 * kGiB, "15.0 GiB"},
        {UINT64_MAX, "16.0 EiB"},
    };
    for (const auto& row : rows) EXPECT_EQ(bytesText(row.bytes), row.text);
}

TEST(Units, BarIsFilledToItsShare) {
    EXPECT_EQ(bar(0.0, 10), "[        ]");
    EXPECT_EQ(bar(0.5, 10), "[||||    ]");
    EXPECT_EQ(bar(1.0, 10), "[||||||||]");
    EXPECT_EQ(bar(7.0, 10), "[||||||||]");
    EXPECT_EQ(bar(std::nullopt, 10), "[        ]");
    EXPECT_EQ(bar(0.5, 0), "[]");
}

TEST(Units, SparklineShowsTheLastFigures) {
    EXPECT_EQ(sparkline({0.0, 50.0, 100.0}, 10), "▁▅█");
    EXPECT_EQ(sparkline({0.0, 50.0, 100.0}, 2), "▅█");
    EXPECT_EQ(sparkline({std::nullopt, 0.0}, 10), " ▁");
    EXPECT_EQ(sparkline({100.0, 400.0}, 10), "▃█") << "an engine with several busy threads";
    EXPECT_EQ(sparkline({}, 10), "");
}

TEST(Figures, ReadsMemInfo) {
    constexpr char kText[] =
        "MemTotal:       24731708 kB\nMemFree:  1 kB\nMemAvailable:   24492268 kB\nSwapCached: 0 kB\n"
        "SwapTotal:       2097148 kB\nSwapFree:        2097144 kB\n";
    EXPECT_EQ(parseMemInfo(kText).availableBytes, 24492268ULL * 1024);
    EXPECT_EQ(parseMemInfo(kText).swapUsedBytes, 4096u);
}

TEST(Figures, WhatMemInfoDoesNotTellIsUnknown) {
    for (const char* const text :
         {"", "MemTotal: 1 kB\n", "\nMemAvailable:\n", "\nMemAvailable: x kB\n", "\nMemAvailable: -1 kB\n",
          "\nMemAvailable: 1 MB\n", "\nMemAvailable: 99999999999999999999 kB\n",
          "\nMemAvailable: 18446744073709551615 kB\n", "\nSwapTotal: 1 kB\n", "\nSwapTotal: 1 kB\nSwapFree: 2 kB\n"}) {
        EXPECT_EQ(parseMemInfo(text).availableBytes, std::nullopt) << text;
        EXPECT_EQ(parseMemInfo(text).swapUsedBytes, std::nullopt) << text;
    }
}

// --- formats --------------------------------------------------------------------------------------------------------

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

// --- the live screen ------------------------------------------------------------------------------------------------

class ScreenTest : public testing::Test {
protected:
    ScreenTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }

    std::vector<std::string> lines(const Figures& figures, std::size_t columns, std::size_t rows) const {
        return screenLines(figures, history_, verdict_, {columns, rows}, Style(-1));
    }

    History history_;
    Verdict verdict_{VerdictLimits{}};
};

TEST_F(ScreenTest, ShowsBarsAndTheBusiestEngineFirst) {
    for (const double percent : {0.0, 100.0}) history_.add({engine(8, percent), engine(9, std::nullopt)});
    Figures figures = figuresAt(0);
    figures.cpuPercent = 50.0;
    figures.availableBytes = 5 * kGiB;
    figures.engines = {engine(9, std::nullopt), engine(7, 3.0), engine(8, 100.0)};
    EXPECT_THAT(lines(figures, 60, 20),
                ElementsAre("2001-09-09T01:46:40.123Z   q quits",
                            "CPU     [|||||||||||||             ]  50.0 % of 4 processors",
                            "Memory  [|||||     ]  5.0 GiB of 10.0 GiB, 5.0 GiB available",
                            "Swap    [                                  ]  0 B of 2.0 GiB", "",
                            "    PID   OF ONE      MEMORY  LOAD ENGINES 3", "      8   100.0 %     3.0 MiB  ▁█",
                            "      7     3.0 %     3.0 MiB  ", "      9         -     3.0 MiB    "));
}

TEST_F(ScreenTest, AlwaysFitsTheTerminal) {
    Figures figures = figuresAt(0);
    for (int i = 0; i < 50; ++i) figures.engines.push_back(engine(1000 + i, i * 2.0));
    for (int i = 0; i < 300; ++i) history_.add(figures.engines);
    Figures bad = figuresAt(0);
    bad.availableBytes = 0;
    verdict_.add(bad);
    figures.warnings = {"a message\nwith a control character and words to fill a line or two of the screen"};
    for (std::size_t columns = 1; columns < 130; ++columns) {
        for (const std::size_t rows : {1, 2, 5, 10, 40, 100}) {
            const auto shown = lines(figures, columns, rows);
            ASSERT_LE(shown.size(), rows);
            for (const std::string& line : shown)
                ASSERT_LE(displayWidth(line), columns) << columns << "x" << rows << line;
        }
    }
}

TEST_F(ScreenTest, TellsOfEnginesThatDoNotFit) {
    Figures figures = figuresAt(0);
    for (int i = 0; i < 10; ++i) figures.engines.push_back(engine(1000 + i, 1.0));
    const auto shown = lines(figures, 80, 10);
    ASSERT_EQ(shown.size(), 10u);
    EXPECT_EQ(shown.back(), "    and 7 more");
    EXPECT_THAT(lines(figures, 80, 16).back(), StartsWith("   1009"));
}

TEST_F(ScreenTest, WarnsWhileAFindingLasts) {
    Figures bad = figuresAt(0);
    bad.availableBytes = 0;
    verdict_.add(bad);
    EXPECT_THAT(lines(bad, 200, 20), testing::Contains(StartsWith("! available memory fell to 0.0 %")));
    verdict_.add(figuresAt(1));
    EXPECT_THAT(lines(figuresAt(1), 200, 20), Not(testing::Contains(StartsWith("!"))));
}

TEST_F(ScreenTest, ForgetsEnginesThatHaveGone) {
    history_.add({engine(7, 1.0), engine(8, 1.0)});
    history_.add({engine(8, 1.0)});
    EXPECT_THAT(history_.of(7), IsEmpty());
    EXPECT_EQ(history_.of(8).size(), 2u);
}

// --- texts ----------------------------------------------------------------------------------------------------------

class TextTest : public testing::Test {
protected:
    TextTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
};

TEST_F(TextTest, WidthCountsColumns) {
    EXPECT_EQ(displayWidth("abc"), 3u);
    EXPECT_EQ(displayWidth("grüße"), 5u);
    EXPECT_EQ(displayWidth("日本"), 4u);
    EXPECT_EQ(displayWidth("a\xcc\x81"), 1u) << "a combining accent takes no column";
    EXPECT_EQ(displayWidth("\xff"), 1u);
}

TEST_F(TextTest, CutsBetweenCharacters) {
    EXPECT_EQ(cutToWidth("abcdef", 6), "abcdef");
    EXPECT_EQ(cutToWidth("abcdef", 5), "abcd…");
    EXPECT_EQ(cutToWidth("日本語", 5), "日本…");
    EXPECT_EQ(cutToWidth("日本語", 4), "日…");
    EXPECT_EQ(cutToWidth("abc", 1), "…");
    EXPECT_EQ(cutToWidth("abc", 0), "");
}

TEST_F(TextTest, PrintableShowsWhatATerminalWouldObey) {
    EXPECT_EQ(printable("a\tb\nc\r"), "a\\tb\\nc\\r");
    EXPECT_EQ(printable("\x1b[31m\x7f"), "\\x1b[31m\\x7f");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b") << "the one-character form of ESC [";
    EXPECT_EQ(printable("grüße \xff"), "grüße \\xff");
}

TEST_F(TextTest, TableCutsTheWidestColumnsFirst) {
    Table table({{"A"}, {"B", true}, {"C"}});
    table.add({"short", "12", std::string(40, 'x')});
    EXPECT_EQ(table.text(Style(-1), 30), "A       B  C\nshort  12  " + std::string(18, 'x') + "…\n");
    EXPECT_EQ(table.text(Style(-1), std::nullopt), "A       B  C\nshort  12  " + std::string(40, 'x') + "\n");
    EXPECT_EQ(table.text(Style(-1), 1), "A       B  C\nshort  12  xxxxx…\n") << "never narrower than can be read";
}

TEST(NearestNames, SuggestsWhatIsFewLettersAway) {
    const std::vector<std::string> known{"KR_VERSION", "KR_BUILD", "INCLUDE_PATH", "A", "PORT", "PORTS", "PORT"};
    EXPECT_THAT(nearestNames("KR_VERSON", known), ElementsAre("KR_VERSION"));
    EXPECT_THAT(nearestNames("KR_VESRION", known), ElementsAre("KR_VERSION"));
    EXPECT_THAT(nearestNames("kr_build", known), ElementsAre("KR_BUILD"));
    EXPECT_THAT(nearestNames("PORTT", known), ElementsAre("PORT", "PORTS"));
    EXPECT_THAT(nearestNames("a", known), ElementsAre("A"));
    EXPECT_THAT(nearestNames("B", known), IsEmpty());
    EXPECT_THAT(nearestNames("", known), IsEmpty());
    EXPECT_THAT(nearestNames(std::string(100000, 'x'), known), IsEmpty());
}

TEST(NearestNames, SentenceHasUpToThree) {
    EXPECT_EQ(didYouMean({}), "");
    EXPECT_EQ(didYouMean({"A"}), "; did you mean 'A'?");
    EXPECT_EQ(didYouMean({"A", "B", "C"}), "; did you mean 'A', 'B' or 'C'?");
}

}  // namespace
