// Samples of processes and of the machine's processors: get_usage, calc_cpu, getProcessRSS, CPUUsage, GetCPULoad.
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "support/FakeProc.h"
#include "support/LogCapture.h"
#include "support/LogExpectations.h"
#include "support/OpenDescriptors.h"

using nLogging::Level;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kPid = 77;
constexpr char kStat[] = "/proc/77/stat";

constexpr long double kInfinity = std::numeric_limits<long double>::infinity();

// The 32-bit products and differences of the samples, written down the way the numbers are stored.
std::int32_t wrapped(std::uint64_t value) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(value)); }

// A stat file whose fields 14 and onwards are given.
std::string statText(const std::string& fromUserTicksOn) {
    return "77 (sh) S 1 77 77 0 -1 4194560 1000 11 12 13 " + fromUserTicksOn;
}

pstat sampleOfNines() {
    pstat sample;
    std::memset(&sample, 0x99, sizeof sample);
    return sample;
}

bool equal(const pstat& left, const pstat& right) { return std::memcmp(&left, &right, sizeof left) == 0; }

pstat ticks(std::uint32_t user, std::uint32_t system, std::uint64_t total) {
    pstat sample{};
    sample.user_ticks = user;
    sample.system_ticks = system;
    sample.cpu_total_ticks = total;
    return sample;
}

}  // namespace

// --- get_usage ------------------------------------------------------------------------------------------------------

TEST(GetUsage, FillsTheSampleInItsOwnOrder) {
    FakeProc proc;
    proc.write(kStat, statText("14 15 -16 -17 18 19 20 21 22 23 24 25 26\n"));
    proc.write("/proc/stat", "cpu  1 20 300 4000 50000 600000 7000000 80000000 900000000 1000000000 5\ncpu0 7 7\n");
    pstat sample = sampleOfNines();
    EXPECT_EQ(0, get_usage(kPid, &sample));
    EXPECT_EQ(14U, sample.user_ticks);
    EXPECT_EQ(-16, sample.child_user_ticks);
    EXPECT_EQ(15U, sample.system_ticks);
    EXPECT_EQ(-17, sample.child_system_ticks);
    EXPECT_EQ(23U, sample.vsize_bytes);
    EXPECT_EQ(24 * getpagesize(), sample.rss_bytes);
    EXPECT_EQ(1987654321U, sample.cpu_total_ticks);
}

TEST(GetUsage, OpensBothFilesForReading) {
    FakeProc proc;
    proc.run(kPid);
    pstat sample{};
    EXPECT_EQ(0, get_usage(kPid, &sample));
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/77/stat r", "fopen /proc/stat r"));
}

TEST(GetUsage, TakesAnyProcessId) {
    FakeProc proc;
    testing::internal::CaptureStderr();
    pstat sample{};
    EXPECT_EQ(-1, get_usage(std::numeric_limits<int>::min(), &sample));
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/-2147483648/stat r"));
    testing::internal::GetCapturedStderr();
}

TEST(GetUsage, SaysOnStandardErrorThatTheProcessIsGone) {
    FakeProc proc;
    LogCapture log;
    pstat sample = sampleOfNines();
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, get_usage(kPid, &sample));
    EXPECT_EQ("FOPEN ERROR : No such file or directory\n", testing::internal::GetCapturedStderr());
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/77/stat r"));
    EXPECT_TRUE(equal(sampleOfNines(), sample));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GetUsage, TriesTheMachineFileASecondTimeAfter200Microseconds) {
    FakeProc proc;
    proc.run(kPid, "sh", 7);
    proc.refuse("/proc/stat", 1);
    const std::size_t descriptors = OpenDescriptors::count();
    pstat sample{};
    EXPECT_EQ(0, get_usage(kPid, &sample));
    EXPECT_EQ(7U, sample.user_ticks);
    EXPECT_THAT(proc.calls,
                ElementsAre("fopen /proc/77/stat r", "fopen /proc/stat r", "usleep 200", "fopen /proc/stat r"));
    EXPECT_EQ(descriptors, OpenDescriptors::count());
}

