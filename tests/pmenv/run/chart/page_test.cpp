// The page: complete, well-formed, the same each time, and true to the run.
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChartRuns.h"
#include "chart/charts.h"
#include "chart/page.h"
#include "chart/plot.h"
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
    void SetUp() override { ASSERT_TRUE(isInstalled("/usr/bin/xmllint")); }
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

// --- what is drawn ----------------------------------------------------------------------------------------------------

// From the first place of `begin` to the end of the next `end` after it.
std::string partOf(const std::string& page, const std::string& begin, const std::string& end) {
    const std::size_t from = page.find(begin);
    if (from == std::string::npos) return "there is no " + begin;
    return page.substr(from, page.find(end, from) + end.size() - from);
}

std::size_t timesIn(const std::string& text, const std::string& part) {
    std::size_t times = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++times;
    return times;
}

// A run of a minute that begins 20 seconds after another one, on an axis of 100 seconds.
Track laterTrack() { return {100, 20, 10, 60, {{5, 10}}, {30}}; }

TEST(Plot, AStripShowsWhenSomethingWasSo) {
    EXPECT_EQ(timeStrip("a < b", "told", {{5, 10}}, laterTrack()),
              "<div class=\"frame strip\"><span class=\"values\"></span><svg role=\"img\" class=\"plot\" height=\"16\">"
              "<title>a &lt; b</title><rect class=\"watched\" x=\"30%\" y=\"0\" width=\"50%\" height=\"16\"/>"
              "<rect class=\"told\" x=\"25%\" y=\"0\" width=\"5%\" height=\"16\"/>"
              "<line class=\"mark\" x1=\"50%\" x2=\"50%\" y1=\"0\" y2=\"16\"/></svg></div>");
}

TEST(Plot, AScaleHasLinesAndTimes) {
    const std::string scale = timeScale(laterTrack());
    for (const char* part : {" height=\"20\">", "<line class=\"grid\" x1=\"30%\" x2=\"30%\" y1=\"0\" y2=\"4\"/>",
                             "<line class=\"grid minor\" x1=\"100%\" x2=\"100%\" y1=\"0\" y2=\"4\"/>",
                             "<text class=\"tick\" x=\"0%\" y=\"16\" text-anchor=\"start\">0</text>",
                             "<text class=\"tick minor\" x=\"10%\" y=\"16\" text-anchor=\"middle\">10 s</text>",
                             "<text class=\"tick\" x=\"90%\" y=\"16\" text-anchor=\"middle\">1:30</text>",
                             "<text class=\"tick minor\" x=\"100%\" y=\"16\" text-anchor=\"end\">1:40</text>"}) {
        EXPECT_THAT(scale, HasSubstr(part));
    }
    Track track;
    EXPECT_THAT(timeScale(track), AllOf(HasSubstr("<line class=\"grid\" x1=\"0%\" x2=\"0%\""),
                                        HasSubstr("<text class=\"tick\" x=\"0%\" y=\"16\"")));
    track.axisSeconds = 0.5;
    EXPECT_THAT(timeScale(track), AllOf(HasSubstr("<line class=\"grid minor\" x1=\"20%\" x2=\"20%\""),
                                        HasSubstr("<text class=\"tick minor\" x=\"20%\"")));
}

TEST(Plot, FlagsStandBelowEachOtherBesideTheirPoles) {
    EXPECT_EQ(markFlags({{30, "ramp"}, {40, "<end>"}}, laterTrack()),
              "<div class=\"frame flags\"><span class=\"values\"></span><svg role=\"img\" class=\"plot\" height=\"40\">"
              "<title>marks</title><line class=\"mark\" x1=\"50%\" x2=\"50%\" y1=\"0\" y2=\"40\"/>"
              "<text class=\"flag\" x=\"50%\" dx=\"6\" y=\"14\" text-anchor=\"start\">⚑ ramp</text>"
              "<line class=\"mark\" x1=\"60%\" x2=\"60%\" y1=\"20\" y2=\"40\"/>"
              "<text class=\"flag\" x=\"60%\" dx=\"-6\" y=\"34\" text-anchor=\"end\">&lt;end&gt; ⚑</text></svg></div>");
}

