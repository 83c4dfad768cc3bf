// Judging made-up runs: the share in which engines were held back, why, and the outcome.
#include <cmath>
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Runs.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<Reason> reasons(const Judged& judged) {
    std::vector<Reason> found;
    for (const Stretch& stretch : judged.engines.at(0).stretches) found.push_back(stretch.reason);
    return found;
}

// --- single situations ----------------------------------------------------------------------------------------------

// What was measured with engines that know how late they sent: ran and waited in per cent, and whether they were late.
TEST(Judgement, TellsTheMeasuredSituationsApart) {
    const struct {
        const char* situation;
        Did did;
        double othersBusy;  // processors
        bool late;
        Reason reason;
    } rows[] = {
        {"light", {5, 0}, 0, false, {}},
        {"busy but on time", {55, 0.3}, 0.5, false, {}},
        {"beside two hogs of low priority", {10, 0.1}, 1.9, false, {}},
        {"twenty engines that share the processors", {8.5, 12.4}, 1.6, false, {}},
        {"one thread asked for more than a processor", {100, 0}, 0, true, Reason::OwnWork},
        {"four equal hogs", {42, 58}, 1.6, true, Reason::OtherPrograms},
        {"one hog on the engine's only processor", {50, 50}, 0.6, true, Reason::OtherPrograms},
        {"another engine's threads have the processors", {50, 50}, 0.4, true, Reason::Crowded},
        {"quota of 20 %, 30 % needed", {20, 11, 69}, 0, true, Reason::Quota},
        {"stopped", {0, 0, 0, 0, 100}, 0, true, Reason::Stopped},
        {"blocked", {1, 0, 0, 99}, 0, true, Reason::Blocked},
    };
    for (const auto& row : rows) {
        const Judged judged = MadeRun().engine(10, row.did, row.othersBusy).judged();
        EXPECT_EQ(judged.outcome, row.late ? Outcome::Spoiled : Outcome::Clean) << row.situation;
        EXPECT_NEAR(judged.share.value_or(-1), row.late ? 1 : 0, 1e-9) << row.situation;
        if (row.late) {
            EXPECT_THAT(reasons(judged), ElementsAre(row.reason)) << row.situation;
        } else {
            EXPECT_THAT(reasons(judged), IsEmpty()) << row.situation;
        }
    }
}

// Six hogs for two seconds of ten: no slack while they are there and while the engine catches up.
TEST(Judgement, AShortDisturbanceCountsWithTheTimeItTakesToCatchUp) {
    const Judged judged =
        MadeRun().engine(4, {30, 1}).engine(2, {30, 70}, 1.7).engine(0.5, {100, 0}).engine(3.5, {30, 1}).judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_NEAR(*judged.share, 0.25, 1e-9);
    EXPECT_EQ(judged.believed, 75.0);
    ASSERT_EQ(judged.engines[0].stretches.size(), 1u);
    EXPECT_EQ(judged.engines[0].stretches[0].reason, Reason::OtherPrograms);
    EXPECT_NEAR(judged.engines[0].stretches[0].from, 4, 1e-9);
    EXPECT_NEAR(judged.engines[0].stretches[0].to, 6.5, 1e-9);
}

TEST(Judgement, FourSecondsOfFullStopInAMinuteSpoilTheNinetyNinthPercentile) {
    const Judged judged = MadeRun().engine(30, {5, 0}).engine(4, {0, 0, 0, 0, 100}).engine(26, {5, 0}).judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_EQ(judged.believed, 93.3);
}

TEST(Judgement, ThePercentileAskedForDecides) {
    const auto judgedFor = [](double percentile) {
        JudgeLimits limits;
        limits.percentile = percentile;
        return MadeRun(limits).engine(59, {5, 0}).engine(1, {100, 0}).judged().outcome;
    };
    EXPECT_EQ(judgedFor(98), Outcome::Clean);
    EXPECT_EQ(judgedFor(98.4), Outcome::Spoiled);
    EXPECT_EQ(judgedFor(99.9), Outcome::Spoiled);
}

TEST(Judgement, ThePercentileIsRoundedDown) {
    EXPECT_EQ(MadeRun().engine(59, {5, 0}).engine(1, {100, 0}).judged().believed, 98.3);
    EXPECT_EQ(MadeRun().engine(99, {5, 0}).engine(1, {100, 0}).judged().believed, 99.0);
    EXPECT_EQ(MadeRun().engine(99, {5, 0}).engine(1, {100, 0}).judged().outcome, Outcome::Clean);
    EXPECT_EQ(MadeRun().engine(10, {5, 0}).judged().believed, 100.0);
}

TEST(Judgement, LateTurnsSpoilTheirShareOfAnInterval) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 10}, evidence.from));
                                        evidence.engines[0].lateTurns = 23;
                                    })
                              .judged();
    EXPECT_NEAR(*judged.share, 0.23, 1e-9);
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::WokenLate));
}

// An engine in a quota also waits for other programs; whichever made it wait for longer is the reason to repair.
TEST(Judgement, LateTurnsAreTheQuotasWhereItKeptTheThreadWaitingForLonger) {
    const auto judgedWith = [](const Did& did) {
        return MadeRun()
            .each(10,
                  [&did](Evidence& evidence) {
                      evidence.engines.push_back(engineThat(did, evidence.from));
                      evidence.engines[0].lateTurns = 90;
                  })
            .judged();
    };
    EXPECT_THAT(reasons(judgedWith({10, 20, 40})), ElementsAre(Reason::Quota));
    EXPECT_THAT(reasons(judgedWith({10, 40, 20})), ElementsAre(Reason::WokenLate));
    EXPECT_THAT(reasons(judgedWith({10, 30, 30})), ElementsAre(Reason::WokenLate)) << "not for longer";
    EXPECT_NEAR(*judgedWith({10, 20, 40}).share, 0.9, 1e-9);
}

// What its busiest thread did tells the reason only where that had no slack.
TEST(Judgement, LateTurnsOfABusyEngineAreNotTheReasonOfItsBusiestThread) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({60, 10}, evidence.from));
                                        evidence.engines[0].lateTurns = 23;
                                    })
                              .judged();
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::WokenLate));
}

// Throttled for 40 ms at once: what is due in that time is late, whatever slack there is.
TEST(Judgement, AQuotaSpoilsTheTimeInWhichItIsUsedUp) {
    const auto judgedWith = [](std::optional<std::uint64_t> times) {
        return MadeRun()
            .each(10,
                  [times](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({15, 0, 40}, evidence.from));
                      evidence.engines[0].group.timesThrottled = times;
                  })
            .judged();
    };
    EXPECT_NEAR(*judgedWith(2).share, 0.4, 1e-9);
    EXPECT_THAT(reasons(judgedWith(2)), ElementsAre(Reason::Quota));
    EXPECT_NEAR(*judgedWith(1).share, 0.4, 1e-9);
    EXPECT_EQ(judgedWith(10).share, 0);  // 10 ms at once, which is the tolerance
    EXPECT_EQ(judgedWith(0).share, 0) << "it was used up in no period";
    EXPECT_EQ(judgedWith(std::nullopt).share, 0) << "how long at once is not known";
}

