// One engine, from the moment it is found until it ends.
#include <cstdio>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include "evidence/engineWatch.h"
#include "support/FakeKernel.h"

namespace {

const std::string kCgroup = "/sys/fs/cgroup";

class EngineWatchTest : public testing::Test {
protected:
    EngineWatchTest() {
        kernel.write("/proc/self/mountinfo", "30 23 0:26 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n");
        kernel.write(kProcess + "/cgroup", "0::/load\n");
        groups.emplace();
        run();
    }

    void run(double ran = 0, char state = 'S', std::uint64_t startTicks = 5000, int exitStatus = 0) {
        FakeKernel::Thread thread;
        thread.ran = ran;
        thread.state = state;
        thread.turns = 10 + static_cast<std::uint64_t>(1000 * ran);
        thread.startTicks = startTicks;
        thread.exitStatus = exitStatus;
        kernel.run(thread);
    }

    static FoundEngine found(std::uint64_t majorFaults = 0, std::size_t chosenBy = kByRule) {
        return {{kPid, 5000}, "PMLoadEngineMai", chosenBy, majorFaults};
    }

    // An interval as the sampler takes it; `slow` reads what changes seldom first.
    std::optional<EngineEvidence> sample(EngineWatch& watch, bool slow = true, std::uint64_t majorFaults = 0) {
        kernel.now += 0.25;
        time += 0.25;
        if (slow) watch.readSlowSignals(found(majorFaults), *groups, network);
        groups->sample(slow);
        return watch.sample({}, *groups, time);
    }

