// nearest: names that are probably meant.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "nearest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

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
