// screen: the lines of the live screen, whatever the size of the terminal.
#include <clocale>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleFigures.h"
#include "screen.h"
#include "text.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

std::string repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i) all += text;
    return all;
}

class ScreenTest : public testing::Test {
protected:
    ScreenTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }

    void show(const std::vector<EngineFigures>& engines, int samples = 1) {
        Figures figures = figuresAt(0);
        figures.engines = engines;
        for (int i = 0; i < samples; ++i) screen_.add(figures);
    }

    // `count` engines from 1001 on, all of them nearly idle.
    void showMany(int count) {
        std::vector<EngineFigures> engines;
        for (int i = 1; i <= count; ++i) engines.push_back(engine(1000 + i, 0.5));
        show(engines);
    }

    std::vector<std::string> lines(std::size_t columns = 80, std::size_t rows = 24,
                                   const std::vector<std::string>& warnings = {}) {
        return screen_.lines(warnings, {columns, rows}, Style(-1));
    }

    // The ids of the engines shown, from top to bottom.
    std::vector<int> order(std::size_t rows = 24) {
        std::vector<int> ids;
        for (const std::string& line : lines(80, rows)) {
            const std::string first = line.substr(0, 7);
            if (first.find_first_of("0123456789") != std::string::npos &&
                first.find_first_not_of(" 0123456789") == std::string::npos)
                ids.push_back(std::stoi(first));
        }
        return ids;
    }

    Screen screen_;
};

// --- the machine ----------------------------------------------------------------------------------------------------

TEST_F(ScreenTest, ShowsTheMachineAndItsEngines) {
    Figures figures = figuresAt(0);
    figures.cpuPercent = 50.0;
    figures.availableBytes = 5 * kGiB;
    figures.swapUsedBytes = 512 * kMiB;
    figures.engines = {engine(8, std::nullopt), engine(7, std::nullopt), engine(9, std::nullopt)};
    screen_.add(figures);
    figures.engines = {engine(9, std::nullopt), engine(7, 3.0), engine(8, 100.0)};
    screen_.add(figures);
    figures.engines = {engine(9, 0.0, kGiB), engine(7, 3.0), engine(8, 97.0)};
    figures.engines[2].heldBack = HeldBackFigures{12.5, std::nullopt, 8, "sender", 99};
    screen_.add(figures);
    EXPECT_THAT(lines(80, 20),
                ElementsAre("2001-09-09T01:46:40Z  q quits, ↑↓ scroll  loadhost",
                            "4 CPUs [#######|||||||              ]  50.0 %: # engines 25.0 %, | others 25.0 %",
                            "Memory [||||||||||||||              ]  5.0 GiB of 10.0 GiB, 5.0 GiB available",
                            "Swap   [|||||||                     ]  512.0 MiB of 2.0 GiB", "",
                            "    PID OF ONE CPU     MEMORY HELD BACK HISTORY  ▂1 ▃2 ▄5 ▅10 ▆25 ▇50 █90 %",
                            "  total    100.0 %    1.0 GiB           engines: 3",  //
                            "      8     97.0 %    3.0 MiB    12.5 %  ██",         //
                            "      7      3.0 %    3.0 MiB         -  ▃▃",         //
                            "      9      0.0 %    1.0 GiB         -   ▁"));
}

TEST_F(ScreenTest, BarsHaveOneWidth) {
    showMany(1);
    for (std::size_t columns = 30; columns < 200; ++columns) {
        const auto shown = lines(columns);
        const std::size_t end = shown[1].find(']');
        EXPECT_EQ(shown[2].find(']'), end) << columns;
        EXPECT_EQ(shown[3].find(']'), end) << columns;
    }
    EXPECT_NE(lines(40)[1].find(']'), std::string::npos) << "a small terminal has room for bars";
}

TEST_F(ScreenTest, BarsAreNotWiderThanIsRead) {
    showMany(1);
    const std::string line = lines(200)[2];
    EXPECT_EQ(line.find(']') - line.find('['), 59u);
}

