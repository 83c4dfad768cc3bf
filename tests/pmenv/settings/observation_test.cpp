// OriginMap: where in a text something stood before parts of it were replaced. What was observed of that is counted.
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "explain/observation.h"

namespace {

TEST(OriginMap, PartsKeepTheirOriginUntilTheyAreReplaced) {
    OriginMap map;
    EXPECT_EQ(5U, map.originOf(5, 3));
    map.replace(5, 3, 10);
    EXPECT_EQ(2U, map.originOf(2, 3));
    EXPECT_EQ(std::nullopt, map.originOf(4, 2));
    EXPECT_EQ(std::nullopt, map.originOf(14, 2));
    EXPECT_EQ(8U, map.originOf(15, 2));
}

TEST(OriginMap, PartAroundAnEmptyReplacementIsNotTheOldOne) {
    OriginMap map;
    map.replace(5, 3, 0);
    EXPECT_EQ(std::nullopt, map.originOf(4, 2));
    EXPECT_EQ(4U, map.originOf(4, 1));
    EXPECT_EQ(8U, map.originOf(5, 1));
}

// Each character of the text carries where it was at first, -1 for one that was put in.
TEST(OriginMap, AgreesWithATextWhoseCharactersCarryTheirOrigin) {
    std::mt19937 random(7);
    const auto below = [&random](std::size_t end) { return static_cast<std::size_t>(random()) % end; };
    for (int round = 0; round < 2000; ++round) {
        std::vector<int> text(20 + below(20));
        for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<int>(i);
        OriginMap map;
        std::size_t from = 0;  // references are replaced from left to right, or where one was put in
        while (from + 6 < text.size()) {
            const std::size_t position = from + below(3);
            const std::size_t length = 1 + below(4);
            const std::vector<int> value(below(5), -1);
            map.replace(position, length, value.size());
            const auto at = text.begin() + static_cast<std::ptrdiff_t>(position);
            text.insert(text.erase(at, at + static_cast<std::ptrdiff_t>(length)), value.begin(), value.end());
            from = position + (value.empty() ? 0 : below(value.size()));
            for (std::size_t i = 0; i < text.size(); ++i) {
                const std::optional<std::size_t> origin = map.originOf(i, 1);
                ASSERT_EQ(text[i], origin ? static_cast<int>(*origin) : -1) << "round " << round << ", character " << i;
            }
        }
    }
}

TEST(ObservedSteps, AreCountedAtAllLevels) {
    const auto step = [](std::vector<ObservedStep> below) {
        return ObservedStep{Excerpt("#(A)"), 0, false, "A", std::nullopt, std::nullopt, std::nullopt, std::move(below)};
    };
    EXPECT_EQ(0U, countSteps({}));
    EXPECT_EQ(2U, countSteps({step({}), step({})}));
    EXPECT_EQ(5U, countSteps({step({step({}), step({step({})})}), step({})}));
}

}  // namespace
