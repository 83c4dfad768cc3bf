// The library's figures against those that others give on this machine, which may be busy: what moves is looked at
// several times.
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/LoadEngine.h"
#include "support/LogCapture.h"
#include "support/Subprocess.h"

using testing::Contains;
using testing::Not;

namespace {

constexpr unsigned long long kMegabyte = 1 << 20;

std::string outputOf(const std::string& command) {
    const ProgramResult result = runProgram({"/bin/sh", "-c", command});
    if (result.status != 0) throw std::runtime_error("failed: " + command);
    return result.out;
}

// "MemTotal:       24731708 kB" and so on, in bytes.
std::map<std::string, unsigned long long> memInfo() {
    std::map<std::string, unsigned long long> figures;
    std::ifstream file("/proc/meminfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        unsigned long long kilobytes = 0;
        words >> name >> kilobytes;
        figures[name.substr(0, name.find(':'))] = kilobytes * 1024;
    }
    return figures;
}

// The row of `free -b` that begins with "Mem:" or "Swap:": total, used, free.
struct FreeRow {
    unsigned long long total = 0, used = 0, free = 0;
};
FreeRow freeRow(const std::string& name) {
    std::istringstream lines(outputOf("LC_ALL=C free -b"));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string first;
        FreeRow row;
        if (words >> first >> row.total >> row.used >> row.free && first == name) return row;
    }
    throw std::runtime_error("free -b has no row " + name);
}