TEST_F(ScreenTest, WhatIsUsedUpFillsItsBar) {
    Figures figures = figuresAt(0);
    figures.cpuPercent = 100.0;
    figures.availableBytes = 0;
    figures.swapUsedBytes = figures.swapBytes;
    figures.engines = {engine(7, 400.0)};
    screen_.add(figures);
    const auto shown = lines(200);
    EXPECT_THAT(shown[1], StartsWith("4 CPUs [" + repeated("#", 58) + "]  100.0 %: # engines 100.0 %, | others 0.0 %"));
    EXPECT_THAT(shown[2], StartsWith("Memory [" + repeated("|", 58) + "]  10.0 GiB of 10.0 GiB, 0 B available"));
    EXPECT_THAT(shown[3], StartsWith("Swap   [" + repeated("|", 58) + "]  2.0 GiB of 2.0 GiB"));
}

TEST_F(ScreenTest, WordsAreFewerBeforeBarsGetShort) {
    showMany(1);
    EXPECT_EQ(lines(67)[1], "4 CPUs [|                 ]  5.0 %: # engines 0.1 %, | others 4.9 %");
    EXPECT_THAT(lines(66)[1], testing::EndsWith(" ]  5.0 %"));
}

TEST_F(ScreenTest, TheTitleHasWhatFits) {
    show({});
    EXPECT_EQ(lines(50)[0], "2001-09-09T01:46:40Z  q quits, ↑↓ scroll  loadhost");
    EXPECT_EQ(lines(49)[0], "2001-09-09T01:46:40Z  q quits, ↑↓ scroll");
    EXPECT_EQ(lines(40)[0], "2001-09-09T01:46:40Z  q quits, ↑↓ scroll");
    EXPECT_EQ(lines(39)[0], "2001-09-09T01:46:40Z");
    EXPECT_EQ(lines(20)[0], "2001-09-09T01:46:40Z");
    EXPECT_EQ(lines(19)[0], "2001-09-09T01:46:4…");
}

TEST_F(ScreenTest, ALineStaysBlankWhereThereIsRoom) {
    showMany(1);
    EXPECT_EQ(lines(80, 16)[4], "");
    EXPECT_THAT(lines(80, 15)[4], StartsWith("    PID "));
}

TEST_F(ScreenTest, WhereThereIsNoRoomForBarsThereAreWords) {
    showMany(1);
    EXPECT_EQ(lines(30)[2], "Memory [    ]  0 B of 10.0 GiB");
    EXPECT_EQ(lines(29)[2], "Memory 0 B of 10.0 GiB");
}

TEST_F(ScreenTest, NoSwapIsNotAFullOne) {
    Figures figures = figuresAt(0);
    figures.swapBytes = 0;
    screen_.add(figures);
    EXPECT_THAT(lines()[3], AllOf(StartsWith("Swap   [ "), HasSubstr(" ]  0 B of 0 B")));
}

TEST_F(ScreenTest, ASmallTerminalHasFewerWords) {
    showMany(1);
    const auto shown = lines(40, 10);
    EXPECT_EQ(shown[0], "2001-09-09T01:46:40Z  q quits, ↑↓ scroll");
    EXPECT_EQ(shown[1], "4 CPUs [|             ]  5.0 %");
    EXPECT_EQ(shown[2], "Memory [              ]  0 B of 10.0 GiB");
    EXPECT_EQ(shown[4], "    PID OF ONE CPU     MEMORY HISTORY");
    EXPECT_EQ(shown[5], "  total      0.5 %    3.0 MiB engines: 1");
}

TEST_F(ScreenTest, WhatIsUnknownIsNotNothing) {
    Figures figures = figuresAt(0);
    figures.cpuPercent.reset();
    figures.availableBytes.reset();
    figures.swapUsedBytes.reset();
    figures.engines = {engine(7, std::nullopt), engine(8, 5.0, std::nullopt)};
    screen_.add(figures);
    const auto shown = lines();
    EXPECT_THAT(shown[1], AllOf(StartsWith("4 CPUs [? "), HasSubstr("]  -")));
    EXPECT_THAT(shown[2], HasSubstr("2.0 GiB of 10.0 GiB, 8.0 GiB free"));
    EXPECT_THAT(shown[3], AllOf(StartsWith("Swap   [? "), HasSubstr("]  - of 2.0 GiB")));
    EXPECT_EQ(shown[6], "  total          -          -           engines: 2");
}

