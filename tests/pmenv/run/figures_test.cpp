// figures: what is made of the kernel's counts.
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "SampleFigures.h"
#include "figures.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// --- the machine ----------------------------------------------------------------------------------------------------

kernel::MachineTicks ticks(std::uint64_t busy, std::uint64_t idle, std::optional<std::uint64_t> stolen = 0) {
    return {busy, idle, stolen};
}

TEST(BusyPercent, IsTheBusyShareOfAllTime) {
    EXPECT_EQ(busyPercent(ticks(100, 1000), ticks(150, 1150)), 25.0);
    EXPECT_EQ(busyPercent(ticks(0, 0), ticks(0, 200)), 0.0);
    EXPECT_EQ(busyPercent(ticks(0, 0), ticks(200, 0)), 100.0);
    EXPECT_EQ(busyPercent(ticks(0, 0, 0), ticks(50, 50, 100)), 25.0) << "stolen time is nobody's here, but it passed";
    EXPECT_EQ(busyPercent(ticks(0, 0, 300), ticks(50, 50, 400)), 25.0) << "since the sample before";
    EXPECT_EQ(busyPercent(ticks(0, 0, std::nullopt), ticks(50, 50, std::nullopt)), 50.0);
}

TEST(BusyPercent, IsUnknownWithoutTimeOrWhenACountGoesBack) {
    EXPECT_EQ(busyPercent(ticks(100, 1000), ticks(100, 1000)), std::nullopt);
    EXPECT_EQ(busyPercent(ticks(100, 1000), ticks(100, 1001)), 0.0);
    EXPECT_EQ(busyPercent(ticks(100, 1000), ticks(99, 1100)), std::nullopt);
    EXPECT_EQ(busyPercent(ticks(100, 1000), ticks(200, 999)), std::nullopt);
    EXPECT_EQ(busyPercent(ticks(100, 1000, 5), ticks(200, 1100, 4)), std::nullopt);
}

TEST(CpuParts, TellsTheEnginesFromEverythingElse) {
    Figures figures = figuresAt(0);
    figures.cpuPercent = 50.0;
    figures.engines = {engine(7, 100.0), engine(8, 20.0)};  // of one of four processors
    const auto parts = cpuParts(figures);
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->engines, 30.0);
    EXPECT_EQ(parts->others, 20.0);
    figures.engines.clear();
    EXPECT_EQ(cpuParts(figures)->engines, 0.0);
    EXPECT_EQ(cpuParts(figures)->others, 50.0);
}

TEST(CpuParts, EnginesNeverHaveMoreThanAll) {
    Figures figures = figuresAt(0);
    figures.cpuPercent = 25.0;
    figures.engines = {engine(7, 101.0)};
    EXPECT_EQ(cpuParts(figures)->engines, 25.0);
    EXPECT_EQ(cpuParts(figures)->others, 0.0);
}

TEST(CpuParts, AreUnknownWhileOneFigureIs) {
    Figures figures = figuresAt(0);
    figures.engines = {engine(7, 1.0), engine(8, std::nullopt)};
    EXPECT_FALSE(cpuParts(figures));
    figures.engines.pop_back();
    EXPECT_TRUE(cpuParts(figures));
    figures.cpuPercent.reset();
    EXPECT_FALSE(cpuParts(figures));
}

// --- engines --------------------------------------------------------------------------------------------------------

// Engine 7, which began at tick 1000 of the machine.
EngineLook lookAt(double seconds, std::uint64_t ticks, std::uint64_t startTicks = 1000) {
    EngineLook look;
    look.stat.id = 7;
    look.stat.name = kEngineName;
    look.stat.ticks = ticks;
    look.stat.startTicks = startTicks;
    look.begun = seconds;
    look.ended = seconds;
    return look;
}

const auto kSecond = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));

TEST(EnginePercent, IsOfOneProcessor) {
    EXPECT_DOUBLE_EQ(enginePercent(lookAt(10, 50), lookAt(12, 50 + kSecond), 4).value(), 50.0);
    EXPECT_DOUBLE_EQ(enginePercent(lookAt(10, 50), lookAt(11, 50 + 4 * kSecond), 4).value(), 400.0);
    EXPECT_DOUBLE_EQ(enginePercent(lookAt(10, 50), lookAt(11, 50), 4).value(), 0.0);
}

