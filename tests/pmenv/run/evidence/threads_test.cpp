// The threads of an engine, as they come, go, run, wait, are blocked and are stopped.
#include <string>

#include <gtest/gtest.h>

#include "evidence/threads.h"
#include "support/FakeKernel.h"

namespace {

class ThreadsTest : public testing::Test {
protected:
    // Sets a thread's counters; the first one is the process itself.
    void run(int index, double ran, double waited, std::uint64_t turns, char state = 'S',
             const std::string& name = "sender") {
        FakeKernel::Thread thread;
        thread.pid = kPid;
        thread.tid = kPid + index;
        thread.ran = ran;
        thread.waited = waited;
        thread.turns = turns;
        thread.state = state;
        thread.name = name;
        kernel.run(thread);
    }

    void endThread(int index) {
        kernel.remove("/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid + index));
    }

    EngineEvidence sample(Threads& threads, double seconds = 0.25) {
        kernel.now += seconds;
        EngineEvidence evidence;
        runs = threads.sample(context, &evidence);
        return evidence;
    }

    FakeKernel kernel;
    IntervalContext context;
    bool runs = false;
};

TEST_F(ThreadsTest, TheBusiestIsTheOneWithTheLeastSlack) {
    run(0, 1, 1, 10);
    run(1, 2, 2, 20);
    run(2, 3, 3, 30);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    EXPECT_FALSE(sample(threads).busiest);  // nothing to compare with

    run(0, 1.05, 1, 12);
    run(1, 2.05, 2.15, 24, 'S', "slow");
    run(2, 3.10, 3, 33);
    const EngineEvidence evidence = sample(threads);
    EXPECT_TRUE(runs);
    EXPECT_TRUE(evidence.readable);
    ASSERT_TRUE(evidence.busiest);
    EXPECT_EQ(evidence.busiest->tid, kPid + 1);
    EXPECT_EQ(evidence.busiest->name, "slow");
    EXPECT_NEAR(evidence.busiest->parts.waiting, 0.15, 1e-6);
    EXPECT_NEAR(evidence.ran, 0.20, 1e-6);
    EXPECT_NEAR(evidence.waited, 0.15, 1e-6);
    EXPECT_EQ(evidence.turns, 9u);
}

TEST_F(ThreadsTest, IgnoredThreadsUseTimeButDoNotCount) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1, 'S', "C2 CompilerThre");
    run(2, 0, 0, 1, 'S', "logger-of-the-e");
    Threads threads(kPid, {"logger-of-the-engine"});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0.01, 0, 5);
    run(1, 0.25, 9, 50, 'R', "C2 CompilerThre");
    run(2, 0.25, 9, 50, 'R', "logger-of-the-e");
    const EngineEvidence evidence = sample(threads);
    ASSERT_TRUE(evidence.busiest);
    EXPECT_EQ(evidence.busiest->tid, kPid);
    EXPECT_NEAR(evidence.ran, 0.51, 1e-6);
    EXPECT_EQ(evidence.waited, 0);
    EXPECT_EQ(evidence.turns, 4u);
}

TEST_F(ThreadsTest, SleepsAreToldWhereTheHypervisorLeftLittleSlack) {
    const std::string status = "/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid) + "/status";
    double ran = 0;
    Threads threads(kPid, {});
    const auto sleepsAfter = [&](double running, const std::string& text) {
        ran += running;
        run(0, ran, 0, 1);
        kernel.write(status, text);
        const EngineEvidence evidence = sample(threads);
        return evidence.busiest ? evidence.busiest->sleeps : std::nullopt;
    };
    run(0, 0, 0, 1);
    ASSERT_TRUE(threads.list());
    sleepsAfter(0.2, "");
    EXPECT_EQ(sleepsAfter(0.25, "voluntary_ctxt_switches:\t70\n"), std::nullopt) << "nothing was stolen";
    context.stolenPerBusy = 0.1;
    EXPECT_EQ(sleepsAfter(0.2, "voluntary_ctxt_switches:\t70\n"), std::nullopt) << "there is nothing to compare with";
    EXPECT_EQ(sleepsAfter(0.2, "voluntary_ctxt_switches:\t75\nnonvoluntary_ctxt_switches:\t9\n"), 5u);
    EXPECT_EQ(sleepsAfter(0.2, "voluntary_ctxt_switches:\t75\n"), 0u);
    EXPECT_EQ(sleepsAfter(0.2, "voluntary_ctxt_switches:\t60\n"), std::nullopt) << "gone back";
    EXPECT_EQ(sleepsAfter(0.2, "strange\n"), std::nullopt);
    EXPECT_EQ(sleepsAfter(0.2, "voluntary_ctxt_switches:\t80\n"), std::nullopt);
    EXPECT_EQ(sleepsAfter(0.15, "voluntary_ctxt_switches:\t80\n"), std::nullopt) << "much slack";
    EXPECT_EQ(sleepsAfter(0.2, "voluntary_ctxt_switches:\t85\n"), std::nullopt) << "not of the last interval alone";
}

