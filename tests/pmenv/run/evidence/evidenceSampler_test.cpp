// The evidence of a whole machine, interval by interval: engines that come, go and are hidden, and what is judged of it.
#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include "evidence/evidenceSampler.h"
#include "judgement/judgement.h"
#include "support/FakeKernel.h"
#include "support/InChild.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr double kTolerance = 0.010;

class EvidenceSamplerTest : public testing::Test {
protected:
    EvidenceSamplerTest() {
        kernel.write("/proc/self/mountinfo", "30 23 0:26 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n");
        kernel.write("/sys/fs/cgroup/load/cpu.stat", throttledFor(0));
        machine(0);
    }

    static std::string throttledFor(double seconds) {
        return "usage_usec 1\nnr_periods " + std::to_string(static_cast<int>(seconds * 20)) + "\nnr_throttled " +
               std::to_string(static_cast<int>(seconds * 10)) + "\nthrottled_usec " +
               std::to_string(static_cast<int>(seconds * 1e6)) + "\n";
    }
    void machine(int busyTicks, int stolenTicks = 0) {
        kernel.write("/proc/stat",
                     "cpu  " + std::to_string(busyTicks) + " 0 0 1000 0 0 0 " + std::to_string(stolenTicks) + " 0 0\n");
    }

    // An engine that has run, and waited, for so long since it began.
    void run(int pid, double ran = 0, double waited = 0, std::uint64_t startTicks = 5000, char state = 'S',
             const std::string& name = "PMLoadEngineMai") {
        FakeKernel::Thread thread;
        thread.pid = thread.tid = pid;
        thread.name = name;
        thread.ran = ran;
        thread.waited = waited;
        thread.turns = 1 + static_cast<std::uint64_t>(1000 * (ran + waited));
        thread.startTicks = startTicks;
        thread.state = state;
        kernel.run(thread);
        kernel.write("/proc/" + std::to_string(pid) + "/cgroup", "0::/load\n");
    }
    void runThread(int pid, int tid, double ran) {
        FakeKernel::Thread thread;
        thread.pid = pid;
        thread.tid = tid;
        thread.name = "sender";
        thread.ran = ran;
        thread.turns = 1 + static_cast<std::uint64_t>(1000 * ran);
        kernel.run(thread);
    }

    Evidence take(EvidenceSampler& sampler, double seconds = 0.25) {
        kernel.now += seconds;
        Evidence evidence = sampler.take();
        requirePlausible(evidence);
        return evidence;
    }

    // What holds for all evidence, whatever the kernel said.
    static void requirePlausible(const Evidence& evidence) {
        EXPECT_LE(evidence.from, evidence.to);
        for (const EngineEvidence& engine : evidence.engines) {
            EXPECT_LE(engine.from, engine.to);
            EXPECT_GE(engine.ran, 0);
            EXPECT_GE(engine.waited, 0);
            EXPECT_TRUE(engine.readable || !engine.busiest);
            if (!engine.busiest) continue;
            const Parts& parts = engine.busiest->parts;
            for (const double part :
                 {parts.running, parts.waiting, parts.throttled, parts.stolen, parts.blocked, parts.stopped}) {
                EXPECT_GE(part, 0);
            }
            EXPECT_LE(parts.sum(), engine.busiest->seconds + 1e-9);
        }
    }

    static std::vector<int> pids(const Evidence& evidence) {
        std::vector<int> found;
        for (const EngineEvidence& engine : evidence.engines) found.push_back(engine.key.pid);
        return found;
    }

    // The verdict on ten seconds in which `step` changes the machine before each interval.
    Judged judged(const std::function<void(int interval)>& step) {
        EvidenceSampler sampler({}, {}, kTolerance);
        Judgement judgement{JudgeLimits{}};
        judgement.add(sampler.take());
        for (int i = 1; i <= 40; ++i) {
            step(i);
            Evidence evidence = take(sampler);
            evidence.wakes.wakes = 25;
            judgement.add(evidence);
        }
        return judgement.judged(false);
    }