TEST(Plot, TimesThatAreNearAreJoined) {
    const std::vector<TimeSpan> spans = joined({{14.5, 15}, {10, 11}, {12, 13}, {12.25, 12.5}}, 1);
    EXPECT_THAT(spans, testing::ElementsAre(TimeSpan{10, 13}, TimeSpan{14.5, 15}));
}

Chart percentChart() {
    Chart chart;
    chart.id = "c";
    chart.title = "Held <back>";
    chart.about = "What it was.";
    chart.scale = 100;
    chart.most = 100;
    return chart;
}

TEST(Plot, AColumnOfSeveralIntervalsHasItsMeanAsALineAndABandFromLeastToMost) {
    Series series;
    for (const double value : {0.2, 0.6}) series.add(0, 600, value);
    Chart chart = percentChart();
    chart.lines = {{&series, "worst", "the worst"}};
    const std::string figure = chartFigure(chart, {600, 0, 0, 600, {}, {}});
    EXPECT_THAT(figure, AllOf(HasSubstr("<path class=\"band worst\" d=\"M0 44H1000V88H0Z\"/>"),
                              HasSubstr("<path class=\"line worst\" d=\"M0 66H1000\"/>"),
                              HasSubstr("the worst <span class=\"quiet\">mean 40 %, most 60 %</span>"),
                              HasSubstr("What it was. the worst: mean 40 %, most 60 %.</desc>")));
}

TEST(Plot, ALineEndsWithItsRunOrItsFigure) {
    Series series;
    series.add(0, 5, 0.2);
    series.add(5, 10, 0.6);
    Series shorter;
    shorter.add(0, 1.1, 0.2);  // a little into a column that does not count
    Chart chart = percentChart();
    chart.lines = {{&series, "worst", "the worst"}, {&shorter, "median", "the median"}};
    const std::string figure = chartFigure(chart, {10, 0, 0, 5, {}, {}});
    EXPECT_THAT(figure, AllOf(HasSubstr("<path class=\"line worst\" d=\"M0 88H500\"/>"),
                              HasSubstr("<path class=\"line median\" d=\"M0 88H110\"/>"), Not(HasSubstr("\"band"))));
}

TEST(Plot, AChartHasItsAxesItsLimitsAndWhatIsSaidOfThem) {
    Series series;
    series.add(0, 59.5, 0.5);
    series.add(59.5, 60, std::nullopt);
    Chart chart = percentChart();
    chart.lines = {{&series, "worst", "the worst"}};
    chart.limits = {{85, "limit 85 %"}, {86, "limit 86 %"}, {50, ""}};
    const std::string figure = chartFigure(chart, laterTrack());
    for (const char* part : {
             "<figure id=\"c\"><figcaption><h3>Held &lt;back&gt;</h3>",
             "<p class=\"about\">What it was. Gaps: for 0.5 s nothing is known.</p>",
             "What it was. the worst: mean 50 %, most 50 %. limit 85 %. limit 86 %. Gaps: for 0.5 s nothing is known.<",
             "<svg class=\"values\" aria-hidden=\"true\" height=\"139\"><text x=\"100%\" dx=\"-7\" "
             "text-anchor=\"end\" y=\"123\">0 %</text>",
             "<text x=\"100%\" dx=\"-7\" text-anchor=\"end\" y=\"13\">100 %</text></svg>",
             "<svg class=\"plot\" role=\"img\" height=\"139\" aria-labelledby=\"c-title c-about\">",
             "<title id=\"c-title\">Held &lt;back&gt;</title>",
             "<rect class=\"watched\" x=\"30%\" y=\"9\" width=\"50%\" height=\"110\"/>",
             "<line class=\"grid\" x1=\"30%\" x2=\"30%\" y1=\"9\" y2=\"119\"/>",
             "<line class=\"base\" x1=\"0\" x2=\"100%\" y1=\"119\" y2=\"119\"/>",
             "<line class=\"grid\" x1=\"0\" x2=\"100%\" y1=\"9\" y2=\"9\"/>",
             " preserveAspectRatio=\"none\" y=\"9\" height=\"110\" viewBox=\"0 0 1000 110\">",
             "<rect class=\"spoiled\" x=\"25%\" y=\"9\" width=\"5%\" height=\"110\"/>",
             "<line class=\"limit\" x1=\"0\" x2=\"100%\" y1=\"25.5\" y2=\"25.5\"/>",
             "text-anchor=\"end\" y=\"21.5\">limit 85 %</text>",  // above its line
             "<line class=\"limit\" x1=\"0\" x2=\"100%\" y1=\"24.4\" y2=\"24.4\"/>",
             "text-anchor=\"end\" y=\"37.4\">limit 86 %</text>",  // below it, because there is no room above
             "<line class=\"limit\" x1=\"0\" x2=\"100%\" y1=\"64\" y2=\"64\"/><line class=\"mark\" x1=\"50%\" "
             "x2=\"50%\" y1=\"0\" y2=\"119\"/>",
             "<text class=\"tick\" x=\"90%\" y=\"134\" text-anchor=\"middle\">1:30</text>",
         }) {
        EXPECT_THAT(figure, HasSubstr(part));
    }
}