// Bursts that use the quota up in each period in which there are any: what is due then waits for the next period.
TEST(Judgement, AQuotaThatIsUsedUpInEachPeriodSpoilsAllOfIt) {
    const auto judgedWith = [](std::uint64_t periods) {
        return MadeRun()
            .each(10,
                  [periods](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({15, 0, 40}, evidence.from));
                      evidence.engines[0].group.periods = periods;
                  })
            .judged();
    };
    EXPECT_NEAR(*judgedWith(2).share, 1, 1e-9);
    EXPECT_NEAR(*judgedWith(4).share, 0.4, 1e-9);
}

// Another process of the group used it up.
TEST(Judgement, AQuotaThatDidNotKeepTheEngineWaitingSpoilsNothing) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({15, 0}, evidence.from));
                                        evidence.engines[0].group.throttled = 0.1;
                                        evidence.engines[0].group.timesThrottled = 2;
                                        evidence.engines[0].group.periods = 2;
                                    })
                              .judged();
    EXPECT_EQ(judged.share, 0);
}

TEST(Judgement, AQuotaThatIsUsedUpInFourOfFivePeriodsSpoilsAllOfIt) {
    const auto judgedWith = [](std::uint64_t times) {
        return MadeRun()
            .each(10,
                  [times](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({15, 0, 40}, evidence.from));
                      evidence.engines[0].group.timesThrottled = times;
                      evidence.engines[0].group.periods = 5;
                  })
            .judged();
    };
    EXPECT_NEAR(*judgedWith(4).share, 1, 1e-9);
    EXPECT_NEAR(*judgedWith(3).share, 0.4, 1e-9);
}

TEST(Judgement, BlockedTimesCountWhereTheyAreLong) {
    const auto judgedWith = [](double atOnce) {
        return MadeRun()
            .each(10,
                  [atOnce](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0, 0, 30}, evidence.from));
                      evidence.engines[0].busiest->blockedAtOnce = atOnce;
                  })
            .judged();
    };
    EXPECT_NEAR(*judgedWith(0.02).share, 0.3, 1e-9);
    EXPECT_EQ(judgedWith(0.010).share, 0) << "no longer than the tolerance";
}

// A request can meet several pages.
TEST(Judgement, ShortBlockedTimesCountWherePagesAreReadFromADisk) {
    const auto judgedWith = [](double atOnce) {
        return MadeRun()
            .each(10,
                  [atOnce](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0, 0, 30}, evidence.from));
                      evidence.engines[0].busiest->blockedAtOnce = atOnce;
                      evidence.engines[0].faulting = true;
                  })
            .judged();
    };
    EXPECT_NEAR(*judgedWith(0.0026).share, 0.3, 1e-9);
    EXPECT_EQ(judgedWith(0.0024).share, 0) << "four of them are within the tolerance";
}

TEST(Judgement, UsedUpDescriptorsAndPortsHoldBackAnIdleEngine) {
    EXPECT_THAT(reasons(judgedWithUsage(1, 0.5)), ElementsAre(Reason::Descriptors));
    EXPECT_THAT(reasons(judgedWithUsage(0.5, 1)), ElementsAre(Reason::Ports));
    EXPECT_EQ(judgedWithUsage(0.9, 0.9).outcome, Outcome::Clean);
}

TEST(Judgement, AThreadThatLeavesOneInTwentyHasSlack) {
    EngineEvidence engine = engineThat({}, 0);
    engine.to = 20;
    engine.busiest->seconds = 20;
    const auto noSlackWith = [&engine](double ran) {
        engine.busiest->parts.running = ran;
        return heldBackIn(engine, {}).noSlack;
    };
    EXPECT_FALSE(noSlackWith(19));
    EXPECT_TRUE(noSlackWith(19.125));
    engine.busiest->seconds = 0;
    EXPECT_FALSE(noSlackWith(0.1)) << "seen for the first time";
}

TEST(Judgement, AThreadThatRanForNineTenthsHasTooMuchWorkOfItsOwn) {
    EXPECT_EQ(reasonOf({9, 1}, 1, 0), Reason::OwnWork);
    EXPECT_EQ(reasonOf({8.75, 1.25}, 1, 0), Reason::Crowded);
    EXPECT_EQ(reasonOf({8.75, 1.25}, 1, 1), Reason::OtherPrograms) << "that took as much";
}

TEST(Judgement, WhatIsKnownOfAnIntervalCounts) {
    EngineEvidence engine = engineThat({10, 0, 0, 0, 20, 10}, 0);
    EXPECT_NEAR(heldBackIn(engine, {0.010, 0.025}).seconds, 0.075, 1e-9) << "stopped and stolen";
    engine = engineThat({5, 0}, 0);
    engine.portsAtMost = true;
    EXPECT_FALSE(heldBackIn(engine, {}).perhaps) << "no port is known to be in use";
    engine.turns = 1;
    engine.lateTurns = 1;
    EXPECT_EQ(heldBackIn(engine, {}).seconds, kInterval);
    engine.turns = 0;
    EXPECT_EQ(heldBackIn(engine, {}).seconds, 0);
    engine.to = 2;
    EXPECT_EQ(inDoubtIn(engine, {}), 0);
    engine.to = 2.25;
    EXPECT_EQ(inDoubtIn(engine, {}), 2.25) << "too long to tell";
}

// How long others had the processors could not be read.
TEST(Judgement, OnlyWhatOthersAreKnownToHaveTakenIsTheirs) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({50, 50}, evidence.from));
                                    })
                              .judged();
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::Crowded));
}

TEST(Judgement, TheReasonOfAStretchIsTheOneThatTookLongest) {
    const auto reasonsWith = [](double descriptors, double ports) {
        return reasons(MadeRun()
                           .each(descriptors,
                                 [](Evidence& evidence) {
                                     evidence.engines.push_back(engineThat({5}, evidence.from));
                                     evidence.engines[0].descriptorShare = 1;
                                 })
                           .each(ports,
                                 [](Evidence& evidence) {
                                     evidence.engines.push_back(engineThat({5}, evidence.from));
                                     evidence.engines[0].portShare = 1;
                                 })
                           .engine(1, {100})
                           .judged());
    };
    EXPECT_THAT(reasonsWith(2, 3), ElementsAre(Reason::Ports));
    EXPECT_THAT(reasonsWith(3, 2), ElementsAre(Reason::Descriptors));
    EXPECT_THAT(reasonsWith(0.75, 0.5), ElementsAre(Reason::OwnWork));
}

// --- what may have held an engine back ------------------------------------------------------------------------------

// A hypervisor that took this much from a thread, in turns so long that pmenv's own timer was late as well, or shorter.
Judged judgedWithStolen(double seconds, const Did& did, bool wokeLate) {
    MadeRun run;
    run.engine(10 - seconds, {50, 0});
    run.each(seconds, [&](Evidence& evidence) {
        evidence.engines.push_back(engineThat(did, evidence.from));
        evidence.machine.stolen = did.stolen / 100 * kInterval;
        evidence.wakes.late = wokeLate ? 1 : 0;
    });
    return run.judged();
}

