// The machine's figures from interval to interval, on kernels that tell more and less.
#include <string>

#include <gtest/gtest.h>

#include <unistd.h>

#include "evidence/machine.h"
#include "support/FakeKernel.h"

namespace {

const std::string kSnmp = "Tcp: RtoAlgorithm RtoMin OutSegs RetransSegs\nTcp: 1 200 ";

class MachineTest : public testing::Test {
protected:
    void ticks(const std::string& numbers) { kernel.write("/proc/stat", "cpu  " + numbers + "\ncpu0 1 1 1 1\n"); }
    double seconds(double count) const { return count / static_cast<double>(sysconf(_SC_CLK_TCK)); }

    FakeKernel kernel;
};

// --- processors -----------------------------------------------------------------------------------------------------

TEST_F(MachineTest, ProcessorTimeIsKnownFromTheSecondIntervalOn) {
    ticks("100 0 0 100 0 0 0 5 0 0");
    Machine machine;
    EXPECT_FALSE(machine.sample(false).busy);
    ticks("130 5 5 140 20 5 5 12 0 0");
    const MachineEvidence evidence = machine.sample(false);
    EXPECT_EQ(evidence.busy, seconds(50));
    EXPECT_EQ(evidence.idle, seconds(60));
    EXPECT_EQ(evidence.stolen, seconds(7));
}

TEST_F(MachineTest, ThereIsAtLeastOneProcessor) {
    for (const auto& [told, processors] : {std::pair(64, 64), std::pair(1, 1), std::pair(-1, 1)}) {
        kernel.processors = told;
        EXPECT_EQ(Machine().sample(false).processors, processors);
    }
}

TEST_F(MachineTest, StolenTimeIsNotKnownWhereTheKernelDoesNotCountIt) {
    ticks("100 0 0 100 0 0 0");
    Machine machine;
    machine.sample(false);
    ticks("110 0 0 110 0 0 0");
    const MachineEvidence evidence = machine.sample(false);
    EXPECT_EQ(evidence.busy, seconds(10));
    EXPECT_FALSE(evidence.stolen);
    ticks("120 0 0 120 0 0 0 9");
    EXPECT_FALSE(machine.sample(false).stolen) << "there is nothing to compare with";
    ticks("130 0 0 130 0 0 0");
    EXPECT_FALSE(machine.sample(false).stolen);
}

// Time waited for disks goes back now and then; and a counter of 32 bits begins again at zero.
TEST_F(MachineTest, CountersThatGoBackAreNotKnown) {
    const struct {
        const char* before;
        const char* now;
        bool busy;
        bool stolen;
    } rows[] = {
        {"100 0 0 100 0 0 0 50", "90 0 0 110 0 0 0 51", false, true},
        {"100 0 0 100 30 0 0 50", "110 0 0 105 20 0 0 51", false, true},
        {"4294967290 0 0 100 0 0 0 50", "4 0 0 110 0 0 0 51", false, true},
        {"100 0 0 100 0 0 0 4294967290", "110 0 0 110 0 0 0 3", true, false},
        {"100 0 0 100 0 0 0 50", "110 0 0 110 0 0 0 50", true, true},
    };
    for (const auto& row : rows) {
        ticks(row.before);
        Machine machine;
        machine.sample(false);
        ticks(row.now);
        const MachineEvidence evidence = machine.sample(false);
        EXPECT_EQ(evidence.busy.has_value(), row.busy) << row.now;
        EXPECT_EQ(evidence.idle.has_value(), row.busy) << row.now;
        EXPECT_EQ(evidence.stolen.has_value(), row.stolen) << row.now;
    }
}

TEST_F(MachineTest, AnIntervalWithAStrangeFileAtAnEndIsNotKnown) {
    for (const std::string& text : {std::string(), std::string("cpu  1 2"), std::string("intr 5\n"),
                                    std::string("cpu  x 0 0 0\n"), std::string(100000, 'c')}) {
        ticks("100 0 0 100 0 0 0 0");
        Machine machine;
        machine.sample(false);
        kernel.write("/proc/stat", text);
        EXPECT_FALSE(machine.sample(false).busy) << text.substr(0, 50);
        ticks("120 0 0 100 0 0 0 0");
        EXPECT_FALSE(machine.sample(false).busy) << text.substr(0, 50);
        ticks("125 0 0 100 0 0 0 0");
        EXPECT_EQ(machine.sample(false).busy, seconds(5)) << text.substr(0, 50);
    }
    kernel.remove("/proc/stat");
    Machine machine;
    machine.sample(true);
    const MachineEvidence evidence = machine.sample(true);
    EXPECT_FALSE(evidence.busy || evidence.idle || evidence.stolen);
}

// --- what changes seldom --------------------------------------------------------------------------------------------

TEST_F(MachineTest, WhatIsReadSeldomIsEmptyInBetween) {
    kernel.write("/proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 250 kB\nSwapTotal: 100 kB\nSwapFree: 60 kB\n");
    Machine machine;
    EXPECT_EQ(machine.sample(true).memoryAvailableShare, 0.25);
    const MachineEvidence between = machine.sample(false);
    EXPECT_FALSE(between.memoryAvailableShare);
    EXPECT_FALSE(between.swapUsedBytes);
    EXPECT_EQ(machine.sample(true).swapUsedBytes, 40u * 1024);
}

TEST_F(MachineTest, MemoryThatIsNotToldIsNotKnown) {
    for (const char* const text : {"", "MemTotal: 1000 kB\n", "MemAvailable: 5 kB\n",
                                   "MemTotal: 0 kB\nMemAvailable: 0 kB\n", "MemTotal: 1000 kB\nMemAvailable: x kB\n"}) {
        kernel.write("/proc/meminfo", text);
        EXPECT_FALSE(Machine().sample(true).memoryAvailableShare) << text;
    }
    kernel.hide("/proc/meminfo");
    EXPECT_FALSE(Machine().sample(true).memoryAvailableShare);
}

TEST_F(MachineTest, PressureIsToldAsSeconds) {
    const auto write = [this](const char* name, int microseconds) {
        kernel.write(std::string("/proc/pressure/") + name,
                     "some avg10=0.00 avg60=0.00 avg300=0.00 total=" + std::to_string(microseconds) + "\n");
    };
    Machine machine;
    EXPECT_FALSE(machine.sample(true).cpuPressure) << "no such kernel";
    write("cpu", 1000);
    write("io", 2000);
    write("memory", 3000);
    EXPECT_FALSE(machine.sample(true).cpuPressure) << "nothing to compare with";
    write("cpu", 501000);
    write("io", 102000);
    write("memory", 2000);
    const MachineEvidence evidence = machine.sample(true);
    EXPECT_NEAR(evidence.cpuPressure.value_or(0), 0.5, 1e-9);
    EXPECT_NEAR(evidence.ioPressure.value_or(0), 0.1, 1e-9);
    EXPECT_FALSE(evidence.memoryPressure) << "it went back";
    write("memory", 1002000);
    EXPECT_NEAR(machine.sample(true).memoryPressure.value_or(0), 1, 1e-9);
    EXPECT_FALSE(machine.sample(false).cpuPressure);
}

TEST_F(MachineTest, PacketsAndSegmentsAreCounted) {
    kernel.write("/proc/net/softnet_stat", "00000010 00000001 00000000\n00000010 0000000f 00000000\n");
    kernel.write("/proc/net/snmp", kSnmp + "1000 10\n");
    Machine machine;
    MachineEvidence evidence = machine.sample(true);
    EXPECT_FALSE(evidence.droppedPackets || evidence.segmentsSent);
    kernel.write("/proc/net/softnet_stat", "00000010 00000001 00000000\n00000010 0000001f 00000000\n");
    kernel.write("/proc/net/snmp", kSnmp + "1500 25\n");
    evidence = machine.sample(true);
    EXPECT_EQ(evidence.droppedPackets, 16u);
    EXPECT_EQ(evidence.segmentsSent, 500u);
    EXPECT_EQ(evidence.segmentsSentAgain, 15u);

    // A processor that is taken offline takes its count with it; a counter of 32 bits begins again.
    kernel.write("/proc/net/softnet_stat", "00000010 00000001 00000000\n");
    kernel.write("/proc/net/snmp", kSnmp + "3 2\n");
    evidence = machine.sample(true);
    EXPECT_FALSE(evidence.droppedPackets || evidence.segmentsSent || evidence.segmentsSentAgain);

    kernel.write("/proc/net/softnet_stat", "");
    kernel.write("/proc/net/snmp", "Tcp: OutSegs\n");
    evidence = machine.sample(true);
    EXPECT_FALSE(evidence.droppedPackets || evidence.segmentsSent || evidence.segmentsSentAgain);
}

// --- delay accounting -----------------------------------------------------------------------------------------------

TEST_F(MachineTest, DelayAccountingIsOnWhereTheKernelSaysSo) {
    const std::string file = "/proc/sys/kernel/task_delayacct";
    EXPECT_FALSE(Machine().delayAccounting());
    kernel.write(file, "1\n");
    EXPECT_TRUE(Machine().delayAccounting());
    for (const char* const text : {"0\n", "", "11\n"}) {
        kernel.write(file, text);
        EXPECT_FALSE(Machine().delayAccounting()) << text;
    }
}

}  // namespace
