// The page: complete, well-formed, the same each time, and true to the run.
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChartRuns.h"
#include "chart/page.h"
#include "support/Subprocess.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string pageOf(ChartRun run, const std::optional<Results>& results = std::nullopt) {
    std::vector<ChartRun> runs;
    runs.push_back(std::move(run));
    return chartPage(runs, results);
}

// What a strict XML parser has against the page; "" when it accepts it.
std::string xmlErrors(const std::string& page) {
    const TempDir directory;
    const std::string path = directory.writeFile("page.xml", page);
    const ProgramResult result = runProgram({"/usr/bin/xmllint", "--noout", "--nonet", path});
    return result.status == 0 ? "" : "status " + std::to_string(result.status) + ": " + result.err.substr(0, 2000);
}

// The text of the first node that an XPath finds.
std::string found(const std::string& page, const std::string& path) {
    const TempDir directory;
    const std::string file = directory.writeFile("page.xml", page);
    return runProgram({"/usr/bin/xmllint", "--nonet", "--xpath", "string(" + path + ")", file}).out;
}

// Elements of the page by their local names, because the page has a namespace.
std::string byId(const std::string& id) { return "//*[@id='" + id + "']"; }

std::string everyByte() {
    std::string text;
    for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
    return text;
}

class ChartPage : public testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/bin/xmllint", X_OK) != 0) GTEST_SKIP() << "there is no xmllint on this machine";
    }
};

// From ten seconds on the times were rounded to tenths, so that rows stood at the same time or at a wrong one.
TEST(RawFigures, StandAtTheirExactTimes) { EXPECT_THAT(pageOf(spoiledRun(12)), testing::HasSubstr("\n10.25,0.25,")); }

TEST_F(ChartPage, OpensWithTheVerdictThenFindingsSignalsAndCharts) {
    const std::string page = pageOf(spoiledRun());
    EXPECT_EQ(xmlErrors(page), "");
    const char* parts[] = {">Spoiled</h1>",
                           "Percentiles up to p80 can be believed; p99 was asked for.",
                           "Watched 1 load engine for 10 s on loadhost, from 2026-11-21 22:26:40 UTC.",
                           "from 0:04.0, for 2 s",
                           "load engine 100 (PMLoadEngineMai): its thread 100 (sender) ran without a pause",
                           "spread its users over more engines",
                           "What is judged",
                           "What helps to explain it",
                           "Held back</h3>",
                           "The busiest thread</h3>",
                           "processors</h3>",
                           "Memory in use</h3>",
                           "Connections</h3>",
                           "<dt>host</dt><dd>loadhost</dd>",
                           "<dt>percentile</dt><dd>99</dd>",
                           "second,seconds,held_back_worst,held_back_worst_most"};
    std::size_t last = 0;
    for (const char* part : parts) {
        const std::size_t place = page.find(part, last);
        ASSERT_NE(place, std::string::npos) << part;
        last = place;
    }
}

TEST_F(ChartPage, NeedsNoScriptAndFetchesNothing) {
    const std::string page = pageOf(spoiledRun());
    for (const char* fetched : {"<script", "src=", "@import", "<link", "<img", "<iframe", "onload", "href=\"http"}) {
        EXPECT_THAT(page, Not(HasSubstr(fetched)));
    }
    for (std::size_t at = page.find("url("); at != std::string::npos; at = page.find("url(", at + 1)) {
        ASSERT_EQ(page.substr(at, 5), "url(#");
        EXPECT_THAT(page, HasSubstr("id=\"" + page.substr(at + 5, page.find(')', at) - at - 5) + "\""));
    }
    std::string rest = page;
    rest.erase(rest.find("http://www.w3.org/1999/xhtml"), 7);
    EXPECT_THAT(rest, Not(HasSubstr("http://")));
    EXPECT_THAT(rest, Not(HasSubstr("https://")));
}