TEST(Judgement, AHypervisorThatTakesLongTurnsHoldsBack) {
    const Judged judged = judgedWithStolen(10, {50, 0, 0, 0, 0, 50}, true);
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_NEAR(*judged.share, 0.5, 1e-9);
    EXPECT_NEAR(judged.engines.at(0).perhapsShare, 1, 1e-9) << "for the rest of the time it cannot be told";
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::Stolen));
}

// What is due in such a turn is late, whatever slack there is.
TEST(Judgement, WhatAHypervisorTakesInLongTurnsCounts) {
    const Judged judged = judgedWithStolen(10, {50, 0, 0, 0, 0, 20}, true);
    EXPECT_NEAR(*judged.share, 0.2, 1e-9);
    EXPECT_NEAR(judged.engines.at(0).perhapsShare, 0.2, 1e-9);
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::Stolen));
}

// One that is asked for more than its processor can do does not sleep.
TEST(Judgement, AThreadThatDidNotSleepHadNoSlackHoweverMuchWasStolen) {
    const auto judgedWith = [](std::uint64_t sleeps) {
        return MadeRun()
            .each(10,
                  [sleeps](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({90, 0, 0, 0, 0, 7}, evidence.from));
                      evidence.engines[0].busiest->sleeps = sleeps;
                  })
            .judged();
    };
    EXPECT_EQ(judgedWith(0).outcome, Outcome::Spoiled);
    EXPECT_EQ(judgedWith(0).share, 1);
    EXPECT_THAT(reasons(judgedWith(0)), ElementsAre(Reason::OwnWork));
    EXPECT_EQ(judgedWith(1).doubt, Doubt::Stolen);
}

TEST(Judgement, OfAThreadWithoutSlackTheHypervisorMayHaveTakenMost) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({20, 0, 0, 0, 0, 75}, evidence.from));
                                        evidence.engines[0].busiest->sleeps = 0;
                                    })
                              .judged();
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::Stolen));
    EXPECT_NEAR(judged.engines.at(0).parts.stolen, 7.5, 1e-9) << "of ten seconds";
}

// A thread that has little to do is late when it is due in such a turn, as pmenv's own timer is.
TEST(Judgement, AHypervisorThatTakesLongTurnsMakesLightSleepersLate) {
    const auto judgedWith = [](double stolen, std::uint64_t late, int processors = 2) {
        return MadeRun()
            .each(10,
                  [=](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({2, 0}, evidence.from));
                      evidence.machine.processors = processors;
                      evidence.machine.stolen = stolen;
                      evidence.wakes.late = late;
                  })
            .judged();
    };
    EXPECT_NEAR(*judgedWith(0.2, 5).share, 5.0 / 25, 1e-9) << "as often as pmenv woke late";
    EXPECT_NEAR(*judgedWith(0.02, 5).share, 0.01 / kInterval, 1e-9)
        << "not longer than each of two processors was taken";
    EXPECT_NEAR(*judgedWith(0.02, 5, 1).share, 0.02 / kInterval, 1e-9);
    EXPECT_NEAR(*judgedWith(0.5, 99).share, 1, 1e-9);
    EXPECT_THAT(reasons(judgedWith(0.1, 5)), ElementsAre(Reason::Stolen));
    EXPECT_EQ(judgedWith(0, 5).share, 0) << "pmenv woke late for another reason";
    EXPECT_EQ(judgedWith(0.1, 0).share, 0);
}

// The kernel does not tell how long the turns were: many short ones make no request late.
TEST(Judgement, WhetherAHypervisorThatTakesShortTurnsHoldsBackCannotBeTold) {
    const Judged judged = judgedWithStolen(2, {75, 0, 0, 0, 0, 21}, false);
    EXPECT_EQ(judged.outcome, Outcome::CannotTell);
    EXPECT_EQ(judged.doubt, Doubt::Stolen);
    EXPECT_EQ(judged.share, 0);
    EXPECT_FALSE(judged.believed);
    EXPECT_NEAR(judged.engines.at(0).perhapsShare, 0.2, 1e-9);
    EXPECT_NEAR(judged.engines.at(0).perhaps.at(Reason::Stolen).since, 8, 1e-9);
    EXPECT_THAT(reasons(judged), IsEmpty());
}

TEST(Judgement, StolenTimeThatLeavesSlackIsNoDoubt) {
    EXPECT_EQ(judgedWithStolen(10, {75, 0, 0, 0, 0, 19}, false).outcome, Outcome::Clean);
    EXPECT_EQ(judgedWithStolen(10, {75, 0, 0, 0, 0, 19}, false).engines.at(0).perhapsShare, 0);
}

TEST(Judgement, AThreadWithoutSlackIsHeldBackWhateverIsStolenBesides) {
    const Judged judged = judgedWithStolen(10, {96, 0, 0, 0, 0, 4}, false);
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_THAT(reasons(judged), ElementsAre(Reason::OwnWork));
}

TEST(Judgement, ADoubtThatIsSmallerThanThePercentileAllowsIsNone) {
    MadeRun run;
    run.engine(99.5, {50, 0}).engine(0.5, {75, 0, 0, 0, 0, 25});
    EXPECT_EQ(run.judged().outcome, Outcome::Clean);
    run.engine(1, {75, 0, 0, 0, 0, 25});
    EXPECT_EQ(run.judged().doubt, Doubt::Stolen);
}

TEST(Judgement, ADoubtCountsWithWhatIsCertain) {
    MadeRun run;
    run.engine(98.5, {50, 0}).engine(0.75, {100, 0}).engine(0.75, {75, 0, 0, 0, 0, 25});
    EXPECT_EQ(run.judged().doubt, Doubt::Stolen);
    EXPECT_NEAR(*run.judged().share, 0.0075, 1e-9);
    EXPECT_NEAR(run.judged().engines.at(0).perhapsShare, 0.015, 1e-9);
    run.engine(2, {100, 0});
    EXPECT_EQ(run.judged().outcome, Outcome::Spoiled);
    EXPECT_EQ(run.judged().doubt, Doubt::None);
}

// What is certain spoils the run, and what is in doubt may have spoiled more of it.
TEST(Judgement, NoPercentileCanBeBelievedBesideADoubt) {
    MadeRun run;
    run.engine(98, {50, 0}).engine(2, {100, 0});
    EXPECT_EQ(run.judged().believed, 98);
    run.engine(50, {75, 0, 0, 0, 0, 25});
    EXPECT_EQ(run.judged().outcome, Outcome::Spoiled);
    EXPECT_FALSE(run.judged().believed);
}

TEST(Judgement, NoPercentileCanBeBelievedWhereSomethingElseSpoils) {
    JudgeLimits limits;
    limits.engines = 2;
    const Judged judged = MadeRun(limits).engine(98, {50, 0}).engine(0.5, {100, 0}).judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_FALSE(judged.believed);
}

// 99.9 was told for a run of which 99.96 could be believed.
TEST(Judgement, OfACleanRunAtLeastThePercentileAskedForCanBeBelieved) {
    JudgeLimits limits;
    limits.percentile = 99.95;
    const Judged judged = MadeRun(limits).engine(749.75, {50, 0}).engine(0.25, {100, 0}).judged();
    EXPECT_EQ(judged.outcome, Outcome::Clean);
    EXPECT_EQ(judged.believed, 99.95);
}

