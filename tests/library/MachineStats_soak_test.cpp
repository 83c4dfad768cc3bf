// Thousands of collections while load engines come and go; millions, for as many minutes as SOAK_MINUTES says
// (`./dev soak`).
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <set>
#include <vector>

#include <malloc.h>

#include "Logging.h"
#include "support/Allocations.h"
#include "support/FakeProc.h"
#include "support/OpenDescriptors.h"
#include "support/Sanitized.h"

namespace {

constexpr int kCollections = kSanitized ? 1000 : 4000;
constexpr int kPids = 40;

std::size_t heapBytes() { return mallinfo2().uordblks; }

std::chrono::steady_clock::time_point endOfSoak() {
    const char* const minutes = std::getenv("SOAK_MINUTES");
    return std::chrono::steady_clock::now() + std::chrono::minutes(minutes != nullptr ? std::atoi(minutes) : 0);
}

// Starts, ends, moves on and breaks a few of the engines with the ids 1 to kPids.
class Engines {
public:
    explicit Engines(FakeProc* proc) : proc_(proc) {}

    void changeSome() {
        for (int i = 0; i < 4; ++i) {
            const int pid = upTo(kPids);
            switch (upTo(4)) {
                case 1:
                    end(pid);
                    break;
                case 2:
                    proc_->breakReads("/proc/" + std::to_string(pid) + "/stat");
                    break;
                default:
                    run(pid);
                    break;
            }
        }
        if (upTo(50) == 1) proc_->refuse("/proc/stat", upTo(2));
    }
    void endAll() {
        for (int pid = 1; pid <= kPids; ++pid) end(pid);
    }
    std::size_t count() const { return running_.size(); }

private:
    int upTo(int limit) { return std::uniform_int_distribution<int>(1, limit)(random_); }
    unsigned ticks() { return static_cast<unsigned>(upTo(1000)); }
    void run(int pid) {
        proc_->run(pid, "PMLoadEngineMai", ticks(), ticks(), upTo(1000));
        running_.insert(pid);
    }
    void end(int pid) {
        proc_->end(pid);
        running_.erase(pid);
    }

    FakeProc* proc_;
    std::mt19937 random_{20261121};  // the same every time
    std::set<int> running_;
};

}  // namespace

TEST(MachineStatsSoak, NothingGrows) {
    LiveBlocks samplers(sizeof(CPUUsage));
    FakeProc proc;
    Engines engines(&proc);
    nLogging::gSetSink([](const nLogging::Record&) {});
    testing::internal::CaptureStderr();
    MachineStats collector;
    KREnvMachineStats stats{};

    const auto withoutEngines = [&] {
        engines.endAll();
        collector.CollectMachineStats(stats, false);
        ASSERT_EQ(0U, samplers.count());
    };
    std::size_t descriptors = 0;
    std::size_t heap = 0;
    std::size_t mostSamplers = 0;
    std::size_t seen = 0;
    long collections = 0;
    for (const auto end = endOfSoak(); collections < kCollections || std::chrono::steady_clock::now() < end;) {
        engines.changeSome();
        proc.now += 600'000;  // every other gate is closed
        ASSERT_TRUE(collector.CollectMachineStats(stats, false));
        ASSERT_LE(stats.slaves.size(), engines.count());
        ASSERT_EQ(stats.slaves.size(), samplers.count());
        mostSamplers = std::max(mostSamplers, samplers.count());
        seen += stats.slaves.size();
        proc.closeLeftOpen();  // those of samples that found no /proc/stat
        proc.calls.clear();
        if (++collections == kCollections / 10) {
            withoutEngines();
            descriptors = OpenDescriptors::count();
            heap = heapBytes();
        }
    }
    withoutEngines();
    EXPECT_EQ(descriptors, OpenDescriptors::count());
    EXPECT_LE(heapBytes(), heap + 4096);
    EXPECT_LE(mostSamplers, static_cast<std::size_t>(kPids));
    EXPECT_GT(seen, static_cast<std::size_t>(kCollections)) << "engines did run";
    testing::internal::GetCapturedStderr();
    nLogging::gSetSink({});
    std::cout << collections << " collections, " << seen << " engines sampled\n";
}
