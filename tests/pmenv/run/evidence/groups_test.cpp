// The control groups of an engine: quotas and memory, of both versions, as kernels lay them out.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "evidence/groups.h"
#include "support/FakeKernel.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kCpu = "/sys/fs/cgroup/cpu";
const std::string kMemory = "/sys/fs/cgroup/memory";
const std::string kUnified = "/sys/fs/cgroup";

// As kernel 5.10 (version 1) and 6.1 (version 2) write it: so long throttled, in so many of so many periods.
std::string cpuStat1(int milliseconds, int times, int periods) {
    return "nr_periods " + std::to_string(periods) + "\nnr_throttled " + std::to_string(times) + "\nthrottled_time " +
           std::to_string(milliseconds) + "000000\n";
}
std::string cpuStat2(int milliseconds, int times, int periods) {
    return "usage_usec 1417633\nuser_usec 1019241\nsystem_usec 398392\ncore_sched.force_idle_usec 0\nnr_periods " +
           std::to_string(periods) + "\nnr_throttled " + std::to_string(times) + "\nthrottled_usec " +
           std::to_string(milliseconds) + "000\nnr_bursts 0\nburst_usec 0\n";
}
const std::string kRootCpuStat2 = "usage_usec 9417633\nuser_usec 7019241\nsystem_usec 2398392\n";

class GroupsTest : public testing::Test {
protected:
    void mount(const std::string& mounts) { kernel.write("/proc/self/mountinfo", mounts); }
    void mountVersion1(const std::string& cpu = "cpu") {
        mount(
            "31 23 0:28 / /sys/fs/cgroup ro,nosuid - tmpfs tmpfs ro,mode=755\n"
            "32 31 0:29 / /sys/fs/cgroup/" +
            cpu + " rw,relatime shared:9 - cgroup cgroup rw," + cpu +
            "\n"
            "36 31 0:33 / /sys/fs/cgroup/memory rw,relatime shared:13 - cgroup cgroup rw,memory\n");
    }
    void mountVersion2() { mount("30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - cgroup2 cgroup2 rw,nsdelegate\n"); }

    void member(const std::string& memberships) {
        kernel.write("/proc/" + std::to_string(kPid) + "/cgroup", memberships);
    }

    // The next interval, as the sampler takes it.
    GroupEvidence sample(Groups& groups, bool memory = true) {
        groups.sample(memory);
        return groups.of(groups.find(kPid));
    }
    // The next interval, once what changes is known.
    GroupEvidence begun(Groups& groups) {
        sample(groups);
        return sample(groups);
    }

    FakeKernel kernel;
};

// --- where they are -------------------------------------------------------------------------------------------------

TEST_F(GroupsTest, FindsControllersThatAreMountedApart) {
    mount(
        "32 31 0:29 / /sys/fs/cgroup/cpu rw - cgroup cgroup rw,cpu\n"
        "33 31 0:30 / /sys/fs/cgroup/cpuacct rw - cgroup cgroup rw,cpuacct\n"
        "36 31 0:33 / /sys/fs/cgroup/memory rw - cgroup cgroup rw,memory\n");
    member("3:memory:/all/load\n2:cpuacct:/elsewhere\n1:cpu:/load\n");
    const GroupPlaces places = Groups().find(kPid);
    EXPECT_THAT(places.cpu, ElementsAre(kCpu + "/load", kCpu));
    EXPECT_THAT(places.memory, ElementsAre(kMemory + "/all/load", kMemory + "/all", kMemory));
}

TEST_F(GroupsTest, FindsControllersThatAreMountedTogether) {
    mountVersion1("cpu,cpuacct");
    member("2:memory:/\n1:cpu,cpuacct:/load\n");
    const GroupPlaces places = Groups().find(kPid);
    EXPECT_THAT(places.cpu, ElementsAre(kCpu + ",cpuacct/load", kCpu + ",cpuacct"));
    EXPECT_THAT(places.memory, ElementsAre(kMemory));
}