    FakeKernel kernel;
};

// --- what there is --------------------------------------------------------------------------------------------------

TEST_F(EvidenceSamplerTest, IntervalsFollowEachOtherAndHoldTheMachineAndTheEngines) {
    run(kPid);
    EvidenceSampler sampler({}, {}, kTolerance);
    EXPECT_EQ(sampler.take().to, 0) << "the watch begins with an interval without length";
    run(kPid, 0.1, 0.05);
    machine(20);
    const Evidence evidence = take(sampler);
    EXPECT_EQ(evidence.from, 0);
    EXPECT_NEAR(evidence.to, 0.25, 1e-9);
    EXPECT_NEAR(evidence.machine.busy.value_or(0), 0.2, 1e-9);
    ASSERT_THAT(evidence.engines, SizeIs(1));
    ASSERT_TRUE(evidence.engines[0].busiest);
    EXPECT_NEAR(evidence.engines[0].busiest->parts.running, 0.1, 1e-6);
    EXPECT_NEAR(evidence.engines[0].busiest->parts.waiting, 0.05, 1e-6);
    EXPECT_NEAR(take(sampler).from, 0.25, 1e-9);
}

TEST_F(EvidenceSamplerTest, StolenTimeIsTheThreadsShareOfIt) {
    run(kPid);
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    run(kPid, 0.1);
    machine(20, 10);
    const Evidence evidence = take(sampler);
    EXPECT_NEAR(evidence.machine.stolen.value_or(0), 0.1, 1e-9);
    EXPECT_NEAR(evidence.engines.at(0).busiest->parts.stolen, 0.05, 1e-6);
    run(kPid, 0.2);
    machine(10, 20);
    EXPECT_EQ(take(sampler).engines.at(0).busiest->parts.stolen, 0) << "how long it was busy is not known";
}

TEST_F(EvidenceSamplerTest, DelayAccountingTellsBlockedTimeWhereItIsOn) {
    for (const bool on : {false, true}) {
        kernel.write("/proc/sys/kernel/task_delayacct", on ? "1\n" : "0\n");
        FakeKernel::Thread thread;
        thread.turns = 10;
        kernel.run(thread);
        EvidenceSampler sampler({}, {}, kTolerance);
        sampler.take();
        thread.turns = 20;
        thread.blockedTicks = 12;
        kernel.run(thread);
        EXPECT_NEAR(take(sampler).engines.at(0).busiest->parts.blocked, on ? 0.12 : 0, 1e-6);
    }
}

TEST_F(EvidenceSamplerTest, TheQuotaOfAGroupReachesItsEngines) {
    run(kPid);
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    take(sampler);
    kernel.write("/sys/fs/cgroup/load/cpu.stat", throttledFor(0.2));
    run(kPid, 0.01, 0.24);
    const Evidence evidence = take(sampler);
    EXPECT_NEAR(evidence.engines.at(0).busiest->parts.throttled, 0.2, 1e-6);
    EXPECT_EQ(evidence.engines.at(0).group.throttledGroup, "/sys/fs/cgroup/load");
}

TEST_F(EvidenceSamplerTest, NamesThatWereNeverSeenAreTold) {
    run(kPid, 0, 0, 5000, 'S', "wrk");
    EvidenceSampler sampler({{"wrk", "hey"}, {}}, {}, kTolerance);
    EXPECT_THAT(sampler.missingNames(), ElementsAre("wrk", "hey"));
    EXPECT_THAT(sampler.take().missingNames, ElementsAre("hey"));
    EXPECT_THAT(sampler.missingNames(), ElementsAre("hey"));
    kernel.end(kPid);
    take(sampler, 1);
    EXPECT_THAT(sampler.missingNames(), ElementsAre("hey")) << "it was seen";
}

// --- what comes and goes --------------------------------------------------------------------------------------------

