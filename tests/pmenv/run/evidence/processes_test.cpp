// Which processes are engines, and what the others used.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "evidence/processes.h"
#include "support/FakeKernel.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ProcessesTest : public testing::Test {
protected:
    void run(int pid, const std::string& name, int parent = 1, double ran = 0, std::uint64_t start = 5000,
             char state = 'S') {
        FakeKernel::Thread process;
        process.pid = process.tid = pid;
        process.name = name;
        process.parent = parent;
        process.ran = ran;
        process.startTicks = start;
        process.state = state;
        kernel.run(process);
    }

    static std::vector<int> pids(const Processes& processes) {
        std::vector<int> found;
        for (const FoundEngine& engine : processes.engines()) found.push_back(engine.key.pid);
        std::sort(found.begin(), found.end());
        return found;
    }

    std::vector<int> scanned(Processes& processes) const {
        EXPECT_TRUE(processes.scan());
        return pids(processes);
    }

    FakeKernel kernel;
};

TEST_F(ProcessesTest, FindsEnginesByTheLibrarysRule) {
    run(kPid, "PMLoadEngineMai");
    run(kPid + 1, "xPMLoadEngineMai");
    run(kPid + 2, "PMLoadEngineMa");
    run(kPid + 3, "PMLoadEngineMai");  // this process itself
    Processes processes({}, kPid + 3);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid, kPid + 1));
}

TEST_F(ProcessesTest, FindsOthersByCommandNameOrFileName) {
    run(kPid, "wrk");
    run(kPid + 1, "wrk2");
    run(kPid + 2, "python3");
    kernel.link("/proc/" + std::to_string(kPid + 2) + "/exe", "/opt/bin/locust-runner-long-name");
    run(kPid + 3, "sh");
    kernel.link("/proc/" + std::to_string(kPid + 3) + "/exe", "/usr/bin/dash (deleted)");
    run(kPid + 4, "a-very-long-nam");
    run(kPid + 5, "PMLoadEngineMai");
    Processes processes({{"wrk", "locust-runner-long-name", "dash", "a-very-long-name-of-a-program"}, {}}, 1);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid, kPid + 2, kPid + 3, kPid + 4, kPid + 5));
    for (const FoundEngine& engine : processes.engines()) {
        EXPECT_EQ(engine.chosenBy == 1, engine.key.pid == kPid + 2);
    }
}

TEST_F(ProcessesTest, FindsAProcessWithItsDescendants) {
    run(kPid, "runner");
    run(kPid + 1, "worker", kPid);
    run(kPid - 5, "grandchild", kPid + 1);  // stands before its parent
    run(kPid + 2, "stranger");
    Processes processes({{}, kPid}, 1);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid - 5, kPid, kPid + 1));

    // A child whose parent has ended still belongs to it; a new one of it as well.
    kernel.end(kPid + 1);
    run(kPid - 5, "grandchild", 1);
    run(kPid + 7, "new", kPid - 5);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid - 5, kPid, kPid + 7));
}

TEST_F(ProcessesTest, AnIdThatIsUsedAgainIsAnotherProcess) {
    run(kPid, "runner", 1, 0, 5000);
    Processes processes({{}, kPid}, 1);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid));
    kernel.end(kPid);
    run(kPid, "runner", 1, 0, 6000);
    EXPECT_THAT(scanned(processes), IsEmpty());
}

TEST_F(ProcessesTest, TellsThatAnIdIsUsedAgain) {
    run(kPid, "PMLoadEngineMai", 1, 0, 5000);
    run(kPid + 1, "PMLoadEngineMai", 1, 0, 5000);
    Processes processes({}, 1);
    ASSERT_TRUE(processes.scan());
    EXPECT_FALSE(processes.idIsTaken({kPid, 5000}));
    EXPECT_TRUE(processes.idIsTaken({kPid, 4000}));
    EXPECT_TRUE(processes.idIsTaken({kPid, 6000}));
    kernel.end(kPid);
    ASSERT_TRUE(processes.scan());
    EXPECT_FALSE(processes.idIsTaken({kPid, 5000})) << "it has ended, and nobody has its id";
    run(kPid, "sh", 1, 0, 7000);
    ASSERT_TRUE(processes.scan());
    EXPECT_TRUE(processes.idIsTaken({kPid, 5000}));
    EXPECT_FALSE(processes.isAnotherProgram({kPid, 5000}));
}

TEST_F(ProcessesTest, AProgramIsToldFromItsFirstTickOn) {
    Processes processes({}, 1);
    ASSERT_TRUE(processes.scan());
    run(kPid, "true", 1, 0.01);
    ASSERT_TRUE(processes.scan());
    EXPECT_EQ(processes.others(1).size(), 1u);
}