TEST(Plot, TheAxisReachesWhatPassesIt) {
    Series series;
    series.add(0, 10, 1.3);
    Chart chart = percentChart();
    chart.lines = {{&series, "worst", "the worst"}};
    EXPECT_THAT(chartFigure(chart, {10, 0, 0, 10, {}, {}}), HasSubstr(">150 %</text></svg>"));
    Series small;
    small.add(0, 10, 0.001);
    chart.most = 0;
    chart.lines = {{&small, "worst", "the worst"}};
    chart.limits = {{20, "limit"}};
    EXPECT_THAT(chartFigure(chart, {10, 0, 0, 10, {}, {}}), HasSubstr(">20 %</text></svg>"));
}

TEST(Plot, SmallFiguresAreToldToTwoDigits) {
    Series series;
    series.add(0, 5, 0.00874);
    series.add(5, 10, 0.00126);
    Chart chart = percentChart();
    chart.lines = {{&series, "worst", "the worst"}};
    const auto told = [&chart] { return partOf(chartFigure(chart, {10, 0, 0, 10, {}, {}}), "mean ", "<"); };
    EXPECT_EQ(told(), "mean 0.5 %, most 0.87 %<");
    chart.scale = 1000;
    EXPECT_EQ(told(), "mean 5 %, most 8.74 %<");
}

TEST(Plot, TheLegendTellsOfAreasThatAreThereOrNotKnown) {
    Series ran, none, unknown;
    ran.add(0, 10, 0.005);
    none.add(0, 10, 0);
    unknown.add(0, 10, std::nullopt);
    Chart chart = percentChart();
    chart.areas = {{&ran, "running", "ran"}, {&none, "waiting", "waited"}, {&unknown, "stolen", "stolen"}};
    EXPECT_EQ(
        partOf(chartFigure(chart, {10, 0, 0, 10, {}, {}}), "<ul", "</ul>"),
        "<ul class=\"keys\"><li><svg class=\"key\" width=\"22\" height=\"12\" aria-hidden=\"true\"><rect "
        "class=\"area running\" x=\"1\" y=\"1\" width=\"20\" height=\"10\"/></svg>ran <span class=\"quiet\">mean "
        "0.5 %, most 0.5 %</span></li><li><svg class=\"key\" width=\"22\" height=\"12\" aria-hidden=\"true\"><rect "
        "class=\"area stolen\" x=\"1\" y=\"1\" width=\"20\" height=\"10\"/></svg>stolen <span "
        "class=\"quiet\">not known</span></li></ul>");
    chart.areas.clear();
    chart.lines = {{&ran, "worst", "the worst"}};
    EXPECT_THAT(chartFigure(chart, {10, 0, 0, 10, {}, {}}),
                HasSubstr("<line class=\"line worst\" x1=\"0\" x2=\"22\" y1=\"6\" y2=\"6\"/></svg>the worst "));
}