// Of one interval, what is certain is not in doubt as well.
TEST(Judgement, ADoubtIsOfTheRestOfAnInterval) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({75, 0, 0, 0, 0, 25}, evidence.from));
                                        evidence.engines[0].lateTurns = 0.5;  // of 100
                                    })
                              .judged();
    EXPECT_NEAR(*judged.share, 0.005, 1e-9);
    EXPECT_NEAR(judged.engines.at(0).perhaps.at(Reason::Stolen).seconds, 9.95, 1e-9);
    EXPECT_NEAR(judged.engines.at(0).perhapsShare, 1, 1e-9);
}

// It counts as if it had run for a tenth of the watch, which is a second.
TEST(Judgement, ADoubtOfAMomentCountsItsTenth) {
    MadeRun run;
    run.engine(9.5, {5, 0});
    run.each(0.5, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
        evidence.engines.push_back(engineThat({75, 0, 0, 0, 0, 25}, evidence.from, 200));
    });
    EXPECT_NEAR(run.judged().engines.at(1).perhapsShare, 0.5, 1e-9);
    EXPECT_EQ(run.judged().doubt, Doubt::Stolen);
}

TEST(Judgement, PortsThatMayBeUsedUpAreADoubtAndThoseThatAreNotAreFine) {
    const auto judgedWith = [](double ports, double seconds) {
        return MadeRun()
            .engine(10 - seconds, {5, 0})
            .each(seconds,
                  [ports](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                      evidence.engines[0].portShare = ports;
                      evidence.engines[0].portsAtMost = true;
                  })
            .judged();
    };
    const Judged usedUpPerhaps = judgedWith(0.90, 1);
    EXPECT_EQ(usedUpPerhaps.outcome, Outcome::CannotTell);
    EXPECT_EQ(usedUpPerhaps.doubt, Doubt::Ports);
    EXPECT_NEAR(usedUpPerhaps.engines.at(0).perhaps.at(Reason::Ports).seconds, 1, 1e-9);
    EXPECT_FALSE(usedUpPerhaps.engines.at(0).mostPorts) << "the share is not known";
    EXPECT_EQ(judgedWith(0.89, 10).outcome, Outcome::Clean);
    EXPECT_EQ(judgedWith(0.89, 10).engines.at(0).mostPorts, 0.89);
}

TEST(Judgement, TheLongerOfTwoDoubtsIsTold) {
    const auto judgedWith = [](double portsSeconds) {
        MadeRun run;
        run.engine(10 - portsSeconds, {75, 0, 0, 0, 0, 25});
        return run
            .each(portsSeconds,
                  [](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                      evidence.engines[0].portShare = 1;
                      evidence.engines[0].portsAtMost = true;
                  })
            .judged();
    };
    EXPECT_EQ(judgedWith(6).doubt, Doubt::Ports);
    EXPECT_EQ(judgedWith(4).doubt, Doubt::Stolen);
    EXPECT_EQ(judgedWith(5).doubt, Doubt::Stolen) << "which is the first where both are as long";
}

// --- several engines ------------------------------------------------------------------------------------------------

TEST(Judgement, TheWorstEngineDecidesAndStandsFirst) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1));
                                        evidence.engines.push_back(engineThat({100, 0}, evidence.from, 2));
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 3));
                                    })
                              .judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_EQ(judged.engines[0].key.pid, 2);
    EXPECT_EQ(judged.share, 1);
}

// A helper that works for a moment and ends made no tenth of the load.
TEST(Judgement, AnEngineOfAMomentCountsLittle) {
    MadeRun run;
    run.each(1, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1));
        evidence.engines.push_back(engineThat({100, 0}, evidence.from, 2));
    });
    run.each(99, [](Evidence& evidence) { evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1)); });
    EXPECT_NEAR(*run.judged().share, 0.1, 1e-9);
}

// An engine that came late is measured by the time that is judged, not by the clock.
TEST(Judgement, AnEngineOfAMomentBehindWhatIsSkippedCountsItsTenth) {
    JudgeLimits limits;
    limits.skip = 50;
    MadeRun run(limits);
    run.engine(55, {5, 0});
    run.each(0.5, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({0, 0, 0, 0, 100}, evidence.from, 2));
    });
    EXPECT_NEAR(run.engine(4.5, {5, 0}).judged().share.value_or(-1), 0.5, 1e-9) << "half a second of one";
}

TEST(Judgement, TheBusiestThreadIsTheOneThatWasSoMostOften) {
    MadeRun run;
    run.each(10, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({20, 1}, evidence.from));
        const bool first = evidence.from < 3;
        evidence.engines[0].busiest->tid = first ? 103 : 102;
        evidence.engines[0].busiest->name = first ? "starter" : "worker";
    });
    const Judged judged = run.judged();
    const JudgedEngine& engine = judged.engines.at(0);
    EXPECT_EQ(engine.tid, 102);
    EXPECT_EQ(engine.thread, "worker");
    EXPECT_NEAR(engine.parts.running, 2, 1e-9) << "of ten seconds";
    EXPECT_NEAR(engine.parts.waiting, 0.1, 1e-9);
    EXPECT_NEAR(engine.slack, 7.9, 1e-9);
    EXPECT_NEAR(engine.waited, 0.1, 1e-9);
    EXPECT_EQ(engine.turns, 4000u);
    EXPECT_EQ(MadeRun().engine(kInterval, {5, 0}).judged().engines.at(0).thread, "sender") << "in one interval";
}

TEST(Judgement, AnIdThatIsUsedAgainIsAnotherEngine) {
    MadeRun run;
    run.engine(5, {5, 0});
    run.each(5, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
        evidence.engines[0].key.startTicks = 9000;
    });
    EXPECT_EQ(run.judged().engines.size(), 2u);
}

TEST(Judgement, StretchesThatLieNearAreOne) {
    MadeRun near, far;
    for (int i = 0; i < 10; ++i) near.engine(0.25, {100, 0}).engine(1, {5, 0});
    for (int i = 0; i < 10; ++i) far.engine(0.25, {100, 0}).engine(1.25, {5, 0});
    EXPECT_EQ(near.judged().engines[0].stretches.size(), 1u);
    EXPECT_NEAR(near.judged().engines[0].stretches[0].seconds, 2.5, 1e-9);
    EXPECT_EQ(far.judged().engines[0].stretches.size(), 10u);
}

TEST(Judgement, AskingInTheMiddleChangesNothing) {
    MadeRun run;
    run.engine(2, {100, 0});
    EXPECT_EQ(run.judged().engines[0].stretches.size(), 1u);
    run.engine(2, {100, 0}).engine(6, {5, 0});
    EXPECT_EQ(run.judged().engines[0].stretches.size(), 1u);
    EXPECT_NEAR(*run.judged().share, 0.4, 1e-9);
}

// --- what cannot be told --------------------------------------------------------------------------------------------

TEST(Judgement, WithoutAnEngineNothingCanBeTold) {
    const Judged judged = MadeRun().each(60, [](Evidence&) {}).judged();
    EXPECT_EQ(judged.outcome, Outcome::CannotTell);
    EXPECT_EQ(judged.doubt, Doubt::NoEngine);
    EXPECT_FALSE(judged.believed);
    EXPECT_FALSE(judged.share);
}

