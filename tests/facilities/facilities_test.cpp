// The small facilities: RWSet, RWMutexLock, the executable directory, the clock, OptionalValue and ScratchBuffer.
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "ExecutableDirectory.h"
#include "OptionalValue.h"
#include "RWMutexLock.h"
#include "RWSet.h"
#include "Realtime.h"
#include "ScratchBuffer.h"
#include "support/LogCapture.h"

// --- RWSet ----------------------------------------------------------------------------------------------------------

TEST(RWSetInsert, AnswersTheStringThatIsInTheSet) {
    RWSet set;
    RWCollectableString first("text");
    RWCollectableString equal("text");
    RWCollectableString other("other");
    EXPECT_EQ(&first, set.insert(&first));
    EXPECT_EQ(&first, set.insert(&equal));
    EXPECT_EQ(&first, set.insert(&first));
    EXPECT_EQ(&other, set.insert(&other));
    EXPECT_EQ(2U, set.entries());
}

TEST(RWSetRemove, TakesOutTheEqualString) {
    RWSet set;
    RWCollectableString first("text");
    const RWCollectableString equal("text");
    EXPECT_EQ(nullptr, set.remove(&equal));
    set.insert(&first);
    EXPECT_EQ(&first, set.remove(&equal));
    EXPECT_EQ(nullptr, set.remove(&equal));
    EXPECT_EQ(0U, set.entries());
}

TEST(RWSetInsert, ComparesWholeTexts) {
    RWSet set;
    RWCString spliced("x-a");
    spliced.replace(0, 2, "");
    RWCollectableString plain("a");
    RWCollectableString same(spliced);
    RWCollectableString empty("");
    RWCollectableString longer("ab");
    set.insert(&plain);
    EXPECT_EQ(&plain, set.insert(&same));
    EXPECT_EQ(&empty, set.insert(&empty));
    EXPECT_EQ(&longer, set.insert(&longer));
}

TEST(RWSetInsert, GrowsBeyondItsCapacity) {
    RWSet set(1);
    std::vector<RWCollectableString> strings;
    for (int i = 0; i < 1000; ++i) strings.emplace_back(std::to_string(i).c_str());
    for (RWCollectableString& string : strings) EXPECT_EQ(&string, set.insert(&string));
    EXPECT_EQ(1000U, set.entries());
    for (RWCollectableString& string : strings) EXPECT_EQ(&string, set.remove(&string));
}

// --- RWMutexLock ----------------------------------------------------------------------------------------------------

TEST(RWMutexLock, ExcludesOtherThreads) {
    RWMutexLock lock;
    std::atomic<bool> asking{false}, given{false};
    bool wasGiven = false;
    lock.acquire();
    std::thread other([&] {
        EXPECT_FALSE(lock.tryAcquire());
        asking = true;
        const RWMutexLock::LockGuard guard(lock);
        wasGiven = given;
    });
    while (!asking) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // time to come in, for one that does not wait
    given = true;
    lock.release();
    other.join();
    EXPECT_TRUE(wasGiven);
    EXPECT_TRUE(lock.tryAcquire());
    lock.release();
}

TEST(RWMutexLock, GuardReleasesWhenAnExceptionPasses) {
    RWMutexLock lock;
    try {
        const RWMutexLock::LockGuard guard(lock);
        throw std::runtime_error("passes");
    } catch (const std::runtime_error&) {
    }
    // It would wait for ever for a guard that had kept it.
    std::thread([&] { const RWMutexLock::LockGuard guard(lock); }).join();
}

TEST(RWMutexLock, IsReadyBeforeConstructorsRun) {
    constexpr RWMutexLock lock;
    static_cast<void>(lock);
    static_assert(!std::is_copy_constructible_v<RWMutexLock::LockGuard>, "a guard releases once");
}

// --- executable directory -------------------------------------------------------------------------------------------

TEST(ExecutableDirectory, StartsEmptyAndKeepsTheLatest) {
    namespace nDirectory = n_debug::nExecutableDirectory;
    EXPECT_EQ("", nDirectory::gGet());
    nDirectory::gInitialize("/opt/one");
    EXPECT_EQ("/opt/one", nDirectory::gGet());
    nDirectory::gInitialize("relative/two");
    EXPECT_EQ("relative/two", nDirectory::gGet());
    nDirectory::gInitialize("");
    EXPECT_EQ("", nDirectory::gGet());
}