TEST_F(GroupsTest, FindsTheOneGroupOfVersion2) {
    mountVersion2();
    member("0::/user.slice/load.scope\n");
    const GroupPlaces places = Groups().find(kPid);
    EXPECT_THAT(places.cpu, ElementsAre(kUnified + "/user.slice/load.scope", kUnified + "/user.slice", kUnified));
    EXPECT_EQ(places.memory, places.cpu);
}

TEST_F(GroupsTest, WithoutMountsOrMembershipsNothingIsKnown) {
    member("0::/load\n");
    Groups unmounted;
    EXPECT_THAT(unmounted.find(kPid).cpu, IsEmpty());
    EXPECT_FALSE(begun(unmounted).throttled);
    EXPECT_FALSE(begun(unmounted).memoryShare);

    mountVersion2();
    Groups groups;
    for (const char* const text : {"", "\n", "0::", "0:", "garbage", "0::relative\n"}) {
        member(text);
        EXPECT_THAT(groups.find(kPid).cpu, IsEmpty()) << text;
        EXPECT_FALSE(begun(groups).throttled) << text;
    }
    kernel.hide("/proc/" + std::to_string(kPid) + "/cgroup");
    EXPECT_THAT(groups.find(kPid).memory, IsEmpty());
}

// --- quotas ---------------------------------------------------------------------------------------------------------

TEST_F(GroupsTest, TellsWhatHappenedSinceTheLastIntervalInVersion1) {
    mountVersion1();
    member("1:cpu:/load\n");
    kernel.write(kCpu + "/cpu.stat", cpuStat1(0, 0, 0));
    kernel.write(kCpu + "/load/cpu.stat", cpuStat1(2880, 36, 37));
    kernel.write(kCpu + "/load/cpu.cfs_quota_us", "20000\n");
    kernel.write(kCpu + "/load/cpu.cfs_period_us", "100000\n");
    Groups groups;
    EXPECT_FALSE(begun(groups).throttled) << "nothing to compare with";
    EXPECT_FALSE(sample(groups).quota) << "not read before it matters";
    kernel.write(kCpu + "/load/cpu.stat", cpuStat1(3040, 38, 40));
    const GroupEvidence evidence = sample(groups);
    ASSERT_TRUE(evidence.throttled);
    EXPECT_NEAR(*evidence.throttled, 0.160, 1e-9);
    EXPECT_EQ(evidence.timesThrottled, 2u);
    EXPECT_EQ(evidence.periods, 3u);
    EXPECT_EQ(evidence.throttledGroup, kCpu + "/load");
    EXPECT_EQ(evidence.quota, 0.2);
    EXPECT_EQ(sample(groups).throttled, 0);
}

TEST_F(GroupsTest, TellsWhatHappenedSinceTheLastIntervalInVersion2) {
    mountVersion2();
    member("0::/load\n");
    kernel.write(kUnified + "/cpu.stat", kRootCpuStat2);
    kernel.write(kUnified + "/load/cpu.stat", cpuStat2(2880, 36, 37));
    kernel.write(kUnified + "/load/cpu.max", "50000 100000\n");
    Groups groups;
    begun(groups);
    kernel.write(kUnified + "/load/cpu.stat", cpuStat2(3040, 38, 40));
    const GroupEvidence evidence = sample(groups);
    ASSERT_TRUE(evidence.throttled);
    EXPECT_NEAR(*evidence.throttled, 0.160, 1e-9);
    EXPECT_EQ(evidence.timesThrottled, 2u);
    EXPECT_EQ(evidence.quota, 0.5);
}

// A quota of a slice holds for the scopes below it, which have none themselves.
TEST_F(GroupsTest, AnUpperGroupThrottlesThoseBelow) {
    mountVersion2();
    member("0::/load.slice/a.scope\n");
    kernel.write(kUnified + "/cpu.stat", kRootCpuStat2);
    kernel.write(kUnified + "/load.slice/cpu.stat", cpuStat2(100, 1, 1));
    kernel.write(kUnified + "/load.slice/cpu.max", "30000 100000\n");
    kernel.write(kUnified + "/load.slice/a.scope/cpu.stat", cpuStat2(0, 0, 0));
    kernel.write(kUnified + "/load.slice/a.scope/cpu.max", "max 100000\n");
    Groups groups;
    begun(groups);
    kernel.write(kUnified + "/load.slice/cpu.stat", cpuStat2(250, 3, 3));
    const GroupEvidence evidence = sample(groups);
    ASSERT_TRUE(evidence.throttled);
    EXPECT_NEAR(*evidence.throttled, 0.150, 1e-9);
    EXPECT_EQ(evidence.throttledGroup, kUnified + "/load.slice");
    EXPECT_EQ(evidence.quota, 0.3);
}

