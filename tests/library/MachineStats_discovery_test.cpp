// Finding the load engines: getSlavesList, and what tells a process's identity.
#include "MachineStats.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include "support/Allocations.h"
#include "support/FakeProc.h"
#include "support/LogCapture.h"
#include "support/OpenDescriptors.h"
#include "support/repeated.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kNobody = -1;

std::vector<int> engines(int excludedPid = kNobody) {
    std::vector<int> pids;
    EXPECT_EQ(1, getSlavesList(pids, excludedPid));
    return pids;
}

}  // namespace

TEST(IsNumeric, WantsNothingButDecimalDigits) {
    const struct {
        const char* text;
        bool numeric;
    } rows[] = {
        {"", true},      {"0", true},      {"0123456789", true}, {"99999999999999999999", true},
        {"/", false},    {":", false},     {"12a", false},       {"a12", false},
        {"-1", false},   {"+1", false},    {" 1", false},        {"1 ", false},
        {"1.0", false},  {".", false},     {"..", false},        {"self", false},
        {"\xb2", false}, {"1\x80", false}, {"\xd9\xa1", false},
    };
    for (const auto& row : rows) EXPECT_EQ(row.numeric, IsNumeric(row.text)) << row.text;
}

TEST(IsNumeric, RefusesNull) {
    LogCapture log;
    EXPECT_FALSE(IsNumeric(nullptr));
    EXPECT_THAT(log.texts(nLogging::Level::Error), ElementsAre(""));
}

TEST(GetProcessID, IsGetpid) {
    EXPECT_EQ(getpid(), GetProcessID());
    FakeProc proc;
    proc.ownPid = 31415;
    EXPECT_EQ(31415, GetProcessID());
}

TEST(GetConsolesCount, IsNotCounted) {
    FakeProc proc;
    MachineStats collector;
    EXPECT_EQ(-1, collector.GetConsolesCount());
}

TEST(GetSlavesList, ReadsTheNameOfEachProcess) {
    FakeProc proc;
    proc.run(7, "PMLoadEngineMai");
    proc.run(5, "sh");
    const std::size_t descriptors = OpenDescriptors::count();
    EXPECT_THAT(engines(), ElementsAre(7));
    EXPECT_THAT(proc.calls, ElementsAre("opendir /proc/", "readdir", "fopen /proc/7/stat rt", "readdir",
                                        "fopen /proc/5/stat rt", "readdir", "closedir"));
    EXPECT_EQ(descriptors, OpenDescriptors::count());
}

// As the kernel prints names between parentheses, up to 63 characters, line feeds and backslashes escaped.
TEST(GetSlavesList, KnowsAnEngineByItsName) {
    const std::string longest = repeated("k", 48) + "PMLoadEngineMai";
    const std::string escaped = repeated("\\134", 48) + "PMLoadEngineMai";
    const struct {
        std::string name;
        bool engine;
    } rows[] = {
        {"PMLoadEngineMai", true},
        {"xPMLoadEngineMai", true},
        {"PMLoadEngineMain", true},
        {"(PMLoadEngineMai)", true},
        {")PMLoadEngineMai", true},
        {longest, true},
        {escaped, true},
        {repeated("\\134", 63), false},
        {"PMLoadEngineMa", false},
        {"pmloadenginemai", false},
        {"PMLoadEngine", false},
        {"", false},
        {" ", false},
        {" PMLoadEngineMai", true},  // the scan skips blanks in front
        {"PM LoadEngineMai", false},
        {"a PMLoadEngineMai", false},  // cut at the blank
        {"PMLoadEngineMai x", false},  // cut at the blank, then the last character goes
        {"PMLoadEngineMain x", true},  // the character that goes is not needed
        {"PMLoadEngineMai\tx", false},
        {repeated("k", 1000), false},  // more than any kernel prints
        {repeated("k", 238) + "PMLoadEngineMai" + repeated("k", 1000), true},
        {repeated("k", 1000) + "PMLoadEngineMai", false},
    };
    for (const auto& row : rows) {
        FakeProc proc;
        proc.run(7, row.name);
        EXPECT_EQ(row.engine, !engines().empty()) << row.name;
    }
}

// The file of a process that ended a moment ago must not be taken for that of the engine before it.
TEST(GetSlavesList, TakesNothingFromAFileThatIsNoStatFile) {
    for (const char* const text :
         {"", "\n", "8", "8 ", "8 (", "8 PMLoadEngineMai)", "x (PMLoadEngineMai)", "(PMLoadEngineMai)"}) {
        FakeProc proc;
        proc.run(7, "PMLoadEngineMain0123456789");
        proc.run(8);
        proc.write("/proc/8/stat", text);
        proc.run(9);
        EXPECT_THAT(engines(), ElementsAre(7, 9)) << text;
    }
}

