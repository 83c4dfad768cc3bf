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

TEST(NearestNames, TwoLettersThatChangedPlacesAreOneMistake) {
    EXPECT_THAT(nearestNames("BA", {"AB"}), ElementsAre("AB"));
    EXPECT_THAT(nearestNames("BAC", {"ABC"}), ElementsAre("ABC"));
    EXPECT_THAT(nearestNames("ACB", {"ABC"}), ElementsAre("ABC"));
    EXPECT_THAT(nearestNames("CBA", {"ABC"}), IsEmpty());
    EXPECT_THAT(nearestNames("ABCDE", {std::string("xA\0BCDX", 7)}), IsEmpty()) << "nothing stands before the first";
}

TEST(NearestNames, KeysOfSectionsComeFirst) {
    const std::vector<std::string> known{"THREADZ", "engine.THREADS", "a.b.THREADS", "engine.XTHREADS", "THREADS.x"};
    EXPECT_THAT(nearestNames("THREADS", known), ElementsAre("a.b.THREADS", "engine.THREADS", "THREADZ"));
    EXPECT_THAT(nearestNames("b.THREADS", {"a.b.THREADS"}), ElementsAre("a.b.THREADS"));
    EXPECT_THAT(nearestNames("x", {"s.x", "s.X"}), ElementsAre("s.x"));
    EXPECT_THAT(nearestNames("x", {".x"}), ElementsAre(".x"));
}

// One mistake in two to four letters, two in five to seven, three in eight.
TEST(NearestNames, LongerNamesMayHaveMoreMistakes) {
    const struct {
        const char* typed;
        const char* known;
        bool found;
    } rows[] = {
        {"A", "B", false},
        {"AB", "AX", true},
        {"ABCD", "ABCX", true},
        {"ABCD", "ABXX", false},
        {"ABCDE", "ABCXX", true},
        {"ABCDE", "ABXXX", false},
        {"ABCDEFG", "ABCDEXX", true},
        {"ABCDEFG", "ABCDXXX", false},
        {"ABCDEFGH", "ABCDEXXX", true},
        {"ABCDE", "ABCDEFG", true},
        {"ABCDE", "ABCDEFGH", false},
        {"ABCDE", "ABC", true},
        {"ABCDE", "AB", false},
        {"BADCE", "ABCDE", true},
        {"BADC", "ABCD", false},
        {"AXBCDY", "ABCD", true},
        {"ABCD", "XABCDY", false},
        {"ABCDE", "XABCDEY", true},
        {"ABCDE", "BCDEX", true},
        {"ABCDE", "BCDXX", false},
        {"ABCDE", "aBcDeF", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(nearestNames(row.typed, {row.known}).size(), row.found ? 1U : 0U) << row.typed << " " << row.known;
    }
}

TEST(NearestNames, NobodyMistypesAVeryLongName) {
    EXPECT_THAT(nearestNames(std::string(100, 'x'), {std::string(99, 'x')}), ElementsAre(std::string(99, 'x')));
    EXPECT_THAT(nearestNames(std::string(101, 'x'), {std::string(100, 'x')}), IsEmpty());
}

TEST(NearestNames, TheNearestThreeInOrder) {
    EXPECT_THAT(nearestNames("ABCDE", {"ABCXX", "ABCDY", "ABCDX", "ABCDE", "ABXXE"}),
                ElementsAre("ABCDE", "ABCDX", "ABCDY"));
}

TEST(NearestNames, SentenceHasUpToThree) {
    EXPECT_EQ(didYouMean({}), "");
    EXPECT_EQ(didYouMean({"A"}), "; did you mean 'A'?");
    EXPECT_EQ(didYouMean({"A", "B"}), "; did you mean 'A' or 'B'?");
    EXPECT_EQ(didYouMean({"A", "B", "C"}), "; did you mean 'A', 'B' or 'C'?");
}

}  // namespace