std::string chartsOf(const ChartRun& run) { return runCharts(run, {run.seconds, 0, 0, run.seconds, {}, {}}, "r"); }

std::string chartIn(const std::string& charts, const std::string& id) {
    return partOf(charts, "<figure id=\"r-" + id + "\"", "</figure>");
}

TEST(RunCharts, ShowTheLimitsOfTheRun) {
    JudgeLimits limits;
    limits.machinePercent = 80;
    limits.memoryPercent = 10;
    const auto fill = [](Evidence& evidence) { fillEngines(evidence, {20}); };
    const std::string charts = chartsOf(chartRunOf(10, fill, limits));
    const struct {
        const char* chart;
        const char* label;
        const char* y;
    } rows[] = {{"processors", ">limit 80 %<", "31"},
                {"memory", ">limit 90 %<", "20"},
                {"thread", ">no slack above 95 %<", "14.5"},
                {"connections", ">used up: ports 98 %, descriptors 99 %<", "11.2"},
                {"connections", "", "10.1"}};
    for (const auto& row : rows) {
        const std::string line = "<line class=\"limit\" x1=\"0\" x2=\"100%\" y1=\"" + std::string(row.y) + "\"";
        EXPECT_THAT(chartIn(charts, row.chart), AllOf(HasSubstr(row.label), HasSubstr(line))) << row.chart;
    }
    EXPECT_THAT(chartIn(charts, "processors"), AllOf(HasSubstr("How many of them were busy"),
                                                     HasSubstr("engines <span class=\"quiet\">mean 0.2, "
                                                               "most 0.2<"),
                                                     HasSubstr(">1.5</text>"), HasSubstr(">2</text></svg>")));
    const std::string without = chartsOf(chartRunOf(10, fill));
    for (const char* chart : {"processors", "memory"}) {
        EXPECT_THAT(chartIn(without, chart), Not(HasSubstr("class=\"limit\""))) << chart;
    }
}

TEST(RunCharts, AxesOfSharesReachAllOfIt) {
    const std::string charts = chartsOf(chartRunOf(10, [](Evidence& evidence) {
        Did did{20};
        did.throttled = 10;
        fillEngines(evidence, did);
        evidence.machine.swapUsedBytes = 512 << 20;
    }));
    for (const char* chart : {"thread", "throttling", "memory", "connections"}) {
        EXPECT_THAT(chartIn(charts, chart), AllOf(HasSubstr(">75 %</text>"), HasSubstr(">100 %</text></svg>")))
            << chart;
    }
    EXPECT_THAT(chartIn(charts, "swap"), HasSubstr("mean 512.0 MiB, most 512.0 MiB"));
}

TEST(RunCharts, OneEngineHasALineManyHaveTheWorstAndTheMedian) {
    const std::string one = chartIn(chartsOf(spoiledRun()), "held-back");
    EXPECT_THAT(one, AllOf(HasSubstr("</svg>the engine "), Not(HasSubstr("median"))));
    const std::string many = chartIn(chartsOf(spoiledRun(10, 5)), "held-back");
    EXPECT_THAT(many, AllOf(HasSubstr("</svg>the worst engine "), HasSubstr("</svg>median of the engines ")));
}

TEST(RunCharts, ShortTimesInWhichNothingIsKnownAreToldAsWell) {
    const std::string charts = chartsOf(chartRunOf(10, [](Evidence& evidence) {
        fillEngines(evidence, {20});
        if (evidence.from < 0.5) evidence.machine.swapUsedBytes.reset();
        if (evidence.from < 0.5) evidence.machine.memoryAvailableShare.reset();
    }));
    EXPECT_THAT(charts, HasSubstr("<b>Swap in use</b>: none as far as known; for 0.5 s it is not"));
}

// --- the page ---------------------------------------------------------------------------------------------------------