TEST(Judgement, AShortWatchTellsNothing) {
    for (const Did& did : {Did{5, 0}, Did{100, 0}}) {
        const Judged judged = MadeRun().engine(1.5, did).judged();
        EXPECT_EQ(judged.outcome, Outcome::CannotTell);
        EXPECT_EQ(judged.doubt, Doubt::TooShort);
        EXPECT_FALSE(judged.believed);
        EXPECT_EQ(MadeRun().engine(2, did).judged().doubt, Doubt::None) << "two seconds are enough";
    }
}

TEST(Judgement, ANameThatWasNotSeenCannotBeClean) {
    EXPECT_EQ(MadeRun().engine(10, {5, 0}).judged(true).doubt, Doubt::NameNotSeen);
    EXPECT_EQ(MadeRun().engine(10, {100, 0}).judged(true).outcome, Outcome::Spoiled);
}

TEST(Judgement, AnEngineThatCannotBeReadCannotBeClean) {
    const auto withUnreadable = [](const Did& did) {
        return MadeRun()
            .each(10,
                  [&did](Evidence& evidence) {
                      evidence.engines.push_back(engineThat(did, evidence.from, 1));
                      evidence.engines.push_back(engineThat({}, evidence.from, 2));
                      evidence.engines[1].readable = false;
                      evidence.engines[1].busiest = std::nullopt;
                  })
            .judged();
    };
    EXPECT_EQ(withUnreadable({5, 0}).outcome, Outcome::CannotTell);
    EXPECT_EQ(withUnreadable({5, 0}).doubt, Doubt::NotReadable);
    EXPECT_EQ(withUnreadable({100, 0}).outcome, Outcome::Spoiled);
}

TEST(Judgement, WhatAnEngineLackedForCertainSpoilsAlsoWhereItCannotBeRead) {
    for (const auto share : {&EngineEvidence::descriptorShare, &EngineEvidence::portShare}) {
        const Judged judged = MadeRun()
                                  .each(10,
                                        [share](Evidence& evidence) {
                                            evidence.engines.push_back(engineThat({}, evidence.from));
                                            evidence.engines[0].readable = false;
                                            evidence.engines[0].busiest = std::nullopt;
                                            evidence.engines[0].*share = evidence.from < 5 ? 0.1 : 1.0;
                                        })
                                  .judged();
        EXPECT_EQ(judged.outcome, Outcome::Spoiled);
        EXPECT_NEAR(judged.share.value_or(-1), 0.5, 1e-9);
        EXPECT_EQ(judged.believed, std::nullopt) << "it may have lacked more";
    }
}

TEST(Judgement, NoPercentileCanBeBelievedWhereAnEngineIsMissingAndTheOtherCannotBeRead) {
    JudgeLimits limits;
    limits.engines = 2;
    const Judged judged = MadeRun(limits)
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({}, evidence.from));
                                        evidence.engines[0].readable = false;
                                        evidence.engines[0].busiest = std::nullopt;
                                    })
                              .judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_FALSE(judged.share);
    EXPECT_FALSE(judged.believed);
}

// It lacked descriptors for 8 % of the least time that counts, which p90 allows; what else it lacked is not known.
TEST(Judgement, IsNotCleanWhereNoEngineCouldBeRead) {
    JudgeLimits limits;
    limits.percentile = 90;
    const Judged judged = MadeRun(limits)
                              .each(0.5,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({}, evidence.from));
                                        evidence.engines[0].readable = false;
                                        evidence.engines[0].busiest = std::nullopt;
                                        evidence.engines[0].descriptorShare = 1.0;
                                    })
                              .each(60, [](Evidence&) {})
                              .judged();
    EXPECT_EQ(judged.outcome, Outcome::CannotTell);
    EXPECT_EQ(judged.doubt, Doubt::NotReadable);
}

TEST(Judgement, AnEngineThatCannotBeReadAnyMoreCannotBeClean) {
    const auto unreadableFor = [](double seconds) {
        return MadeRun()
            .engine(60 - seconds, {5, 0})
            .each(seconds,
                  [](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({}, evidence.from));
                      evidence.engines[0].readable = false;
                      evidence.engines[0].busiest = std::nullopt;
                  })
            .judged();
    };
    EXPECT_EQ(unreadableFor(30).doubt, Doubt::NotReadable);
    EXPECT_NEAR(unreadableFor(30).engines[0].unreadable, 30, 1e-9);
    EXPECT_NEAR(unreadableFor(20).engines[0].unreadableSince, 40, 1e-9);
    EXPECT_EQ(unreadableFor(1).doubt, Doubt::NotReadable) << "more than 1 %";
    EXPECT_EQ(unreadableFor(0.5).outcome, Outcome::Clean);
}

TEST(Judgement, AnEngineWhoseThreadsAreAllIgnoredCannotBeClean) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        evidence.engines[0].busiest = std::nullopt;
                                    })
                              .judged();
    EXPECT_EQ(judged.doubt, Doubt::NotReadable);
}

// Between two samples five seconds apart a disturbance of a second cannot be seen.
TEST(Judgement, WhatWasNotSeenCannotBeClean) {
    MadeRun run;
    run.engine(50, {5, 0});
    Evidence gap;
    gap.from = run.now();
    gap.to = gap.from + 5;
    gap.engines.push_back(engineThat({5, 0}, gap.from));
    gap.engines[0].to = gap.to;
    run.add(gap).engine(50, {5, 0});
    EXPECT_EQ(run.judged().doubt, Doubt::Unseen);
}

TEST(Judgement, TwoSecondsAreSeenThrough) {
    const auto doubtWith = [](double seconds) {
        MadeRun run;
        run.engine(10, {5, 0});
        Evidence pause = intervalFrom(run.now());
        pause.to = pause.from + seconds;
        pause.engines.push_back(engineThat({5, 0}, pause.from));
        pause.engines[0].to = pause.to;
        return run.add(pause).judged().doubt;
    };
    EXPECT_EQ(doubtWith(2), Doubt::None);
    EXPECT_EQ(doubtWith(2.25), Doubt::Unseen);
}

// Three seconds late in a run are less than one in twenty of it.
TEST(Judgement, AShortGapIsAllowedLikeAShortDisturbance) {
    JudgeLimits limits;
    limits.percentile = 95;
    MadeRun run(limits);
    run.engine(100, {5, 0});
    Evidence gap = intervalFrom(run.now());
    gap.to = gap.from + 3;
    gap.engines.push_back(engineThat({5, 0}, gap.from));
    gap.engines[0].to = gap.to;
    EXPECT_EQ(run.add(gap).judged().outcome, Outcome::Clean);
}

TEST(Judgement, OfARunWithoutTroubleEveryPercentileCanBeBelieved) {
    JudgeLimits limits;
    limits.percentile = 100;
    EXPECT_EQ(MadeRun(limits).engine(10, {5, 0}).judged().outcome, Outcome::Clean);
}