TEST_F(EvidenceSamplerTest, EnginesAreFoundOnceASecond) {
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    run(kPid);
    EXPECT_THAT(pids(take(sampler)), IsEmpty());
    take(sampler);
    take(sampler);
    const Evidence evidence = take(sampler);
    EXPECT_THAT(pids(evidence), ElementsAre(kPid));
    EXPECT_NEAR(evidence.engines[0].from, 1, 1e-9) << "it is watched from now on";
}

// A scan that is due within half an interval is not put off by a whole one.
TEST_F(EvidenceSamplerTest, AScanMayBeHalfAnIntervalEarly) {
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    run(kPid);
    EXPECT_THAT(pids(take(sampler, 0.75)), IsEmpty());
    EXPECT_THAT(pids(take(sampler, 0.125)), ElementsAre(kPid));
}

TEST_F(EvidenceSamplerTest, TheToleranceDecidesWhichTurnsAreLate) {
    for (const auto& [tolerance, late] : {std::pair(0.010, 1.0), std::pair(0.100, 0.0)}) {
        run(kPid);
        EvidenceSampler sampler({}, {}, tolerance);
        sampler.take();
        FakeKernel::Thread waits;
        waits.turns = 2;
        waits.waited = 0.015;
        kernel.run(waits);
        EXPECT_EQ(take(sampler).engines.at(0).lateTurns, late) << tolerance;
    }
}

TEST_F(EvidenceSamplerTest, OtherProgramsAreToldWithEachInterval) {
    run(kPid, 1, 0, 5000, 'S', "indexer");
    EvidenceSampler sampler({}, {}, kTolerance);
    EXPECT_THAT(sampler.take().others, IsEmpty());
    run(kPid, 2.5, 0, 5000, 'S', "indexer");
    for (const double seconds : {1.0, 0.25}) {
        const Evidence evidence = take(sampler, seconds);
        ASSERT_THAT(evidence.others, SizeIs(1));
        EXPECT_EQ(evidence.others[0].name, "indexer");
        EXPECT_NEAR(evidence.others[0].seconds, 1.5, 1e-9);
    }
    for (int i = 1; i < 5; ++i) run(kPid + i, 1, 0, 5000, 'S', "program" + std::to_string(i));
    EXPECT_THAT(take(sampler, 1).others, SizeIs(3));
}

TEST_F(EvidenceSamplerTest, AnEndIsToldOnce) {
    run(kPid);
    run(kPid + 1);
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    kernel.end(kPid);
    Evidence evidence = take(sampler);
    EXPECT_THAT(pids(evidence), ElementsAre(kPid + 1));
    ASSERT_THAT(evidence.ends, SizeIs(1));
    EXPECT_EQ(evidence.ends[0].key.pid, kPid);
    EXPECT_NEAR(evidence.ends[0].time, 0.25, 1e-9);
    for (int i = 0; i < 8; ++i) EXPECT_THAT(take(sampler).ends, IsEmpty());
}

TEST_F(EvidenceSamplerTest, AProcessThatBecomesAnotherProgramIsForgotten) {
    run(kPid);
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    run(kPid, 0, 0, 5000, 'S', "sh");
    const Evidence evidence = take(sampler, 1);
    EXPECT_THAT(pids(evidence), IsEmpty());
    EXPECT_THAT(evidence.ends, IsEmpty());
}

// The new process has the old one's id before anybody has looked.
TEST_F(EvidenceSamplerTest, AnIdThatIsUsedAgainIsAnEndAndABeginning) {
    run(kPid);
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    kernel.end(kPid);
    run(kPid, 0, 0, 6000);
    const Evidence evidence = take(sampler, 1);
    ASSERT_THAT(evidence.ends, SizeIs(1));
    EXPECT_EQ(evidence.ends[0].key.startTicks, 5000u);
    ASSERT_THAT(evidence.engines, SizeIs(1));
    EXPECT_EQ(evidence.engines[0].key.startTicks, 6000u);

    kernel.end(kPid);
    run(kPid, 0, 0, 7000, 'S', "sh");
    const Evidence last = take(sampler, 1);
    EXPECT_THAT(last.ends, SizeIs(1));
    EXPECT_THAT(pids(last), IsEmpty());
}

