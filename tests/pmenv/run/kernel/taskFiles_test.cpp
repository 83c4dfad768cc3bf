// The accounts of processes and threads: accepted and refused texts.
#include <limits>

#include <gtest/gtest.h>

#include "kernel/taskFiles.h"

using kernel::parseDescriptorLimit;
using kernel::parseSchedStat;
using kernel::parseSleeps;
using kernel::parseTaskStat;

namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

// The fields 4 to 22 of a stat file: parent 7, major faults 12, user 30, system 40, threads 5, start 9000.
const std::string kFields = " 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000";
// 23 to 52: block I/O delay 250, exit status 9.
const std::string kLaterFields = " 2617344 300 4294967295 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 250 0 0 0 0 0 0 0 0 0 9";

TEST(ParseTaskStat, TakesTheFieldsBehindTheLastParenthesis) {
    const struct {
        std::string in;
        std::string name;
        char state;
    } rows[] = {
        {"77 (sh) S" + kFields, "sh", 'S'},
        {"77 (a (b) c) R" + kFields, "a (b) c", 'R'},
        {"77 () D" + kFields, "", 'D'},
        {"77 (x) S 1 2 (y) T" + kFields, "x) S 1 2 (y", 'T'},
        {"77 (line\nend) Z" + kFields, "line\nend", 'Z'},
        {"77 (\xff\x01) t" + kFields + "\n", "\xff\x01", 't'},
    };
    for (const auto& row : rows) {
        const auto stat = parseTaskStat(row.in);
        ASSERT_TRUE(stat) << row.in;
        EXPECT_EQ(stat->id, 77) << row.in;
        EXPECT_EQ(stat->name, row.name) << row.in;
        EXPECT_EQ(stat->state, row.state) << row.in;
        EXPECT_EQ(stat->parent, 7) << row.in;
        EXPECT_EQ(stat->majorFaults, 12u) << row.in;
        EXPECT_EQ(stat->ticks, 70u) << row.in;
        EXPECT_EQ(stat->threads, 5u) << row.in;
        EXPECT_EQ(stat->startTicks, 9000u) << row.in;
    }
}

TEST(ParseTaskStat, LaterFieldsAreUnknownOnOlderKernels) {
    const auto old = parseTaskStat("77 (sh) S" + kFields);
    ASSERT_TRUE(old);
    EXPECT_FALSE(old->blockedTicks);
    EXPECT_FALSE(old->exitStatus);
    const auto now = parseTaskStat("77 (sh) S" + kFields + kLaterFields + " and more\n");
    ASSERT_TRUE(now);
    EXPECT_EQ(now->blockedTicks, 250u);
    EXPECT_EQ(now->exitStatus, 9u);
}

TEST(ParseTaskStat, AnIdMayBeAsLargeAsAnInt) {
    const auto stat = parseTaskStat("2147483647 (sh) S" + kFields);
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->id, 2147483647);
    EXPECT_FALSE(parseTaskStat("2147483648 (sh) S" + kFields));
}

TEST(ParseTaskStat, RefusesWhatIsCutOrNoSuchFile) {
    const std::string whole = "77 (sh) S" + kFields;
    for (std::size_t length = 0; length + 4 <= whole.size(); ++length) {
        EXPECT_FALSE(parseTaskStat(whole.substr(0, length))) << whole.substr(0, length);
    }
    const char* const rows[] = {
        "77 sh S 7 77",
        "77 sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "77 (sh S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "(sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "x7 (sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "-7 (sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "77 (sh) SS 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "77 (sh) S -7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        "77 (sh) S 7 77 77 0 -1 4194560 100 0 12 0 3x 40 0 0 20 0 5 0 9000",
        "77 (sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 18446744073709551616 0 0 20 0 5 0 9000",
        "77 (sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 -1",
        "99999999999 (sh) S 7 77 77 0 -1 4194560 100 0 12 0 30 40 0 0 20 0 5 0 9000",
        ")77 (",
    };
    for (const char* const row : rows) EXPECT_FALSE(parseTaskStat(row)) << row;
}

TEST(ParseSchedStat, TakesThreeNumbers) {
    const auto stat = parseSchedStat("141054628 365492029 29\n");
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->ran, 141054628u);
    EXPECT_EQ(stat->waited, 365492029u);
    EXPECT_EQ(stat->turns, 29u);
    EXPECT_TRUE(parseSchedStat("0 0 0"));
    EXPECT_EQ(parseSchedStat("18446744073709551615 0 0\n")->ran, kMost);
}

TEST(ParseSchedStat, RefusesEverythingElse) {
    for (const char* const row : {"", "\n", "1", "1 2", "1 2 ", "1 2 3 4", "1 2 x", "1 -2 3", "1 2 3x", "+1 2 3",
                                  "1.5 2 3", "18446744073709551616 2 3", "\n1 2 3"}) {
        EXPECT_FALSE(parseSchedStat(row)) << row;
    }
}

TEST(ParseSleeps, AreVoluntarySwitches) {
    EXPECT_EQ(parseSleeps("Name:\tx\nvoluntary_ctxt_switches:\t150\nnonvoluntary_ctxt_switches:\t545\n"), 150u);
    EXPECT_EQ(parseSleeps("voluntary_ctxt_switches:\t0"), 0u);
    for (const char* const row : {"", "nonvoluntary_ctxt_switches:\t545\n", "voluntary_ctxt_switches:\n",
                                  "voluntary_ctxt_switches:\t-1\n", "voluntary_ctxt_switches:\tx\n"}) {
        EXPECT_FALSE(parseSleeps(row)) << row;
    }
}

TEST(ParseDescriptorLimit, TakesTheSoftLimit) {
    const std::string head =
        "Limit                     Soft Limit           Hard Limit           Units     \n"
        "Max processes             95000                95000                processes \n";
    EXPECT_EQ(
        parseDescriptorLimit(head + "Max open files            1024                 1048576              files     \n"),
        1024u);
    EXPECT_EQ(parseDescriptorLimit("Max open files            unlimited            unlimited            files"), kMost);
    for (const char* const row : {"", "Max open files", "Max open files  ", "Max open filesystems  7 7",
                                  "Max open files  -1 5", "Max opened files 7 7", "Max open files  x"}) {
        EXPECT_FALSE(parseDescriptorLimit(row)) << row;
    }
}

}  // namespace
