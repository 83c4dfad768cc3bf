// verdict: what it finds in figures, sample by sample, and how it says so.
#include <cstdint>
#include <optional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleFigures.h"
#include "statsFormats.h"
#include "verdict.h"

using testing::ElementsAre;

namespace {

class VerdictTest : public testing::Test {
protected:
    // One sample a second from the second after the last one, each with the machine at `percent`.
    void machine(std::optional<double> percent, int samples) {
        for (int i = 0; i < samples; ++i) {
            Figures figures = figuresAt(next_++);
            figures.cpuPercent = percent;
            verdict_.add(figures);
        }
    }

    void engines(const std::vector<EngineFigures>& engines, int samples) {
        for (int i = 0; i < samples; ++i) {
            Figures figures = figuresAt(next_++);
            figures.engines = engines;
            verdict_.add(figures);
        }
    }

    void available(std::optional<std::uint64_t> bytes) {
        Figures figures = figuresAt(next_++);
        figures.availableBytes = bytes;
        verdict_.add(figures);
    }

    void swapUsed(std::optional<std::uint64_t> bytes) {
        Figures figures = figuresAt(next_++);
        figures.swapUsedBytes = bytes;
        verdict_.add(figures);
    }

    Finding onlyFinding() const {
        EXPECT_EQ(verdict_.findings().size(), 1u);
        return verdict_.findings().empty() ? Finding{} : verdict_.findings()[0];
    }

    Verdict verdict_{VerdictLimits{}};
    double next_ = 0;
};

TEST_F(VerdictTest, NothingSeenIsHealthy) {
    EXPECT_FALSE(verdict_.saturated());
    EXPECT_EQ(verdict_.seconds(), 0);
}

TEST_F(VerdictTest, MachineAtItsLimitForTenSecondsIsSaturated) {
    machine(5.0, 1);
    machine(90.0, 9);
    EXPECT_FALSE(verdict_.saturated()) << "nine seconds";
    machine(90.0, 1);
    ASSERT_TRUE(verdict_.saturated());
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::MachineCpu);
    EXPECT_EQ(onlyFinding().since, 0);
    EXPECT_EQ(onlyFinding().seconds, 10);
    EXPECT_EQ(onlyFinding().worst, 90.0);
    EXPECT_TRUE(onlyFinding().lasting);
}

TEST_F(VerdictTest, MachineJustUnderItsLimitIsHealthy) {
    machine(89.99, 1000);
    EXPECT_FALSE(verdict_.saturated());
    EXPECT_EQ(verdict_.busiestMachine(), 89.99);
    EXPECT_EQ(verdict_.seconds(), 999);
}

TEST_F(VerdictTest, ADipBeginsAnew) {
    machine(5.0, 1);
    for (int i = 0; i < 20; ++i) {
        machine(100.0, 9);
        machine(89.0, 1);
    }
    EXPECT_FALSE(verdict_.saturated());
}

TEST_F(VerdictTest, AnUnknownFigureNeitherEndsNorLengthensAStretch) {
    machine(5.0, 1);
    machine(95.0, 5);
    machine(std::nullopt, 4);
    EXPECT_FALSE(verdict_.saturated());
    machine(95.0, 1);
    EXPECT_EQ(onlyFinding().seconds, 10);
}

TEST_F(VerdictTest, TheFirstSampleHasNothingBeforeIt) {
    machine(95.0, 10);
    EXPECT_FALSE(verdict_.saturated()) << "ten samples are nine seconds";
    machine(95.0, 1);
    EXPECT_TRUE(verdict_.saturated());
}

TEST_F(VerdictTest, KeepsTheLongestStretchAndTellsWhetherOneLasts) {
    machine(5.0, 1);
    machine(92.0, 20);
    machine(5.0, 5);
    EXPECT_FALSE(onlyFinding().lasting);
    machine(99.0, 9);
    EXPECT_FALSE(onlyFinding().lasting) << "not long enough yet";
    machine(99.0, 1);
    EXPECT_TRUE(onlyFinding().lasting);
    EXPECT_EQ(onlyFinding().seconds, 20);
    EXPECT_EQ(onlyFinding().worst, 92.0);
    machine(99.0, 11);
    EXPECT_EQ(onlyFinding().seconds, 21);
    EXPECT_EQ(onlyFinding().since, 25);
    EXPECT_EQ(onlyFinding().worst, 99.0);
}

TEST_F(VerdictTest, OneEngineAtItsLimitIsSaturatedOnAnIdleMachine) {
    engines({engine(7, std::nullopt), engine(8, 3.0)}, 2);
    engines({engine(7, 95.0), engine(8, 94.0)}, 10);
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::EngineCpu);
    EXPECT_EQ(onlyFinding().processId, 7);
    EXPECT_EQ(verdict_.busiestEngine(), 95.0);
    EXPECT_EQ(verdict_.engineCount(), 2u);
}