// At each file that is opened and each read of three seconds, something happens to the second of three engines.
class AtAnyPoint : public EvidenceSamplerTest {
protected:
    struct Seen {
        bool happened = false;
        std::size_t ends = 0;  // of the second engine
        Evidence last;
    };

    Seen watch(int point, const std::function<void()>& happens) {
        for (int i = 0; i < 3; ++i) run(kPid + i);
        runThread(kPid + 1, kPid + 10, 0);
        Seen seen;
        int left = point;
        kernel.before = [&](const std::string&) {
            if (left-- != 0) return;
            seen.happened = true;
            happens();
        };
        EvidenceSampler sampler({}, {}, kTolerance);
        for (int i = 0; i < 3; ++i) {
            seen.last = take(sampler, i == 0 ? 0 : 1);
            sampler.look();
            count(seen);
        }
        kernel.before = nullptr;
        seen.last = take(sampler, 1);
        count(seen);
        for (int i = 0; i < 3; ++i) kernel.end(kPid + i);
        return seen;
    }

    static void count(Seen& seen) {
        for (const EngineEnd& end : seen.last.ends) {
            EXPECT_EQ(end.key.pid, kPid + 1);
            seen.ends += end.key.startTicks == 5000 ? 1 : 0;
        }
    }

    // For each point until there are no more.
    template <class Expect>
    void everywhere(const std::function<void()>& happens, Expect expect) {
        int point = 0;
        for (;; ++point) {
            const Seen seen = watch(point, happens);
            if (!seen.happened) break;
            expect(seen, point);
        }
        EXPECT_GT(point, 100);
    }
};

TEST_F(AtAnyPoint, AnEngineMayEnd) {
    everywhere([this] { kernel.end(kPid + 1); },
               [](const Seen& seen, int point) {
                   EXPECT_THAT(pids(seen.last), ElementsAre(kPid, kPid + 2)) << point;
                   EXPECT_LE(seen.ends, 1u) << point;
               });
}

TEST_F(AtAnyPoint, AnotherEngineMayGetItsId) {
    everywhere(
        [this] {
            kernel.end(kPid + 1);
            run(kPid + 1, 0, 0, 6000);
        },
        [](const Seen& seen, int point) {
            EXPECT_THAT(pids(seen.last), ElementsAre(kPid, kPid + 1, kPid + 2)) << point;
            EXPECT_EQ(seen.last.engines.at(1).key.startTicks, 6000u) << point;
            EXPECT_LE(seen.ends, 1u) << point;
        });
}

TEST_F(AtAnyPoint, AnotherProgramMayGetItsId) {
    everywhere(
        [this] {
            kernel.end(kPid + 1);
            run(kPid + 1, 0, 0, 6000, 'S', "sh");
        },
        [](const Seen& seen, int point) {
            EXPECT_THAT(pids(seen.last), ElementsAre(kPid, kPid + 2)) << point;
            EXPECT_LE(seen.ends, 1u) << point;
        });
}

TEST_F(AtAnyPoint, AThreadMayEndAndAnotherBegin) {
    everywhere(
        [this] {
            kernel.remove("/proc/" + std::to_string(kPid + 1) + "/task/" + std::to_string(kPid + 10));
            runThread(kPid + 1, kPid + 11, 0.001);
        },
        [](const Seen& seen, int point) {
            EXPECT_THAT(pids(seen.last), ElementsAre(kPid, kPid + 1, kPid + 2)) << point;
            EXPECT_EQ(seen.ends, 0u) << point;
            for (const EngineEvidence& engine : seen.last.engines) EXPECT_TRUE(engine.readable) << point;
        });
}

// --- what cannot be seen --------------------------------------------------------------------------------------------