TEST(GetUsage, LeavesTheProcessFileOpenWhenTheMachineFileFailsTwice) {
    FakeProc proc;
    LogCapture log;
    proc.run(kPid);
    proc.refuse("/proc/stat", 2);
    const std::size_t descriptors = OpenDescriptors::count();
    pstat sample = sampleOfNines();
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, get_usage(kPid, &sample));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_THAT(proc.calls,
                ElementsAre("fopen /proc/77/stat r", "fopen /proc/stat r", "usleep 200", "fopen /proc/stat r"));
    EXPECT_EQ(descriptors + 1, OpenDescriptors::count());
    EXPECT_TRUE(equal(sampleOfNines(), sample)) << "nothing is written on this path";
    EXPECT_THAT(log.entries(), IsEmpty());
    proc.closeLeftOpen();
    EXPECT_EQ(descriptors, OpenDescriptors::count());
}

TEST(GetUsage, FilesAreNotInheritedByCommands) {
    FakeProc proc;
    proc.run(kPid);
    proc.refuse("/proc/stat", 2);
    pstat sample{};
    EXPECT_EQ(-1, get_usage(kPid, &sample));
    ASSERT_EQ(1U, proc.leftOpen().size());
    EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(*proc.leftOpen().begin()), F_GETFD));
    proc.closeLeftOpen();
}

