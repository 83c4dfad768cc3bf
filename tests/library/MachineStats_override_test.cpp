// A program may put its own functions in front of the library's exported ones. Those below stand for an engine's step
// that fails, which the library's own never does, and show what the collector makes of it.
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

#include "support/LogCapture.h"

using nLogging::Level;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the functions below do, and the ids that the search for engines finds.
std::function<bool(int pid)> g_onProcess;
std::function<bool()> g_onMachine;
std::vector<int> g_engines;

}  // namespace

int getSlavesList(std::vector<int>& pids, int /*excludedPid*/) {
    pids.insert(pids.end(), g_engines.begin(), g_engines.end());
    return 0;  // a result that does not matter
}

bool MachineStats::GetSpecificProcessInfo(int pid, unsigned long long& memoryBytes, double& cpuPercent, bool flag) {
    memoryBytes = 0x123456789ABCDEF0;
    cpuPercent = flag ? 1.0 : 0.0;
    return g_onProcess(pid);
}

bool MachineStats::getBasicMachineStats(unsigned long long&, unsigned long long&, unsigned long long&,
                                        unsigned long long&, unsigned long long&, long double&, int&) {
    return g_onMachine();
}

namespace {

class OverrideTest : public testing::Test {
protected:
    OverrideTest() {
        g_engines = {5, 6, 7};
        g_onProcess = [](int) { return true; };
        g_onMachine = [] { return true; };
    }

    MachineStats collector;
    KREnvMachineStats stats{};
    LogCapture log;
};

}  // namespace

TEST_F(OverrideTest, OnlyTheLow32BitsOfTheMemoryAreKept) {
    EXPECT_TRUE(collector.CollectSlavesInfo(stats.slaves, true));
    ASSERT_EQ(3U, stats.slaves.size());
    EXPECT_EQ(0x9ABCDEF0U, stats.slaves[0].memoryBytes);
}

TEST_F(OverrideTest, TheFlagIsHandedOn) {
    EXPECT_TRUE(collector.CollectMachineStats(stats, true));
    EXPECT_EQ(1.0, stats.slaves.at(0).cpuPercent);
    EXPECT_TRUE(collector.CollectMachineStats(stats, false));
    EXPECT_EQ(0.0, stats.slaves.at(0).cpuPercent);
}

TEST_F(OverrideTest, AProcessThatFailsStopsTheList) {
    g_onProcess = [](int pid) { return pid != 6; };
    EXPECT_FALSE(collector.CollectSlavesInfo(stats.slaves, false));
    ASSERT_EQ(1U, stats.slaves.size());
    EXPECT_EQ(5, stats.slaves[0].processId);
    ASSERT_EQ(1U, log.entries().size());
    EXPECT_THAT(log.texts(Level::Warning), ElementsAre("Failed to get process info for process id: 6"));
}

TEST_F(OverrideTest, TheAnswerIsThatOfTheMachinesFigures) {
    g_onProcess = [](int) { return false; };
    EXPECT_TRUE(collector.CollectMachineStats(stats, false)) << "the engines' answer is ignored";
    g_onMachine = [] { return false; };
    EXPECT_FALSE(collector.CollectMachineStats(stats, false));
}

TEST_F(OverrideTest, WhatAProcessThrowsIsLogged) {
    g_onProcess = [](int) -> bool { throw std::logic_error("bad process"); };
    EXPECT_FALSE(collector.CollectSlavesInfo(stats.slaves, false));
    g_onProcess = [](int) -> bool { throw "bad process"; };
    EXPECT_FALSE(collector.CollectSlavesInfo(stats.slaves, false));
    EXPECT_THAT(log.texts(Level::Error), ElementsAre("CollectSlavesInfo() - failed with error: bad process",
                                                     "CollectSlavesInfo() - crashed while collecting slaves data"));
}