TEST_F(GroupsTest, OfTwoQuotasTheLongerThrottledIsTold) {
    mountVersion2();
    member("0::/a/b\n");
    kernel.write(kUnified + "/a/cpu.stat", cpuStat2(0, 0, 0));
    kernel.write(kUnified + "/a/b/cpu.stat", cpuStat2(0, 0, 0));
    Groups groups;
    begun(groups);
    kernel.write(kUnified + "/a/cpu.stat", cpuStat2(20, 1, 2));
    kernel.write(kUnified + "/a/b/cpu.stat", cpuStat2(90, 2, 2));
    EXPECT_EQ(sample(groups).throttledGroup, kUnified + "/a/b");
    kernel.write(kUnified + "/a/cpu.stat", cpuStat2(120, 2, 4));
    kernel.write(kUnified + "/a/b/cpu.stat", cpuStat2(95, 3, 4));
    EXPECT_EQ(sample(groups).throttledGroup, kUnified + "/a");
}

// In version 1 the quota of a group without one is -1; version 2 says max.
TEST_F(GroupsTest, WithoutAQuotaNothingIsThrottled) {
    mountVersion1();
    member("1:cpu:/load\n");
    kernel.write(kCpu + "/load/cpu.stat", cpuStat1(0, 0, 0));
    kernel.write(kCpu + "/load/cpu.cfs_quota_us", "-1\n");
    Groups groups;
    begun(groups);
    const GroupEvidence evidence = sample(groups);
    EXPECT_EQ(evidence.throttled, 0);
    EXPECT_FALSE(evidence.quota);
}

// The quota is read after it was used up, and may be gone then.
TEST_F(GroupsTest, AQuotaWithoutBothItsNumbersIsNotKnown) {
    mountVersion1();
    member("1:cpu:/load\n");
    const std::pair<const char*, const char*> rows[] = {
        {"20000\n", "0\n"}, {"-1\n", "100000\n"}, {"20000\n", ""}, {"", ""}};
    for (const auto& [quota, period] : rows) {
        kernel.write(kCpu + "/load/cpu.stat", cpuStat1(0, 0, 0));
        kernel.write(kCpu + "/load/cpu.cfs_quota_us", quota);
        kernel.write(kCpu + "/load/cpu.cfs_period_us", period);
        Groups groups;
        begun(groups);
        kernel.write(kCpu + "/load/cpu.stat", cpuStat1(160, 2, 3));
        const GroupEvidence evidence = sample(groups);
        ASSERT_TRUE(evidence.throttled);
        EXPECT_GT(*evidence.throttled, 0);
        EXPECT_FALSE(evidence.quota) << quota << period;
    }
}

TEST_F(GroupsTest, TheQuotaIsReadForTheLeastThatItKeptFromRunning) {
    mountVersion1();
    member("1:cpu:/load\n");
    kernel.write(kCpu + "/load/cpu.stat", cpuStat1(0, 0, 0));
    kernel.write(kCpu + "/load/cpu.cfs_quota_us", "20000\n");
    kernel.write(kCpu + "/load/cpu.cfs_period_us", "100000\n");
    Groups groups;
    begun(groups);
    kernel.write(kCpu + "/load/cpu.stat", "nr_periods 1\nnr_throttled 1\nthrottled_time 1\n");
    EXPECT_EQ(sample(groups).quota, 0.2);
}