    FakeKernel kernel;
    std::optional<Groups> groups;  // once the mounts are there
    Network network;
    double time = 0;
};

TEST_F(EngineWatchTest, IntervalsFollowEachOther) {
    EngineWatch watch(found(), {}, 0);
    auto evidence = sample(watch);
    ASSERT_TRUE(evidence);
    EXPECT_EQ(evidence->from, 0);
    EXPECT_EQ(evidence->to, 0.25);
    EXPECT_EQ(evidence->key.pid, kPid);
    EXPECT_EQ(evidence->name, "PMLoadEngineMai");
    run(0.1);
    evidence = sample(watch);
    ASSERT_TRUE(evidence);
    EXPECT_EQ(evidence->from, 0.25);
    ASSERT_TRUE(evidence->busiest);
    EXPECT_NEAR(evidence->busiest->parts.running, 0.1, 1e-6);
    EXPECT_EQ(watch.threadCount(), 1u);
}

TEST_F(EngineWatchTest, PagesFromADiskAreToldOnce) {
    EngineWatch watch(found(100), {}, 0);
    EXPECT_EQ(sample(watch, true, 100)->majorFaults, 0u);
    auto evidence = sample(watch, true, 130);
    EXPECT_EQ(evidence->majorFaults, 30u);
    EXPECT_TRUE(evidence->faulting);
    evidence = sample(watch, false);
    EXPECT_EQ(evidence->majorFaults, 0u);
    EXPECT_TRUE(evidence->faulting) << "they were counted once a second";
    EXPECT_FALSE(sample(watch, true, 130)->faulting);
    EXPECT_TRUE(sample(watch, true, 131)->faulting) << "a single one";
    EXPECT_EQ(sample(watch, true, 5)->majorFaults, 0u) << "a counter of 32 bits has begun again";
}

TEST_F(EngineWatchTest, DescriptorsAreToldWithTheirLimitAndAsAShareOfIt) {
    kernel.write(kProcess + "/limits", "Max open files            10                 20              files\n");
    for (int i = 0; i < 7; ++i) kernel.write(kProcess + "/fd/" + std::to_string(i), "");
    EngineWatch watch(found(), {}, 0);
    auto evidence = sample(watch);
    EXPECT_EQ(evidence->descriptorShare, 0.7);
    ASSERT_TRUE(evidence->descriptors);
    EXPECT_EQ(evidence->descriptors->used, 7);
    EXPECT_EQ(evidence->descriptors->limit, 10) << "the one in force, not the one that it may be raised to";
    kernel.hide(kProcess + "/fd");
    evidence = sample(watch);
    EXPECT_FALSE(evidence->descriptorShare || evidence->descriptors);
}

TEST_F(EngineWatchTest, StrangeLimitsAreNotKnown) {
    kernel.write(kProcess + "/fd/0", "");
    EngineWatch watch(found(), {}, 0);
    for (const char* const text :
         {"", "Max open files            0        0      files\n", "Max open files  x x files\n"}) {
        kernel.write(kProcess + "/limits", text);
        EXPECT_FALSE(sample(watch)->descriptorShare) << text;
    }
}

TEST_F(EngineWatchTest, AQuotaIsTakenOutOfWhatItsThreadsWaited) {
    kernel.write(kCgroup + "/load/cpu.stat", "usage_usec 1\nnr_periods 1\nnr_throttled 0\nthrottled_usec 0\n");
    EngineWatch watch(found(), {}, 0);
    sample(watch);
    sample(watch);
    kernel.write(kCgroup + "/load/cpu.stat", "usage_usec 1\nnr_periods 3\nnr_throttled 2\nthrottled_usec 120000\n");
    FakeKernel::Thread waits;
    waits.turns = 30;
    waits.waited = 0.15;
    kernel.run(waits);
    const auto evidence = sample(watch);
    ASSERT_TRUE(evidence && evidence->busiest);
    EXPECT_NEAR(evidence->busiest->parts.throttled, 0.12, 1e-6);
    EXPECT_NEAR(evidence->busiest->parts.waiting, 0.03, 1e-6);
    EXPECT_EQ(evidence->group.timesThrottled, 2u);
}

// Of another namespace's ports the range is not known, so that there may be fewer in use than the share tells.
TEST_F(EngineWatchTest, PortsAreToldWithTheirLimitOrAsAShareAtMost) {
    kernel.link("/proc/self/ns/net", "net:[1]");
    kernel.link(kProcess + "/ns/net", "net:[1]");
    kernel.write("/proc/sys/net/ipv4/ip_local_port_range", "40000\t40099\n");
    kernel.write(kProcess + "/net/sockstat", "TCP: inuse 8 orphan 0 tw 0 alloc 9 mem 1\n");
    network = Network();
    EngineWatch watch(found(), {}, 0);
    auto evidence = sample(watch);
    EXPECT_EQ(evidence->portShare, 0.08);
    ASSERT_TRUE(evidence->ports);
    EXPECT_EQ(evidence->ports->used, 8);
    EXPECT_EQ(evidence->ports->limit, 100);
    EXPECT_FALSE(evidence->portsAtMost);

    kernel.remove(kProcess + "/ns/net");
    kernel.link(kProcess + "/ns/net", "net:[2]");
    network.refresh();
    evidence = sample(watch);
    EXPECT_EQ(evidence->portShare, 0.25) << "of 32 ports at least";
    EXPECT_FALSE(evidence->ports);
    EXPECT_TRUE(evidence->portsAtMost);
}

TEST_F(EngineWatchTest, WhatStandsInForAnEngineIsToldApart) {
    FoundEngine command = found();
    EngineWatch engine(command, {}, 0);
    EXPECT_FALSE(sample(engine)->standIn);
    command.standIn = true;
    EngineWatch standIn(command, {}, 0);
    EXPECT_TRUE(standIn.sample({}, *groups, 1)->standIn);
}

// Whether they are blocked is looked at between two samples, which would cost too much all the time.
TEST_F(EngineWatchTest, ThreadsThatPagesCameFromADiskForMayHaveBeenBlocked) {
    EngineWatch watch(found(), {}, 0);
    sample(watch);
    double ran = 0;
    const auto blockedWith = [&](std::uint64_t majorFaults) {
        run(ran += 0.01);
        sample(watch, true, majorFaults);
        run(ran += 0.01, 'D');
        for (int look = 0; look < 4; ++look) watch.look(0.010);
        run(ran += 0.01);
        return sample(watch, false)->busiest->parts.blocked;
    };
    EXPECT_EQ(blockedWith(0), 0);
    EXPECT_NEAR(blockedWith(30), 0.2, 1e-6) << "four of five looks";
}

// The kept descriptors read on; what would have to be opened anew cannot be.
TEST_F(EngineWatchTest, AccountsThatAreHiddenAreNotReadable) {
    kernel.hide(kProcess);
    EngineWatch watch(found(), {}, 0);
    for (int i = 0; i < 3; ++i) {
        const auto evidence = sample(watch);
        ASSERT_TRUE(evidence) << "it may run";
        EXPECT_FALSE(evidence->readable);
        EXPECT_FALSE(evidence->busiest);
        EXPECT_FALSE(evidence->group.throttled || evidence->descriptorShare || evidence->portShare || evidence->ports);
    }
}

TEST_F(EngineWatchTest, AccountsThatBecomeUnreadableAreNotReadableFromThenOn) {
    EngineWatch watch(found(), {}, 0);
    sample(watch);
    EXPECT_TRUE(sample(watch)->readable);
    kernel.write(kProcess + "/task/" + std::to_string(kPid) + "/schedstat", "");
    const auto evidence = sample(watch);
    ASSERT_TRUE(evidence);
    EXPECT_FALSE(evidence->readable);
    EXPECT_FALSE(evidence->busiest);
}

// --- its end --------------------------------------------------------------------------------------------------------

TEST_F(EngineWatchTest, EndsWithItsLastThread) {
    EngineWatch watch(found(), {}, 0);
    ASSERT_TRUE(sample(watch));
    kernel.end(kPid);
    EXPECT_FALSE(sample(watch, false));
    const EngineEnd end = watch.end(*groups, 7.5);
    EXPECT_EQ(end.key.pid, kPid);
    EXPECT_EQ(end.name, "PMLoadEngineMai");
    EXPECT_EQ(end.time, 7.5);
    EXPECT_FALSE(end.status);
    EXPECT_FALSE(end.zombie);
    EXPECT_FALSE(end.descendant);
}

TEST_F(EngineWatchTest, AZombieTellsItsStatus) {
    const struct {
        int written;
        std::optional<int> status;
    } rows[] = {{9, 9}, {0x0100, 0x0100}, {0xFFFF, 0xFFFF}, {0, std::nullopt}, {0x10000, std::nullopt}};
    for (const auto& row : rows) {
        run();
        EngineWatch watch(found(), {}, 0);
        ASSERT_TRUE(sample(watch));
        run(0.1, 'Z', 5000, row.written);
        EXPECT_FALSE(sample(watch));
        const EngineEnd end = watch.end(*groups, 1);
        EXPECT_TRUE(end.zombie);
        EXPECT_EQ(end.status, row.status) << row.written;
    }
}

// Since Linux 6.15, by a descriptor of the process, which is closed with the watch.
TEST_F(EngineWatchTest, TheStatusIsKnownThoughTheParentHasAskedForIt) {
    const auto openDescriptors = [] {
        int count = 0;
        for (int i = 0; i < 256; ++i) count += fcntl(i, F_GETFD) == -1 ? 0 : 1;
        return count;
    };
    utsname host;
    int major = 0, minor = 0;
    ASSERT_EQ(uname(&host), 0);
    ASSERT_EQ(std::sscanf(host.release, "%d.%d", &major, &minor), 2);
    const bool isKept = major > 6 || (major == 6 && minor >= 15);
    const int before = openDescriptors();

    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(1);
    }
    {
        const EngineWatch watch({{child, 5000}, "PMLoadEngineMai", kByRule, 0}, {}, 0);
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_FALSE(watch.end(*groups, 1).status) << "it runs";
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        EXPECT_EQ(watch.end(*groups, 2).status, isKept ? std::optional(SIGKILL) : std::nullopt);
    }
    EXPECT_EQ(openDescriptors(), before);
}