TEST_F(VerdictTest, EnginesAreFollowedEachOnItsOwn) {
    engines({engine(7, 0.0), engine(8, 0.0)}, 1);
    for (int i = 0; i < 10; ++i) {
        engines({engine(7, 100.0), engine(8, 0.0)}, 5);
        engines({engine(7, 0.0), engine(8, 100.0)}, 5);
    }
    EXPECT_FALSE(verdict_.saturated());
}

TEST_F(VerdictTest, AnEngineThatEndsEndsItsStretch) {
    engines({engine(7, 0.0)}, 1);
    engines({engine(7, 100.0)}, 9);
    engines({}, 1);
    engines({engine(7, 100.0)}, 9);
    EXPECT_FALSE(verdict_.saturated());
    engines({engine(7, 100.0)}, 1);
    EXPECT_TRUE(onlyFinding().lasting);
    engines({}, 1);
    EXPECT_FALSE(onlyFinding().lasting);
}

TEST_F(VerdictTest, LittleAvailableMemoryIsFoundAtOnce) {
    available(kGiB);
    EXPECT_FALSE(verdict_.saturated()) << "exactly a tenth";
    available(kGiB - 1);
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::Memory);
    EXPECT_EQ(onlyFinding().since, 1);
    EXPECT_TRUE(onlyFinding().lasting);
    available(kGiB / 2);
    available(5 * kGiB);
    EXPECT_FALSE(onlyFinding().lasting);
    EXPECT_EQ(onlyFinding().worst, 5.0);
    EXPECT_EQ(verdict_.leastMemory(), 5.0);
}

TEST_F(VerdictTest, UnknownMemoryIsNoFinding) {
    available(std::nullopt);
    EXPECT_FALSE(verdict_.saturated());
    EXPECT_EQ(verdict_.leastMemory(), std::nullopt);
}

TEST_F(VerdictTest, GrowingSwapIsFoundFromItsLeastOn) {
    swapUsed(std::nullopt);
    swapUsed(500 * kMiB);
    swapUsed(400 * kMiB);
    swapUsed(401 * kMiB);
    EXPECT_FALSE(verdict_.saturated()) << "full but not growing";
    swapUsed(401 * kMiB + 1);
    EXPECT_EQ(onlyFinding().kind, Finding::Kind::Swap);
    EXPECT_EQ(onlyFinding().since, 4);
    swapUsed(450 * kMiB);
    swapUsed(400 * kMiB);
    EXPECT_FALSE(onlyFinding().lasting);
    EXPECT_EQ(onlyFinding().worst, 50.0 * kMiB);
    EXPECT_EQ(verdict_.swapGrowth(), 50 * kMiB);
}

TEST(Verdict, LimitsAreOptions) {
    VerdictLimits limits;
    limits.machinePercent = 50;
    limits.enginePercent = 20;
    limits.seconds = 2;
    limits.memoryPercent = 60;
    limits.swapMegabytes = 0;
    Verdict verdict(limits);
    for (const double second : {0.0, 1.0, 2.0}) {
        Figures figures = figuresAt(second);
        figures.cpuPercent = 50.0;
        figures.engines = {engine(7, 20.0)};
        figures.availableBytes = 5 * kGiB;
        figures.swapUsedBytes = static_cast<std::uint64_t>(second);
        verdict.add(figures);
    }
    std::vector<Finding::Kind> kinds;
    for (const Finding& finding : verdict.findings()) kinds.push_back(finding.kind);
    EXPECT_THAT(kinds, ElementsAre(Finding::Kind::MachineCpu, Finding::Kind::EngineCpu, Finding::Kind::Memory,
                                   Finding::Kind::Swap));
}

TEST_F(VerdictTest, SaysInWordsWhatIsWrong) {
    machine(5.0, 3);
    machine(99.5, 12);
    engines({engine(7, 0.0)}, 1);
    engines({engine(7, 101.0)}, 10);
    available(kGiB / 2);
    swapUsed(3 * kMiB);
    EXPECT_EQ(
        verdictText(verdict_),
        "Saturated: this load generator was itself the bottleneck (watched for 27 s, 1 load engine).\n"
        "  - the machine's processors were at or over 90.0 % for 12 s, from second 2 on (up to 99.5 %): load is sent "
        "late; "
        "use more load generators\n"
        "  - load engine 7 was at or over 95.0 % of one processor for 10 s, from second 15 on (up to 101.0 %): it "
        "sends "
        "its load late; spread its work over more engines\n"
        "  - available memory fell to 5.0 %, under 10.0 % from second 26 on: the machine may start to swap; run fewer "
        "users here\n"
        "  - swap in use grew by 3.0 MiB, from second 27 on: engines wait for the disk; run fewer users here\n");
}

TEST_F(VerdictTest, SaysInWordsThatAllIsWell) {
    machine(5.0, 61);
    EXPECT_EQ(verdictText(verdict_),
              "Healthy: this load generator was not the bottleneck (watched for 60 s, 0 load engines).\n"
              "  processors of the machine: at most 5.0 %\n"
              "  busiest load engine: at most - of one processor\n"
              "  available memory: at least 100.0 %\n"
              "  growth of swap in use: 0 B\n");
}

}  // namespace