// A group is throttled with the one above it; the engine's own is told.
TEST_F(GroupsTest, OfGroupsThatWereThrottledAlikeTheInnerOneIsTold) {
    mountVersion1();
    member("1:cpu:/load/inner\n");
    for (const char* const group : {"/load", "/load/inner"}) {
        kernel.write(kCpu + group + "/cpu.stat", cpuStat1(0, 0, 0));
    }
    Groups groups;
    begun(groups);
    for (const char* const group : {"/load", "/load/inner"}) {
        kernel.write(kCpu + group + "/cpu.stat", cpuStat1(160, 2, 3));
    }
    EXPECT_EQ(sample(groups).throttledGroup, kCpu + "/load/inner");
}

TEST_F(GroupsTest, CountersThatGoBackAreNotKnown) {
    mountVersion1();
    member("1:cpu:/load\n");
    kernel.write(kCpu + "/load/cpu.stat", cpuStat1(5000, 50, 60));
    Groups groups;
    begun(groups);
    ASSERT_TRUE(sample(groups).throttled);
    for (const std::string& text : {cpuStat1(10, 50, 60), cpuStat1(5000, 4, 60), cpuStat1(5000, 50, 6)}) {
        kernel.write(kCpu + "/load/cpu.stat", cpuStat1(5000, 50, 60));
        begun(groups);
        kernel.write(kCpu + "/load/cpu.stat", text);
        EXPECT_FALSE(sample(groups).throttled) << text;
        EXPECT_EQ(sample(groups).throttled, 0) << text;
    }
}

TEST_F(GroupsTest, AGroupMayVanishAndComeBack) {
    mountVersion2();
    member("0::/load\n");
    kernel.write(kUnified + "/load/cpu.stat", cpuStat2(100, 1, 1));
    kernel.write(kUnified + "/load/memory.events", "oom_kill 5\n");
    Groups groups;
    begun(groups);
    ASSERT_TRUE(sample(groups).throttled);
    kernel.remove(kUnified + "/load");
    EXPECT_FALSE(sample(groups).throttled);
    EXPECT_FALSE(sample(groups).memoryKills);
    kernel.write(kUnified + "/load/cpu.stat", cpuStat2(900, 9, 9));
    kernel.write(kUnified + "/load/memory.events", "oom_kill 7\n");
    EXPECT_FALSE(sample(groups).throttled) << "of the new group nothing is known yet";
    EXPECT_EQ(sample(groups).throttled, 0);
    EXPECT_EQ(sample(groups).memoryKills, 0u);
}

TEST_F(GroupsTest, AnEngineMayMoveToAnotherGroup) {
    mountVersion2();
    member("0::/a\n");
    kernel.write(kUnified + "/a/cpu.stat", cpuStat2(700, 7, 7));
    kernel.write(kUnified + "/b/cpu.stat", cpuStat2(100, 1, 1));
    Groups groups;
    begun(groups);
    member("0::/b\n");
    EXPECT_FALSE(sample(groups).throttled);
    sample(groups);
    kernel.write(kUnified + "/b/cpu.stat", cpuStat2(150, 2, 2));
    EXPECT_NEAR(sample(groups).throttled.value_or(0), 0.050, 1e-9);
}

// A watch of days sees many groups come and go.
TEST_F(GroupsTest, GroupsThatNoEngineIsInAreNotReadAnyMore) {
    mountVersion2();
    member("0::/a\n");
    kernel.write(kUnified + "/a/cpu.stat", cpuStat2(0, 0, 0));
    kernel.write(kUnified + "/b/cpu.stat", cpuStat2(0, 0, 0));
    Groups groups;
    begun(groups);
    kernel.remove(kUnified + "/a");
    member("0::/b\n");
    begun(groups);
    int asked = 0;
    kernel.before = [&asked](const std::string& path) { asked += path.find("/cgroup/a/") != path.npos ? 1 : 0; };
    begun(groups);
    EXPECT_EQ(asked, 0);
}