TEST_F(ScreenTest, PartsOfTheProcessorTimeWaitUntilAllAreKnown) {
    show({engine(7, 4.0), engine(8, std::nullopt)});
    EXPECT_THAT(lines()[1], AllOf(StartsWith("4 CPUs [||"), testing::EndsWith("]  5.0 %"), Not(HasSubstr("#"))));
}

TEST_F(ScreenTest, OneIsNotMany) {
    Figures figures = figuresAt(0);
    figures.processors = 1;
    figures.engines = {engine(7, 1.0)};
    screen_.add(figures);
    EXPECT_THAT(lines()[1], StartsWith("1 CPU  ["));
    EXPECT_THAT(lines()[6], testing::EndsWith(" engines: 1"));
}

TEST_F(ScreenTest, SaysThatNoEngineRuns) {
    show({});
    EXPECT_EQ(lines().back(), "No load engine runs (a process named PMLoadEngineMai...)");
}

TEST_F(ScreenTest, AHostNameCannotSteerTheTerminal) {
    Figures figures = figuresAt(0);
    figures.host = "a\x1b[2Jb";
    screen_.add(figures);
    EXPECT_THAT(lines()[0], testing::EndsWith("a\\x1b[2Jb"));
}

// --- engines --------------------------------------------------------------------------------------------------------

TEST_F(ScreenTest, AlwaysFitsTheTerminal) {
    std::vector<EngineFigures> engines;
    for (int i = 0; i < 50; ++i) engines.push_back(engine(1000 + i, i * 2.0));
    show(engines, 300);
    const std::vector<std::string> warnings(
        3, "a message\nwith a control character and words to fill a line or two of the screen");
    for (std::size_t columns = 1; columns < 130; ++columns) {
        for (const std::size_t rows : {1U, 2U, 5U, 10U, 40U, 100U}) {
            const auto shown = lines(columns, rows, warnings);
            ASSERT_LE(shown.size(), rows);
            for (const std::string& line : shown)
                ASSERT_LE(displayWidth(line), columns) << columns << "x" << rows << line;
        }
    }
}

TEST_F(ScreenTest, ShowsEnginesOnASmallTerminal) {
    showMany(50);
    EXPECT_THAT(order(10), ElementsAre(1001, 1002, 1003, 1004));
    EXPECT_EQ(lines(40, 10)[5], "  total     25.0 %  150.0 MiB 1-4/50");
    EXPECT_EQ(lines(80, 7)[5], "  total     25.0 %  150.0 MiB           engines: 1-1 of 50");
    EXPECT_EQ(lines(80, 6)[5], "  total     25.0 %  150.0 MiB           engines: 50") << "no room for any";
    EXPECT_EQ(lines(80, 10)[5], "  total     25.0 %  150.0 MiB           engines: 1-4 of 50");
}

TEST_F(ScreenTest, TheTotalIsTheSumOfTheEngines) {
    show({engine(7, 1.5, 600), engine(8, 2.0, 400)});
    EXPECT_EQ(lines()[6], "  total      3.5 %     1000 B           engines: 2");
}

TEST_F(ScreenTest, ForgetsEnginesThatHaveGone) {
    show({engine(7, 60.0), engine(8, 60.0)}, 2);
    show({engine(8, 60.0)});
    EXPECT_THAT(order(), ElementsAre(8));
    show({engine(7, 60.0), engine(8, 60.0)});
    EXPECT_THAT(lines(), Contains("      7     60.0 %    3.0 MiB         - ▇"));
    EXPECT_THAT(lines(), Contains("      8     60.0 %    3.0 MiB         - ▇▇▇▇"));
}

TEST_F(ScreenTest, AnIdThatIsUsedAgainHasNoPast) {
    show({engine(7, 60.0)}, 3);
    EngineFigures young = engine(7, 1.0);
    young.startTicks = 5000;
    show({young});
    EXPECT_THAT(lines(), Contains("      7      1.0 %    3.0 MiB         - ▂"));
}

