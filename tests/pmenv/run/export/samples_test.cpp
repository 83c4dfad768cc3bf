// Which moments are kept, and what is counted up to them.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/samples.h"

using testing::ElementsAre;

namespace {

// "1000: 5" for each moment, "?" for what is not known.
std::vector<std::string> momentsOf(const Samples& samples, std::size_t figure = 0) {
    std::vector<std::string> moments;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const auto value = samples.value(i, figure);
        moments.push_back(std::to_string(samples.time(i)) + ": " +
                          (value ? std::to_string(static_cast<int>(*value)) : "?"));
    }
    return moments;
}

TEST(Samples, OneASecondAndTheLast) {
    Samples samples({true});
    for (const std::int64_t time : {1700, 1950, 2200, 2450, 2999, 3000, 3250, 5800, 5900}) samples.add(time, {1});
    samples.finish();
    EXPECT_THAT(momentsOf(samples), ElementsAre("1700: 1", "2200: 3", "3000: 6", "5800: 8", "5900: 9"));
}

TEST(Samples, CountsUpOrTellsTheLast) {
    Samples samples({true, false});
    samples.add(1000, {1, 1});
    samples.add(1500, {2, 2});
    samples.add(2000, {3, 3});
    EXPECT_THAT(momentsOf(samples, 0), ElementsAre("1000: 1", "2000: 6"));
    EXPECT_THAT(momentsOf(samples, 1), ElementsAre("1000: 1", "2000: 3"));
}

// A figure that is read once a second is known in one of the intervals.
TEST(Samples, WhatNoIntervalToldIsNotKnown) {
    Samples samples({true, false});
    samples.add(1000, {std::nullopt, std::nullopt});
    samples.add(1500, {5, 5});
    samples.add(2000, {std::nullopt, std::nullopt});
    samples.add(3000, {std::nullopt, std::nullopt});
    samples.add(4000, {1, 1});
    EXPECT_THAT(momentsOf(samples, 0), ElementsAre("1000: ?", "2000: 5", "3000: ?", "4000: 6"));
    EXPECT_THAT(momentsOf(samples, 1), ElementsAre("1000: ?", "2000: 5", "3000: ?", "4000: 1"));
}

TEST(Samples, HaveOneValueForAMoment) {
    Samples samples({true});
    samples.add(1000, {1});
    samples.add(1000, {1});
    samples.finish();
    EXPECT_THAT(momentsOf(samples), ElementsAre("1000: 1"));
    samples.add(2000, {1});
    samples.add(2000, {1});
    samples.finish();
    EXPECT_THAT(momentsOf(samples), ElementsAre("1000: 1", "2000: 3"));
}

TEST(Samples, OfNothingAreNone) {
    Samples samples({true});
    samples.finish();
    EXPECT_EQ(samples.size(), 0U);
}

}  // namespace