// A process that runs another program has another name, as a rule.
TEST_F(ProcessesTest, ExecutablesAreReadWhereNamesAreAskedForAndAProcessHasANewOne) {
    const std::string executable = kProcess + "/exe";
    int asked = 0;
    kernel.before = [&](const std::string& path) { asked += path == executable ? 1 : 0; };
    run(kPid, "sh");
    kernel.link(executable, "/usr/bin/dash");
    Processes unnamed({}, 1);
    ASSERT_TRUE(unnamed.scan());
    EXPECT_EQ(asked, 0);

    Processes processes({{"load-runner"}, {}}, 1);
    EXPECT_THAT(scanned(processes), IsEmpty());
    EXPECT_THAT(scanned(processes), IsEmpty());
    EXPECT_EQ(asked, 1);
    kernel.remove(executable);
    kernel.link(executable, "/opt/load-runner");
    run(kPid, "python3");
    EXPECT_THAT(scanned(processes), ElementsAre(kPid));
    EXPECT_EQ(asked, 2);
}

// Ticks, too, are counted in 32 bits by some kernels.
TEST_F(ProcessesTest, TimeThatGoesBackIsNotUsedTwice) {
    run(kPid, "cc1plus", 1, 100);
    Processes processes({}, 1);
    ASSERT_TRUE(processes.scan());
    run(kPid, "cc1plus", 1, 103);
    ASSERT_TRUE(processes.scan());
    run(kPid, "cc1plus", 1, 1);
    ASSERT_TRUE(processes.scan());
    ASSERT_EQ(processes.others(1).size(), 1u);
    EXPECT_NEAR(processes.others(1)[0].seconds, 3, 1e-9);
}

// With hidepid=1 the directories of other users' processes are listed, but cannot be entered.
TEST_F(ProcessesTest, HiddenProcessesAreNoEngines) {
    run(kPid, "PMLoadEngineMai");
    kernel.hide("/proc/" + std::to_string(kPid));
    Processes processes({{}, kPid}, 1);
    EXPECT_THAT(scanned(processes), IsEmpty());
    EXPECT_THAT(processes.others(3), IsEmpty());
}

// At each file that is opened and each read, an engine ends, or another process gets its id.
TEST_F(ProcessesTest, ProcessesMayComeAndGoAtAnyPoint) {
    for (const bool again : {false, true}) {
        int left = 0;
        for (int point = 0; left <= 0; ++point) {
            for (int i = 0; i < 3; ++i) run(kPid + i, "PMLoadEngineMai");
            left = point;
            kernel.before = [&](const std::string&) {
                if (left-- != 0) return;
                kernel.end(kPid + 1);
                if (again) run(kPid + 1, "PMLoadEngineMai", 1, 0, 6000);
            };
            Processes processes({{"wrk"}, {}}, 1);
            const std::vector<int> found = scanned(processes);
            EXPECT_THAT(found, testing::IsSupersetOf({kPid, kPid + 2})) << point;
            const bool happened = left < 0;
            kernel.before = nullptr;
            if (happened) {
                EXPECT_EQ(scanned(processes).size(), again ? 3u : 2u) << point;
                EXPECT_EQ(processes.idIsTaken({kPid + 1, 5000}), again) << point;
            }
            for (int i = 0; i < 3; ++i) kernel.end(kPid + i);
        }
    }
}

TEST_F(ProcessesTest, ZombiesAreNoEngines) {
    run(kPid, "PMLoadEngineMai", 1, 0, 5000, 'Z');
    Processes processes({}, 1);
    EXPECT_THAT(scanned(processes), IsEmpty());
}

TEST_F(ProcessesTest, WhatCannotBeReadIsLeftOut) {
    run(kPid, "PMLoadEngineMai");
    run(kPid + 1, "PMLoadEngineMai");
    kernel.write("/proc/" + std::to_string(kPid + 2) + "/stat", "");
    kernel.write("/proc/" + std::to_string(kPid + 3) + "/stat", "12 (PMLoadEngineMai) S 1");
    kernel.write("/proc/" + std::to_string(kPid + 4) + "/comm", "no stat\n");
    kernel.hide("/proc/" + std::to_string(kPid + 1));
    Processes processes({}, 1);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid));
}

TEST_F(ProcessesTest, ProcessesMayEndWhileTheyAreLookedAt) {
    for (int i = 0; i < 3; ++i) run(kPid + i, "PMLoadEngineMai");
    kernel.before = [this](const std::string& path) {
        if (path == "/proc/" + std::to_string(kPid + 1) + "/stat") kernel.end(kPid + 1);
    };
    Processes processes({}, 1);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid, kPid + 2));
}

TEST_F(ProcessesTest, WithoutAListItKnowsWhatItKnew) {
    run(kPid, "PMLoadEngineMai");
    Processes processes({}, 1);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid));
    kernel.hide("/proc");
    EXPECT_FALSE(processes.scan());
    EXPECT_THAT(pids(processes), ElementsAre(kPid));
}