TEST_F(GroupsTest, WhatIsNoSuchFileIsNotKnown) {
    mountVersion2();
    member("0::/load\n");
    const std::string file = kUnified + "/load/cpu.stat";
    const std::string whole = cpuStat2(5000, 50, 60);
    for (const std::string& text :
         {std::string(), std::string("\n"), std::string(200000, 'x'), whole.substr(0, 90), std::string("nr_periods 5"),
          std::string("nr_periods 9\nnr_throttled 9\nthrottled_usec 99999999999999999999\n")}) {
        kernel.write(file, cpuStat2(10, 1, 1));
        Groups groups;
        begun(groups);
        ASSERT_TRUE(sample(groups).throttled);
        kernel.write(file, text);
        const auto throttled = sample(groups).throttled;
        EXPECT_FALSE(throttled) << text.substr(0, 100) << " told " << throttled.value_or(-1);
    }
    kernel.write(file, whole);
    kernel.hide(file);
    Groups groups;
    begun(groups);
    EXPECT_FALSE(sample(groups).throttled);
}

// What stands behind the wanted lines may be as long as it likes.
TEST_F(GroupsTest, AHugeFileIsReadFromItsBeginning) {
    mountVersion2();
    member("0::/load\n");
    kernel.write(kUnified + "/load/cpu.stat", cpuStat2(0, 0, 0) + std::string(300000, 'x'));
    Groups groups;
    begun(groups);
    kernel.write(kUnified + "/load/cpu.stat", cpuStat2(70, 1, 1) + std::string(300000, 'x'));
    EXPECT_NEAR(sample(groups).throttled.value_or(0), 0.070, 1e-9);
}

// --- memory ---------------------------------------------------------------------------------------------------------

TEST_F(GroupsTest, TellsMemoryAndKillsOfVersion1) {
    mountVersion1();
    member("2:memory:/load\n");
    kernel.write(kMemory + "/load/memory.usage_in_bytes", "750\n");
    kernel.write(kMemory + "/load/memory.limit_in_bytes", "1000\n");
    kernel.write(kMemory + "/load/memory.oom_control", "oom_kill_disable 0\nunder_oom 0\noom_kill 3\n");
    kernel.write(kMemory + "/memory.usage_in_bytes", "9000\n");
    kernel.write(kMemory + "/memory.limit_in_bytes", "9223372036854771712\n");
    Groups groups;
    const GroupEvidence evidence = begun(groups);
    EXPECT_EQ(evidence.memoryShare, 0.75);
    ASSERT_TRUE(evidence.memory);
    EXPECT_EQ(evidence.memory->used, 750);
    EXPECT_EQ(evidence.memory->limit, 1000);
    kernel.write(kMemory + "/load/memory.oom_control", "oom_kill_disable 0\nunder_oom 1\noom_kill 5\n");
    EXPECT_EQ(sample(groups).memoryKills, 2u);
    EXPECT_EQ(sample(groups).memoryKills, 0u);
}

TEST_F(GroupsTest, TellsMemoryAndKillsOfVersion2) {
    mountVersion2();
    member("0::/load.slice/a.scope\n");
    const std::string slice = kUnified + "/load.slice", scope = slice + "/a.scope";
    kernel.write(scope + "/memory.current", "600\n");
    kernel.write(scope + "/memory.max", "max\n");
    kernel.write(scope + "/memory.events", "low 0\nhigh 0\nmax 31\noom 2\noom_kill 0\noom_group_kill 0\n");
    kernel.write(slice + "/memory.current", "900\n");
    kernel.write(slice + "/memory.max", "1000\n");
    kernel.write(slice + "/memory.events", "low 0\nhigh 0\nmax 31\noom 2\noom_kill 1\noom_group_kill 0\n");
    Groups groups;
    const GroupEvidence evidence = begun(groups);
    EXPECT_EQ(evidence.memoryShare, 0.9) << "the upper group has the limit";
    ASSERT_TRUE(evidence.memory);
    EXPECT_EQ(evidence.memory->used, 900);
    EXPECT_EQ(evidence.memory->limit, 1000);
    kernel.write(slice + "/memory.events", "low 0\nhigh 0\nmax 35\noom 3\noom_kill 2\noom_group_kill 0\n");
    EXPECT_EQ(sample(groups).memoryKills, 1u);
}

