// A thread's counters as parts of an interval, late turns, and the threads that do not count.
#include <cmath>

#include <gtest/gtest.h>

#include "evidence/accounts.h"

namespace {

std::uint64_t nanoseconds(double seconds) { return static_cast<std::uint64_t>(std::llround(seconds * 1e9)); }

// A quarter of a second in which the thread ran and waited for so long.
ThreadInterval interval(double ran, double waited, std::uint64_t turns = 10) {
    ThreadInterval made;
    made.before = {nanoseconds(5), nanoseconds(7), 1000};
    made.now = {nanoseconds(5 + ran), nanoseconds(7 + waited), 1000 + turns};
    made.seconds = 0.25;
    made.state = 'S';
    return made;
}

double slack(const ThreadEvidence& thread) { return thread.seconds - thread.parts.sum(); }

TEST(Account, PartsTheIntervalByRunningAndWaiting) {
    const ThreadEvidence thread = account(interval(0.10, 0.05));
    EXPECT_NEAR(thread.parts.running, 0.10, 1e-9);
    EXPECT_NEAR(thread.parts.waiting, 0.05, 1e-9);
    EXPECT_NEAR(slack(thread), 0.10, 1e-9);
    EXPECT_EQ(thread.turns, 10u);
    EXPECT_EQ(thread.waitedBefore, 0);
}

TEST(Account, AWaitThatBeganEarlierDoesNotMakeTheIntervalLonger) {
    const ThreadEvidence thread = account(interval(0.05, 1.2));
    EXPECT_NEAR(thread.parts.waiting, 0.20, 1e-9);
    EXPECT_NEAR(thread.waitedBefore, 1.0, 1e-9);
    EXPECT_NEAR(slack(thread), 0, 1e-9);
}

TEST(Account, WhatWasToldOfAWaitIsNotToldAgain) {
    ThreadInterval ends = interval(0.05, 0.6);
    ends.toldBefore = 0.5;
    EXPECT_NEAR(account(ends).parts.waiting, 0.1, 1e-9);
    EXPECT_EQ(account(ends).waitedBefore, 0);
    ends.toldBefore = 0.3;
    EXPECT_NEAR(account(ends).parts.waiting, 0.2, 1e-9);
    EXPECT_NEAR(account(ends).waitedBefore, 0.1, 1e-9);
    ends.toldBefore = 0.7;  // the clock of the watch and that of the kernel differ a little
    EXPECT_EQ(account(ends).parts.waiting, 0);
    EXPECT_EQ(account(ends).waitedBefore, 0);
}

// The kernel adds a wait when it is over. A thread that is ready from beginning to end and has done nothing is waiting.
TEST(Account, AReadyThreadThatDidNothingWaits) {
    ThreadInterval waits = interval(0, 0, 0);
    waits.state = 'R';
    EXPECT_EQ(account(waits).parts.sum(), 0) << "it has been woken just now";
    waits.wasReady = true;
    EXPECT_NEAR(account(waits).parts.waiting, 0.25, 1e-9);
    waits.state = 'S';
    EXPECT_EQ(account(waits).parts.sum(), 0);
    waits.now.turns += 1;
    waits.state = 'R';
    EXPECT_EQ(account(waits).parts.sum(), 0);
}

// It was on its processor all the time, or its wait was counted before its turn was.
TEST(Account, AThreadThatDidSomethingWithoutATurnWasNeitherReadyNorBlockedAllTheTime) {
    for (const auto& [ran, waited] : {std::pair(0.05, 0.0), std::pair(0.0, 0.05)}) {
        ThreadInterval goesOn = interval(ran, waited, 0);
        goesOn.wasReady = true;
        goesOn.state = 'R';
        EXPECT_NEAR(account(goesOn).parts.waiting, waited, 1e-9);
        goesOn.state = 'D';
        EXPECT_EQ(account(goesOn).parts.blocked, 0);
    }
}

TEST(Account, ThrottledTimeIsTakenOutOfWaiting) {
    ThreadInterval throttled = interval(0.05, 0.15);
    throttled.throttledSeconds = 0.12;
    EXPECT_NEAR(account(throttled).parts.throttled, 0.12, 1e-9);
    EXPECT_NEAR(account(throttled).parts.waiting, 0.03, 1e-9);
    throttled.throttledSeconds = 0.5;  // of two processors
    EXPECT_NEAR(account(throttled).parts.throttled, 0.15, 1e-9);
    EXPECT_NEAR(account(throttled).parts.waiting, 0, 1e-9);
}

TEST(Account, AStoppedThreadHasNoSlack) {
    for (const char state : {'T', 't'}) {
        ThreadInterval stopped = interval(0.05, 0);
        stopped.state = state;
        EXPECT_NEAR(account(stopped).parts.stopped, 0.20, 1e-9);
    }
}

TEST(Account, BlockedTimeIsTheShareOfLooks) {
    ThreadInterval blocked = interval(0.01, 0, 5);
    blocked.state = 'D';
    blocked.samples = {20, 10};
    EXPECT_NEAR(account(blocked).parts.blocked, 0.125, 1e-9);
    EXPECT_NEAR(account(blocked).blockedAtOnce, 0.025, 1e-9);
    blocked.samples = {20, 20};
    EXPECT_NEAR(slack(account(blocked)), 0, 1e-9);
}

// A look or two that meet a thread blocked tell nothing of one that ran in between; of one that did nothing, all.
TEST(Account, AFewLooksAreNoShare) {
    ThreadInterval blocked = interval(0.01, 0, 5);
    blocked.state = 'D';
    blocked.samples = {2, 2};
    EXPECT_EQ(account(blocked).parts.blocked, 0);
    blocked.samples = {3, 1};
    EXPECT_NEAR(account(blocked).parts.blocked, 0.25 / 3, 1e-9);
    ThreadInterval still = interval(0, 0, 0);
    still.state = 'D';
    EXPECT_NEAR(account(still).parts.blocked, 0.25, 1e-9);
    EXPECT_NEAR(account(still).blockedAtOnce, 0.25, 1e-9);
}

TEST(Account, DelayAccountingIsBelievedWhereItTellsMore) {
    ThreadInterval blocked = interval(0.01, 0, 5);
    blocked.blockedSeconds = 0.1;
    EXPECT_NEAR(account(blocked).parts.blocked, 0.1, 1e-9);
    blocked.state = 'D';
    blocked.samples = {10, 8};
    EXPECT_NEAR(account(blocked).parts.blocked, 0.2, 1e-9);
}

// 25 % of what the machine's processors could do was taken: a thread that ran for 0.1 s needed 0.033 s more.
TEST(Account, StolenTimeGoesWithRunning) {
    ThreadInterval stolen = interval(0.09, 0);
    stolen.stolenPerBusy = 1.0 / 3;
    EXPECT_NEAR(account(stolen).parts.stolen, 0.03, 1e-9);
    stolen.stolenPerBusy = 9;
    EXPECT_NEAR(slack(account(stolen)), 0, 1e-9);
}

TEST(Account, CountersThatGoBackAreAnotherThreads) {
    ThreadInterval back = interval(0, 0, 0);
    back.now = {1, 2, 3};
    EXPECT_EQ(account(back).parts.sum(), 0);
    EXPECT_EQ(account(back).turns, 0u);
}

TEST(Account, NothingIsLongerThanTheInterval) {
    for (const double seconds : {0.0, 0.001, 0.25}) {
        ThreadInterval all = interval(9, 9);
        all.seconds = seconds;
        all.state = 'T';
        all.samples = {5, 5};
        all.stolenPerBusy = 9;
        all.throttledSeconds = 9;
        EXPECT_LE(account(all).parts.sum(), seconds + 1e-12);
    }
}

// --- late turns -----------------------------------------------------------------------------------------------------

double late(std::uint64_t turns, double milliseconds) {
    return lateTurns({0, 100, 50}, {0, 100 + nanoseconds(milliseconds / 1000), 50 + turns}, 0.010);
}

TEST(LateTurns, AreExactForSingleTurns) {
    EXPECT_EQ(late(0, 0), 0);
    EXPECT_EQ(late(1, 0), 0);
    EXPECT_EQ(late(0, 500), 0) << "a wait that was counted before its turn was";
    EXPECT_EQ(late(1, 9.9), 0);
    EXPECT_EQ(late(1, 10), 0) << "no longer than the tolerance";
    EXPECT_EQ(late(1, 10.1), 1);
    EXPECT_EQ(late(1, 500), 1);
}

TEST(LateTurns, OfAFewTurnsAreThoseThatTheirWaitsAreEnoughFor) {
    EXPECT_EQ(late(2, 12), 1);
    EXPECT_EQ(late(3, 25), 2);
    EXPECT_EQ(late(2, 90), 2);
    EXPECT_EQ(late(3, 9), 0);
    EXPECT_NEAR(late(4, 40), 4 * std::exp(-1), 1e-9) << "four are many";
}

TEST(LateTurns, OfManyTurnsFollowTheMeanWait) {
    EXPECT_NEAR(late(100, 500) / 100, 0.135, 0.001);    // 5 ms on average
    EXPECT_NEAR(late(100, 100) / 100, 0.00005, 0.001);  // 1 ms
    EXPECT_NEAR(late(100, 10000) / 100, 0.905, 0.001);  // 100 ms
    EXPECT_EQ(late(1000, 9), 0);
}

TEST(LateTurns, CountersThatGoBackTellNothing) { EXPECT_EQ(lateTurns({9, 9, 9}, {1, 1, 1}, 0.010), 0); }

// --- threads that do not count --------------------------------------------------------------------------------------

TEST(IsRuntimeThread, KnowsTheNamesOfRuntimes) {
    for (const char* const name : {"C2 CompilerThre", "C1 CompilerThre", "GC Thread#0", "G1 Main Marker", "VM Thread",
                                   "VM Periodic Tas", "V8 DefaultWorke", ".NET Tiered Com", ".NET Server GC"}) {
        EXPECT_TRUE(isRuntimeThread(name)) << name;
    }
    for (const char* const name : {"", "PMLoadEngineMai", "Thread-12", "python3", "node", "wrk", "hey", "VM", "C",
                                   "http-nio-8080-e", "libuv-worker", "Compiler"}) {
        EXPECT_FALSE(isRuntimeThread(name)) << name;
    }
}

}  // namespace