// What is there counts; only a text that ends before the first number fails.
TEST(GetUsage, AcceptsPartsOfAProcessFile) {
    const struct {
        const char* text;
        int result;
        std::uint32_t user, system;
        std::int32_t childUser;
    } rows[] = {
        {"", -1, 0, 0, 0},
        {"\n", -1, 0, 0, 0},
        {"77", -1, 0, 0, 0},
        {"77 (sh) S 1", -1, 0, 0, 0},
        {"77 (sh) S 1 77 77 0 -1 4194560 1000 11 12 13", -1, 0, 0, 0},
        {"77 (sh) S 1 77 77 0 -1 4194560 1000 11 12 13 14", 0, 14, 0, 0},
        {"77 (sh) S 1 77 77 0 -1 4194560 1000 11 12 13 14 15", 0, 14, 15, 0},
        {"77 (sh) S 1 77 77 0 -1 4194560 1000 11 12 13 14 15 16 x", 0, 14, 15, 16},
        {"77 (sh) S 1 77 77 0 -1 4194560 1000 11 12 13 x", 0, 0, 0, 0},
        {"no numbers at all", 0, 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        FakeProc proc;
        proc.write(kStat, row.text);
        proc.machineTicks(1, 2, 3, 4);
        const std::size_t descriptors = OpenDescriptors::count();
        pstat sample = sampleOfNines();
        EXPECT_EQ(row.result, get_usage(kPid, &sample));
        EXPECT_EQ(row.user, sample.user_ticks);
        EXPECT_EQ(row.system, sample.system_ticks);
        EXPECT_EQ(row.childUser, sample.child_user_ticks);
        EXPECT_EQ(0, sample.child_system_ticks);
        EXPECT_EQ(0U, sample.vsize_bytes);
        EXPECT_EQ(0, sample.rss_bytes);
        EXPECT_EQ(row.result == 0 ? 10U : 0U, sample.cpu_total_ticks);
        EXPECT_EQ(descriptors, OpenDescriptors::count());
    }
}

// The word of the scan ends at the blank, the character behind it is taken for the state, and the rest finds no number.
TEST(GetUsage, ABlankInTheNameLosesTheProcessesFigures) {
    FakeProc proc;
    proc.run(kPid, "a b", 7, 8, 9);
    proc.machineTicks(1, 2, 3, 4);
    pstat sample = sampleOfNines();
    EXPECT_EQ(0, get_usage(kPid, &sample));
    EXPECT_TRUE(equal(ticks(0, 0, 10), sample));
}

TEST(GetUsage, AProcessThatEndsWhileItIsReadFails) {
    FakeProc proc;
    proc.run(kPid);
    proc.breakReads(kStat);
    const std::size_t descriptors = OpenDescriptors::count();
    pstat sample = sampleOfNines();
    EXPECT_EQ(-1, get_usage(kPid, &sample));
    EXPECT_TRUE(equal(pstat{}, sample));
    EXPECT_EQ(descriptors, OpenDescriptors::count());
}

TEST(GetUsage, AddsUpTheColumnsThatThereAre) {
    const struct {
        const char* text;
        int result;
        std::uint64_t total;
    } rows[] = {
        {"", -1, 0},
        {"cpu", -1, 0},
        {"cpu 5", 0, 5},
        {"cpu  1 2 3 4\ncpu0 100 100 100 100\n", 0, 10},
        {"cpu  1 2 x 4\n", 0, 3},
        {"cpu x\n", 0, 0},
        {"cpu  1 1 1 1 1 1 1 1 1 1 100 100\n", 0, 10},
        {"cpu  5000000000 5000000000\n", 0, 10000000000},
        {"cpu  18446744073709551615 3\n", 0, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        FakeProc proc;
        proc.run(kPid, "sh", 7);
        proc.write("/proc/stat", row.text);
        const std::size_t descriptors = OpenDescriptors::count();
        pstat sample = sampleOfNines();
        EXPECT_EQ(row.result, get_usage(kPid, &sample));
        EXPECT_EQ(7U, sample.user_ticks);
        EXPECT_EQ(row.total, sample.cpu_total_ticks);
        EXPECT_EQ(descriptors, OpenDescriptors::count());
    }
}

TEST(GetUsage, NumbersStopAtTheLimitsOf32Bits) {
    FakeProc proc;
    proc.write(kStat, statText("4294967296 4294967295 2147483648 -2147483649 0 0 0 0 0 21990232555520 0"));
    pstat sample{};
    EXPECT_EQ(0, get_usage(kPid, &sample));
    EXPECT_EQ(4294967295U, sample.user_ticks);
    EXPECT_EQ(4294967295U, sample.system_ticks);
    EXPECT_EQ(2147483647, sample.child_user_ticks);
    EXPECT_EQ(std::numeric_limits<std::int32_t>::min(), sample.child_system_ticks);
    EXPECT_EQ(4294967295U, sample.vsize_bytes);
}

TEST(GetUsage, ResidentBytesWrapAt32Bits) {
    const auto pageSize = static_cast<std::uint64_t>(getpagesize());
    for (const std::uint64_t pages : {524287U, 524288U, 1048575U, 1048576U, 2147483647U}) {
        FakeProc proc;
        proc.run(kPid, "sh", 0, 0, static_cast<long>(pages));
        pstat sample{};
        EXPECT_EQ(0, get_usage(kPid, &sample));
        EXPECT_EQ(wrapped(pages * pageSize), sample.rss_bytes) << pages;
    }
}

TEST(GetUsage, RefusesToFillNothing) {
    FakeProc proc;
    LogCapture log;
    EXPECT_EQ(-1, get_usage(kPid, nullptr));
    EXPECT_THAT(proc.calls, IsEmpty());
    EXPECT_THAT(log.texts(Level::Error), ElementsAre(""));
}

TEST(GetUsage, ClosesTheProcessFileWhenACallThrows) {
    for (const char* const thrower : {"usleep", "fopen /proc/stat"}) {
        FakeProc proc;
        proc.run(kPid);
        proc.refuse("/proc/stat", 1);
        proc.before = [&](const std::string& call) {
            if (call.find(thrower) == 0) throw std::runtime_error("no");
        };
        const std::size_t descriptors = OpenDescriptors::count();
        pstat sample{};
        EXPECT_THROW(get_usage(kPid, &sample), std::runtime_error);
        EXPECT_EQ(descriptors, OpenDescriptors::count()) << thrower;
    }
}

// --- calc_cpu -------------------------------------------------------------------------------------------------------

TEST(CalcCpu, IsTheShareOfAllProcessorTime) {
    const struct {
        pstat cur, prev;
        long double percent;
    } rows[] = {
        {ticks(130, 70, 1400), ticks(100, 50, 1200), 25.0L},
        {ticks(100, 50, 1200), ticks(100, 50, 1000), 0.0L},
        {ticks(400, 0, 200), ticks(0, 0, 100), 400.0L},               // no upper limit
        {ticks(1, 0, 3), ticks(0, 0, 0), 1.0L / 3.0L * 100.0L},       // all 64 bits of the mantissa
        {ticks(5, 5, 100), ticks(0xFFFFFFF1, 0xFFFFFFF9, 0), 32.0L},  // counters that wrapped
        {ticks(0xFFFFFFFF, 2, 100), ticks(0, 0, 0), 1.0L},            // a sum that wraps
        {ticks(25, 0, 0x100000032), ticks(0, 0, 0xFFFFFFCE), 25.0L},  // only the low halves count
        {ticks(25, 0, 0x700000064), ticks(0, 0, 0x300000000), 25.0L},
        {ticks(0, 0, 100), ticks(1, 0, 0), 4294967295.0L / 100.0L * 100.0L},  // going back wraps
        {ticks(50, 0, 0), ticks(0, 0, 1), 50.0L / 4294967295.0L * 100.0L},
        {ticks(7, 0, 1000), ticks(0, 0, 1000), kInfinity},
        {ticks(7, 0, 0x100000000), ticks(0, 0, 0), kInfinity},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.percent, calc_cpu(&row.cur, &row.prev)) << "row " << &row - rows;
    }
}

TEST(CalcCpu, IsNoNumberWithoutTimeAndWork) {
    const pstat sample = ticks(7, 8, 1000);
    EXPECT_TRUE(std::isnan(calc_cpu(&sample, &sample)));
}

TEST(CalcCpu, IgnoresAllOtherFields) {
    pstat cur = sampleOfNines();
    pstat prev{};
    cur.user_ticks = 1;
    cur.system_ticks = 2;
    cur.cpu_total_ticks = 6;
    EXPECT_EQ(50.0L, calc_cpu(&cur, &prev));
}

TEST(CalcCpu, RefusesMissingSamples) {
    LogCapture log;
    const pstat sample{};
    EXPECT_EQ(-1.0L, calc_cpu(nullptr, &sample));
    EXPECT_EQ(-1.0L, calc_cpu(&sample, nullptr));
    EXPECT_THAT(log.texts(Level::Error), ElementsAre("", ""));
}

// --- getProcessRSS --------------------------------------------------------------------------------------------------

TEST(GetProcessRSS, IsTheSecondFieldTimesThePageSize) {
    FakeProc proc;
    proc.write("/proc/77/statm", "1000 321 30 2 0 100 0\n");
    const std::size_t descriptors = OpenDescriptors::count();
    EXPECT_EQ(321 * sysconf(_SC_PAGESIZE), getProcessRSS(kPid, false));
    EXPECT_EQ(321 * sysconf(_SC_PAGESIZE), getProcessRSS(kPid, true)) << "the flag has no effect";
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/77/statm r", "fopen /proc/77/statm r"));
    EXPECT_EQ(descriptors, OpenDescriptors::count());
}

TEST(GetProcessRSS, WrapsAt32Bits) {
    const auto pageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    for (const std::uint64_t pages : {524287U, 524288U, 1048575U, 1048576U, 1048577U, 2147483647U}) {
        FakeProc proc;
        proc.write("/proc/77/statm", "9 " + std::to_string(pages));
        EXPECT_EQ(wrapped(pages * pageSize), getProcessRSS(kPid, false)) << pages;
    }
}

TEST(GetProcessRSS, PagesStopAtTheLimitsOf32Bits) {
    FakeProc proc;
    proc.write("/proc/77/statm", "9 99999999999");
    EXPECT_EQ(wrapped(0x7FFFFFFFULL * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE))), getProcessRSS(kPid, false));
}

