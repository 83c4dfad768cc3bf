// bars: shares and histories as characters.
#include <optional>

#include <gtest/gtest.h>

#include "bars.h"

namespace {

TEST(Bar, IsFilledToItsShare) {
    EXPECT_EQ(bar(0.0, 10), "[        ]");
    EXPECT_EQ(bar(0.5, 10), "[||||    ]");
    EXPECT_EQ(bar(1.0, 10), "[||||||||]");
    EXPECT_EQ(bar(7.0, 10), "[||||||||]");
    EXPECT_EQ(bar(-1.0, 10), "[        ]");
    EXPECT_EQ(bar(0.18, 10), "[|       ]") << "to the nearest stroke";
    EXPECT_EQ(bar(0.19, 10), "[||      ]");
}

TEST(Bar, ThePartOfAShareHasItsOwnCharacter) {
    EXPECT_EQ(bar(0.75, 10, 0.25), "[##||||  ]");
    EXPECT_EQ(bar(0.5, 10, 0.5), "[####    ]");
    EXPECT_EQ(bar(0.5, 10, 0.9), "[####    ]") << "never more than the whole";
}

TEST(Bar, AnUnknownShareIsNotNothing) {
    EXPECT_EQ(bar(std::nullopt, 10), "[?       ]");
    EXPECT_EQ(bar(std::nullopt, 3), "[?]");
}

TEST(Bar, HasTheWidthAskedFor) {
    EXPECT_EQ(bar(0.5, 0), "[]");
    EXPECT_EQ(bar(std::nullopt, 2), "[]");
    EXPECT_EQ(bar(1.0, 3), "[|]");
}

TEST(Sparkline, HasAHeightForEachStep) {
    EXPECT_EQ(sparkline({0.0, 0.9, 1.0, 2.0, 5.0, 10.0, 25.0, 50.0, 90.0, 400.0}, 20), "▁▁▂▃▄▅▆▇██");
    EXPECT_EQ(sparkline({1.9, 4.9, 9.9, 24.9, 49.9, 89.9}, 20), "▂▃▄▅▆▇");
}

TEST(Sparkline, ShowsTheLastFigures) {
    EXPECT_EQ(sparkline({0.0, 50.0, 100.0}, 2), "▇█");
    EXPECT_EQ(sparkline({std::nullopt, 0.0}, 10), " ▁");
    EXPECT_EQ(sparkline({}, 10), "");
}

TEST(Sparkline, LegendTellsTheSteps) { EXPECT_EQ(sparklineLegend(), "▂1 ▃2 ▄5 ▅10 ▆25 ▇50 █90 %"); }

}  // namespace