TEST_F(ScreenTest, KeepsAsMuchOfThePastAsIsShown) {
    show({engine(7, 60.0)}, 1000);
    EXPECT_THAT(lines(200).back(), testing::EndsWith(" " + repeated("▇", 160)));
    EXPECT_THAT(lines(700).back(), testing::EndsWith(" " + repeated("▇", 512)));
    EXPECT_THAT(lines(59).back(), testing::EndsWith(" " + repeated("▇", 29)));
}

TEST_F(ScreenTest, TellsHowMuchEnginesWereHeldBackWhereThereIsRoom) {
    EngineFigures late = engine(7, 60.0);
    late.heldBack = HeldBackFigures{12.5, std::nullopt, 7, "sender", 99};
    show({late}, 100);
    EXPECT_EQ(lines(60)[5], "    PID OF ONE CPU     MEMORY HELD BACK HISTORY");
    EXPECT_EQ(lines(60).back(), "      7     60.0 %    3.0 MiB    12.5 % " + repeated("▇", 20));
    EXPECT_EQ(lines(59)[5], "    PID OF ONE CPU     MEMORY HISTORY");
    EXPECT_EQ(lines(59).back(), "      7     60.0 %    3.0 MiB " + repeated("▇", 29));
}

// --- order ----------------------------------------------------------------------------------------------------------

TEST_F(ScreenTest, BusiestFirstAndUnknownLast) {
    show({engine(6, std::nullopt), engine(7, 1.0), engine(8, 50.0), engine(9, 20.0)});
    EXPECT_THAT(order(), ElementsAre(8, 9, 7, 6));
}

// Engines that use about the same changed places with every sample, so that nobody could read the list.
TEST_F(ScreenTest, SmallChangesDoNotMoveEngines) {
    show({engine(7, 15.0), engine(8, 16.0), engine(9, 0.0)}, 3);
    const auto before = order();
    for (int i = 0; i < 50; ++i) {
        show({engine(7, i % 2 == 0 ? 16.5 : 14.0), engine(8, i % 2 == 0 ? 13.5 : 16.5), engine(9, i % 3 * 0.9)});
        ASSERT_EQ(order(), before) << i;
    }
}

TEST_F(ScreenTest, AnEngineThatBecomesBusyMovesUp) {
    show({engine(7, 15.0), engine(8, 1.0)}, 20);
    EXPECT_THAT(order(), ElementsAre(7, 8));
    show({engine(7, 15.0), engine(8, 40.0)}, 10);
    EXPECT_THAT(order(), ElementsAre(8, 7));
    show({engine(7, 15.0), engine(8, 0.0)}, 10);
    EXPECT_THAT(order(), ElementsAre(7, 8));
}

TEST_F(ScreenTest, OnePercentMoreIsAClearChangeForAnIdleEngine) {
    show({engine(7, 0.5), engine(8, 0.0)}, 10);
    EXPECT_THAT(order(), ElementsAre(7, 8));
    show({engine(7, 0.5), engine(8, 1.9)}, 10);
    EXPECT_THAT(order(), ElementsAre(8, 7));
}

TEST_F(ScreenTest, SamplesBeforeTheLastTenDoNotCount) {
    show({engine(7, 400.0), engine(8, 20.0)}, 100);
    show({engine(7, 0.0), engine(8, 20.0)}, 9);
    EXPECT_THAT(order(), ElementsAre(7, 8)) << "its mean is 40";
    show({engine(7, 0.0), engine(8, 20.0)});
    EXPECT_THAT(order(), ElementsAre(8, 7));
}