TEST(GetProcessRSS, TriesASecondTimeAfter200Microseconds) {
    FakeProc proc;
    LogCapture log;
    proc.write("/proc/77/statm", "9 3");
    proc.refuse("/proc/77/statm", 1);
    EXPECT_EQ(3 * sysconf(_SC_PAGESIZE), getProcessRSS(kPid, false));
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/77/statm r", "usleep 200", "fopen /proc/77/statm r"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GetProcessRSS, WarnsAboutAProcessThatIsGone) {
    FakeProc proc;
    LogCapture log;
    EXPECT_EQ(0, getProcessRSS(kPid, false));
    EXPECT_THAT(proc.calls, ElementsAre("fopen /proc/77/statm r", "usleep 200", "fopen /proc/77/statm r"));
    ASSERT_EQ(1U, log.entries().size());
    expectRecord(log.entries().front(), Level::Warning, "../src/MachineStats",
                 "getProcessRSS() - fopen failed for file /proc/77/statm");
}

TEST(GetProcessRSS, WarnsAboutAFileWithoutTheNumber) {
    for (const char* const text : {"", "9", "9 ", "9 x", "x y"}) {
        FakeProc proc;
        LogCapture log;
        proc.write("/proc/77/statm", text);
        const std::size_t descriptors = OpenDescriptors::count();
        const auto& open = proc.leftOpen();
        log.onRecord = [&] { EXPECT_THAT(open, testing::IsEmpty()) << "the file is closed before the record"; };
        EXPECT_EQ(0, getProcessRSS(kPid, false)) << text;
        EXPECT_EQ(descriptors, OpenDescriptors::count());
        EXPECT_THAT(log.texts(Level::Warning), ElementsAre("getProcessRSS() - fscanf failed for file /proc/77/statm"));
        EXPECT_EQ(1U, log.entries().size());
        EXPECT_EQ(1U, proc.calls.size());
    }
}