TEST_F(EvidenceSamplerTest, ARunWithoutTroubleIsClean) {
    run(kPid);
    EXPECT_EQ(judged([this](int i) { run(kPid, 0.01 * i); }).outcome, Outcome::Clean);
}

TEST_F(EvidenceSamplerTest, AnEngineWhoseAccountsAreHiddenIsNotClean) {
    run(kPid);
    kernel.hide("/proc/" + std::to_string(kPid) + "/task");
    EXPECT_EQ(judged([](int) {}).doubt, Doubt::NotReadable);
}

// With hidepid another user's engine is no engine for pmenv.
TEST_F(EvidenceSamplerTest, AHiddenEngineIsNotClean) {
    run(kPid);
    kernel.hide("/proc/" + std::to_string(kPid));
    EXPECT_EQ(judged([](int) {}).doubt, Doubt::NoEngine);
}

TEST_F(EvidenceSamplerTest, AnEngineWhoseAccountsAreNoLongerReadableIsNotClean) {
    run(kPid);
    const std::string accounts = "/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid) + "/schedstat";
    const Judged judged = this->judged([&](int i) {
        if (i == 20) kernel.write(accounts, "");
        if (i < 20) run(kPid, 0.01 * i);
    });
    EXPECT_EQ(judged.outcome, Outcome::CannotTell);
    EXPECT_EQ(judged.doubt, Doubt::NotReadable);
    EXPECT_NEAR(judged.engines.at(0).unreadable, 21 * 0.25, 1e-6);
}

TEST_F(EvidenceSamplerTest, AKernelThatCountsNothingIsNotClean) {
    FakeKernel::Thread thread;
    thread.turns = 0;
    kernel.run(thread);
    EXPECT_EQ(judged([](int) {}).doubt, Doubt::NotReadable);
}

TEST_F(EvidenceSamplerTest, AnEngineThatEndsWhileOthersGoOnIsNotClean) {
    run(kPid);
    run(kPid + 1);
    EXPECT_EQ(judged([this](int i) {
                  if (i == 10) kernel.end(kPid + 1);
              }).outcome,
              Outcome::Spoiled);
}

// The machine slept, or the watcher did: what happened meanwhile nobody saw.
TEST_F(EvidenceSamplerTest, AClockThatStepsIsNotClean) {
    run(kPid);
    EXPECT_EQ(judged([this](int i) {
                  if (i == 20) kernel.now += 3600;
              }).doubt,
              Doubt::Unseen);
}

TEST_F(EvidenceSamplerTest, WithoutAListOfProcessesNothingIsFoundOrLost) {
    run(kPid);
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    kernel.hide("/proc");
    const Evidence evidence = take(sampler, 1);
    EXPECT_THAT(pids(evidence), ElementsAre(kPid));
    EXPECT_TRUE(evidence.engines[0].readable) << "what is open can be read";
    EXPECT_THAT(evidence.ends, IsEmpty());
}

// --- what it costs --------------------------------------------------------------------------------------------------

// Where reading takes long, it is done less often.
TEST_F(EvidenceSamplerTest, IntervalsLooksAndScansFollowTheirCost) {
    run(kPid);
    for (int i = 1; i < 30; ++i) runThread(kPid, kPid + i, 0);
    kernel.cpu = 7;  // used before the watch
    EvidenceSampler sampler({}, {}, kTolerance);
    sampler.take();
    take(sampler);
    EXPECT_EQ(sampler.interval(), 0.25);

    kernel.cpuOfRead = 100e-6;
    take(sampler);
    EXPECT_GT(sampler.interval(), 0.4);
    EXPECT_LT(sampler.interval(), 0.8);
    kernel.cpuOfRead = 1e-3;
    take(sampler);
    EXPECT_EQ(sampler.interval(), 1);

    int reads = 0;
    kernel.before = [&reads](const std::string&) { ++reads; };
    const auto readsOfLook = [&] {
        reads = 0;
        kernel.now += 0.010;
        sampler.look();
        return reads;
    };
    EXPECT_GE(readsOfLook(), 30);
    EXPECT_EQ(readsOfLook(), 0) << "30 ms of work are due once in 7 seconds";
    kernel.now += 10;
    EXPECT_GE(readsOfLook(), 30);
}

