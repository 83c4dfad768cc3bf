// comparison: what is said of a setting that is not the same on both sides.
#include <optional>
#include <utility>

#include <gtest/gtest.h>

#include "diff/comparison.h"

namespace {

TEST(Difference, IsHiddenWhereBothSidesLookAlikeOnly) {
    const auto shownAs = [](const char* text, bool hides) {
        Excerpt shown(text);
        shown.hides = hides;
        return ComparedValue{{1, 1}, shown, ""};
    };
    const auto isHidden = [](std::optional<ComparedValue> a, std::optional<ComparedValue> b) {
        return Difference{"A", std::move(a), std::move(b), "", {}}.isHidden();
    };
    EXPECT_TRUE(isHidden(shownAs("x", true), shownAs("x", false)));
    EXPECT_TRUE(isHidden(shownAs("x", false), shownAs("x", true)));
    EXPECT_FALSE(isHidden(shownAs("x", false), shownAs("x", false)));
    EXPECT_FALSE(isHidden(shownAs("x", true), shownAs("y", true)));
    EXPECT_FALSE(isHidden(shownAs("x", true), std::nullopt));
    EXPECT_FALSE(isHidden(std::nullopt, shownAs("x", true)));
    EXPECT_FALSE(isHidden(ComparedValue{}, shownAs("x", true)));
}

}  // namespace