// Where standard input is closed, the process is opened as descriptor 0.
TEST_F(EngineWatchTest, DescriptorZeroIsClosedLikeOthers) {
    const int before = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    {
        const EngineWatch watch({{getpid(), 5000}, "PMLoadEngineMai", kByRule, 0}, {}, 0);
        EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    if (before < 0) return;
    dup2(before, STDIN_FILENO);
    close(before);
}

TEST_F(EngineWatchTest, TheStatusOfAnotherProcessIsNotIts) {
    EngineWatch watch(found(), {}, 0);
    kernel.end(kPid);
    run(0, 'Z', 6000, 9);
    const EngineEnd end = watch.end(*groups, 1);
    EXPECT_FALSE(end.zombie);
    EXPECT_FALSE(end.status);
}

// A group is often there for one engine only, which nobody asks again once it is killed.
TEST_F(EngineWatchTest, KillsForMemoryAreToldWithTheEnd) {
    const std::string events = kCgroup + "/load/memory.events";
    const auto endAfter = [&](int killsBefore, int killsInTheLastInterval, int killsAfterwards, bool slow) {
        run();
        kernel.write(kProcess + "/cgroup", "0::/load\n");
        kernel.write(events, "oom_kill 1\n");
        EngineWatch watch(found(), {}, 0);
        for (int i = 0; i < 3; ++i) sample(watch);
        kernel.write(events, "oom_kill " + std::to_string(1 + killsBefore) + "\n");
        EXPECT_EQ(sample(watch)->group.memoryKills, killsBefore);
        kernel.end(kPid);
        kernel.write(events, "oom_kill " + std::to_string(1 + killsBefore + killsInTheLastInterval) + "\n");
        EXPECT_FALSE(sample(watch, slow));
        const int all = killsBefore + killsInTheLastInterval + killsAfterwards;
        kernel.write(events, "oom_kill " + std::to_string(1 + all) + "\n");
        return watch.end(*groups, time).memoryKills;
    };
    EXPECT_EQ(endAfter(0, 0, 0, true), 0U);
    EXPECT_EQ(endAfter(3, 0, 0, true), 0U) << "those are told already";
    EXPECT_EQ(endAfter(3, 1, 0, true), 1U);
    EXPECT_EQ(endAfter(3, 1, 0, false), 1U) << "in an interval in which memory is not read";
    EXPECT_EQ(endAfter(3, 1, 1, true), 2U);
    EXPECT_EQ(endAfter(0, 0, 2, false), 2U);
}

TEST_F(EngineWatchTest, KillsForMemoryOfAGroupThatIsGoneAreKnownFromThoseAboveOnly) {
    const std::string slice = kCgroup + "/slice";
    for (const int kills : {0, 1}) {
        run();
        kernel.write(kProcess + "/cgroup", "0::/slice/load\n");
        kernel.write(slice + "/load/memory.events", "oom_kill 0\n");
        kernel.write(slice + "/memory.events", "oom_kill 5\n");
        EngineWatch watch(found(), {}, 0);
        for (int i = 0; i < 3; ++i) sample(watch);
        kernel.end(kPid);
        kernel.remove(slice + "/load");
        kernel.write(slice + "/memory.events", "oom_kill " + std::to_string(5 + kills) + "\n");
        EXPECT_FALSE(sample(watch, false));
        EXPECT_EQ(watch.end(*groups, time).memoryKills, kills == 0 ? std::nullopt : std::optional(1)) << kills;
    }
}

TEST_F(EngineWatchTest, DescendantsAreToldApart) {
    EXPECT_TRUE(EngineWatch(found(0, kAsDescendant), {}, 0).end(*groups, 1).descendant);
    EXPECT_FALSE(EngineWatch(found(0, kByPid), {}, 0).end(*groups, 1).descendant);
}

}  // namespace