// --- CPUUsage -------------------------------------------------------------------------------------------------------

namespace {

// The sampler's fields in their order.
struct SamplerFields {
    int pid;
    double lastUsage;
    std::uint64_t lastSampleTime;
    pstat previous;
    pstat current;
};
static_assert(sizeof(SamplerFields) == sizeof(CPUUsage), "the copy above has all of the sampler's fields");

SamplerFields fieldsOf(const CPUUsage& sampler) {
    SamplerFields fields;
    std::memcpy(&fields, static_cast<const void*>(&sampler), sizeof fields);
    return fields;
}

// A /proc with one process, and a clock that has just let the gate of a new sampler open.
class SamplerTest : public testing::Test {
protected:
    SamplerTest() { use(0, 0, 0); }

    // So many ticks in all: the process's in both modes, and those of all processors.
    void use(unsigned user, unsigned system, unsigned long long all) {
        proc.run(kPid, "sh", user, system, 9);
        proc.machineTicks(all, 0, 0, 0);
    }
    // One tick past the gate.
    void wait() { proc.now += 1'000'001; }

    FakeProc proc;
    LogCapture log;
    CPUUsage sampler{kPid};
};

}  // namespace

TEST_F(SamplerTest, StartsUnsampled) {
    const SamplerFields fields = fieldsOf(sampler);
    EXPECT_EQ(kPid, fields.pid);
    EXPECT_EQ(-1.0, fields.lastUsage);
    EXPECT_EQ(0U, fields.lastSampleTime);
    EXPECT_THAT(proc.calls, IsEmpty());
}