TEST_F(ChartPage, ShadesTheTimeInWhichAnEngineWasHeldBackInEveryChart) {
    const std::string page = pageOf(spoiledRun());
    for (const char* chart : {"run1-held-back", "run1-thread", "run1-processors", "run1-memory", "run1-connections"}) {
        EXPECT_EQ(found(page, byId(chart) + "//*[@class='spoiled']/@x"), "40%\n") << chart;
        EXPECT_EQ(found(page, byId(chart) + "//*[@class='spoiled']/@width"), "20%\n") << chart;
    }
    const std::string clean = pageOf(chartRunOf(10, [](Evidence& evidence) { fillEngines(evidence, {20}); }));
    EXPECT_THAT(clean,
                AllOf(HasSubstr(">Clean</h1>"), Not(HasSubstr("class=\"spoiled\"")), Not(HasSubstr("What was found"))));
}

TEST_F(ChartPage, DrawsFiguresAsStepsAndGapsAsGaps) {
    const std::string page = pageOf(chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20});
        evidence.engines[0].descriptorShare = evidence.from < 5 ? 0.5 : 1.0;
        if (evidence.from >= 2 && evidence.from < 4) evidence.engines[0].descriptorShare.reset();
    }));
    EXPECT_EQ(found(page, byId("run1-connections") + "//*[@class='line engine1'][@d]/@d"),
              "M0 55H200M400 55H500V0H1000\n");
    EXPECT_THAT(found(page, byId("run1-connections")), HasSubstr("Gaps: for 2 s nothing is known."));
}

// A line to the end of the run would say that the engine kept its schedule until then.
TEST_F(ChartPage, TheLineOfAnEngineEndsWithIt) {
    const std::string page = pageOf(chartRunOf(10, [](Evidence& evidence) {
        const bool isBusy = evidence.from >= 2 && evidence.from < 3;
        fillEngines(evidence, Did{isBusy ? 100.0 : 20.0}, evidence.from < 5 ? 2 : 1);
    }));
    EXPECT_EQ(found(page, byId("run1-held-back") + "//*[@class='line engine1'][@d]/@d"), "M0 110H200V0H300V110H1000\n");
    EXPECT_EQ(found(page, byId("run1-held-back") + "//*[@class='line engine2'][@d]/@d"), "M0 110H200V0H300V110H500\n");
}

TEST_F(ChartPage, StacksWhatTheBusiestThreadDid) {
    const std::string page = pageOf(chartRunOf(10, [](Evidence& evidence) { fillEngines(evidence, {50, 25}); }));
    EXPECT_EQ(found(page, byId("run1-thread") + "//*[@class='area running'][@d]/@d"), "M0 55H1000V110H0Z\n");
    EXPECT_EQ(found(page, byId("run1-thread") + "//*[@class='area waiting'][@d]/@d"), "M0 27.5H1000V55H0Z\n");
    EXPECT_EQ(found(page, byId("run1-thread") + "//*[@class='area blocked'][@d]/@d"), "\n");
}

// On a telephone the picture is squeezed to a third, and its hatchings to grey, unless they are wider there.
TEST_F(ChartPage, HatchesEveryAreaAlsoOnNarrowScreens) {
    const std::string page = pageOf(spoiledRun());
    for (const std::string look : {"others", "stolen", "waiting", "throttled", "blocked", "stopped"}) {
        EXPECT_THAT(page, HasSubstr(".plot .area." + look + " { fill: url(#hatch-" + look + "-narrow); }"));
        EXPECT_EQ(found(page, byId("hatch-" + look + "-narrow") + "/@patternTransform"), "scale(3 1)\n");
    }
}

// Where nothing may be broken before the figures, a narrow screen breaks the label instead.
TEST_F(ChartPage, ALegendMayBreakBeforeItsFigures) {
    EXPECT_THAT(pageOf(spoiledRun()), HasSubstr("the engine <span class=\"quiet\">mean "));
}

