// Control groups of both versions: where a process's group lies, and what its files tell.
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "kernel/groupFiles.h"

using namespace kernel;

namespace {

// --- where ----------------------------------------------------------------------------------------------------------

constexpr char kApart[] =
    "31 23 0:28 / /sys/fs/cgroup rw,relatime - tmpfs tmpfs rw,mode=755\n"
    "32 31 0:29 / /sys/fs/cgroup/cpu rw,relatime shared:9 master:1 - cgroup cgroup rw,cpu\n"
    "33 31 0:30 / /sys/fs/cgroup/cpuacct rw,relatime - cgroup cgroup rw,cpuacct\n"
    "36 31 0:33 / /sys/fs/cgroup/memory rw,relatime - cgroup cgroup rw,memory\n"
    "41 31 0:38 / /sys/fs/cgroup/unified rw,relatime - cgroup2 cgroup2 rw\n";
constexpr char kTogether[] =
    "32 31 0:29 / /sys/fs/cgroup/cpu,cpuacct rw,relatime - cgroup cgroup rw,cpu,cpuacct\n"
    "36 31 0:33 / /sys/fs/cgroup/memory rw,relatime - cgroup cgroup rw,memory\n";
constexpr char kVersion2[] = "30 23 0:26 / /sys/fs/cgroup rw,nosuid shared:4 - cgroup2 cgroup2 rw,nsdelegate\n";
// A container whose own group is mounted as the root.
constexpr char kContainer[] = "60 50 0:29 /docker/ab12 /sys/fs/cgroup/cpu ro - cgroup cgroup rw,cpu\n";
constexpr char kEscaped[] = "30 23 0:26 / /mnt/a\\040b\\134c rw - cgroup2 none rw\n";

std::string directory(const char* memberships, const char* mounts, const char* controller) {
    const auto place = findGroup(parseMemberships(memberships), parseGroupMounts(mounts), controller);
    return place ? place->directory : "none";
}

TEST(FindGroup, UnescapesNamesOfMounts) {
    const auto mountedAt = [](const std::string& place) {
        const std::string mounts = "30 23 0:26 / " + place + " rw - cgroup2 none rw\n";
        return directory("0::/\n", mounts.c_str(), "cpu");
    };
    EXPECT_EQ(mountedAt("/mnt/end\\040"), "/mnt/end ");
    EXPECT_EQ(mountedAt("/mnt/\\377x"), "/mnt/\xffx");
    EXPECT_EQ(mountedAt("/mnt/\\400x"), "/mnt/\\400x") << "no byte has that number";
    EXPECT_EQ(mountedAt("/mnt/\\04"), "/mnt/\\04") << "cut";
    EXPECT_EQ(mountedAt("/mnt/a123"), "/mnt/a123");
}

TEST(FindGroup, FindsTheDirectoryOfTheController) {
    const struct {
        const char* memberships;
        const char* mounts;
        const char* controller;
        const char* directory;
    } rows[] = {
        {"2:cpuacct:/\n1:cpu:/team/x\n0::/\n", kApart, "cpu", "/sys/fs/cgroup/cpu/team/x"},
        {"1:cpu:/\n", kApart, "cpu", "/sys/fs/cgroup/cpu"},
        {"4:memory:/a:b/c\n", kApart, "memory", "/sys/fs/cgroup/memory/a:b/c"},
        {"5:cpu,cpuacct:/x\n", kTogether, "cpu", "/sys/fs/cgroup/cpu,cpuacct/x"},
        {"0::/user.slice/app.scope\n", kVersion2, "cpu", "/sys/fs/cgroup/user.slice/app.scope"},
        {"0::/user.slice\n", kVersion2, "memory", "/sys/fs/cgroup/user.slice"},
        {"1:cpu:/docker/ab12\n", kContainer, "cpu", "/sys/fs/cgroup/cpu"},
        {"1:cpu:/docker/ab12/sub\n", kContainer, "cpu", "/sys/fs/cgroup/cpu/sub"},
        {"0::/x\n", kEscaped, "cpu", "/mnt/a b\\c/x"},
        {"0::/x\n", kApart, "cpu", "/sys/fs/cgroup/unified/x"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(directory(row.memberships, row.mounts, row.controller), row.directory)
            << row.memberships << row.mounts;
    }
}

TEST(FindGroup, IsEmptyForWhatIsNotMounted) {
    const struct {
        const char* memberships;
        const char* mounts;
    } rows[] = {
        {"", kApart},
        {"1:cpu:/x\n", ""},
        {"1:cpu:/x\n", kVersion2},              // version 1, but mounted is version 2
        {"0::/x\n", kTogether},                 // and the other way
        {"1:cpuset:/x\n", kApart},              // another controller
        {"1:cpu:/docker/ab123\n", kContainer},  // a neighbour with a longer name
        {"1:cpu:/elsewhere\n", kContainer},
        {"1:cpu:/../../x\n", kApart},  // outside of the namespace
        {"x:cpu:/x\n", kApart},
        {"1:cpu\n", kApart},
        {"1:cpu:x\n", kApart},
        {"1:cpu:/x\n", "32 31 0:29 / /sys/fs/cgroup/cpu rw,relatime cgroup cgroup rw,cpu\n"},
        {"1:cpu:/x\n", "32 31 0:29\n"},
        {"1:cpu:/x\n", "32 31 0:29 / /cpu rw - tmpfs none rw,cpu\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(directory(row.memberships, row.mounts, "cpu"), "none") << row.memberships << row.mounts;
}

TEST(FindGroup, TellsWhereTheWayUpEnds) {
    const auto place = findGroup(parseMemberships("1:cpu:/a/b\n"), parseGroupMounts(kApart), "cpu");
    ASSERT_TRUE(place);
    EXPECT_EQ(place->top, "/sys/fs/cgroup/cpu");
    EXPECT_FALSE(place->version2);
}

// --- what -----------------------------------------------------------------------------------------------------------

TEST(ParseThrottling, OfBothVersionsInNanoseconds) {
    const auto first = parseThrottling("nr_periods 37\nnr_throttled 36\nthrottled_time 2880000000\n");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->nanoseconds, 2880000000u);
    EXPECT_EQ(first->times, 36u);
    EXPECT_EQ(first->periods, 37u);
    const auto second = parseThrottling(
        "usage_usec 5\nuser_usec 3\nsystem_usec 2\nnr_periods 9\nnr_throttled 4\nthrottled_usec 1500\nnr_bursts 0\n");
    ASSERT_TRUE(second);
    EXPECT_EQ(second->nanoseconds, 1500000u);
    EXPECT_EQ(second->times, 4u);
}

TEST(ParseThrottling, AGroupWithoutAQuotaIsNeverThrottled) {
    const auto none = parseThrottling("usage_usec 5\nuser_usec 3\nsystem_usec 2\n");
    ASSERT_TRUE(none);
    EXPECT_EQ(none->nanoseconds, 0u);
    EXPECT_EQ(none->times, 0u);
}

TEST(ParseThrottling, RefusesOtherTexts) {
    for (const char* const row :
         {"", "\n", "nr_throttled 4\n", "throttled_time 4\n", "nr_throttled 4\nthrottled_time 4\n",
          "nr_periods 1\nthrottled_time x\nnr_throttled 4\n", "nr_periods 1\nthrottled_time 5\nnr_throttled -4\n",
          "nr_periods 1\nxthrottled_usec 5\nnr_throttled 4\n", "usage_usec 5\nnr_periods 9\nnr_thr"}) {
        EXPECT_FALSE(parseThrottling(row)) << row;
    }
    EXPECT_EQ(
        parseThrottling("nr_periods 9\nthrottled_usec 18446744073709551615\nnr_throttled 4\n")->nanoseconds / 1000,
        std::numeric_limits<std::uint64_t>::max() / 1000);
}

TEST(ParseMemoryKills, OfBothVersions) {
    EXPECT_EQ(parseMemoryKills("low 0\nhigh 3\nmax 9\noom 2\noom_kill 1\noom_group_kill 0\n"), 1u);
    EXPECT_EQ(parseMemoryKills("oom_kill_disable 0\nunder_oom 0\noom_kill 4\n"), 4u);
    for (const char* const row : {"", "oom_kill\n", "oom_kill x\n", "oom_kill_disable 0\n"})
        EXPECT_FALSE(parseMemoryKills(row)) << row;
}

TEST(ParseSingleNumber, TakesMaxAsTheLargest) {
    EXPECT_EQ(parseSingleNumber("4096\n"), 4096u);
    EXPECT_EQ(parseSingleNumber("max\n"), std::numeric_limits<std::uint64_t>::max());
    for (const char* const row : {"", "\n", "-1\n", "1 2\n", "maximum\n", " 1\n"})
        EXPECT_FALSE(parseSingleNumber(row)) << row;
}

TEST(ParseCpuMax, TellsProcessors) {
    EXPECT_EQ(parseCpuMax("20000 100000\n"), 0.2);
    for (const char* const row : {"max 100000\n", "", "20000\n", "20000 0\n", "-1 100000\n"})
        EXPECT_FALSE(parseCpuMax(row)) << row;
}

}  // namespace