// A scan that takes 6 ms is due once in two seconds, and each one once in ten.
TEST_F(EvidenceSamplerTest, ScansThatTakeLongAreRare) {
    for (const auto& [cost, seconds] : {std::pair(0.006, 2.0), std::pair(0.100, 10.0)}) {
        kernel.cpu = 7;  // used before the watch
        kernel.before = [this, cost = cost](const std::string& path) {
            if (path == "/proc") kernel.cpu += cost;
        };
        EvidenceSampler sampler({}, {}, kTolerance);
        sampler.take();
        run(kPid);
        EXPECT_THAT(pids(take(sampler, seconds - 0.2)), IsEmpty());
        EXPECT_THAT(pids(take(sampler, 0.1)), ElementsAre(kPid));
        kernel.end(kPid);
    }
}

// Of 300 threads each third one in each interval, and the first one always.
TEST_F(EvidenceSamplerTest, OfManyThreadsTheStatesAreReadInTurns) {
    for (const auto& [threads, states] : {std::pair(149, 149), std::pair(300, 100)}) {
        const auto runAll = [this, count = threads](double ran) {
            run(kPid, ran);
            for (int i = 1; i < count; ++i) runThread(kPid, kPid + i, ran);
        };
        runAll(0);
        EvidenceSampler sampler({}, {}, kTolerance);
        sampler.take();
        runAll(0.01);
        int reads = 0;
        kernel.before = [&reads](const std::string& path) { reads += path == "read" ? 1 : 0; };
        take(sampler);
        EXPECT_GE(reads, threads + states);
        EXPECT_LE(reads, threads + states + 10) << "the machine and the groups are read as well";
        kernel.before = nullptr;
    }
}

TEST(EvidenceSampler, MayOpenAsManyFilesAsItsProcessMay) {
    EXPECT_EQ(inChild([] {
                  rlimit limit{300, 400};
                  setrlimit(RLIMIT_NOFILE, &limit);
                  const EvidenceSampler sampler({}, {}, kTolerance);
                  getrlimit(RLIMIT_NOFILE, &limit);
                  return std::to_string(limit.rlim_cur);
              }),
              "400");
}

// A count takes 15 to 30 ms, and has a pause of its own. It was counted as a cost of the scans, which then came once in seven
// seconds, so that ports that were used up meanwhile went unseen.
TEST_F(EvidenceSamplerTest, AfterACountOfPortsTheNextScanIsNotPutOff) {
    run(kPid);
    kernel.link("/proc/self/ns/net", "net:[4026531840]");
    kernel.link(kProcess + "/ns/net", "net:[4026531840]");
    kernel.write("/proc/sys/net/ipv4/ip_local_port_range", "40000\t40099\n");
    const auto connect = [this](int count) {
        kernel.write(kProcess + "/net/sockstat",
                     "TCP: inuse " + std::to_string(count) + " orphan 0 tw 0 alloc 9 mem 1\n");
    };
    std::string connections = "  sl  local_address rem_address   st\n";
    for (int i = 0; i < 60; ++i) connections += "   0: 0100007F:9C40 0100007F:1F90 01\n";
    kernel.write(kProcess + "/net/tcp", connections);
    kernel.before = [this](const std::string& path) {
        if (path != kProcess + "/net/tcp") return;
        kernel.now += 0.030;
        kernel.cpu += 0.030;
    };
    connect(60);
    EvidenceSampler sampler({}, {}, kTolerance);
    EXPECT_NEAR(sampler.take().engines.at(0).portShare.value_or(0), 0.60, 1e-9);
    connect(99);
    EXPECT_NEAR(take(sampler, 1).engines.at(0).portShare.value_or(0), 0.99, 1e-9);
}

}  // namespace
