// figures: what the kernel's texts tell.
#include <optional>

#include <gtest/gtest.h>

#include "figures.h"

namespace {

TEST(Figures, ReadsMemInfo) {
    constexpr char kText[] =
        "MemTotal:       24731708 kB\nMemFree:  1 kB\nMemAvailable:   24492268 kB\nSwapCached: 0 kB\n"
        "SwapTotal:       2097148 kB\nSwapFree:        2097144 kB\n";
    EXPECT_EQ(parseMemInfo(kText).availableBytes, 24492268ULL * 1024);
    EXPECT_EQ(parseMemInfo(kText).swapUsedBytes, 4096u);
}

TEST(Figures, WhatMemInfoDoesNotTellIsUnknown) {
    for (const char* const text :
         {"", "MemTotal: 1 kB\n", "\nMemAvailable:\n", "\nMemAvailable: x kB\n", "\nMemAvailable: -1 kB\n",
          "\nMemAvailable: 1 MB\n", "\nMemAvailable: 99999999999999999999 kB\n",
          "\nMemAvailable: 18446744073709551615 kB\n", "\nSwapTotal: 1 kB\n", "\nSwapTotal: 1 kB\nSwapFree: 2 kB\n"}) {
        EXPECT_EQ(parseMemInfo(text).availableBytes, std::nullopt) << text;
        EXPECT_EQ(parseMemInfo(text).swapUsedBytes, std::nullopt) << text;
    }
}

}  // namespace