TEST(EnginePercent, MoreThanTheMachineHasIsNoFigure) {
    EXPECT_TRUE(enginePercent(lookAt(10, 0), lookAt(11, 2 * kSecond + 2), 2)) << "a tick's rounding at each end";
    EXPECT_FALSE(enginePercent(lookAt(10, 0), lookAt(11, 2 * kSecond + 3), 2));
    EXPECT_FALSE(enginePercent(lookAt(10, 0), lookAt(11, 1ULL << 60), 2));
}

TEST(EnginePercent, ACountThatGoesBackIsNoFigure) {
    EXPECT_FALSE(enginePercent(lookAt(10, 50), lookAt(11, 49), 4));
    EXPECT_FALSE(enginePercent(lookAt(10, 50), lookAt(10, 50), 4)) << "no time between them";
}

// The program may be held up between reading a count and reading the clock, and must not take that for work.
TEST(EnginePercent, CountsTheLongestTimeBetweenTheLooks) {
    EngineLook before = lookAt(10, 0);
    before.ended = 10.5;
    EngineLook now = lookAt(11, kSecond);
    now.ended = 12;
    EXPECT_DOUBLE_EQ(enginePercent(before, now, 1).value(), 50.0);
}

TEST(EngineFigures, ProcessorTimeIsKnownFromTheSecondLookOn) {
    std::vector<std::string> warnings;
    const EngineLook first = lookAt(10, 50);
    EXPECT_EQ(engineFigures(nullptr, first, 2, &warnings).cpuPercent, std::nullopt);
    const EngineFigures second = engineFigures(&first, lookAt(11, 50 + kSecond / 2), 2, &warnings);
    EXPECT_EQ(second.processId, 7);
    EXPECT_EQ(second.name, kEngineName);
    EXPECT_EQ(second.startTicks, 1000u);
    EXPECT_DOUBLE_EQ(second.cpuPercent.value(), 50.0);
    EXPECT_THAT(warnings, IsEmpty());
}

// An engine had run for hours when it ended; its id went to a new one, and the difference of their counts was shown as
// 1434045787.6 %.
TEST(EngineFigures, AnIdThatIsUsedAgainIsAnotherEngine) {
    std::vector<std::string> warnings;
    const EngineLook old = lookAt(10, 360'000);
    EXPECT_EQ(engineFigures(&old, lookAt(11, 5, 9000), 2, &warnings).cpuPercent, std::nullopt);
    const EngineLook young = lookAt(10, 5);
    EXPECT_EQ(engineFigures(&young, lookAt(11, 6, 9000), 2, &warnings).cpuPercent, std::nullopt)
        << "nor when the figure looks possible";
    EXPECT_THAT(warnings, IsEmpty()) << "that happens, and the next sample knows more";
}

TEST(EngineFigures, AFigureThatIsNoneIsNoted) {
    std::vector<std::string> warnings;
    const EngineLook before = lookAt(10, 50);
    EXPECT_EQ(engineFigures(&before, lookAt(11, 1ULL << 40), 2, &warnings).cpuPercent, std::nullopt);
    EXPECT_THAT(warnings,
                ElementsAre("the processor time of load engine 7 is not known: its count went back, or rose by "
                            "more than the machine has"));
}

TEST(ResidentBytes, AreCountedIn64Bits) {
    EXPECT_EQ(kernel::parseResidentBytes("2000000 1310721 300 10 0 99 0\n", 4096), 5 * kGiB + 4096);
    EXPECT_EQ(kernel::parseResidentBytes("1 0 0 0 0 0 0\n", 4096), 0u);
}

TEST(ResidentBytes, AreUnknownWhenTheTextIsNot) {
    for (const char* const text : {"", "\n", "12\n", "12 \n", "x 12\n", "12 x\n", "12 -1\n", "12 4503599627370496\n"}) {
        EXPECT_EQ(kernel::parseResidentBytes(text, 4096), std::nullopt) << text;
    }
    EXPECT_TRUE(kernel::parseResidentBytes("12 4503599627370495\n", 4096)) << "the most that 64 bits hold";
}

}  // namespace