TEST_F(ThreadsTest, AStoppedProcessStopsAllItsThreads) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0.01, 0, 2, 'T');
    run(1, 0.02, 0, 2, 'T');
    EXPECT_NEAR(sample(threads).busiest->parts.stopped, 0.24, 1e-6);
    EXPECT_NEAR(sample(threads).busiest->parts.stopped, 0.25, 1e-6);
    run(0, 0.02, 0, 5, 'S');
    run(1, 0.03, 0, 5, 'S');
    EXPECT_EQ(sample(threads).busiest->parts.stopped, 0);
}

// Between two samples the states of what was blocked are looked at again and again.
TEST_F(ThreadsTest, BlockedTimeIsMeasuredByLooks) {
    run(0, 0, 0, 10);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0.001, 0, 20, 'D');
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0);  // one look, and it ran: nothing is known
    for (int i = 0; i < 10; ++i) {
        run(0, 0.001 * i, 0, 21 + static_cast<std::uint64_t>(i), i < 6 ? 'D' : 'S');
        threads.look(0.010);
    }
    const EngineEvidence evidence = sample(threads);
    EXPECT_NEAR(evidence.busiest->parts.blocked, 0.25 * 6 / 10, 0.03);
}

// Reading a state takes four times as long as reading turns.
TEST_F(ThreadsTest, LooksReadTheStatesOfTenThreadsThatWereBlockedLately) {
    constexpr int kThreads = 12;
    for (int i = 0; i < kThreads; ++i) run(i, 0, 0, 1, 'D');
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    int reads = 0;
    kernel.before = [&reads](const std::string& path) { reads += path == "read" ? 1 : 0; };
    const auto statesRead = [&] {
        reads = 0;
        threads.look(0.010);
        return reads - kThreads;  // the turns of each are read as well
    };
    EXPECT_EQ(statesRead(), 10);
    kernel.now += 4.75;
    EXPECT_EQ(statesRead(), 10);
    kernel.now += 5;
    EXPECT_EQ(statesRead(), 0) << "they were not blocked lately";
    kernel.before = nullptr;
}

TEST_F(ThreadsTest, AThreadThatNeverRunsMeanwhileIsBlockedAllTheTime) {
    run(0, 0, 0, 10, 'D');
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    EXPECT_NEAR(sample(threads).busiest->parts.blocked, 0.25, 1e-6);
}

// A writer of logs that is blocked for long runs a hundredth as often as those that send.
TEST_F(ThreadsTest, BlockedTimesOfAThreadThatSeldomRunsDoNotCount) {
    run(0, 0, 0, 1000);
    run(1, 0, 0, 10, 'D', "log");
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0.01, 0, 1010);
    ASSERT_TRUE(threads.list());
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0);
}

TEST_F(ThreadsTest, SeldomIsLessThanATenthOfTheTurns) {
    for (const auto& [turns, blocked] : {std::pair(100u, 0.25), std::pair(101u, 0.0)}) {
        run(0, 0, 0, turns);
        run(1, 0, 0, 10, 'D', "log");
        Threads threads(kPid, {});
        ASSERT_TRUE(threads.list());
        sample(threads);
        EXPECT_NEAR(sample(threads).busiest->parts.blocked, blocked, 1e-6) << turns;
    }
}

// Whichever of them is looked at first; but a thread that does not count makes no other seldom.
TEST_F(ThreadsTest, TheFirstThreadIsSeldomBesideALaterOneThatCounts) {
    for (const auto& [name, blocked] : {std::pair("sender", 0.0), std::pair("GC Thread#0", 0.25)}) {
        run(0, 0, 0, 10, 'D');
        run(1, 0, 0, 1000, 'S', name);
        Threads threads(kPid, {});
        ASSERT_TRUE(threads.list());
        sample(threads);
        run(2, 0, 0, 1);
        ASSERT_TRUE(threads.list());
        EXPECT_NEAR(sample(threads).busiest->parts.blocked, blocked, 1e-6) << name;
        endThread(2);
    }
}