// A fifth and one per cent: from 50, to more than 61.
TEST_F(ScreenTest, AnEngineMovesWhenItsMeanHasClearlyChanged) {
    const auto afterTwo = [](double first, double second, double other) {
        Screen screen;
        Figures figures = figuresAt(0);
        for (const double percent : {first, second}) {
            figures.engines = {engine(7, percent), engine(8, other)};
            screen.add(figures);
        }
        return screen.lines({}, {80, 24}, Style(-1)).at(7).substr(0, 7);
    };
    EXPECT_EQ(afterTwo(50, 71.8, 60.5), "      8") << "60.9";
    EXPECT_EQ(afterTwo(50, 72, 60.5), "      8") << "61";
    EXPECT_EQ(afterTwo(50, 72.4, 60.5), "      7") << "61.2";
    EXPECT_EQ(afterTwo(50, 28, 40), "      7") << "39";
    EXPECT_EQ(afterTwo(50, 27.6, 40), "      8") << "38.8";
}

TEST_F(ScreenTest, UnknownSamplesDoNotCount) {
    show({engine(7, std::nullopt), engine(8, 22.0), engine(9, 18.0)}, 5);
    EXPECT_THAT(order(), ElementsAre(8, 9, 7));
    show({engine(7, 20.0), engine(8, 22.0), engine(9, 18.0)});
    EXPECT_THAT(order(), ElementsAre(8, 7, 9)) << "its mean is 20";
}

TEST_F(ScreenTest, EqualEnginesStandInTheOrderOfTheirIds) {
    for (const std::optional<double> percent : {std::optional(5.0), std::optional<double>()}) {
        show({engine(9, percent), engine(7, percent), engine(8, percent)});
        EXPECT_THAT(order(), ElementsAre(7, 8, 9));
        show({engine(7, percent), engine(8, percent), engine(9, percent)});
        EXPECT_THAT(order(), ElementsAre(7, 8, 9));
        show({});
    }
}

// --- scrolling ------------------------------------------------------------------------------------------------------

TEST_F(ScreenTest, ScrollsLineByLine) {
    showMany(10);
    EXPECT_THAT(order(10), ElementsAre(1001, 1002, 1003, 1004));
    EXPECT_TRUE(screen_.scroll(Key::Down));
    EXPECT_THAT(order(10), ElementsAre(1002, 1003, 1004, 1005));
    EXPECT_THAT(lines(80, 10)[5], HasSubstr(" engines: 2-5 of 10"));
    EXPECT_TRUE(screen_.scroll(Key::Down));
    EXPECT_TRUE(screen_.scroll(Key::Up));
    EXPECT_THAT(order(10), ElementsAre(1002, 1003, 1004, 1005));
    EXPECT_TRUE(screen_.scroll(Key::Up));
    EXPECT_FALSE(screen_.scroll(Key::Up)) << "at the top";
    EXPECT_THAT(order(10), ElementsAre(1001, 1002, 1003, 1004));
}

TEST_F(ScreenTest, ScrollsPageByPageAndToTheEnds) {
    showMany(10);
    order(10);
    EXPECT_TRUE(screen_.scroll(Key::PageDown));
    EXPECT_THAT(order(10), ElementsAre(1005, 1006, 1007, 1008));
    EXPECT_TRUE(screen_.scroll(Key::PageDown));
    EXPECT_THAT(order(10), ElementsAre(1007, 1008, 1009, 1010)) << "the last page is full";
    EXPECT_FALSE(screen_.scroll(Key::Down));
    EXPECT_TRUE(screen_.scroll(Key::PageUp));
    EXPECT_THAT(order(10), ElementsAre(1003, 1004, 1005, 1006));
    EXPECT_TRUE(screen_.scroll(Key::PageUp));
    EXPECT_THAT(order(10), ElementsAre(1001, 1002, 1003, 1004)) << "no further than to the first";
    EXPECT_TRUE(screen_.scroll(Key::Bottom));
    EXPECT_THAT(order(10), ElementsAre(1007, 1008, 1009, 1010));
    EXPECT_TRUE(screen_.scroll(Key::Top));
    EXPECT_THAT(order(10), ElementsAre(1001, 1002, 1003, 1004));
}

TEST_F(ScreenTest, DoesNotScrollWhenAllIsShown) {
    showMany(3);
    order(24);
    for (const Key key : {Key::Down, Key::Up, Key::PageDown, Key::PageUp, Key::Bottom, Key::Top, Key::Other, Key::Quit})
        EXPECT_FALSE(screen_.scroll(key));
    show({});
    lines();
    EXPECT_FALSE(screen_.scroll(Key::Down));
}

