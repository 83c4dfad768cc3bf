// The collector: its samplers, the figures of the machine, and what it makes of everything that goes wrong.
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include "support/Allocations.h"
#include "support/FakeProc.h"
#include "support/LogCapture.h"
#include "support/LogExpectations.h"
#include "support/OpenDescriptors.h"

using nLogging::Level;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char kCollectingSlaves[] = "CollectMachineStats() - collecting slaves data";
constexpr char kCollectingGeneral[] = "CollectMachineStats() - collecting general data";
constexpr long double kNaN = std::numeric_limits<long double>::quiet_NaN();

// A collector in a /proc without processes, all processor counters 0, one tick past its first gate.
class CollectorTest : public testing::Test {
protected:
    CollectorTest() { wait(); }

    void wait() { proc.now += 1'000'001; }

    // One collection, at which the gates are open.
    std::vector<KREnvSlaveStats> collectSlaves() {
        wait();
        std::vector<KREnvSlaveStats> slaves;
        EXPECT_TRUE(collector->CollectSlavesInfo(slaves, false));
        return slaves;
    }
    std::vector<int> collectIds() {
        std::vector<int> ids;
        for (const KREnvSlaveStats& slave : collectSlaves()) ids.push_back(slave.processId);
        return ids;
    }

    // What getBasicMachineStats makes of a caller's earlier percentage.
    long double loadAfter(long double before) {
        unsigned long long reserved = 0;
        unsigned long long physical = 0;
        unsigned long long total = 0;
        unsigned long long swap = 0;
        unsigned long long free = 0;
        int processId = 0;
        EXPECT_TRUE(collector->getBasicMachineStats(reserved, physical, total, swap, free, before, processId));
        return before;
    }

    LogCapture log;
    LiveBlocks samplers{sizeof(CPUUsage)};
    FakeProc proc;
    std::unique_ptr<MachineStats> collector = std::make_unique<MachineStats>();
    const std::size_t descriptors = OpenDescriptors::count();
};

long pageSize() { return sysconf(_SC_PAGESIZE); }

}  // namespace

// --- construction and destruction -----------------------------------------------------------------------------------