TEST(PageText, ReadsTheTimeFromTheFirstStartToTheLastEnd) {
    std::vector<ChartRun> runs;
    runs.push_back(spoiledRun());
    runs[0].start = {};
    runs[0].seconds = 0.5;
    EXPECT_EQ(timeOf(runs).start, 0);
    EXPECT_EQ(timeOf(runs).seconds, 0.5);
    runs.push_back(spoiledRun());
    runs[1].start = std::chrono::system_clock::time_point(std::chrono::seconds(5));
    EXPECT_EQ(timeOf(runs).seconds, 15);
}

TEST(PageText, JoinsTimesThatCannotBeToldApart) {
    ChartRun run = spoiledRun();
    run.seconds = 300;
    run.judged.engines[0].stretches = {
        {10, 11, 1, Reason::OwnWork}, {12, 13, 1, Reason::OwnWork}, {14.5, 15, 0.5, Reason::OwnWork}};
    const std::string chart = partOf(pageOf(std::move(run)), "<figure id=\"run1-held-back\"", "</figure>");
    EXPECT_THAT(chart,
                AllOf(HasSubstr("<rect class=\"spoiled\" x=\"3.333%\" y=\"9\" width=\"1%\" height=\"110\"/>"),
                      HasSubstr("<rect class=\"spoiled\" x=\"4.833%\" y=\"9\" width=\"0.167%\" height=\"110\"/>")));
    EXPECT_EQ(timesIn(chart, "<rect class=\"spoiled\""), 2u);
}

TEST(PageText, AFindingShowsWhenItWasSo) {
    ChartRun run = chartRunOf(10, [](Evidence& evidence) {
        const bool stopped = evidence.from >= 6 && evidence.from < 7;
        const bool busy = evidence.from >= 2 && evidence.from < 4;
        fillEngines(evidence, stopped ? Did{0, 0, 0, 0, 100} : busy ? Did{100} : Did{20});
    });
    Incident incident;
    incident.kind = Incident::Kind::Swap;
    incident.spoils = false;
    incident.since = 8;
    incident.seconds = 1;
    run.judged.incidents = {incident};
    incident.since = 9;
    incident.seconds = 5;
    run.judged.incidents.push_back(incident);
    const Track track{10, 0, 0, 10, {}, {}};
    const std::string page = pageOf(std::move(run));
    EXPECT_THAT(page, HasSubstr(timeStrip("from 0:02.0, for 2 s", "spoiled", {{2, 4}}, track)));
    EXPECT_THAT(page, HasSubstr(timeStrip("from 0:06.0, for 1 s", "spoiled", {{6, 7}}, track)));
    EXPECT_THAT(page, HasSubstr(timeStrip("from 0:08.0, for 1 s", "told", {{8, 9}}, track)));
    EXPECT_THAT(page, HasSubstr(timeStrip("from 0:09.0, for 5 s", "told", {{9, 10}}, track)));
}

TEST(PageText, TenMinutesNeedNoTenths) {
    ChartRun run = spoiledRun();
    run.seconds = 599.75;
    EXPECT_THAT(pageOf(run), HasSubstr("from 0:04.0, for 2 s"));
    run.seconds = 600;
    EXPECT_THAT(pageOf(run), HasSubstr("from 0:04, for 2 s"));
}

TEST(PageText, TellsHowMuchWasLeftOutAndRemarks) {
    ChartRun run = spoiledRun();
    EXPECT_THAT(pageOf(run), AllOf(Not(HasSubstr("left out")), Not(HasSubstr("Note: "))));
    run.judgedFrom = 0.5;
    run.remarks = {"it broke <off>"};
    EXPECT_THAT(pageOf(run), AllOf(HasSubstr("The first 0.5 s are left out of the verdict."),
                                   HasSubstr("<p class=\"remark\">Note: it broke &lt;off&gt;</p>")));
}