// A thread that opened all connections had run so often that those which then sent over them were never found blocked.
TEST_F(ThreadsTest, WhoHasEndedDoesNotMakeTheOthersSeldom) {
    run(0, 0, 0, 10);
    run(1, 0, 0, 100'000, 'R', "opener");
    run(2, 0, 0, 50, 'D', "sender");
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0);
    endThread(1);
    ASSERT_TRUE(threads.list());
    const auto busiest = sample(threads).busiest;
    EXPECT_EQ(busiest->name, "sender");
    EXPECT_NEAR(busiest->parts.blocked, 0.25, 1e-6);
}

TEST_F(ThreadsTest, DelayAccountingIsUsedWhereItIsOn) {
    FakeKernel::Thread thread;
    thread.turns = 10;
    thread.blockedTicks = 100;
    kernel.run(thread);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    context.delayAccounting = true;
    sample(threads);
    thread.turns = 20;
    thread.blockedTicks = 112;
    kernel.run(thread);
    EXPECT_NEAR(sample(threads).busiest->parts.blocked, 0.12, 1e-6);
    thread.turns = 25;
    kernel.run(thread);
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0) << "it was told before";
    thread.turns = 27;
    thread.blockedTicks = 8;
    kernel.run(thread);
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0) << "gone back";
    thread.turns = 30;
    thread.blockedTicks = 20;
    kernel.run(thread);
    context.delayAccounting = false;
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0);
}

TEST_F(ThreadsTest, LateTurnsAreCountedAtEachLook) {
    run(0, 0, 0, 10);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0, 0.012, 11);
    threads.look(0.010);
    run(0, 0, 0.013, 12);
    threads.look(0.010);
    run(0, 0, 0.030, 13);
    const EngineEvidence evidence = sample(threads);
    EXPECT_EQ(evidence.turns, 3u);
    EXPECT_EQ(evidence.lateTurns, 2);
    EXPECT_EQ(sample(threads).lateTurns, 0);
}

TEST_F(ThreadsTest, CountersThatGoBackAreNoTimes) {
    run(0, 5, 5, 500);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 1, 1, 100);
    const EngineEvidence evidence = sample(threads);
    EXPECT_EQ(evidence.busiest->parts.sum(), 0);
    EXPECT_EQ(evidence.turns, 0u);
}