TEST_F(ChartPage, WhatHasNothingToShowIsALineAndUnknownIsSaid) {
    const std::string page = pageOf(chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20});
        evidence.machine.memoryAvailableShare.reset();
    }));
    EXPECT_THAT(page, HasSubstr("<b>Throttling</b>: not known"));
    EXPECT_THAT(page, HasSubstr("<b>Swap in use</b>: none throughout"));
    EXPECT_THAT(page, HasSubstr("<b>Memory in use</b>: not known"));
}

TEST_F(ChartPage, NamesOfAnyBytesStayText) {
    ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {30, 0, 70});
        evidence.engines[0].name = everyByte();
        evidence.engines[0].busiest->name = everyByte();
        evidence.engines[0].group.throttledGroup = everyByte();
        evidence.engines[0].group.quota = 0.3;
        evidence.others = {{everyByte(), 5, 1}};
    });
    run.host = everyByte();
    run.facts = {{everyByte(), everyByte()}};
    run.options = {{everyByte(), everyByte()}};
    run.marks = {{1, everyByte()}, {9, everyByte()}};
    run.remarks = {everyByte()};
    const std::string hostile = "</title></style></pre></svg><script>alert(1)</script>\"'&amp;";
    run.facts.emplace_back("hostile", hostile);
    run.marks.push_back({5, hostile});
    const std::string page = pageOf(std::move(run));
    EXPECT_EQ(xmlErrors(page), "");
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_EQ(found(page, "//*[local-name()='dt'][.='hostile']/following-sibling::*[1]"), hostile + "\n");
}

TEST_F(ChartPage, MarksAreFlagsWithTheirTextAndALineInEveryChart) {
    ChartRun run = spoiledRun();
    run.marks = {{2.5, "ramp-up ends"}, {9, "cool-down"}};
    const std::string page = pageOf(std::move(run));
    EXPECT_EQ(found(page, "//*[@class='flag'][contains(.,'ramp-up ends')]/@x"), "25%\n");
    EXPECT_EQ(found(page, "//*[@class='flag'][contains(.,'cool-down')]/@text-anchor"), "end\n");
    for (const char* chart : {"run1-held-back", "run1-processors"}) {
        EXPECT_EQ(found(page, byId(chart) + "//*[@class='mark']/@x1"), "25%\n");
    }
}

TEST_F(ChartPage, ManyMarksAreCounted) {
    ChartRun run = spoiledRun();
    for (int i = 0; i < 1000; ++i) run.marks.push_back({i * 0.01, "mark " + std::to_string(i)});
    const std::string page = pageOf(std::move(run));
    EXPECT_THAT(page, AllOf(HasSubstr("⚑ mark 23<"), Not(HasSubstr("⚑ mark 24<")),
                            HasSubstr("976 further marks are not shown.")));
}

TEST_F(ChartPage, SeveralGeneratorsShareTheAxisByTheWallClockWorstFirst) {
    std::vector<ChartRun> runs;
    runs.push_back(chartRunOf(10, [](Evidence& evidence) { fillEngines(evidence, {20}); }));
    runs.push_back(spoiledRun());
    runs[1].host = "second";
    runs[1].start += std::chrono::seconds(10);
    const std::string page = chartPage(runs, std::nullopt);
    EXPECT_EQ(xmlErrors(page), "");
    EXPECT_THAT(page, HasSubstr("1 of 2 load generators: spoiled."));
    EXPECT_LT(page.find("<a href=\"#run2\">second</a>"), page.find("<a href=\"#run1\">loadhost</a>"));
    EXPECT_EQ(found(page, byId("run1-processors") + "//*[@class='watched']/@x"), "0%\n");
    EXPECT_EQ(found(page, byId("run1-processors") + "//*[@class='watched']/@width"), "50%\n");
    EXPECT_EQ(found(page, byId("run2-processors") + "//*[@class='watched']/@x"), "50%\n");
    EXPECT_EQ(found(page, byId("run2-processors") + "//*[@class='spoiled']/@x"), "70%\n");
}