TEST(PageText, SignalsStandInTwoTables) {
    const std::string page = pageOf(spoiledRun());
    EXPECT_THAT(page, HasSubstr("<caption>What is judged</caption><thead><tr><th scope=\"col\">Signal</th><th "
                                "scope=\"col\" class=\"number\">Worst</th><th scope=\"col\" "
                                "class=\"number\">Limit</th><th scope=\"col\">State</th></tr></thead><tbody><tr "
                                "class=\"over\"><th scope=\"row\">"));
    EXPECT_THAT(page, HasSubstr("<td class=\"number\">20.0 %</td>"));
    EXPECT_GT(timesIn(page, "<tr class=\"over\">"), 0u);
    EXPECT_EQ(timesIn(page, "<tr class=\"over\">"), timesIn(page, "<td class=\"spoiled-text\">✕ over</td>"));
    EXPECT_THAT(pageOf(chartRunOf(10, [](Evidence& evidence) { fillEngines(evidence, {20}); })),
                Not(HasSubstr("over</td>")));
    EXPECT_THAT(page, HasSubstr("<caption>What helps to explain it</caption><thead><tr><th "
                                "scope=\"col\">Signal</th><th scope=\"col\" class=\"number\">Worst</th><th "
                                "scope=\"col\">State</th></tr></thead><tbody><tr><th scope=\"row\">"));
    EXPECT_THAT(page, AllOf(HasSubstr("<td>ok</td>"), HasSubstr("<td class=\"quiet\">not readable</td>")));
}

TEST(PageText, ShowsMarksOfTheRunAndCountsTheOthers) {
    ChartRun run = spoiledRun();
    const std::string longest(48, 'x');
    run.marks = {{-1, "before"}, {0, "begin"}, {2, longest}, {3, longest + "y"}, {10, "end"}, {10.5, "after"}};
    const std::string page = pageOf(run);
    EXPECT_THAT(page, HasSubstr("<ul class=\"marks\"><li>⚑ 0:00 begin</li><li>⚑ 0:02 " + longest + "</li><li>⚑ 0:03 " +
                                longest + "…</li><li>⚑ 0:10 end</li></ul>"));
    EXPECT_THAT(page, HasSubstr("2 further marks are not shown."));
    run.marks = {{-1, "before"}, {2, "here"}};
    EXPECT_THAT(pageOf(run), HasSubstr("1 further mark is not shown."));
    run.marks = {{2, "here"}};
    EXPECT_THAT(pageOf(run), Not(HasSubstr("not shown")));
}

TEST(PageText, TellsWhatAStepIsWhereItIsMoreThanAnInterval) {
    EXPECT_THAT(pageOf(spoiledRun()), Not(HasSubstr("Each step")));
    EXPECT_THAT(pageOf(spoiledRun(301)), HasSubstr(" Each step shows the mean of 0.5 s, the pale band beside a line "
                                                   "the least and the most."));
}

Results resultsOf(const ChartRun& run, double seconds, const std::string& rows) {
    Results results(std::chrono::duration<double>(run.start.time_since_epoch()).count(), seconds);
    std::istringstream input("timeStamp,elapsed,success\n" + rows);
    results.read(input, "results.csv");
    return results;
}

std::string responses(int count, int second, int milliseconds, const char* success = "true") {
    std::string rows;
    for (int i = 0; i < count; ++i) {
        rows += std::to_string(1795300000 + second) + "," + std::to_string(milliseconds) + "," + success + "\n";
    }
    return rows;
}

TEST(PageText, DrawsTheMedianAndThe99thPercentileOfResponseTimes) {
    ChartRun run = spoiledRun();
    run.seconds = 600;
    const Results results = resultsOf(run, 600,
                                      responses(50, 0, 100) + responses(49, 0, 200) + responses(1, 0, 400, "false") +
                                          responses(50, 590, 100) + responses(50, 590, 200));
    const ResponseTimes& times = results.columns()[0];
    EXPECT_NEAR(times.percentile(50), 100, 1);
    EXPECT_NEAR(times.percentile(99), 200, 2);
    const std::string chart = partOf(pageOf(run, results), "<figure id=\"results\"", "</figure>");
    const auto told = [](double figure) {
        const std::string text = valueText(figure, ChartUnit::Milliseconds);
        return "mean " + text + ", most " + text + "<";
    };
    EXPECT_THAT(chart, AllOf(HasSubstr("<h3>Response times</h3>"),
                             HasSubstr("200 responses, 1 of them failed. Each step shows 2 s."),
                             HasSubstr("99th percentile <span class=\"quiet\">" + told(times.percentile(99))),
                             HasSubstr("median <span class=\"quiet\">" + told(times.percentile(50)))));
    EXPECT_THAT(chart, testing::ContainsRegex("class=\"line median\" d=\"M0 [0-9.]+H3.3M983.3 [0-9.]+H986.7\""));
    EXPECT_THAT(chart, HasSubstr("<rect class=\"watched\" x=\"0%\" y=\"9\" width=\"100%\" height=\"110\"/>"));
    EXPECT_THAT(pageOf(run, resultsOf(run, 600, responses(2, 0, 100))), HasSubstr("2 responses. Each step"));
}