TEST(GetSlavesList, SkipsAProcessThatEndsMeanwhile) {
    FakeProc proc;
    for (const int pid : {7, 8, 9}) proc.run(pid);
    proc.remove("/proc/7/stat");
    proc.breakReads("/proc/8/stat");
    LogCapture log;
    testing::internal::CaptureStderr();
    EXPECT_THAT(engines(), ElementsAre(9));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_THAT(proc.callsOf("usleep"), IsEmpty()) << "no second attempt here";
}

TEST(GetSlavesList, LooksOnlyAtDirectoriesNamedByANumber) {
    const struct {
        const char* name;
        unsigned char type;
    } rows[] = {
        {"7", DT_UNKNOWN}, {"7", DT_REG}, {"7", DT_LNK},  {"self", DT_DIR},
        {"7a", DT_DIR},    {".", DT_DIR}, {"..", DT_DIR}, {"-7", DT_DIR},
    };
    for (const auto& row : rows) {
        FakeProc proc;
        proc.list(row.name, row.type);
        proc.write("/proc/" + std::string(row.name) + "/stat", "7 (PMLoadEngineMai) S 1");
        EXPECT_THAT(engines(), IsEmpty()) << row.name << " of type " << int{row.type};
        EXPECT_THAT(proc.callsOf("fopen"), IsEmpty());
    }
}

TEST(GetSlavesList, TakesTheIdFromTheDirectory) {
    FakeProc proc;
    proc.list("0123");
    proc.write("/proc/0123/stat", "99 (PMLoadEngineMai) S 1");
    EXPECT_THAT(engines(), ElementsAre(123));
    EXPECT_THAT(engines(99), ElementsAre(123));
    EXPECT_THAT(engines(123), IsEmpty());
}

TEST(GetSlavesList, IdsStopAtTheLimitOf32Bits) {
    FakeProc proc;
    for (const char* const name : {"2147483647", "2147483648", "99999999999999999999"}) {
        proc.list(name);
        proc.write("/proc/" + std::string(name) + "/stat", "1 (PMLoadEngineMai) S 1");
    }
    EXPECT_THAT(engines(), ElementsAre(2147483647, 2147483647, 2147483647));
}

TEST(GetSlavesList, NamesOfAnyLengthAreSafe) {
    FakeProc proc;
    const std::string name(255, '7');
    proc.list(name);
    proc.write("/proc/" + name + "/stat", "7 (PMLoadEngineMai) S 1");
    EXPECT_THAT(engines(), ElementsAre(2147483647));
}

TEST(GetSlavesList, LeavesOutOneProcess) {
    FakeProc proc;
    for (const int pid : {7, 8, 9}) proc.run(pid);
    EXPECT_THAT(engines(8), ElementsAre(7, 9));
}

TEST(GetSlavesList, AppendsInTheOrderOfTheDirectory) {
    FakeProc proc;
    for (const int pid : {30, 7, 100}) proc.run(pid);
    std::vector<int> pids = {1, 2};
    EXPECT_EQ(1, getSlavesList(pids, kNobody));
    EXPECT_THAT(pids, ElementsAre(1, 2, 30, 7, 100));
}

TEST(GetSlavesList, FindsNothingInAnEmptyDirectory) {
    FakeProc proc;
    EXPECT_THAT(engines(), IsEmpty());
    EXPECT_THAT(proc.calls, ElementsAre("opendir /proc/", "readdir", "closedir"));
}

TEST(GetSlavesList, SaysOnStandardErrorThatTheDirectoryDoesNotOpen) {
    FakeProc proc;
    LogCapture log;
    proc.run(7);
    proc.directoryOpens = false;
    std::vector<int> pids = {1};
    testing::internal::CaptureStderr();
    EXPECT_EQ(0, getSlavesList(pids, kNobody));
    EXPECT_EQ("Couldn't open the /proc/ directory: Permission denied\n", testing::internal::GetCapturedStderr());
    EXPECT_THAT(pids, ElementsAre(1));
    EXPECT_THAT(proc.calls, ElementsAre("opendir /proc/"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GetSlavesList, ClosesEverythingWhenACallThrows) {
    for (const char* const thrower : {"readdir", "fopen /proc/7/stat"}) {
        FakeProc proc;
        proc.run(7);
        proc.before = [&](const std::string& call) {
            if (call.find(thrower) == 0) throw std::runtime_error("no");
        };
        const std::size_t descriptors = OpenDescriptors::count();
        std::vector<int> pids;
        EXPECT_THROW(getSlavesList(pids, kNobody), std::runtime_error);
        EXPECT_EQ(descriptors, OpenDescriptors::count()) << thrower;
    }
}

TEST(GetSlavesList, ClosesEverythingWhenThereIsNoMemoryForTheIds) {
    FakeProc proc;
    proc.run(7);
    const std::size_t descriptors = OpenDescriptors::count();
    std::vector<int> pids;
    {
        const FailingAllocation first(1);
        EXPECT_THROW(getSlavesList(pids, kNobody), std::bad_alloc);
    }
    EXPECT_EQ(descriptors, OpenDescriptors::count());
    EXPECT_THAT(pids, IsEmpty());
}
