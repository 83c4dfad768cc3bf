// screen: the lines of the live screen, whatever the size of the terminal.
#include <clocale>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleFigures.h"
#include "screen.h"
#include "text.h"
#include "verdict.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

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

}  // namespace