// For less than a second it is no doubt, however short the run; for more, the percentile decides, of the time in which
// the engine was there.
TEST(Judgement, AnEngineThatCannotBeReadForAMomentIsNoDoubt) {
    const auto doubtWith = [](double before, double seconds, double unreadable) {
        MadeRun run;
        run.each(before, [](Evidence& evidence) { evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1)); });
        run.each(seconds, [&](Evidence& evidence) {
            evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1));
            evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
            if (evidence.from >= before + 3 && evidence.from < before + 3 + unreadable) {
                evidence.engines[1].readable = false;
                evidence.engines[1].busiest = std::nullopt;
            }
        });
        return run.judged().doubt;
    };
    EXPECT_EQ(doubtWith(0, 10, 0.75), Doubt::None);
    EXPECT_EQ(doubtWith(0, 10, 1), Doubt::NotReadable);
    EXPECT_EQ(doubtWith(0, 200, 1.5), Doubt::None);
    EXPECT_EQ(doubtWith(0, 200, 2.5), Doubt::NotReadable);
    EXPECT_EQ(doubtWith(100, 100, 2), Doubt::NotReadable) << "of the half in which it was there";
}

TEST(Judgement, AnEngineMayBeUnreadableForAsLongAsThePercentileAllows) {
    JudgeLimits limits;
    limits.percentile = 75;
    const auto doubtWith = [&limits](double unreadable) {
        return MadeRun(limits)
            .engine(8 - unreadable, {5, 0})
            .each(unreadable,
                  [](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({}, evidence.from));
                      evidence.engines[0].busiest = std::nullopt;
                  })
            .judged()
            .doubt;
    };
    EXPECT_EQ(doubtWith(2), Doubt::None);
    EXPECT_EQ(doubtWith(2.25), Doubt::NotReadable);
}

TEST(Judgement, AWatcherThatWakesLateCannotCallARunClean) {
    const auto withLate = [](std::uint64_t late) {
        return MadeRun()
            .each(10,
                  [late](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                      evidence.wakes.wakes = 100;
                      evidence.wakes.late = late;
                  })
            .judged();
    };
    EXPECT_EQ(withLate(1).outcome, Outcome::Clean);
    EXPECT_EQ(withLate(2).doubt, Doubt::WatcherLate);
}

// --- incidents ------------------------------------------------------------------------------------------------------

EngineEnd endOf(int pid, double time, std::optional<int> status) {
    EngineEnd end;
    end.key = {pid, 5000};
    end.name = "PMLoadEngineMai";
    end.time = time;
    end.status = status;
    return end;
}

// Two engines for ten seconds; the first ends, and the second goes on as long as the third argument says.
Judged withEnd(std::optional<int> status, bool othersGoOn, bool replaced = false) {
    MadeRun run;
    run.each(10, [](Evidence& evidence) {
        for (const int pid : {1, 2}) evidence.engines.push_back(engineThat({5, 0}, evidence.from, pid));
    });
    run.each(0.25, [&](Evidence& evidence) { evidence.ends.push_back(endOf(1, evidence.to, status)); });
    run.each(10, [&](Evidence& evidence) {
        if (othersGoOn) evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
        if (replaced) evidence.engines.push_back(engineThat({5, 0}, evidence.from, 3));
    });
    return run.judged();
}

TEST(Judgement, AnEngineThatCrashesSpoilsTheRun) {
    for (const int status : {SIGSEGV, SIGKILL, SIGABRT | 0x80, 1 << 8}) {
        const Judged judged = withEnd(status, false);
        EXPECT_EQ(judged.outcome, Outcome::Spoiled) << status;
        ASSERT_EQ(judged.incidents.size(), 1u) << status;
        EXPECT_EQ(judged.incidents[0].pid, 1) << status;
        EXPECT_NEAR(judged.incidents[0].since, 10.25, 1e-9) << status;
        EXPECT_NEAR(*judged.share, 10 / 20.25, 1e-9) << status;  // its load is missing for the rest of the run
    }
}

TEST(Judgement, AnEngineThatEndsOrderlyIsToldOnly) {
    for (const int status : {0, SIGTERM, SIGINT, SIGHUP}) {
        const Judged judged = withEnd(status, true);
        EXPECT_EQ(judged.outcome, Outcome::Clean) << status;
        EXPECT_EQ(judged.incidents.size(), 1u) << status;
    }
}

TEST(Judgement, AnEngineThatEndsUnexplainedIsMissingWhereOthersGoOn) {
    EXPECT_EQ(withEnd(std::nullopt, true).outcome, Outcome::Spoiled);
    EXPECT_EQ(withEnd(std::nullopt, false).outcome, Outcome::Clean);
}

// Five quiet seconds behind the last engine made a run clean in which another had vanished in the middle.
TEST(Judgement, AnEngineThatEndsUnexplainedIsMissingThoughTheOthersHaveEndedSince) {
    const auto outcomeWith = [](double secondsAlone) {
        MadeRun run;
        run.each(10, [](Evidence& evidence) {
            for (const int pid : {1, 2}) evidence.engines.push_back(engineThat({5, 0}, evidence.from, pid));
        });
        run.each(0.25, [](Evidence& evidence) { evidence.ends.push_back(endOf(1, evidence.to, std::nullopt)); });
        run.each(secondsAlone, [](Evidence& evidence) {
            evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
        });
        run.each(0.25, [](Evidence& evidence) { evidence.ends.push_back(endOf(2, evidence.to, 0)); });
        return run.each(5, [](Evidence&) {}).judged().outcome;
    };
    EXPECT_EQ(outcomeWith(50), Outcome::Spoiled);
    EXPECT_EQ(outcomeWith(10.25), Outcome::Spoiled);
    EXPECT_EQ(outcomeWith(10), Outcome::Clean) << "engines end one by one";
}

TEST(Judgement, AnEngineThatEndsUnexplainedAMomentBeforeTheOthersIsNotMissing) {
    const auto outcomeWith = [](double secondsAlone) {
        MadeRun run;
        run.each(10, [](Evidence& evidence) {
            for (const int pid : {1, 2}) evidence.engines.push_back(engineThat({5, 0}, evidence.from, pid));
        });
        run.each(0.25, [](Evidence& evidence) { evidence.ends.push_back(endOf(1, evidence.to, std::nullopt)); });
        return run
            .each(secondsAlone,
                  [](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
                  })
            .judged()
            .outcome;
    };
    EXPECT_EQ(outcomeWith(2), Outcome::Clean);
    EXPECT_EQ(outcomeWith(2.25), Outcome::Spoiled);
}

TEST(Judgement, AnEngineThatIsReplacedIsTold) {
    const Judged judged = withEnd(SIGTERM, false, true);
    EXPECT_TRUE(judged.incidents.at(0).replaced);
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
}

// They were found in the same moment, and ran side by side.
TEST(Judgement, AnEngineThatBeganWithTheOneThatEndedDoesNotReplaceIt) {
    MadeRun run;
    run.each(10, [](Evidence& evidence) { evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1)); });
    Evidence found = intervalFrom(run.now());
    for (const int pid : {2, 3}) {
        found.engines.push_back(engineThat({}, found.from, pid));
        found.engines.back().from = found.engines.back().to;
    }
    run.add(found);
    run.each(10, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 3));
        if (evidence.from == 10.25) evidence.ends.push_back(endOf(2, 10.25, 0));
    });
    EXPECT_FALSE(run.judged().incidents.at(0).replaced);
}