TEST_F(ThreadsTest, OfAnIntervalWithoutLengthTheFirstThreadIsTold) {
    for (int i = 0; i < 3; ++i) run(i, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    EXPECT_EQ(sample(threads, 0).busiest->tid, kPid);
}

// --- what cannot be read --------------------------------------------------------------------------------------------

TEST_F(ThreadsTest, WithoutAccountsTheEngineIsNotReadable) {
    run(0, 0, 0, 0);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    EXPECT_FALSE(sample(threads).readable);  // the kernel counts nothing: zeros
    EXPECT_TRUE(runs);
}

TEST_F(ThreadsTest, StrangeOrHiddenFilesAreNotReadable) {
    const std::string schedStat = "/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid) + "/schedstat";
    for (const char* const text : {"", "1 2", "x y z", "1 2 3 4"}) {
        run(0, 1, 1, 1);
        kernel.write(schedStat, text);
        Threads threads(kPid, {});
        ASSERT_TRUE(threads.list());
        sample(threads);
        EXPECT_FALSE(sample(threads).readable) << text;
        EXPECT_TRUE(runs) << text;
    }
    run(0, 1, 1, 1);
    kernel.hide(schedStat);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    EXPECT_FALSE(sample(threads).readable);
    EXPECT_TRUE(runs);
}

TEST_F(ThreadsTest, AThreadWhoseStateIsHiddenIsWatched) {
    run(0, 0, 0, 1);
    kernel.hide("/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid) + "/stat");
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0.1, 0, 2);
    EXPECT_NEAR(sample(threads).ran, 0.1, 1e-6);
}

// --- what comes and goes --------------------------------------------------------------------------------------------

TEST_F(ThreadsTest, NewThreadsAreSeenAtTheNextList) {
    run(0, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    run(1, 0, 0, 1);
    sample(threads);
    EXPECT_EQ(threads.size(), 1u);
    ASSERT_TRUE(threads.list());
    EXPECT_EQ(threads.size(), 2u);
    endThread(0);
    ASSERT_TRUE(threads.list());
    EXPECT_EQ(threads.size(), 1u);
}

TEST_F(ThreadsTest, AProcessThatHasEndedHasNoThreads) {
    run(0, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    kernel.end(kPid);
    sample(threads);
    EXPECT_FALSE(runs);
    EXPECT_FALSE(Threads(kPid, {}).list());
}

TEST_F(ThreadsTest, AProcessWithoutARemainingThreadIsAZombie) {
    run(0, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    EXPECT_FALSE(threads.isZombie());
    run(0, 0, 0, 2, 'Z');
    sample(threads);
    EXPECT_TRUE(threads.isZombie());
}

TEST_F(ThreadsTest, TheFirstThreadMayEndBeforeTheOthers) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(0, 0, 0, 2, 'Z');
    run(1, 0.1, 0, 2);
    EXPECT_NEAR(sample(threads).busiest->parts.running, 0.1, 1e-6);
    EXPECT_TRUE(runs);
    EXPECT_FALSE(threads.isZombie());
}

TEST_F(ThreadsTest, AThreadThatEndsBeforeItsStateIsReadIsNoMore) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(1, 0.1, 0, 2);
    kernel.remove("/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid + 1) + "/stat");
    sample(threads);
    EXPECT_EQ(threads.size(), 1u);
}

// At each file that is opened and each read, a thread, or the whole process, ends.
TEST_F(ThreadsTest, ThreadsMayEndAtAnyPoint) {
    for (const bool whole : {false, true}) {
        for (int point = 0; point < 60; ++point) {
            for (int i = 0; i < 3; ++i) run(i, 0, 0, 1);
            int left = point;
            kernel.before = [&](const std::string&) {
                if (left-- != 0) return;
                if (whole) {
                    kernel.end(kPid);
                } else {
                    endThread(1);
                }
            };
            Threads threads(kPid, {});
            if (threads.list()) {
                sample(threads);
                threads.look(0.010);
                if (!whole) {
                    for (const int i : {0, 2}) run(i, 0.1, 0, 2);
                    const EngineEvidence evidence = sample(threads);
                    EXPECT_TRUE(runs) << point;
                    EXPECT_NEAR(evidence.ran, 0.2, 1e-6) << point;
                } else {
                    sample(threads);
                }
                threads.list();
            }
            kernel.before = nullptr;
            if (whole && left < 0) {
                sample(threads);
                EXPECT_FALSE(runs) << point;
            }
            kernel.end(kPid);
        }
    }
}

TEST_F(ThreadsTest, TenThousandThreads) {
    constexpr int kCount = 10000;
    run(0, 0, 0, 1);
    run(kCount - 1, 0, 0, 1);
    const std::string tasks = "/proc/" + std::to_string(kPid) + "/task/";
    for (int i = 1; i + 1 < kCount; ++i) kernel.link(tasks + std::to_string(kPid + i), std::to_string(kPid));
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    context.lookEvery = 40;
    sample(threads);
    run(kCount - 1, 0.25, 0, 2, 'R', "last");
    const EngineEvidence evidence = sample(threads);
    EXPECT_EQ(threads.size(), static_cast<std::size_t>(kCount));
    EXPECT_EQ(evidence.busiest->tid, kPid + kCount - 1);
}

// Its state was not known before: all that is seen is that it is ready now.
TEST_F(ThreadsTest, AThreadThatIsSeenAsItWakesHasNotWaited) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    context.lookEvery = 1000;  // so that the state of the second is not read here
    run(1, 0.01, 0, 2);
    sample(threads);
    context.lookEvery = 1;
    run(1, 0.01, 0, 2, 'R');
    const EngineEvidence evidence = sample(threads);
    EXPECT_NEAR(evidence.waited, 0, 1e-6);
    EXPECT_NEAR(evidence.busiest->parts.sum(), 0, 1e-6);
}

TEST_F(ThreadsTest, WhatAThreadIsThatHasRunIsNotKnownBeforeItIsLookedAt) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1, 'D');
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    EXPECT_NEAR(sample(threads).busiest->parts.blocked, 0.25, 1e-6);
    context.lookEvery = 1000;
    run(1, 0.01, 0, 2);
    sample(threads);
    EXPECT_EQ(sample(threads).busiest->parts.blocked, 0);
}