// Tries for a while until `attempt` succeeds.
template <class Attempt>
bool eventually(int times, Attempt attempt) {
    for (int i = 0; i < times; ++i) {
        if (attempt()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

bool near(unsigned long long left, unsigned long long right, unsigned long long tolerance) {
    return std::max(left, right) - std::min(left, right) <= tolerance;
}

std::vector<int> engines() {
    std::vector<int> pids;
    EXPECT_EQ(1, getSlavesList(pids, getpid()));
    return pids;
}

unsigned long long residentBytesByPs(int pid) {
    return std::stoull(outputOf("ps -o rss= -p " + std::to_string(pid))) * 1024;
}

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

}  // namespace

// --- memory ---------------------------------------------------------------------------------------------------------

TEST(MachineStatsLive, TotalMemoryAgreesWithMeminfoAndFree) {
    MachineStats collector;
    KREnvMachineStats stats{};
    ASSERT_TRUE(collector.CollectMachineStats(stats, false));
    auto figures = memInfo();
    EXPECT_EQ(figures["MemTotal"], stats.physicalMemoryBytes);
    EXPECT_EQ(figures["SwapTotal"], stats.totalSwapBytes);
    EXPECT_EQ(freeRow("Mem:").total, stats.physicalMemoryBytes);
    EXPECT_EQ(freeRow("Swap:").total, stats.totalSwapBytes);
    EXPECT_EQ(stats.physicalMemoryBytes + stats.totalSwapBytes, stats.totalMemoryBytes);
    EXPECT_EQ(getpid(), stats.processId);
}

TEST(MachineStatsLive, FreeMemoryAgreesWithMeminfoAndFree) {
    MachineStats collector;
    KREnvMachineStats stats{};
    unsigned long long others[2] = {};
    const bool agreed = eventually(50, [&] {
        others[0] = memInfo()["MemFree"];
        collector.CollectMachineStats(stats, false);
        others[1] = freeRow("Mem:").free;
        return near(others[0], stats.freeMemoryBytes, 8 * kMegabyte) &&
               near(others[1], stats.freeMemoryBytes, 8 * kMegabyte);
    });
    EXPECT_TRUE(agreed) << others[0] << " and " << others[1] << " against " << stats.freeMemoryBytes;
}

// --- engines --------------------------------------------------------------------------------------------------------

TEST(MachineStatsLive, FindsAnEngineWhileItRuns) {
    LoadEngine first("idle");
    LoadEngine second("idle");
    EXPECT_THAT(engines(), Contains(first.pid()));
    EXPECT_THAT(engines(), Contains(second.pid()));
    EXPECT_THAT(engines(), Not(Contains(getpid())));
    const int ended = first.pid();
    first.stop();
    EXPECT_THAT(engines(), Not(Contains(ended)));
    EXPECT_THAT(engines(), Contains(second.pid()));

    std::vector<int> others;
    EXPECT_EQ(1, getSlavesList(others, second.pid()));
    EXPECT_THAT(others, Not(Contains(second.pid())));
}

TEST(MachineStatsLive, TellsOnceThatAnEngineHasGone) {
    MachineStats collector;
    LoadEngine engine("idle");
    KREnvMachineStats stats{};
    const int pid = engine.pid();
    const auto isThere = [&] {
        return std::any_of(stats.slaves.begin(), stats.slaves.end(),
                           [&](const KREnvSlaveStats& slave) { return slave.processId == pid; });
    };
    ASSERT_TRUE(collector.CollectMachineStats(stats, false));
    EXPECT_TRUE(isThere());
    engine.stop();
    LogCapture log;
    ASSERT_TRUE(collector.CollectMachineStats(stats, false));
    EXPECT_FALSE(isThere());
    ASSERT_TRUE(collector.CollectMachineStats(stats, false));
    EXPECT_THAT(log.texts(nLogging::Level::Trace),
                Contains("Removed slave process. id: " + std::to_string(pid)).Times(1));
}

TEST(MachineStatsLive, AnEnginesMemoryAgreesWithPs) {
    for (const char* const megabytes : {"1", "64", "200"}) {
        LoadEngine engine("memory", megabytes);
        unsigned long long ours = 0;
        unsigned long long others = 1;
        const bool agreed = eventually(50, [&] {
            ours = static_cast<unsigned>(getProcessRSS(engine.pid(), false));
            others = residentBytesByPs(engine.pid());
            return ours == others;
        });
        EXPECT_TRUE(agreed) << ours << " against " << others;
        EXPECT_GE(ours, std::stoull(megabytes) * kMegabyte);
        pstat sample{};
        EXPECT_EQ(0, get_usage(engine.pid(), &sample));
        EXPECT_TRUE(near(ours, static_cast<unsigned>(sample.rss_bytes), kMegabyte)) << sample.rss_bytes;
    }
}

// One processor's share of all, times what this machine, which may be busy, gave the engine of one. It is looked at
// until the engine had a processor almost to itself, or for some time.
TEST(MachineStatsLive, AnEngineThatKeepsOneProcessorBusyScoresItsShareOfAll) {
    const double full = 100.0 / static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
    MachineStats collector;
    LoadEngine engine("burn");
    unsigned long long memory = 0;
    double percent = -1;
    collector.GetSpecificProcessInfo(engine.pid(), memory, percent, false);
    EXPECT_EQ(0.0, percent) << "the sampler is new";
    collector.GetSpecificProcessInfo(engine.pid(), memory, percent, false);
    EXPECT_EQ(0.0, percent) << "the first sample";

    double granted = 0;
    bool agreed = false;
    std::ostringstream seen;
    for (int i = 0; i < 6 && !(agreed && granted >= 0.9); ++i) {
        const double startTime = now();
        const double startUsed = secondsOfProcessor(engine.pid());
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        granted = (secondsOfProcessor(engine.pid()) - startUsed) / (now() - startTime);
        collector.GetSpecificProcessInfo(engine.pid(), memory, percent, false);
        agreed = granted > 0 && std::abs(percent - granted * full) <= full * 0.1;
        seen << percent << " for " << granted << " of a processor; ";
    }
    EXPECT_TRUE(agreed) << seen.str() << "one is " << full;
    RecordProperty("ProcessorGranted", std::to_string(granted));
}

TEST(MachineStatsLive, TheMachinesLoadCountsABusyEngine) {
    const long double full = 100.0L / static_cast<long double>(sysconf(_SC_NPROCESSORS_ONLN));
    LoadEngine engine("burn");
    MachineStats collector;
    KREnvMachineStats stats{};
    const bool loaded = eventually(5, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        EXPECT_TRUE(collector.CollectMachineStats(stats, false));
        EXPECT_GE(stats.cpuLoadPercent, 0.0L);
        EXPECT_LE(stats.cpuLoadPercent, 100.0L);
        return stats.cpuLoadPercent >= full * 0.85L;
    });
    EXPECT_TRUE(loaded) << stats.cpuLoadPercent;
}

TEST(MachineStatsLive, ManyThreadsMayLookForEngines) {
    LoadEngine engine("idle");
    std::vector<std::vector<int>> found(8);
    std::vector<std::thread> threads;
    for (std::vector<int>& pids : found) {
        threads.emplace_back([&pids] {
            for (int i = 0; i < 20; ++i) {
                pids.clear();
                getSlavesList(pids, 0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::vector<int>& pids : found) EXPECT_THAT(pids, Contains(engine.pid()));
}