TEST(Judgement, EndsOfDescendantsAreNotTold) {
    MadeRun run;
    run.engine(5, {5, 0});
    run.each(5, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
        EngineEnd end = endOf(7, evidence.to, SIGKILL);
        end.descendant = true;
        evidence.ends.push_back(end);
    });
    EXPECT_THAT(run.judged().incidents, IsEmpty());
}

TEST(Judgement, MissingEnginesSpoilTheRun) {
    JudgeLimits limits;
    limits.engines = 2;
    const auto with = [&limits](double seconds) {
        MadeRun run(limits);
        run.each(10, [](Evidence& evidence) {
            for (const int pid : {1, 2}) evidence.engines.push_back(engineThat({5, 0}, evidence.from, pid));
        });
        return run.engine(seconds, {5, 0}).judged();
    };
    EXPECT_EQ(with(0).outcome, Outcome::Clean);
    EXPECT_EQ(with(5).outcome, Outcome::Spoiled);
    EXPECT_EQ(with(5).incidents.at(0).worst, 1);
    EXPECT_NEAR(with(5).incidents.at(0).since, 10, 1e-9);
}

// As long as the percentile allows, of the time that is judged.
TEST(Judgement, EnginesMayBeMissingForAMoment) {
    JudgeLimits limits;
    limits.engines = 1;
    limits.skip = 50;
    const auto incidentsWith = [&limits](double missing) {
        MadeRun run(limits);
        run.engine(100, {5, 0}).each(missing, [](Evidence&) {});
        return run.engine(50 - missing, {5, 0}).judged().incidents.size();
    };
    EXPECT_EQ(incidentsWith(0.75), 0u);
    EXPECT_EQ(incidentsWith(1.5), 1u);
}

// --- limits that were set -------------------------------------------------------------------------------------------

TEST(Judgement, LimitsAddNothingUnlessTheyAreSet) {
    const Judged judged = MadeRun().engine(60, {94, 0}, 1.06).judged();
    EXPECT_EQ(judged.outcome, Outcome::Clean);
    EXPECT_THAT(judged.incidents, IsEmpty());
}

// A dip does not begin the time anew.
TEST(Judgement, PassingALimitForLongEnoughInAllSpoilsTheRun) {
    JudgeLimits limits;
    limits.machinePercent = 90;
    const auto with = [&limits](int times) {
        MadeRun run(limits);
        for (int i = 0; i < times; ++i) run.engine(2, {50, 0}, 1.45).engine(1, {50, 0}, 0);
        return run.judged();
    };
    EXPECT_EQ(with(4).outcome, Outcome::Clean);
    EXPECT_EQ(with(5).outcome, Outcome::Spoiled);
    EXPECT_NEAR(with(5).incidents.at(0).seconds, 10, 1e-9);
    EXPECT_NEAR(with(5).incidents.at(0).worst, 97.5, 1e-9);
}

TEST(Judgement, ALimitOfTheMachineCountsAlsoWhereItIsMoreIdleThanBusy) {
    JudgeLimits limits;
    limits.machinePercent = 24.75;
    EXPECT_EQ(MadeRun(limits).engine(20, {50, 0}).judged().incidents.size(), 1u);
    EXPECT_EQ(MadeRun(limits).engine(20, {49, 0}).judged().incidents.size(), 0u);
}

// Of an engine that was just found, the processor time of its life until then is known, and no time in which it was used.
TEST(Judgement, AnEnginesLimitIsNotPassedInNoTime) {
    JudgeLimits limits;
    limits.enginePercent = 60;
    MadeRun run(limits);
    Evidence found = intervalFrom(0);
    found.engines.push_back(engineThat({50, 0}, 0));
    found.engines[0].to = 0;
    run.add(found).engine(20, {75, 0});
    ASSERT_EQ(run.judged().incidents.size(), 1u);
    EXPECT_NEAR(run.judged().incidents[0].worst, 75, 1e-9);
    EXPECT_EQ(run.judged().incidents[0].since, kInterval);
}

TEST(Judgement, AnEnginesLimitIsOfOneProcessor) {
    JudgeLimits limits;
    limits.enginePercent = 60;
    EXPECT_EQ(MadeRun(limits).engine(20, {59, 0}).judged().outcome, Outcome::Clean);
    const Judged judged = MadeRun(limits).engine(20, {61, 0}).judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_EQ(judged.incidents.at(0).kind, Incident::Kind::EngineCpu);
    EXPECT_EQ(judged.incidents.at(0).pid, 100);
}

// The processors' limits are reached, the memory's is passed.
TEST(Judgement, ExactlyAtALimitProcessorsAreOverItAndMemoryIsNot) {
    JudgeLimits limits;
    limits.machinePercent = 75;
    MadeRun busy(limits);
    busy.each(20, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
        evidence.machine.busy = 0.375;
        evidence.machine.idle = 0.125;
    });
    EXPECT_EQ(busy.judged().incidents.size(), 1u);
    limits = {};
    limits.enginePercent = 60;
    EXPECT_EQ(MadeRun(limits).engine(20, {60, 0}).judged().incidents.size(), 1u);
    limits = {};
    limits.memoryPercent = 50;
    const auto withAvailable = [&limits](double share) {
        MadeRun run(limits);
        run.each(20, [share](Evidence& evidence) {
            evidence.engines.push_back(engineThat({5, 0}, evidence.from));
            evidence.machine.memoryAvailableShare = share;
        });
        return run.judged().incidents.size();
    };
    EXPECT_EQ(withAvailable(0.5), 0u);
    EXPECT_EQ(withAvailable(0.498), 1u);
}

TEST(Judgement, MemoryAndSwapHaveLimits) {
    JudgeLimits limits;
    limits.memoryPercent = 10;
    limits.swapMegabytes = 1;
    const auto with = [&limits](double available, std::uint64_t swap) {
        MadeRun run(limits);
        const auto fill = [](double share, std::uint64_t used) {
            return [share, used](Evidence& evidence) {
                evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                evidence.machine.memoryAvailableShare = share;
                evidence.machine.swapUsedBytes = used;
            };
        };
        return run.each(5, fill(0.5, 1000)).each(0.5, fill(available, 1000 + swap)).each(5, fill(0.5, 1000)).judged();
    };
    EXPECT_EQ(with(0.11, 1 << 20).outcome, Outcome::Clean);
    EXPECT_EQ(with(0.09, 0).incidents.at(0).kind, Incident::Kind::Memory);
    EXPECT_EQ(with(0.5, (1 << 20) + 1).incidents.at(0).kind, Incident::Kind::Swap);
}