// From then on it is looked at in each interval, however many others there are.
TEST_F(ThreadsTest, AThreadThatStaysReadyWaits) {
    run(0, 0, 0, 1);
    run(1, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    run(1, 0.01, 0, 2, 'R');
    EXPECT_NEAR(sample(threads).waited, 0, 1e-6);
    context.lookEvery = 1000;
    for (int interval = 0; interval < 3; ++interval) EXPECT_NEAR(sample(threads).waited, 0.25, 1e-6) << interval;
    run(1, 0.02, 0.8, 3);
    EngineEvidence evidence = sample(threads);
    EXPECT_NEAR(evidence.waited, 0.05, 1e-6) << "the rest of it; the kernel adds the whole wait when it is over";
    EXPECT_NEAR(evidence.busiest->parts.waiting, 0.05, 1e-6);
    run(1, 0.03, 1.2, 4);
    evidence = sample(threads);
    EXPECT_NEAR(evidence.waited, 0.4, 1e-6) << "nothing was told of that one before";
    EXPECT_NEAR(evidence.busiest->parts.waiting, 0.24, 1e-6);
}

// What a quota kept from running is part of the wait.
TEST_F(ThreadsTest, AWaitThatIsThrottledIsNotToldAgainWhenItIsOver) {
    run(0, 0, 0, 1, 'R');
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    context.throttledSeconds = 0.1;
    for (int interval = 0; interval < 2; ++interval) {
        EXPECT_NEAR(sample(threads).busiest->parts.waiting, 0.15, 1e-6) << interval;
    }
    context.throttledSeconds = 0;
    run(0, 0.01, 0.5, 2);
    EXPECT_NEAR(sample(threads).busiest->parts.waiting, 0, 1e-6);
}

TEST_F(ThreadsTest, AThreadThatCannotBeReadOnceIsWatchedOn) {
    run(0, 1, 0, 10);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    kernel.write("/proc/" + std::to_string(kPid) + "/task/" + std::to_string(kPid) + "/schedstat", "");
    sample(threads);
    EXPECT_TRUE(runs);
    run(0, 1.1, 0, 20);
    const EngineEvidence evidence = sample(threads);
    ASSERT_TRUE(evidence.busiest);
    EXPECT_NEAR(evidence.busiest->seconds, 0.5, 1e-9) << "both intervals";
    EXPECT_NEAR(evidence.busiest->parts.running, 0.1, 1e-6);
}

// A process that reads pages from a disk may be blocked for it, though no look has met it so.
TEST_F(ThreadsTest, WhoIsSuspectedIsLookedAt) {
    run(0, 1, 0, 10);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    threads.suspectBlocked();
    run(0, 1.001, 0, 11, 'D');
    for (int look = 0; look < 4; ++look) threads.look(0.010);
    run(0, 1.002, 0, 12);
    EXPECT_NEAR(sample(threads).busiest->parts.blocked, 0.2, 1e-6) << "four of five looks";
}

// A thread's state is read in every so manieth interval only; in the others it is not known, and nothing is made of it.
TEST_F(ThreadsTest, StatesAreReadInTurns) {
    run(0, 0, 0, 1);
    for (int i = 1; i < 9; ++i) run(i, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    context.lookEvery = 4;
    int reads = 0;
    for (int interval = 1; interval <= 4; ++interval) {
        for (int i = 1; i < 9; ++i) run(i, 0.01 * interval, 0, 1 + static_cast<std::uint64_t>(interval));
        kernel.before = [&reads](const std::string&) { ++reads; };
        sample(threads);
        kernel.before = nullptr;
    }
    // In each interval nine accounts, of which each is two reads (a piece and its end), and the states of two threads.
    EXPECT_LE(reads, 4 * (9 + 2 + 1));
}

// Their new names, which do not count, are found two by two.
TEST_F(ThreadsTest, EachThreadHasItsTurn) {
    run(0, 0, 0, 1);
    for (int i = 1; i < 9; ++i) run(i, 0, 0, 1);
    Threads threads(kPid, {});
    ASSERT_TRUE(threads.list());
    sample(threads);
    context.lookEvery = 4;
    for (std::uint64_t interval = 1; interval <= 4; ++interval) {
        for (int i = 1; i < 9; ++i) run(i, 0, 0, 1 + interval, 'S', "GC Thread#0");
        EXPECT_EQ(sample(threads).turns, 8 - 2 * interval);
    }
}

}  // namespace