TEST(PageText, ShadesResponseTimesOnceWhereAnyGeneratorWasHeldBack) {
    std::vector<ChartRun> runs;
    for (const int second : {0, 10, 10}) {
        runs.push_back(second == 0 ? chartRunOf(10, [](Evidence& evidence) { fillEngines(evidence, {20}); })
                                   : spoiledRun());
        runs.back().start += std::chrono::seconds(second);
    }
    const std::string page = chartPage(runs, resultsOf(runs[0], 20, responses(2, 0, 100)));
    const std::string chart = partOf(page, "<figure id=\"results\"", "</figure>");
    EXPECT_THAT(chart, HasSubstr("<rect class=\"spoiled\" x=\"70%\" y=\"9\" width=\"10%\" height=\"110\"/>"));
    EXPECT_EQ(timesIn(chart, "<rect class=\"spoiled\""), 1u);
    EXPECT_THAT(page, HasSubstr("2 of 3 load generators: spoiled."));
}

TEST(PageText, GeneratorsStandWorstFirstAndThenAsGiven) {
    std::vector<ChartRun> runs;
    const std::pair<const char*, Outcome> given[] = {{"a", Outcome::Clean},      {"b", Outcome::Clean},
                                                     {"c", Outcome::CannotTell}, {"d", Outcome::Spoiled},
                                                     {"e", Outcome::CannotTell}, {"f", Outcome::Spoiled}};
    for (const auto& [host, outcome] : given) {
        runs.push_back(spoiledRun());
        runs.back().host = host;
        runs.back().judged.outcome = outcome;
    }
    runs[1].start += std::chrono::seconds(60);
    const std::string page = chartPage(runs, std::nullopt);
    std::string order;
    for (std::size_t at = page.find("<a href"); at != std::string::npos; at = page.find("<a href", at + 1)) {
        order += page[page.find("</a>", at) - 1];
    }
    EXPECT_EQ(order, "dfceab");
    EXPECT_THAT(page, HasSubstr("2 of 6 load generators: spoiled."));
    EXPECT_THAT(page, HasSubstr("<title>Load generator a, b, c, d, e, f, 2026-11-21 22:26:40 UTC</title>"));
}

TEST(PageText, ALongTitleIsCut) {
    ChartRun run = spoiledRun();
    run.host = std::string(80, 'h');
    EXPECT_THAT(pageOf(run), HasSubstr("<title>Load generator " + run.host + ", 2026"));
    EXPECT_THAT(pageOf(run), HasSubstr("<h1 class=\"outcome\">"));
    run.host += "i";
    EXPECT_THAT(pageOf(run), HasSubstr("<title>Load generator " + std::string(80, 'h') + "…, 2026"));
}

TEST(RawFigures, HaveARowForEachColumnAndNothingForWhatIsNotKnown) {
    const std::string raw = partOf(pageOf(spoiledRun()), "<pre", "</pre>");
    EXPECT_EQ(timesIn(raw, "\n"), 41u);
    EXPECT_THAT(raw, AllOf(HasSubstr(",ports,ports_most\n0,0.25,0,0,0,0,0.2,0.2,"), HasSubstr("\n9.75,0.25,0,0,"),
                           HasSubstr(",,"), Not(HasSubstr("nan"))));
    const ChartRun nothing{JudgeLimits()};
    EXPECT_EQ(timesIn(partOf(pageOf(nothing), "<pre", "</pre>"), "\n"), 1u);
}

}  // namespace