TEST_F(ChartPage, WhatIsLeftOutOfTheVerdictIsNotTakenForJudged) {
    ChartRun run = spoiledRun(10);
    run.judgedFrom = 5;
    run.seconds = 20;
    const std::string page = pageOf(std::move(run));
    EXPECT_THAT(page, HasSubstr("The first 5 s are left out of the verdict."));
    EXPECT_EQ(found(page, byId("run1-processors") + "//*[@class='watched']/@x"), "25%\n");
    EXPECT_EQ(found(page, byId("run1-processors") + "//*[@class='spoiled']/@x"), "20%\n");
}

TEST_F(ChartPage, DrawsResponseTimesAboveOnTheSameAxis) {
    ChartRun run = spoiledRun();
    const double start = std::chrono::duration<double>(run.start.time_since_epoch()).count();
    Results results(start, 10);
    std::istringstream input("time,value\n1795300001,100\n1795300005,400\nbad,1\n");
    results.read(input, "results.csv");
    const std::string page = pageOf(std::move(run), results);
    EXPECT_EQ(xmlErrors(page), "");
    EXPECT_LT(page.find("id=\"results\""), page.find("id=\"run1-held-back\""));
    EXPECT_THAT(found(page, byId("results") + "//*[@class='line worst'][@d]/@d"), HasSubstr("M100 "));
    EXPECT_EQ(found(page, byId("results") + "//*[@class='spoiled']/@x"), "40%\n");
    EXPECT_THAT(page, HasSubstr("2 responses."));
    EXPECT_THAT(page, HasSubstr("results.csv:4: 1 row could not be used"));
}

TEST_F(ChartPage, IsTheSameEachTimeWellFormedAndBoundedForShortAndLongRunsOfFewAndManyEngines) {
    const struct {
        double seconds;
        int engines;
    } rows[] = {{2, 1}, {10, 1}, {10, 50}, {3600, 2}};
    for (const auto& row : rows) {
        const std::string page = pageOf(spoiledRun(row.seconds, row.engines));
        EXPECT_EQ(xmlErrors(page), "") << row.seconds;
        EXPECT_EQ(page, pageOf(spoiledRun(row.seconds, row.engines))) << row.seconds;
        EXPECT_LT(page.size(), 600000u);
    }
}

// Ten hours in which every figure is never twice the same, and the engines are held back every few seconds.
TEST_F(ChartPage, TheWorstOfTenHoursStaysUnderTwoMegabytes) {
    ChartRun run{JudgeLimits()};
    Judgement judgement(run.limits);
    for (int second = 0; second < 36000; ++second) {
        const double share = second * 7919 % 997 / 1000.0;
        Evidence evidence;
        evidence.from = second;
        evidence.to = second + 1;
        for (int pid = 1; pid <= 4; ++pid) {
            EngineEvidence engine =
                engineThat({second % 4 == 0 ? 100 : 90 * share, 3 * share, 2 * share, share, share}, second, pid);
            engine.to = evidence.to;
            engine.busiest->seconds = kInterval;
            engine.descriptorShare = share;
            engine.portShare = 1 - share;
            engine.group.memoryShare = share / 2;
            evidence.engines.push_back(engine);
        }
        evidence.machine.processors = 4;
        evidence.machine.busy = 2 * share;
        evidence.machine.idle = 4 - 2 * share;
        evidence.machine.stolen = share / 10;
        evidence.machine.memoryAvailableShare = share;
        evidence.machine.swapUsedBytes = static_cast<std::uint64_t>(second) * 99991;
        judgement.add(evidence);
        run.figures.add(evidence);
    }
    run.judged = judgement.judged(false);
    run.seconds = 36000;
    const std::string page = pageOf(std::move(run));
    EXPECT_EQ(xmlErrors(page), "");
    EXPECT_GT(page.size(), 300000u);
    EXPECT_LT(page.size(), 2000000u);
}

}  // namespace
