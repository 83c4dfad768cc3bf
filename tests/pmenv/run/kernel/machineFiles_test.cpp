// The machine's files: accepted and refused texts, of old and new kernels.
#include <string>

#include <gtest/gtest.h>

#include "kernel/machineFiles.h"

using kernel::parseMachineTicks;
using kernel::parseMemInfo;
using kernel::parsePressure;

namespace {

TEST(ParseMachineTicks, PartsBusyIdleAndStolen) {
    const auto ticks = parseMachineTicks("cpu  4705 150 1120 16250 520 30 175 17 900 0\ncpu0 1 2 3 4\n");
    ASSERT_TRUE(ticks);
    EXPECT_EQ(ticks->busy, 4705u + 150 + 1120 + 30 + 175);
    EXPECT_EQ(ticks->idle, 16250u + 520);
    EXPECT_EQ(ticks->stolen, 17u);
}

TEST(ParseMachineTicks, StolenTimeIsUnknownOnKernelsThatDoNotCountIt) {
    for (const char* const row : {"cpu  1 2 3 4", "cpu  1 2 3 4 5 6 7\n"}) {
        const auto ticks = parseMachineTicks(row);
        ASSERT_TRUE(ticks) << row;
        EXPECT_FALSE(ticks->stolen) << row;
    }
}

TEST(ParseMachineTicks, RefusesOtherTexts) {
    for (const char* const row :
         {"", "\n", "cpu", "cpu 1 2 3", "cpu0 1 2 3 4 5 6 7 8", "intr 1 2 3 4", "cpu 1 2 x 4 5 6 7 8", "cpu 1 2 3 -4 5",
          "cpu 1 2 3 4 5 6 7 99999999999999999999", "\ncpu 1 2 3 4"}) {
        EXPECT_FALSE(parseMachineTicks(row)) << row;
    }
}

TEST(ParseMemInfo, TakesWhatThereIs) {
    const auto memory = parseMemInfo(
        "MemTotal:       24737260 kB\nMemFree:        1 kB\nMemAvailable:   24492268 kB\n"
        "SwapTotal:           100 kB\nSwapFree:             40 kB\n");
    EXPECT_EQ(memory.total, 24737260ull * 1024);
    EXPECT_EQ(memory.available, 24492268ull * 1024);
    EXPECT_EQ(memory.swapUsed, 60u * 1024);
}

TEST(ParseMemInfo, WhatIsMissingOrStrangeIsUnknown) {
    for (const char* const row :
         {"", "MemAvailable: kB\n", "MemAvailable: 12\n", "MemAvailable: 12 MB\n", "MemAvailable: -12 kB\n",
          "MemAvailable: 12x kB\n", "XMemAvailable: 12 kB\n", "MemAvailable: 18446744073709551615 kB\n"}) {
        EXPECT_FALSE(parseMemInfo(row).available) << row;
    }
    EXPECT_FALSE(parseMemInfo("SwapTotal: 10 kB\nSwapFree: 11 kB\n").swapUsed);
    EXPECT_FALSE(parseMemInfo("SwapTotal: 10 kB\n").swapUsed);
    EXPECT_FALSE(parseMemInfo("SwapFree: 10 kB\n").swapUsed);
    EXPECT_EQ(parseMemInfo("SwapTotal: 10 kB\nSwapFree: 10 kB\n").swapUsed, 0u);
    EXPECT_EQ(parseMemInfo("MemAvailable: 18014398509481983 kB\n").available, 18446744073709550592ull);
}

TEST(ParsePressure, TakesTheTotalOfSome) {
    EXPECT_EQ(parsePressure("some avg10=0.00 avg60=0.12 avg300=0.00 total=12345\nfull avg10=0.00 total=7\n"), 12345u);
    for (const char* const row :
         {"", "full avg10=0.00 total=7", "some avg10=0.00", "some total=", "some total=x", "some total=-1"}) {
        EXPECT_FALSE(parsePressure(row)) << row;
    }
}

}  // namespace