// The memory is read less often than every interval. A minute without it was told as 15 seconds, or as 6.
TEST(Judgement, MemoryThatWasShortIsShortUntilItIsReadAgain) {
    JudgeLimits limits;
    limits.memoryPercent = 10;
    limits.swapMegabytes = 1;
    const Judged judged = MadeRun(limits)
                              .each(100,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        if (std::fmod(evidence.to, 10) != 0) return;
                                        const bool isShort = evidence.to > 20 && evidence.to <= 80;
                                        evidence.machine.memoryAvailableShare = isShort ? 0.05 : 0.5;
                                        evidence.machine.swapUsedBytes = isShort ? 5 << 20 : 1000;
                                    })
                              .judged();
    ASSERT_EQ(judged.incidents.size(), 2U);
    for (const Incident& incident : judged.incidents) {
        EXPECT_NEAR(incident.since, 20, 1e-9);
        EXPECT_NEAR(incident.seconds, 60, 1e-9);
    }
}

TEST(Judgement, AReadingDoesNotLastForEver) {
    JudgeLimits limits;
    limits.memoryPercent = 10;
    const Judged judged = MadeRun(limits)
                              .each(100,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        if (evidence.to == 10 || evidence.to == 50)
                                            evidence.machine.memoryAvailableShare = 0.05;
                                    })
                              .judged();
    EXPECT_NEAR(judged.incidents.at(0).seconds, 2 * kInterval, 1e-9);
}

TEST(Judgement, AKilledNeighbourInTheGroupIsToldOnly) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        evidence.engines[0].group.memoryKills = evidence.from == 5 ? 1 : 0;
                                    })
                              .judged();
    EXPECT_EQ(judged.incidents.at(0).kind, Incident::Kind::OutOfMemory);
    EXPECT_EQ(judged.outcome, Outcome::Clean);
}

TEST(Judgement, AnEngineThatWasKilledForMemoryIsToldWithTheGroup) {
    MadeRun run;
    run.engine(10, {5, 0});
    run.each(0.25, [](Evidence& evidence) {
        EngineEnd end = endOf(100, evidence.to, SIGKILL);
        end.memoryKills = 1;
        evidence.ends.push_back(end);
    });
    const Judged judged = run.judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    ASSERT_EQ(judged.incidents.size(), 2u);
    EXPECT_EQ(judged.incidents[0].kind, Incident::Kind::Ended);
    EXPECT_EQ(judged.incidents[1].kind, Incident::Kind::OutOfMemory);
    EXPECT_EQ(judged.incidents[1].since, 10);
    EXPECT_EQ(judged.engines.at(0).memoryKills, 1u);
}

// --- the time to skip -----------------------------------------------------------------------------------------------

TEST(Judgement, WhatIsSkippedIsNotJudged) {
    JudgeLimits limits;
    limits.skip = 5;
    MadeRun run(limits);
    const Judged judged = run.engine(5, {100, 0}).engine(10, {5, 0}).judged();
    EXPECT_EQ(judged.outcome, Outcome::Clean);
    EXPECT_EQ(judged.from, 5);
    EXPECT_EQ(judged.seconds, 10);
    EXPECT_EQ(judged.samples, 40u);
    EXPECT_EQ(judged.engines.at(0).from, 5);
    EXPECT_EQ(MadeRun().engine(5, {100, 0}).engine(10, {5, 0}).judged().outcome, Outcome::Spoiled);
}

TEST(Judgement, AnIntervalThatOnlyBeginsInTheTimeToSkipIsJudged) {
    JudgeLimits limits;
    limits.skip = 4.9;
    const Judged judged = MadeRun(limits).engine(5, {100, 0}).engine(10, {5, 0}).judged();
    EXPECT_EQ(judged.from, 4.75);
    EXPECT_EQ(judged.engines.at(0).heldBack, 0.25);
}

TEST(Judgement, PartOfASecondCanBeSkipped) {
    JudgeLimits limits;
    limits.skip = 0.5;
    EXPECT_EQ(MadeRun(limits).engine(10, {5, 0}).judged().from, 0.5);
}

TEST(Judgement, FindingsKeepTheirTimesBehindWhatIsSkipped) {
    JudgeLimits limits;
    limits.skip = 5;
    const Judged judged = MadeRun(limits).engine(7, {5, 0}).engine(3, {100, 0}).judged();
    EXPECT_EQ(judged.engines.at(0).stretches.at(0).from, 7);
    EXPECT_DOUBLE_EQ(judged.engines.at(0).share, 3.0 / 5);
}

TEST(Judgement, AnEndInTheTimeToSkipIsNotAFinding) {
    JudgeLimits limits;
    limits.skip = 5;
    const auto judged = [&limits](double end) {
        return MadeRun(limits)
            .each(10,
                  [end](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1));
                      if (evidence.from < end) evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
                      if (evidence.from == end) evidence.ends.push_back({{2, 5000}, "x", end, 9, false, false});
                  })
            .judged();
    };
    EXPECT_EQ(judged(3).outcome, Outcome::Clean);
    EXPECT_EQ(judged(7).outcome, Outcome::Spoiled);
}

TEST(Judgement, ProgramsAreToldWithoutWhatTheyUsedInTheTimeToSkip) {
    JudgeLimits limits;
    limits.skip = 5;
    const Judged judged = MadeRun(limits)
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        evidence.others = {{"cc1", evidence.to, 1}};
                                    })
                              .judged();
    EXPECT_EQ(judged.machine.others.at(0).seconds, 5);
}

TEST(Judgement, ARunThatEndsInTheTimeToSkipIsTooShort) {
    JudgeLimits limits;
    limits.skip = 60;
    const Judged judged = MadeRun(limits).engine(30, {100, 0}).judged();
    EXPECT_EQ(judged.outcome, Outcome::CannotTell);
    EXPECT_EQ(judged.doubt, Doubt::TooShort);
    EXPECT_EQ(judged.seconds, 0);
}

// --- stand-ins ------------------------------------------------------------------------------------------------------

EngineEvidence standInThat(const Did& did, double from, int pid) {
    EngineEvidence engine = engineThat(did, from, pid);
    engine.standIn = true;
    return engine;
}

TEST(Judgement, StandInsCountAsLongAsNoEngineIsSeen) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(standInThat({100, 0}, evidence.from, 1));
                                    })
                              .judged();
    EXPECT_EQ(judged.outcome, Outcome::Spoiled);
    EXPECT_EQ(judged.engines.size(), 1u);
}

// A script that starts the engines is busy before and beside them.
TEST(Judgement, FromTheFirstEngineOnStandInsHaveNeverCounted) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.machine.busy = kInterval;
                                        evidence.engines.push_back(standInThat({100, 0}, evidence.from, 1));
                                        if (evidence.from < 3) return;
                                        evidence.engines.push_back(engineThat({4, 0}, evidence.from, 2));
                                    })
                              .judged();
    EXPECT_EQ(judged.outcome, Outcome::Clean);
    ASSERT_EQ(judged.engines.size(), 1u);
    EXPECT_EQ(judged.engines[0].key.pid, 2);
    EXPECT_NEAR(judged.machine.enginesRan, 7 * 0.04, 1e-9);
}

TEST(Judgement, StandInsDoNotTakeThePlaceOfMissingEngines) {
    JudgeLimits limits;
    limits.engines = 2;
    const Judged judged = MadeRun(limits)
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(standInThat({5, 0}, evidence.from, 1));
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
                                    })
                              .judged();
    ASSERT_FALSE(judged.incidents.empty());
    EXPECT_EQ(judged.incidents[0].kind, Incident::Kind::Missing);
}

}  // namespace