TEST_F(GroupsTest, MemoryWithoutALimitIsUsedUpNowhere) {
    mountVersion2();
    member("0::/load\n");
    kernel.write(kUnified + "/load/memory.current", "123456789\n");
    for (const char* const none : {"max", "9223372036854771712", "4611686018427387904"}) {
        kernel.write(kUnified + "/load/memory.max", none);
        Groups groups;
        const GroupEvidence evidence = begun(groups);
        EXPECT_EQ(evidence.memoryShare, 0) << none;
        ASSERT_TRUE(evidence.memory);
        EXPECT_EQ(evidence.memory->used, 123456789);
        EXPECT_FALSE(evidence.memory->limit) << none;
    }
}

TEST_F(GroupsTest, MemoryIsThatOfTheGroupNearestToItsLimit) {
    mountVersion2();
    member("0::/a/b/c\n");
    const std::pair<const char*, const char*> groupsUpwards[] = {{"/a/b/c", "max"}, {"/a/b", "2000"}, {"/a", "1250"}};
    int used = 0;
    for (const auto& [group, limit] : groupsUpwards) {
        kernel.write(kUnified + group + "/memory.current", std::to_string(used += 500));
        kernel.write(kUnified + group + "/memory.max", limit);
    }
    kernel.write(kUnified + "/a/memory.current", "600");
    Groups groups;
    const GroupEvidence evidence = begun(groups);
    ASSERT_TRUE(evidence.memory);
    EXPECT_EQ(evidence.memory->used, 1000);
    EXPECT_EQ(evidence.memory->limit, 2000);
    EXPECT_EQ(evidence.memoryShare, 0.5);
}

TEST_F(GroupsTest, OfGroupsThatAreAsNearToTheirLimitsTheInnerOneIsTold) {
    mountVersion2();
    member("0::/a/b\n");
    kernel.write(kUnified + "/a/b/memory.current", "500");
    kernel.write(kUnified + "/a/b/memory.max", "1000");
    kernel.write(kUnified + "/a/memory.current", "1000");
    kernel.write(kUnified + "/a/memory.max", "2000");
    Groups groups;
    const GroupEvidence evidence = begun(groups);
    ASSERT_TRUE(evidence.memory);
    EXPECT_EQ(evidence.memory->limit, 1000);
}

TEST_F(GroupsTest, MemoryIsReadWhenItIsAskedFor) {
    mountVersion2();
    member("0::/load\n");
    kernel.write(kUnified + "/load/memory.events", "oom_kill 1\n");
    Groups groups;
    begun(groups);
    kernel.write(kUnified + "/load/memory.events", "oom_kill 2\n");
    EXPECT_FALSE(sample(groups, false).memoryKills);
    EXPECT_EQ(sample(groups, true).memoryKills, 1u) << "told once, at the next time";
    EXPECT_FALSE(sample(groups, false).memoryKills);
}

TEST_F(GroupsTest, StrangeMemoryFilesAreNotKnown) {
    mountVersion2();
    member("0::/load\n");
    const std::string load = kUnified + "/load";
    const struct {
        const char* current;
        const char* max;
    } rows[] = {{"", "1000"}, {"100", ""}, {"x", "1000"}, {"100", "-1"}, {"100", "0"}, {"-5", "max"}};
    for (const auto& row : rows) {
        kernel.write(load + "/memory.current", row.current);
        kernel.write(load + "/memory.max", row.max);
        Groups groups;
        EXPECT_FALSE(begun(groups).memoryShare) << row.current << " of " << row.max;
    }
}

TEST_F(GroupsTest, KillsThatGoBackAreNotKnown) {
    mountVersion2();
    member("0::/load\n");
    kernel.write(kUnified + "/load/memory.events", "oom_kill 9\n");
    Groups groups;
    begun(groups);
    for (const char* const text : {"oom_kill 2\n", "", "oom_kill x\n", "oom 5\n"}) {
        kernel.write(kUnified + "/load/memory.events", text);
        EXPECT_FALSE(sample(groups).memoryKills) << text;
    }
}

}  // namespace