// --- clock ----------------------------------------------------------------------------------------------------------

namespace {

const timespec* fakeTime = nullptr;
clockid_t askedClock = -1;

/// The time that the wrapped clock_gettime tells while it lives.
class FakeTime {
public:
    FakeTime(long long seconds, long nanoseconds) {
        now_.tv_sec = static_cast<std::time_t>(seconds);
        now_.tv_nsec = nanoseconds;
        fakeTime = &now_;
    }
    ~FakeTime() { fakeTime = nullptr; }
    FakeTime(const FakeTime&) = delete;
    FakeTime& operator=(const FakeTime&) = delete;

private:
    timespec now_{};
};

int tellFakeTime(clockid_t clock, timespec* now) {
    askedClock = clock;
    *now = *fakeTime;
    return 0;
}

}  // namespace

// With 64-bit times on 32 bits the symbol has another name. It is seen from outside, because the sanitizers' own
// libraries ask the clock too.
#if defined(__i386__)
#define REAL_CLOCK_GETTIME __real___clock_gettime64
#define WRAP_CLOCK_GETTIME __wrap___clock_gettime64
#else
#define REAL_CLOCK_GETTIME __real_clock_gettime
#define WRAP_CLOCK_GETTIME __wrap_clock_gettime
#endif

extern "C" int REAL_CLOCK_GETTIME(clockid_t clock, timespec* now);
extern "C" KRF_EXPORT int WRAP_CLOCK_GETTIME(clockid_t clock, timespec* now) {
    return fakeTime != nullptr ? tellFakeTime(clock, now) : REAL_CLOCK_GETTIME(clock, now);
}

TEST(Realtime, CountsMicrosecondsOfTheMonotonicClock) {
    const struct {
        long long seconds;
        long nanoseconds;
        std::uint64_t expected;
    } rows[] = {
        {0, 0, 1},  // 0 means "never" to callers
        {0, 999, 1},
        {0, 1000, 1},
        {0, 2000, 2},
        {5, 1'234'567, 5'001'234},
        {4295, 0, 4'295'000'000},  // over 32 bits
        {1LL << 31, 999'999'999, (std::uint64_t{1} << 31) * 1'000'000 + 999'999},
    };
    for (const auto& row : rows) {
        const FakeTime time(row.seconds, row.nanoseconds);
        EXPECT_EQ(row.expected, nRealtime::gCurrentRaw_compiler());
        EXPECT_EQ(CLOCK_MONOTONIC, askedClock);
    }
}

TEST(Realtime, NeverGoesBack) {
    std::uint64_t last = 0;
    for (int i = 0; i < 1000; ++i) {
        const std::uint64_t now = nRealtime::gCurrentRaw_compiler();
        ASSERT_GE(now, last);
        last = now;
    }
    EXPECT_GT(last, 0U);
}

// --- OptionalValue --------------------------------------------------------------------------------------------------

TEST(OptionalValue, IsEmptyUntilSet) {
    const LogCapture log;
    OptionalValue<std::string> value;
    EXPECT_FALSE(value.has());
    value.set("");
    EXPECT_TRUE(value.has());
    EXPECT_EQ("", value.get());
    value.reset();
    EXPECT_FALSE(value.has());
    value.set("again");
    EXPECT_EQ("again", value.get());
    EXPECT_TRUE(log.entries().empty());
}

TEST(OptionalValue, ReportsAndReplacesWhenSetTwice) {
    const LogCapture log;
    OptionalValue<std::string> value;
    value.set("first");
    value.set("second");
    EXPECT_EQ("second", value.get());
    ASSERT_EQ(1U, log.entries().size());
    EXPECT_EQ(nLogging::Level::Error, log.entries()[0].level);
    EXPECT_EQ("PMEnvironment", log.entries()[0].category);
    EXPECT_EQ("an optional value that is already set is set again", log.entries()[0].text);
}

// --- ScratchBuffer --------------------------------------------------------------------------------------------------

TEST(ScratchBuffer, OwnsItsBytes) {
    ScratchBuffer buffer(4096);
    ASSERT_EQ(4096U, buffer.size());
    std::memset(buffer.data(), 'x', buffer.size());
    EXPECT_EQ('x', buffer.data()[4095]);
    EXPECT_EQ(0U, ScratchBuffer(0).size());
    static_assert(!std::is_copy_constructible_v<ScratchBuffer>, "the bytes have one owner");
}