TEST_F(ScreenTest, FollowsWhenEnginesGoOrTheTerminalGrows) {
    showMany(10);
    order(10);
    screen_.scroll(Key::Bottom);
    showMany(5);
    EXPECT_THAT(order(10), ElementsAre(1002, 1003, 1004, 1005));
    EXPECT_THAT(order(24), ElementsAre(1001, 1002, 1003, 1004, 1005));
}

// --- warnings -------------------------------------------------------------------------------------------------------

TEST_F(ScreenTest, WarningsStandBetweenTheMachineAndItsEngines) {
    showMany(1);
    const auto shown = lines(40, 24, {"one of several words that need two lines", "short\n"});
    EXPECT_EQ(shown[4], "! one of several words that need two");
    EXPECT_EQ(shown[5], "  lines");
    EXPECT_EQ(shown[6], "! short\\n");
    EXPECT_EQ(shown[7], "");
}

TEST_F(ScreenTest, WarningsAreBrokenBetweenWords) {
    showMany(1);
    const struct {
        std::size_t columns;
        const char* warning;
        std::vector<std::string> lines;
    } rows[] = {
        {10, "abcdefgh", {"! abcdefgh"}},
        {10, "abcdefgh ij", {"! abcdefgh", "  ij"}},
        {10, "abcdefg hij", {"! abcdefg", "  hij"}},
        {10, "abcdefgh   ij", {"! abcdefgh", "  ij"}},
        {10, "abcdefghijkl", {"! abcdefgh", "  ijkl"}},
        {10, "a bbbbbbbb", {"! a", "  bbbbbbbb"}},
        {5, "abc def", {"! abc", "  def"}},
        {4, "abc def", {"! a…"}},
    };
    for (const auto& row : rows) {
        const auto shown = lines(row.columns, 24, {row.warning});
        for (std::size_t i = 0; i < row.lines.size(); ++i) EXPECT_EQ(shown[4 + i], row.lines[i]) << row.warning;
        EXPECT_EQ(shown[4 + row.lines.size()], "") << row.warning;
    }
}

TEST_F(ScreenTest, WarningsLeaveRoomForEngines) {
    showMany(50);
    const std::vector<std::string> warnings{"a first one that takes more than a line", "b", "c", "d"};
    const auto shown = lines(30, 12, warnings);
    ASSERT_THAT(shown, SizeIs(12));
    EXPECT_EQ(shown[4], "! a first one that takes more…");
    EXPECT_EQ(shown[5], "! b");
    EXPECT_EQ(shown[6], "! 2 more warnings");
    EXPECT_EQ(shown[9], "   1001      0.5 %    3.0 MiB ");
    EXPECT_EQ(lines(30, 10, warnings)[4], "! 4 warnings");
    EXPECT_EQ(lines(30, 9, warnings)[4], "! 4 warnings");
    EXPECT_EQ(lines(30, 11, {"a", "b", "c"})[4], "! a");
    EXPECT_EQ(lines(30, 11, {"a", "b", "c"})[5], "! 2 more warnings");
    EXPECT_EQ(lines(30, 12, {"a", "b", "c"})[6], "! c");
    const std::vector<std::string> seven{"a", "b", "c", "d", "e", "f", "g"};
    EXPECT_EQ(lines(30, 16, seven)[9], "! 2 more warnings") << "a line stays blank";
    EXPECT_EQ(lines(30, 17, seven)[10], "! g");
    EXPECT_EQ(lines(30, 12, {warnings[0], "b"})[5], "  than a line");
    EXPECT_EQ(lines(30, 12, {warnings[0], "b"})[6], "! b");
    EXPECT_EQ(lines(30, 12, {warnings[0], "b", "c"})[4], shown[4]);
    EXPECT_EQ(lines(30, 12, {warnings[0], "b", "c"})[6], "! c");
    EXPECT_EQ(lines(30, 10, {"only one that is much too long"})[4], "! only one that is much too l…");
}

}  // namespace