TEST(MachineStats, TakesTheFirstSampleWhenItIsMade) {
    FakeProc proc;
    LogCapture log;
    MachineStats collector;
    EXPECT_THAT(proc.calls, ElementsAre("getpid", "clock", "fopen /proc/stat r"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(MachineStats, SaysThatThereIsNoFirstSampleAndIsUsable) {
    FakeProc proc;
    LogCapture log;
    proc.refuse("/proc/stat", 2);
    MachineStats collector;
    ASSERT_EQ(1U, log.entries().size());
    expectRecord(log.entries().front(), nLogging::Level::Error, "../src/MachineStats",
                 "failed to get global CPU usage on start-up!");
    KREnvMachineStats stats{};
    EXPECT_TRUE(collector.CollectMachineStats(stats, false));
    EXPECT_EQ(proc.ownPid, stats.processId);
}

TEST(MachineStats, FieldsLieInTheirOrder) {
    FakeProc proc;
    proc.now = 0x0123456789ABCDEF;
    MachineStats collector;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&collector);
    std::uint64_t lastLoadTime = 0;
    int ownPid = 0;
    std::memcpy(&lastLoadTime, bytes, sizeof lastLoadTime);
    std::memcpy(&ownPid, bytes + sizeof lastLoadTime + sizeof(std::map<int, CPUUsage*>), sizeof ownPid);
    EXPECT_EQ(proc.now, lastLoadTime);
    EXPECT_EQ(proc.ownPid, ownPid);
}

TEST(KREnvMachineStats, FieldsLieInTheirOrder) {
    EXPECT_LT(offsetof(KREnvMachineStats, reservedValue), offsetof(KREnvMachineStats, totalSwapBytes));
    EXPECT_LT(offsetof(KREnvMachineStats, totalSwapBytes), offsetof(KREnvMachineStats, totalMemoryBytes));
    EXPECT_LT(offsetof(KREnvMachineStats, totalMemoryBytes), offsetof(KREnvMachineStats, physicalMemoryBytes));
    EXPECT_LT(offsetof(KREnvMachineStats, physicalMemoryBytes), offsetof(KREnvMachineStats, freeMemoryBytes));
    EXPECT_LT(offsetof(KREnvMachineStats, freeMemoryBytes), offsetof(KREnvMachineStats, cpuLoadPercent));
    EXPECT_LT(offsetof(KREnvMachineStats, cpuLoadPercent), offsetof(KREnvMachineStats, processId));
    EXPECT_LT(offsetof(KREnvMachineStats, processId), offsetof(KREnvMachineStats, slaves));
}

TEST_F(CollectorTest, DeletesItsSamplersWithItself) {
    for (const int pid : {7, 8, 9}) proc.run(pid);
    collectSlaves();
    EXPECT_EQ(3U, samplers.count());
    collector.reset();
    EXPECT_EQ(0U, samplers.count());
}

// --- the machine's figures ------------------------------------------------------------------------------------------

TEST_F(CollectorTest, MachineFiguresAre64BitProducts) {
    proc.memory.totalram = 0xFFFFFFFF;
    proc.memory.totalswap = 0xFFFFFFFE;
    proc.memory.freeram = 0x80000001;
    proc.memory.mem_unit = 4096;
    unsigned long long reserved = 42;
    unsigned long long physical = 0;
    unsigned long long total = 0;
    unsigned long long swap = 0;
    unsigned long long free = 0;
    long double load = 0;
    int processId = 0;
    proc.calls.clear();
    EXPECT_TRUE(collector->getBasicMachineStats(reserved, physical, total, swap, free, load, processId));
    EXPECT_EQ(42U, reserved);
    EXPECT_EQ(0xFFFFFFFFULL * 4096, physical);
    EXPECT_EQ(0x1FFFFFFFDULL * 4096, total);
    EXPECT_EQ(0xFFFFFFFEULL * 4096, swap);
    EXPECT_EQ(0x80000001ULL * 4096, free);
    EXPECT_EQ(proc.ownPid, processId);
    EXPECT_THAT(proc.calls, ElementsAre("getpid", "clock", "clock", "fopen /proc/stat r", "sysinfo"));
}

TEST_F(CollectorTest, MachineFiguresLandInTheirFields) {
    proc.memory.totalram = 1000;
    proc.memory.totalswap = 200;
    proc.memory.freeram = 30;
    proc.memory.mem_unit = 2;
    proc.machineTicks(1, 1, 0, 2);
    KREnvMachineStats stats{};
    stats.reservedValue = 0x123456789ABCDEF0;
    EXPECT_TRUE(collector->CollectMachineStats(stats, false));
    EXPECT_EQ(0x123456789ABCDEF0U, stats.reservedValue);
    EXPECT_EQ(400U, stats.totalSwapBytes);
    EXPECT_EQ(2400U, stats.totalMemoryBytes);
    EXPECT_EQ(2000U, stats.physicalMemoryBytes);
    EXPECT_EQ(60U, stats.freeMemoryBytes);
    EXPECT_EQ(50.0L, stats.cpuLoadPercent);
    EXPECT_EQ(proc.ownPid, stats.processId);
    EXPECT_THAT(stats.slaves, IsEmpty());
}

TEST_F(CollectorTest, MemoryIsZeroWhenTheKernelDoesNotTell) {
    proc.sysinfoWorks = false;
    KREnvMachineStats stats{};
    stats.totalSwapBytes = stats.totalMemoryBytes = stats.physicalMemoryBytes = stats.freeMemoryBytes = 9;
    EXPECT_TRUE(collector->CollectMachineStats(stats, false));
    EXPECT_EQ(0U, stats.totalSwapBytes);
    EXPECT_EQ(0U, stats.totalMemoryBytes);
    EXPECT_EQ(0U, stats.physicalMemoryBytes);
    EXPECT_EQ(0U, stats.freeMemoryBytes);
}

TEST_F(CollectorTest, TheLoadIsTheRoundedShareTimesAHundred) {
    proc.machineTicks(1, 0, 0, 2);
    EXPECT_EQ(0.3333333432674407958984375L * 100.0L, loadAfter(7.0L));
}

TEST_F(CollectorTest, TheFirstCollectionKeepsTheCallersLoad) {
    const struct {
        long double before, after;
    } rows[] = {{0.0L, 0.0L}, {12.5L, 12.5L}, {1000.0L, 1000.0L}, {-3.0L, 0.0L}, {-0.0L, 0.0L}};
    for (const auto& row : rows) {
        collector = std::make_unique<MachineStats>();
        proc.calls.clear();
        const long double after = loadAfter(row.before);
        EXPECT_EQ(row.after, after);
        EXPECT_FALSE(std::signbit(after));
        EXPECT_THAT(proc.callsOf("fopen"), IsEmpty());
    }
    EXPECT_TRUE(std::isnan(loadAfter(kNaN)));
}

TEST_F(CollectorTest, AMachineFileThatFailsKeepsTheCallersLoad) {
    proc.refuse("/proc/stat", 2);
    EXPECT_EQ(12.5L, loadAfter(12.5L));
}

TEST_F(CollectorTest, ALoadThatIsNoNumberStays) {
    EXPECT_TRUE(std::isnan(loadAfter(12.5L))) << "no ticks since the last sample";
}

TEST_F(CollectorTest, ALoadBelowZeroIsZero) {
    proc.machineTicks(100, 0, 0, 100);
    loadAfter(0.0L);
    wait();
    proc.machineTicks(99, 0, 0, 110);
    EXPECT_EQ(0.0L, loadAfter(12.5L));
}

// --- one engine -----------------------------------------------------------------------------------------------------

TEST_F(CollectorTest, TheFirstLookAtAProcessOnlyMakesItsSampler) {
    proc.run(7, "sh", 10, 0, 5);
    unsigned long long memory = 99;
    double cpu = 99;
    proc.calls.clear();
    EXPECT_TRUE(collector->GetSpecificProcessInfo(7, memory, cpu, false));
    EXPECT_EQ(0.0, cpu);
    EXPECT_EQ(5ULL * static_cast<unsigned long long>(pageSize()), memory);
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/7/statm r"));
    EXPECT_EQ(1U, samplers.count());

    proc.calls.clear();
    EXPECT_TRUE(collector->GetSpecificProcessInfo(7, memory, cpu, true));
    EXPECT_EQ(0.0, cpu);
    EXPECT_THAT(proc.calls,
                ElementsAre("clock", "fopen /proc/7/stat r", "fopen /proc/stat r", "clock", "fopen /proc/7/statm r"));
    EXPECT_EQ(1U, samplers.count());
}

TEST_F(CollectorTest, MemoryKeepsTheLow32Bits) {
    const auto bytes = static_cast<unsigned long long>(pageSize());
    for (const unsigned long long pages : {524288ULL, 1048575ULL, 1048576ULL, 1048577ULL}) {
        proc.run(7, "PMLoadEngineMai", 0, 0, static_cast<long>(pages));
        unsigned long long memory = 99;
        double cpu = 0;
        EXPECT_TRUE(collector->GetSpecificProcessInfo(7, memory, cpu, false));
        EXPECT_EQ(pages * bytes & 0xFFFFFFFFU, memory);
        const auto slaves = collectSlaves();
        ASSERT_THAT(slaves, SizeIs(1));
        EXPECT_EQ(pages * bytes & 0xFFFFFFFFU, slaves[0].memoryBytes);
    }
}

// --- the engines ----------------------------------------------------------------------------------------------------

TEST_F(CollectorTest, ReplacesTheListInTheOrderOfDiscovery) {
    proc.run(9, "PMLoadEngineMai", 0, 0, 1);
    proc.run(7, "PMLoadEngineMai", 0, 0, 2);
    proc.run(8, "sh");
    std::vector<KREnvSlaveStats> slaves(5);
    EXPECT_TRUE(collector->CollectSlavesInfo(slaves, false));
    ASSERT_THAT(slaves, SizeIs(2));
    EXPECT_EQ(9, slaves[0].processId);
    EXPECT_EQ(static_cast<unsigned long long>(pageSize()), slaves[0].memoryBytes);
    EXPECT_EQ(0.0, slaves[0].cpuPercent);
    EXPECT_EQ(7, slaves[1].processId);
    EXPECT_EQ(2 * static_cast<unsigned long long>(pageSize()), slaves[1].memoryBytes);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(CollectorTest, APercentageComesWithTheThirdCollection) {
    proc.run(7, "PMLoadEngineMai", 10);
    EXPECT_EQ(0.0, collectSlaves().at(0).cpuPercent);
    proc.run(7, "PMLoadEngineMai", 20);
    proc.machineTicks(10, 0, 0, 10);
    EXPECT_EQ(0.0, collectSlaves().at(0).cpuPercent);
    proc.run(7, "PMLoadEngineMai", 25, 5);
    proc.machineTicks(30, 0, 0, 30);
    EXPECT_EQ(25.0, collectSlaves().at(0).cpuPercent);
}

TEST_F(CollectorTest, APercentageIsKeptWhileTheGateIsClosed) {
    proc.run(7);
    collectSlaves();
    collectSlaves();
    proc.run(7, "PMLoadEngineMai", 25);
    proc.machineTicks(100, 0, 0, 0);
    EXPECT_EQ(25.0, collectSlaves().at(0).cpuPercent);
    proc.run(7, "PMLoadEngineMai", 99);
    std::vector<KREnvSlaveStats> slaves;
    EXPECT_TRUE(collector->CollectSlavesInfo(slaves, false));
    EXPECT_EQ(25.0, slaves.at(0).cpuPercent);
}

// "Never sampled" shows until a new engine's first sample, which the clock of a machine just started may put off.
TEST_F(CollectorTest, ASamplerThatHasNotSampledYetSaysMinusOne) {
    proc.now = 0;
    proc.run(7);
    std::vector<KREnvSlaveStats> slaves;
    EXPECT_TRUE(collector->CollectSlavesInfo(slaves, false));
    EXPECT_EQ(0.0, slaves.at(0).cpuPercent);
    EXPECT_TRUE(collector->CollectSlavesInfo(slaves, false));
    EXPECT_EQ(-1.0, slaves.at(0).cpuPercent);
}

TEST_F(CollectorTest, DropsTheSamplersOfProcessesThatHaveGone) {
    for (const int pid : {100, 9, 50, 7}) proc.run(pid);
    EXPECT_THAT(collectIds(), ElementsAre(100, 9, 50, 7));
    EXPECT_EQ(4U, samplers.count());
    for (const int pid : {100, 9, 50}) proc.end(pid);
    EXPECT_THAT(collectIds(), ElementsAre(7));
    EXPECT_EQ(1U, samplers.count());
    EXPECT_THAT(log.records(),
                ElementsAre("Trace: Removed slave process. id: 9", "Trace: Removed slave process. id: 50",
                            "Trace: Removed slave process. id: 100"));
    EXPECT_EQ("../src/MachineStats", log.entries().front().file);
    EXPECT_EQ("PMEnvironment", log.entries().front().category);
    log.clear();
    collectSlaves();
    EXPECT_THAT(log.entries(), IsEmpty()) << "each is told once";
}

TEST_F(CollectorTest, WithoutEnginesTheListIsEmpty) {
    proc.run(7);
    collectSlaves();
    proc.end(7);
    EXPECT_THAT(collectSlaves(), IsEmpty());
    EXPECT_EQ(0U, samplers.count());
}

TEST_F(CollectorTest, AProcessThatComesBackIsNew) {
    proc.run(7);
    collectSlaves();
    collectSlaves();
    proc.end(7);
    collectSlaves();
    proc.run(7, "PMLoadEngineMai", 50);
    proc.machineTicks(100, 0, 0, 0);
    EXPECT_EQ(0.0, collectSlaves().at(0).cpuPercent);
    EXPECT_EQ(0.0, collectSlaves().at(0).cpuPercent);
}

TEST_F(CollectorTest, AnIdThatChangedHandsBetweenCollectionsKeepsItsSampler) {
    proc.run(7, "PMLoadEngineMai", 1000);
    collectSlaves();
    collectSlaves();
    proc.end(7);
    proc.run(7, "PMLoadEngineMai", 10);
    proc.machineTicks(100, 0, 0, 0);
    EXPECT_EQ(static_cast<double>(4294966306.0L / 100.0L * 100.0L), collectSlaves().at(0).cpuPercent);
    EXPECT_EQ(1U, samplers.count());
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(CollectorTest, NeverReportsItself) {
    proc.run(proc.ownPid);
    proc.run(7);
    EXPECT_THAT(collectIds(), ElementsAre(7));
    proc.ownPid = 7;
    EXPECT_THAT(collectIds(), ElementsAre(7)) << "the id at construction counts";
}

TEST_F(CollectorTest, ADirectoryThatDoesNotOpenYieldsNoEngines) {
    proc.run(7);
    collectSlaves();
    proc.directoryOpens = false;
    testing::internal::CaptureStderr();
    EXPECT_THAT(collectSlaves(), IsEmpty());
    EXPECT_EQ("Couldn't open the /proc/ directory: Permission denied\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(0U, samplers.count());
    EXPECT_THAT(log.records(), ElementsAre("Trace: Removed slave process. id: 7"));
}

TEST_F(CollectorTest, AnEngineWhoseMemoryCannotBeReadHasNone) {
    proc.run(7, "PMLoadEngineMai", 0, 0, 5);
    proc.remove("/proc/7/statm");
    KREnvMachineStats stats{};
    EXPECT_TRUE(collector->CollectMachineStats(stats, true));
    ASSERT_THAT(stats.slaves, SizeIs(1));
    EXPECT_EQ(0U, stats.slaves[0].memoryBytes);
    EXPECT_THAT(log.texts(Level::Warning), ElementsAre("getProcessRSS() - fopen failed for file /proc/7/statm"));
}

// --- a whole collection ---------------------------------------------------------------------------------------------

TEST_F(CollectorTest, CollectsTheEnginesThenTheMachine) {
    proc.run(7);
    proc.run(8);
    KREnvMachineStats stats{};
    EXPECT_TRUE(collector->CollectMachineStats(stats, false));
    EXPECT_THAT(stats.slaves, SizeIs(2));
    EXPECT_THAT(log.records(),
                ElementsAre("Trace: " + std::string(kCollectingSlaves), "Trace: " + std::string(kCollectingGeneral)));
    for (const LogCapture::Entry& record : log.entries()) {
        EXPECT_EQ("PMEnvironment", record.category);
        EXPECT_EQ("../src/MachineStats", record.file);
    }
    log.clear();
    proc.end(7);
    EXPECT_TRUE(collector->CollectMachineStats(stats, true));
    ASSERT_THAT(stats.slaves, SizeIs(1));
    EXPECT_EQ(8, stats.slaves[0].processId);
    EXPECT_THAT(log.records(),
                ElementsAre("Trace: " + std::string(kCollectingSlaves), "Trace: Removed slave process. id: 7",
                            "Trace: " + std::string(kCollectingGeneral)));
}

// --- exceptions -----------------------------------------------------------------------------------------------------

namespace {

// Every call of a collection that may throw, while an engine runs that is known already.
const char* const kThrowers[] = {"opendir",
                                 "readdir",
                                 "fopen /proc/7/stat rt",
                                 "clock",
                                 "fopen /proc/7/stat r",
                                 "fopen /proc/stat r",
                                 "usleep",
                                 "fopen /proc/7/statm r"};

}  // namespace

TEST_F(CollectorTest, AnExceptionAmongTheEnginesIsLogged) {
    proc.run(7);
    collectSlaves();
    for (const char* const thrower : kThrowers) {
        SCOPED_TRACE(thrower);
        log.clear();
        wait();
        proc.refuse("/proc/stat", 1);
        proc.before = [&](const std::string& call) {
            if (call.find(thrower) == 0) throw std::runtime_error("out of order");
        };
        std::vector<KREnvSlaveStats> slaves(3);
        EXPECT_FALSE(collector->CollectSlavesInfo(slaves, false));
        EXPECT_THAT(slaves, IsEmpty());
        EXPECT_THAT(log.records(), ElementsAre("Error: CollectSlavesInfo() - failed with error: out of order"));
        EXPECT_EQ("../src/MachineStats", log.entries().front().file);
        EXPECT_EQ("PMEnvironment", log.entries().front().category);

        log.clear();
        proc.before = [&](const std::string& call) {
            if (call.find(thrower) == 0) throw 42;
        };
        proc.refuse("/proc/stat", 1);
        EXPECT_FALSE(collector->CollectSlavesInfo(slaves, false));
        EXPECT_THAT(log.records(), ElementsAre("Error: CollectSlavesInfo() - crashed while collecting slaves data"));

        proc.before = nullptr;
        EXPECT_EQ(descriptors, OpenDescriptors::count());
        EXPECT_THAT(collectIds(), ElementsAre(7)) << "usable again";
        EXPECT_EQ(1U, samplers.count());
    }
}

TEST_F(CollectorTest, AnExceptionKeepsTheEntriesBeforeIt) {
    for (const int pid : {7, 8, 9}) proc.run(pid);
    proc.before = [](const std::string& call) {
        if (call == "fopen /proc/9/statm r") throw std::runtime_error("out of order");
    };
    std::vector<KREnvSlaveStats> slaves;
    EXPECT_FALSE(collector->CollectSlavesInfo(slaves, false));
    ASSERT_THAT(slaves, SizeIs(2));
    EXPECT_EQ(8, slaves[1].processId);
}

TEST_F(CollectorTest, TheMachineIsCollectedAlsoWhenTheEnginesFail) {
    proc.memory.totalram = 5;
    proc.before = [](const std::string& call) {
        if (call == "readdir") throw std::runtime_error("out of order");
    };
    KREnvMachineStats stats{};
    EXPECT_TRUE(collector->CollectMachineStats(stats, false));
    EXPECT_EQ(5U, stats.physicalMemoryBytes);
    EXPECT_THAT(log.records(), ElementsAre("Trace: " + std::string(kCollectingSlaves),
                                           "Error: CollectSlavesInfo() - failed with error: out of order",
                                           "Trace: " + std::string(kCollectingGeneral)));
}

TEST_F(CollectorTest, AnExceptionInTheMachinesFiguresIsLoggedAndTheAnswerIsTrue) {
    proc.run(7);
    for (const char* const thrower : {"clock", "fopen /proc/stat r", "usleep"}) {
        SCOPED_TRACE(thrower);
        proc.end(7);
        collectSlaves();  // so that the engine is new again and its first collection reads no clock
        proc.run(7);
        log.clear();
        proc.refuse("/proc/stat", 1);
        proc.before = [&](const std::string& call) {
            if (call.find(thrower) == 0) throw std::runtime_error("out of order");
        };
        KREnvMachineStats stats{};
        EXPECT_TRUE(collector->CollectMachineStats(stats, false));
        EXPECT_THAT(stats.slaves, SizeIs(1)) << "the engines are there";
        EXPECT_THAT(
            log.records(),
            ElementsAre("Trace: " + std::string(kCollectingSlaves), "Trace: " + std::string(kCollectingGeneral),
                        "Error: CollectMachineStats() - failed to collect basic machine data. error: out of order"));
        proc.before = nullptr;
        EXPECT_EQ(descriptors, OpenDescriptors::count());
        wait();
    }
}

TEST_F(CollectorTest, AnythingElseThrownInTheMachinesFiguresIsLoggedToo) {
    proc.before = [](const std::string& call) {
        if (call == "fopen /proc/stat r") throw 42;
    };
    KREnvMachineStats stats{};
    EXPECT_TRUE(collector->CollectMachineStats(stats, false));
    EXPECT_THAT(log.records(),
                ElementsAre("Trace: " + std::string(kCollectingSlaves), "Trace: " + std::string(kCollectingGeneral),
                            "Error: CollectMachineStats() - crashed while collecting basic machine data"));
}

// A thread that is cancelled unwinds with something that must not be caught for good.
TEST_F(CollectorTest, AThreadMayBeCancelledDuringACollection) {
    proc.run(7);
    collectSlaves();
    log.clear();
    proc.before = [](const std::string& call) {
        if (call == "fopen /proc/7/statm r") pthread_exit(nullptr);
    };
    pthread_t thread;
    const auto collect = [](void* object) -> void* {
        KREnvMachineStats stats{};
        static_cast<MachineStats*>(object)->CollectMachineStats(stats, false);
        return object;
    };
    ASSERT_EQ(0, pthread_create(&thread, nullptr, collect, collector.get()));
    void* answer = &thread;
    ASSERT_EQ(0, pthread_join(thread, &answer));
    EXPECT_EQ(nullptr, answer) << "it ended before it could return";
    EXPECT_THAT(log.records(), ElementsAre("Trace: " + std::string(kCollectingSlaves)));
    proc.before = nullptr;
    EXPECT_EQ(descriptors, OpenDescriptors::count());
    EXPECT_THAT(collectIds(), ElementsAre(7));
}

// Memory that runs out at any allocation of a collection which drops one engine, keeps one and finds two new ones.
TEST_F(CollectorTest, MemoryMayRunOutAtAnyPoint) {
    bool happened = true;
    unsigned failures = 0;
    for (int nth = 1; happened; ++nth) {
        SCOPED_TRACE(nth);
        for (const int pid : {7, 8, 9, 10}) proc.end(pid);
        collector = std::make_unique<MachineStats>();
        for (const int pid : {7, 8}) proc.run(pid);
        collectSlaves();
        proc.end(7);
        for (const int pid : {9, 10}) proc.run(pid);
        wait();
        {
            nLogging::gEnable(Level::Trace, false);  // so that no allocation is the log's
            const FailingAllocation failing(nth);
            std::vector<KREnvSlaveStats> slaves;
            const bool collected = collector->CollectSlavesInfo(slaves, false);
            happened = failing.happened();
            EXPECT_EQ(!happened, collected);
            failures += happened;
        }
        nLogging::gEnable(Level::Trace, true);
        EXPECT_EQ(descriptors, OpenDescriptors::count());
        EXPECT_THAT(collectIds(), ElementsAre(8, 9, 10));
        EXPECT_EQ(3U, samplers.count());
        collector.reset();
        EXPECT_EQ(0U, samplers.count());
    }
    EXPECT_GE(failures, 5U) << "ids, the list of the removed, two samplers, their entries, the result";
    EXPECT_THAT(log.texts(Level::Error),
                Contains("CollectSlavesInfo() - failed with error: std::bad_alloc").Times(failures));
}

// An engine for whose sampler there was no memory had an entry all the same, and was told as removed when it ended.
TEST_F(CollectorTest, AnEngineWithoutASamplerIsNotKnown) {
    bool happened = true;
    for (int nth = 1; happened; ++nth) {
        SCOPED_TRACE(nth);
        collector = std::make_unique<MachineStats>();
        proc.run(9);
        {
            nLogging::gEnable(Level::Trace, false);  // so that no allocation is the log's
            const FailingAllocation failing(nth);
            std::vector<KREnvSlaveStats> slaves;
            collector->CollectSlavesInfo(slaves, false);
            happened = failing.happened();
        }
        nLogging::gEnable(Level::Trace, true);
        const std::size_t known = samplers.count();
        log.clear();
        proc.end(9);
        EXPECT_THAT(collectIds(), testing::IsEmpty());
        EXPECT_THAT(log.records(), Contains("Trace: Removed slave process. id: 9").Times(known));
    }
}

// --- engines that vanish --------------------------------------------------------------------------------------------

// A process that ends when any call of the collection is about to be answered: after this collection, which may or may
// not see it, it is told as removed exactly once and nothing is left of it.
TEST_F(CollectorTest, AnEngineMayVanishAtAnyPoint) {
    bool vanished = true;
    for (int point = 1; vanished; ++point) {
        SCOPED_TRACE(point);
        proc.run(7);
        proc.run(8);
        collectSlaves();
        log.clear();
        wait();
        int calls = 0;
        vanished = false;
        proc.before = [&](const std::string&) {
            if (++calls != point) return;
            vanished = true;
            proc.end(7);
        };
        KREnvMachineStats stats{};
        testing::internal::CaptureStderr();
        EXPECT_TRUE(collector->CollectMachineStats(stats, false));
        testing::internal::GetCapturedStderr();
        proc.before = nullptr;
        EXPECT_THAT(stats.slaves, Contains(Field(&KREnvSlaveStats::processId, 8))) << "the other one is not disturbed";
        EXPECT_THAT(log.texts(Level::Error), IsEmpty());
        proc.end(7);
        EXPECT_THAT(collectIds(), ElementsAre(8));
        EXPECT_THAT(log.texts(Level::Trace), Contains("Removed slave process. id: 7").Times(1));
        EXPECT_EQ(1U, samplers.count());
        EXPECT_EQ(descriptors, OpenDescriptors::count());
    }
}

// The same with files that are open already when their process ends, and then give nothing.
TEST_F(CollectorTest, AnEngineMayVanishBehindAnyOpenFile) {
    for (const char* const opening : {"fopen /proc/7/stat rt", "fopen /proc/7/stat r", "fopen /proc/7/statm r"}) {
        SCOPED_TRACE(opening);
        proc.run(7, "PMLoadEngineMai", 1, 2, 3);
        collectSlaves();
        collectSlaves();
        log.clear();
        proc.before = [&](const std::string& call) {
            if (call != opening) return;
            proc.breakReads("/proc/7/stat");
            proc.breakReads("/proc/7/statm");
        };
        const auto slaves = collectSlaves();
        proc.before = nullptr;
        if (std::string(opening) == "fopen /proc/7/stat rt") {
            EXPECT_THAT(slaves, IsEmpty()) << "no longer an engine";
            EXPECT_THAT(log.records(), ElementsAre("Trace: Removed slave process. id: 7"));
        } else {
            ASSERT_THAT(slaves, SizeIs(1));
            EXPECT_EQ(0U, slaves[0].memoryBytes);
            EXPECT_THAT(log.texts(Level::Warning), Contains("getProcessRSS() - fscanf failed for file /proc/7/statm"));
        }
        EXPECT_EQ(descriptors, OpenDescriptors::count());
        proc.end(7);
    }
}