TEST_F(SamplerTest, TheGateOpensAfterMoreThanAMillionTicks) {
    const struct {
        std::uint64_t now;
        bool open;
    } rows[] = {{0, false}, {999'999, false}, {1'000'000, false}, {1'000'001, true}, {UINT64_MAX, true}};
    for (const auto& row : rows) {
        proc.now = row.now;
        EXPECT_EQ(row.open, sampler.EnoughTimePassed()) << row.now;
    }
}

TEST_F(SamplerTest, TheGateCountsFromTheLastSample) {
    proc.now = 7'000'000;
    sampler.GetUsage();
    proc.now = 8'000'000;
    EXPECT_FALSE(sampler.EnoughTimePassed());
    proc.now = 8'000'001;
    EXPECT_TRUE(sampler.EnoughTimePassed());
}

TEST_F(SamplerTest, TheGateSeesADifferenceThatWraps) {
    proc.now = UINT64_MAX - 9;
    sampler.GetUsage();
    proc.now = UINT64_MAX;
    EXPECT_FALSE(sampler.EnoughTimePassed());
    proc.now = 999'990;  // a million later
    EXPECT_FALSE(sampler.EnoughTimePassed());
    proc.now = 999'991;
    EXPECT_TRUE(sampler.EnoughTimePassed());
}

TEST_F(SamplerTest, IsMinusOneWhileTheFirstGateIsClosed) {
    proc.now = 1'000'000;
    EXPECT_EQ(-1.0, sampler.GetUsage());
    EXPECT_THAT(proc.calls, ElementsAre("clock"));
    proc.now = 1'000'001;
    EXPECT_EQ(0.0, sampler.GetUsage());
}

TEST_F(SamplerTest, IsZeroAtTheFirstSampleAndMeasuredFromTheSecondOn) {
    use(10, 10, 100);
    EXPECT_EQ(0.0, sampler.GetUsage());
    wait();
    use(20, 25, 200);
    EXPECT_EQ(25.0, sampler.GetUsage());
    wait();
    use(20, 25, 300);
    EXPECT_EQ(0.0, sampler.GetUsage());
    wait();
    use(120, 25, 400);
    EXPECT_EQ(100.0, sampler.GetUsage());
}

TEST_F(SamplerTest, KeepsItsValueAndReadsNoFileWhileTheGateIsClosed) {
    sampler.GetUsage();
    wait();
    use(25, 0, 100);
    EXPECT_EQ(25.0, sampler.GetUsage());
    proc.now += 1'000'000;
    use(99, 0, 200);
    proc.calls.clear();
    EXPECT_EQ(25.0, sampler.GetUsage());
    EXPECT_THAT(proc.calls, ElementsAre("clock"));
    proc.now += 1;
    EXPECT_EQ(74.0, sampler.GetUsage());
}

TEST_F(SamplerTest, AFailedReadKeepsTheValueAndLeavesTheGateOpen) {
    sampler.GetUsage();
    wait();
    use(25, 0, 100);
    EXPECT_EQ(25.0, sampler.GetUsage());
    wait();
    proc.breakReads(kStat);
    const std::uint64_t lastSampleTime = fieldsOf(sampler).lastSampleTime;
    EXPECT_EQ(25.0, sampler.GetUsage());
    EXPECT_EQ(25.0, sampler.GetUsage()) << "it samples again at once";
    EXPECT_THAT(log.texts(Level::Warning), ElementsAre("error running get_usage. returning last value",
                                                       "error running get_usage. returning last value"));
    EXPECT_EQ(2U, log.entries().size());
    EXPECT_EQ("../src/MachineStats", log.entries().front().file);
    EXPECT_EQ(lastSampleTime, fieldsOf(sampler).lastSampleTime);
    use(75, 0, 200);
    EXPECT_EQ(50.0, sampler.GetUsage()) << "against the last sample that succeeded";
}

TEST_F(SamplerTest, AFailedFirstReadLeavesMinusOne) {
    proc.end(kPid);
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1.0, sampler.GetUsage());
    EXPECT_EQ("FOPEN ERROR : No such file or directory\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(0U, fieldsOf(sampler).lastSampleTime);
    use(5, 0, 10);
    EXPECT_EQ(0.0, sampler.GetUsage()) << "still the first sample";
}

TEST_F(SamplerTest, TakesTheTimeOfTheSampleAfterReading) {
    proc.before = [this](const std::string& call) {
        if (call == "fopen /proc/stat r") proc.now += 5;
    };
    proc.now = 7'000'000;
    sampler.GetUsage();
    EXPECT_EQ(7'000'005U, fieldsOf(sampler).lastSampleTime);
}

TEST_F(SamplerTest, RoundsToDouble) {
    sampler.GetUsage();
    wait();
    use(1, 0, 3);
    EXPECT_EQ(static_cast<double>(1.0L / 3.0L * 100.0L), sampler.GetUsage());
    EXPECT_NE(1.0L / 3.0L * 100.0L, static_cast<long double>(fieldsOf(sampler).lastUsage));
}

TEST_F(SamplerTest, LetsNaNAndInfinityPass) {
    sampler.GetUsage();
    wait();
    EXPECT_TRUE(std::isnan(sampler.GetUsage()));
    wait();
    use(1, 0, 0);
    EXPECT_EQ(std::numeric_limits<double>::infinity(), sampler.GetUsage());
}

TEST_F(SamplerTest, RemembersOnlyWhatTheNextPercentageNeeds) {
    alignas(CPUUsage) unsigned char memory[sizeof(CPUUsage)];
    std::memset(memory, 0x99, sizeof memory);
    auto* const placed = new (memory) CPUUsage(kPid);
    use(3, 4, 5);
    EXPECT_EQ(0.0, placed->GetUsage());
    const SamplerFields fields = fieldsOf(*placed);
    EXPECT_EQ(9 * getpagesize(), fields.current.rss_bytes);
    pstat expected = sampleOfNines();
    expected.user_ticks = 3;
    expected.system_ticks = 4;
    expected.cpu_total_ticks = 5;
    EXPECT_TRUE(equal(expected, fields.previous)) << "the other three fields are never written";
    placed->~CPUUsage();
}

// --- MachineStats::GetCPULoad ---------------------------------------------------------------------------------------

namespace {

constexpr long double kOneThird = 0.3333333432674407958984375L;  // the float nearest to 1/3

// A collector whose first sample is all zeros, which makes the next one's figures easy to foresee.
class LoadTest : public testing::Test {
protected:
    LoadTest() { wait(); }
    void wait() { proc.now += 1'000'001; }

    FakeProc proc;
    LogCapture log;
    MachineStats collector;
};

}  // namespace

// In a process of its own, where no collector has sampled yet.
TEST(GetCPULoadDeathTest, FirstLoadIsTheShareSinceTheMachineStarted) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            FakeProc proc;
            proc.refuse("/proc/stat", 2);
            MachineStats collector;
            proc.now += 1'000'001;
            proc.machineTicks(10, 5, 10, 75);
            _exit(collector.GetCPULoad() == 0.25L ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(LoadTest, IsTheBusyShareOfFourColumns) {
    proc.write("/proc/stat", "cpu  10 20 30 140 1000 1000 1000 1000 1000 1000\ncpu0 1 1 1 1\n");
    EXPECT_EQ(static_cast<long double>(0.3F), collector.GetCPULoad());
    wait();
    proc.write("/proc/stat", "cpu  20 30 40 150 0 0 0 0 0 0\n");
    EXPECT_EQ(0.75L, collector.GetCPULoad());
}

TEST_F(LoadTest, IsRoundedToFloat) {
    proc.machineTicks(1, 0, 0, 2);
    const long double load = collector.GetCPULoad();
    EXPECT_EQ(kOneThird, load);
    EXPECT_NE(1.0L / 3.0L, load);
}

// Counters of 60 bits, whose last bit a double would lose.
TEST_F(LoadTest, ComputesWithAllBitsOfALongDouble) {
    const unsigned long long big = 1ULL << 60;
    proc.machineTicks(big, 0, 0, big);
    EXPECT_EQ(0.5L, collector.GetCPULoad());
    wait();
    proc.machineTicks(big + 1, 0, 0, big + 3);
    EXPECT_EQ(0.25L, collector.GetCPULoad());
}

TEST_F(LoadTest, IsMinusOneUntilMoreThanAMillionTicksHavePassed) {
    proc.machineTicks(1, 0, 0, 1);
    EXPECT_EQ(0.5L, collector.GetCPULoad());
    proc.calls.clear();
    EXPECT_EQ(-1.0L, collector.GetCPULoad());
    proc.now += 1'000'000;
    EXPECT_FALSE(collector.EnoughTimePassed());
    EXPECT_EQ(-1.0L, collector.GetCPULoad());
    EXPECT_THAT(proc.callsOf("fopen"), IsEmpty());
    proc.now += 1;
    EXPECT_TRUE(collector.EnoughTimePassed());
    proc.machineTicks(2, 0, 0, 1);
    EXPECT_EQ(1.0L, collector.GetCPULoad());
    EXPECT_THAT(proc.callsOf("fopen"), ElementsAre("fopen /proc/stat r"));
}

TEST_F(LoadTest, IsMinusOneRightAfterConstruction) {
    MachineStats fresh;
    EXPECT_EQ(-1.0L, fresh.GetCPULoad());
}

TEST_F(LoadTest, TheGateOfANewCollectorIsOpenWhateverTheClock) {
    proc.now = 5;
    proc.calls.clear();
    MachineStats fresh;
    EXPECT_THAT(proc.callsOf("fopen"), ElementsAre("fopen /proc/stat r"));
    EXPECT_FALSE(fresh.EnoughTimePassed());
}

TEST_F(LoadTest, TriesASecondTimeAfter200Microseconds) {
    proc.machineTicks(1, 0, 0, 3);
    proc.refuse("/proc/stat", 1);
    proc.calls.clear();
    EXPECT_EQ(0.25L, collector.GetCPULoad());
    EXPECT_THAT(proc.calls, ElementsAre("clock", "clock", "fopen /proc/stat r", "usleep 200", "fopen /proc/stat r"));
}

TEST_F(LoadTest, AFileThatFailsTwiceClosesTheGate) {
    proc.machineTicks(1, 0, 0, 3);
    proc.refuse("/proc/stat", 2);
    proc.calls.clear();
    EXPECT_EQ(-1.0L, collector.GetCPULoad());
    EXPECT_THAT(proc.callsOf("fopen"), ElementsAre("fopen /proc/stat r", "fopen /proc/stat r"));
    EXPECT_THAT(proc.callsOf("usleep"), ElementsAre("usleep 200"));
    EXPECT_EQ(-1.0L, collector.GetCPULoad());
    EXPECT_EQ(2U, proc.callsOf("fopen").size()) << "not tried again while the gate is closed";
    EXPECT_THAT(log.entries(), IsEmpty());
    wait();
    EXPECT_EQ(0.25L, collector.GetCPULoad()) << "the samples are as they were";
}

TEST_F(LoadTest, WhatAScanDoesNotFindKeepsItsValue) {
    proc.machineTicks(10, 10, 10, 10);
    collector.GetCPULoad();
    wait();
    proc.write("/proc/stat", "cpu 20 x");
    EXPECT_EQ(1.0L, collector.GetCPULoad()) << "ten more user ticks, nothing else";
    wait();
    proc.write("/proc/stat", "");
    EXPECT_TRUE(std::isnan(collector.GetCPULoad()));
    wait();
    proc.machineTicks(21, 10, 10, 11);
    EXPECT_EQ(0.5L, collector.GetCPULoad());
}

TEST_F(LoadTest, ClampsNothing) {
    proc.machineTicks(100, 0, 0, 100);
    collector.GetCPULoad();
    wait();
    EXPECT_TRUE(std::isnan(collector.GetCPULoad())) << "identical totals";
    wait();
    proc.machineTicks(103, 0, 0, 98);
    EXPECT_EQ(3.0L, collector.GetCPULoad()) << "idle time that steps back";
    wait();
    proc.machineTicks(102, 0, 0, 101);
    EXPECT_EQ(-0.5L, collector.GetCPULoad());
    wait();
    proc.machineTicks(103, 0, 0, 100);
    EXPECT_EQ(kInfinity, collector.GetCPULoad());
}

TEST_F(LoadTest, AllCollectorsShareTheSamples) {
    MachineStats other;
    wait();
    proc.machineTicks(10, 0, 0, 10);
    EXPECT_EQ(0.5L, other.GetCPULoad());
    proc.machineTicks(10, 0, 0, 20);
    EXPECT_EQ(0.0L, collector.GetCPULoad()) << "since the other's sample";
}

TEST_F(LoadTest, ClosesTheFile) {
    const std::size_t descriptors = OpenDescriptors::count();
    for (int i = 0; i < 3; ++i, wait()) collector.GetCPULoad();
    EXPECT_EQ(descriptors, OpenDescriptors::count());
}

TEST_F(LoadTest, GetProcessMemCPUIsNotMeasured) {
    float first = 1.0F;
    unsigned long second = 2;
    unsigned long third = 3;
    EXPECT_FALSE(collector.GetProcessMemCPU(first, second, third));
    EXPECT_EQ(0.0F, first);
    EXPECT_EQ(0UL, second);
    EXPECT_EQ(0UL, third);
}