TEST_F(ProcessesTest, TellsWhatOthersUsedSinceTheFirstScan) {
    run(kPid, "PMLoadEngineMai", 1, 50);
    run(kPid + 1, "old", 1, 100);
    run(kPid + 2, "idle", 1, 7);
    Processes processes({}, 1);
    ASSERT_TRUE(processes.scan());
    EXPECT_THAT(processes.others(3), IsEmpty());

    run(kPid, "PMLoadEngineMai", 1, 90);
    run(kPid + 1, "old", 1, 102);
    run(kPid + 3, "cc1plus", 1, 1.5);
    run(kPid + 4, "cc1plus", 1, 1);
    ASSERT_TRUE(processes.scan());
    kernel.end(kPid + 3);  // what has ended is not forgotten
    run(kPid + 5, "cc1plus", 1, 0.5);
    ASSERT_TRUE(processes.scan());

    const std::vector<ProgramTime> others = processes.others(3);
    ASSERT_EQ(others.size(), 2u);
    EXPECT_EQ(others[0].name, "cc1plus");
    EXPECT_NEAR(others[0].seconds, 3, 1e-9);
    EXPECT_EQ(others[0].processes, 3);
    EXPECT_EQ(others[1].name, "old");
    EXPECT_NEAR(others[1].seconds, 2, 1e-9);
    EXPECT_EQ(processes.others(1).size(), 1u);

    kernel.end(kPid + 1);
    run(kPid + 6, "as", 1, 3);
    run(kPid + 7, "true");
    ASSERT_TRUE(processes.scan());
    kernel.end(kPid + 7);  // without any time
    ASSERT_TRUE(processes.scan());
    const std::vector<ProgramTime> after = processes.others(9);
    ASSERT_EQ(after.size(), 3u);
    EXPECT_EQ(after[0].name, "as") << "of those that used as much, in the order of their names";
    EXPECT_EQ(after[1].name, "cc1plus");
    EXPECT_EQ(after[2].name, "old");
    EXPECT_NEAR(after[2].seconds, 2, 1e-9) << "what it used before is not counted after its end either";
}

// A watch that goes on for weeks does not keep every name that there was.
TEST_F(ProcessesTest, OfManyProgramsThatHaveEndedThoseAreKnownThatUsedMost) {
    constexpr int kPrograms = 2100;
    Processes processes({}, 1);
    ASSERT_TRUE(processes.scan());
    for (int i = 0; i < kPrograms; ++i) run(kPid + i, "program" + std::to_string(i), 1, i < 3 ? 100 - i : 1 + i % 50);
    ASSERT_TRUE(processes.scan());
    for (int i = 0; i < 1500; ++i) kernel.end(kPid + i);
    ASSERT_TRUE(processes.scan());
    EXPECT_EQ(processes.others(kPrograms).size(), 2100u) << "not that many have ended yet";
    for (int i = 1500; i < kPrograms; ++i) kernel.end(kPid + i);
    ASSERT_TRUE(processes.scan());
    const std::vector<ProgramTime> others = processes.others(kPrograms);
    EXPECT_LE(others.size(), 1000u);
    EXPECT_GE(others.size(), 900u);
    EXPECT_EQ(others[0].name, "program0");
    EXPECT_EQ(others[2].name, "program2");
}

// --- a command that was started -------------------------------------------------------------------------------------

// The watcher itself is the root: what the command leaves behind becomes its child.
TEST_F(ProcessesTest, WhatThisProcessStartsStandsInForEngines) {
    run(kPid, "pmenv");
    run(kPid + 1, "wrapper", kPid);
    run(kPid + 2, "sender", kPid + 1);
    run(kPid + 3, "left-behind", kPid);
    run(kPid + 4, "stranger");
    Processes processes({{}, kPid, true}, kPid);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid + 1, kPid + 2, kPid + 3));
    for (const FoundEngine& engine : processes.engines()) EXPECT_TRUE(engine.standIn) << engine.name;
}

TEST_F(ProcessesTest, AnEngineThatTheCommandStartsIsNoStandIn) {
    run(kPid, "pmenv");
    run(kPid + 1, "wrapper", kPid);
    run(kPid + 2, "PMLoadEngineMai", kPid + 1);
    Processes processes({{}, kPid, true}, kPid);
    EXPECT_THAT(scanned(processes), ElementsAre(kPid + 1, kPid + 2));
    for (const FoundEngine& engine : processes.engines()) {
        EXPECT_EQ(engine.standIn, engine.key.pid == kPid + 1);
        EXPECT_EQ(engine.chosenBy == kByRule, engine.key.pid == kPid + 2);
    }
}

}  // namespace
