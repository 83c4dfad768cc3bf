// Which percentiles can be believed.
#include <gtest/gtest.h>

#include "percentile.h"

TEST(Percentile, AllowsTheRestOfTheTime) {
    EXPECT_FALSE(isTooMuch(0, 100));
    EXPECT_TRUE(isTooMuch(1e-6, 100));
    EXPECT_FALSE(isTooMuch(0.01, 99));
    EXPECT_FALSE(isTooMuch(0.1 + 0.2 - 0.29, 99)) << "what adding up intervals rounds does not count";
    EXPECT_TRUE(isTooMuch(0.0101, 99));
    EXPECT_FALSE(isTooMuch(1, 1e-9)) << "just what may be rounded";
    EXPECT_TRUE(isTooMuch(1, 2e-9));
}

TEST(Percentile, IsBelievedUpToATenth) {
    EXPECT_EQ(believedPercentile(0), 100);
    EXPECT_EQ(believedPercentile(1), 0);
    EXPECT_EQ(believedPercentile(0.01), 99);
    EXPECT_EQ(believedPercentile(0.0101), 98.9);
    EXPECT_EQ(believedPercentile(0.00199), 99.8);
    EXPECT_EQ(believedPercentile(1 - 0.987), 98.7) << "0.987 is a little less as a number";
}

TEST(Percentile, IsWrittenAsItIsCalled) {
    EXPECT_EQ(percentileText(99), "p99");
    EXPECT_EQ(percentileText(99.9), "p99.9");
    EXPECT_EQ(percentileText(99.999), "p99.999");
    EXPECT_EQ(percentileText(100), "p100");
}
