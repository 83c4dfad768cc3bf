// A judgement in words and as signals.
#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Runs.h"
#include "judgement/findings.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const JudgeLimits kLimits;

Signal signalOf(const Judged& judged, const std::string& name) {
    for (const Signal& signal : signalsOf(judged, kLimits)) {
        if (signal.name == name) return signal;
    }
    ADD_FAILURE() << "no signal " << name;
    return {};
}

void expectFinding(const RunFinding& finding, const char* kind, bool spoils, int pid, double since, double seconds) {
    EXPECT_STREQ(finding.kind, kind);
    EXPECT_EQ(finding.spoils, spoils);
    EXPECT_EQ(finding.pid, pid);
    EXPECT_NEAR(finding.since, since, 1e-9);
    EXPECT_NEAR(finding.seconds, seconds, 1e-9);
}

TEST(Findings, ACleanRunHasNone) { EXPECT_THAT(findingsOf(MadeRun().engine(10, {5, 0}).judged(), kLimits), IsEmpty()); }

TEST(Findings, TellWhoSinceWhenForHowLongWhyAndWhatToDo) {
    const Judged judged = MadeRun().engine(4, {5, 0}).engine(6, {100, 0}).judged();
    const auto findings = findingsOf(judged, kLimits);
    ASSERT_EQ(findings.size(), 1u);
    expectFinding(findings[0], "ownWork", true, 100, 4, 6);
    EXPECT_THAT(findings[0].text, HasSubstr("load engine 100 (PMLoadEngineMai)"));
    EXPECT_THAT(findings[0].text, HasSubstr("thread 100 (sender)"));
    EXPECT_THAT(findings[0].advice, HasSubstr("--ignore-thread"));
}

TEST(Findings, NameTheProgramsThatTookTheProcessors) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({40, 60}, evidence.from));
                                        evidence.machine.busy = 0.1 + 1.3 * kInterval;
                                        evidence.others = {{"cc1plus", 13, 9}, {"ld", 0.01, 1}};
                                    })
                              .judged();
    EXPECT_THAT(findingsOf(judged, kLimits).at(0).text,
                HasSubstr("the engines used 0.4 of 2 processors, others 1.3 (cc1plus 1.3)"));
}

TEST(Findings, NameTheQuotaThatWasUsedUp) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({20, 0, 80}, evidence.from));
                                        evidence.engines[0].group.throttledGroup = "/sys/fs/cgroup/cpu/team";
                                        evidence.engines[0].group.quota = 0.2;
                                    })
                              .judged();
    EXPECT_THAT(findingsOf(judged, kLimits).at(0).text,
                HasSubstr("/sys/fs/cgroup/cpu/team (0.20 processors) was used up 80 times"));
}

TEST(Findings, ManyEnginesAreOneFinding) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        for (int pid = 1; pid <= 50; ++pid)
                                            evidence.engines.push_back(engineThat({50, 50}, evidence.from, pid));
                                    })
                              .judged();
    const auto findings = findingsOf(judged, kLimits);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_THAT(findings[0].text, HasSubstr("and 49 others"));
}

// An engine that was stopped for longer, in a run ten times as long, was named in place of the one that spoiled the run.
TEST(Findings, NameTheEngineThatWasHeldBackMost) {
    MadeRun run;
    run.each(500, [](Evidence& evidence) {
        const bool stopped = evidence.from < 4.5;
        evidence.engines.push_back(engineThat(stopped ? Did{0, 0, 0, 0, 100} : Did{5, 0}, evidence.from, 1));
    });
    run.each(50, [](Evidence& evidence) {
        const bool stopped = evidence.from < 504;
        evidence.engines.push_back(engineThat(stopped ? Did{0, 0, 0, 0, 100} : Did{5, 0}, evidence.from, 2));
    });
    const auto findings = findingsOf(run.judged(), kLimits);
    ASSERT_EQ(findings.size(), 1u);
    expectFinding(findings[0], "stopped", true, 2, 500, 4);
    EXPECT_THAT(findings[0].text, HasSubstr(") and 1 other: "));
}

TEST(Findings, WhatSpoilsStandsFirst) {
    MadeRun run;
    run.each(60, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1));
        evidence.engines.push_back(engineThat(evidence.from < 2 ? Did{100, 0} : Did{5, 0}, evidence.from, 2));
    });
    run.each(0.25, [](Evidence& evidence) {
        EngineEnd end;
        end.key = {1, 5000};
        end.name = "\x1b[31m";
        end.time = 1;
        end.status = 0;
        evidence.ends.push_back(end);
    });
    const auto findings = findingsOf(run.judged(), kLimits);
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_TRUE(findings[0].spoils);
    EXPECT_FALSE(findings[1].spoils);
    EXPECT_THAT(findings[1].text, HasSubstr("(\\x1b[31m) ended with exit code 0"));
}

TEST(Findings, EndsAreToldWithTheirSignal) {
    MadeRun run;
    run.engine(5, {5, 0});
    run.each(0.25, [](Evidence& evidence) {
        EngineEnd end;
        end.key = {100, 5000};
        end.name = "PMLoadEngineMai";
        end.time = evidence.to;
        end.status = SIGSEGV;
        end.zombie = true;
        evidence.ends.push_back(end);
    });
    const auto findings = findingsOf(run.judged(), kLimits);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_THAT(findings[0].text, HasSubstr("ended by signal SIGSEGV"));
    EXPECT_THAT(findings[0].text, HasSubstr("zombie"));
}

// The first finding of ten seconds in which `change` made something of an engine that did this.
template <class Change>
RunFinding findingWith(const Did& did, Change change) {
    MadeRun run;
    run.each(10, [&](Evidence& evidence) {
        evidence.engines.push_back(engineThat(did, evidence.from));
        change(evidence);
    });
    const auto findings = findingsOf(run.judged(), kLimits);
    EXPECT_FALSE(findings.empty());
    return findings.empty() ? RunFinding{} : findings[0];
}

TEST(Findings, LateWakingIsToldWithTheMeanWait) {
    const RunFinding finding = findingWith({5, 10}, [](Evidence& evidence) {
        evidence.engines[0].lateTurns = 50;
        evidence.engines[0].waited = 2;
    });
    EXPECT_STREQ(finding.kind, "wokenLate");
    EXPECT_THAT(finding.text, HasSubstr("its threads waited 20.0 ms on average for a processor; the engines used"));
}

TEST(Findings, BlockedTimesAreToldWithThePagesThatWereRead) {
    const std::string blocked = "its thread 100 (sender) was blocked, as by a slow disk or want of memory";
    EXPECT_THAT(findingWith({1, 0, 0, 99}, [](Evidence&) {}).text, EndsWith(blocked));
    const auto read = [](std::uint64_t pages) {
        return [pages](Evidence& evidence) { evidence.engines[0].majorFaults = pages; };
    };
    EXPECT_THAT(findingWith({1, 0, 0, 99}, read(0)).text, EndsWith(blocked));
    EXPECT_THAT(findingWith({1, 0, 0, 99}, read(2)).text, EndsWith(blocked + "; 80 pages had to be read from a disk"));
}

TEST(Findings, WhatIsUsedUpIsToldAsAShare) {
    EXPECT_THAT(findingsOf(judgedWithUsage(0.995, 0.5), kLimits).at(0).text,
                EndsWith("its descriptors were used up (99.5 % of its limit)"));
    EXPECT_THAT(findingsOf(judgedWithUsage(0.5, 0.985), kLimits).at(0).text,
                EndsWith("the local ports were used up (98.5 % of them)"));
    EXPECT_STREQ(findingsOf(judgedWithUsage(1, 0.5), kLimits).at(0).kind, "descriptors");
    EXPECT_STREQ(findingsOf(judgedWithUsage(0.5, 1), kLimits).at(0).kind, "ports");
}

TEST(Findings, OtherProgramsAreNamedFromOnePerCentOfAProcessorOn) {
    const auto textWith = [](double seconds, int processors) {
        return findingWith({40, 60},
                           [=](Evidence& evidence) {
                               evidence.machine.processors = processors;
                               evidence.machine.busy = 0.1 + 1.3 * kInterval;
                               evidence.others = {{"cc1plus", 13, 9}, {"ld", seconds, 1}, {"as", 0.01, 1}};
                           })
            .text;
    };
    EXPECT_THAT(textWith(0.1, 2), EndsWith("the engines used 0.4 of 2 processors, others 1.3 (cc1plus 1.3, ld 0.0)"));
    EXPECT_THAT(textWith(0.09, 1), EndsWith("the engines used 0.4 of 1 processor, others 1.3 (cc1plus 1.3)"));
    const RunFinding unknown = findingWith({40, 60}, [](Evidence&) {});
    EXPECT_THAT(unknown.text, EndsWith("the engines used 0.4 of 2 processors")) << "what others used could not be read";
}

// One is held back most of all, the other most by its own work.
TEST(Findings, NameForEachReasonTheEngineThatItHeldBackMost) {
    MadeRun run;
    run.each(100, [](Evidence& evidence) {
        const double time = evidence.from;
        evidence.engines.push_back(engineThat(time < 10   ? Did{0, 0, 0, 0, 100}
                                              : time < 20 ? Did{5, 0}
                                              : time < 22 ? Did{100, 0}
                                                          : Did{5, 0},
                                              time, 1));
        const bool busy = (time >= 40 && time < 43) || (time >= 60 && time < 62);
        evidence.engines.push_back(engineThat(busy ? Did{100, 0} : Did{5, 0}, time, 2));
        evidence.engines.push_back(engineThat(time < 1 ? Did{100, 0} : Did{5, 0}, time, 3));
    });
    const auto findings = findingsOf(run.judged(), kLimits);
    ASSERT_EQ(findings.size(), 2u);
    expectFinding(findings[0], "stopped", true, 1, 0, 10);
    EXPECT_EQ(findings[0].text, "load engine 1 (PMLoadEngineMai): it was stopped by a signal or a debugger");
    expectFinding(findings[1], "ownWork", true, 2, 40, 5);
    EXPECT_EQ(
        findings[1].text,
        "load engine 2 (PMLoadEngineMai) and 2 others: its thread 2 (sender) ran without a pause; in 2 stretches");
}

// An engine that is held back for less than the percentile allows does not spoil the run, though another does.
TEST(Findings, WhatAloneWouldBeAllowedDoesNotSpoil) {
    MadeRun run;
    run.each(100, [](Evidence& evidence) {
        const double time = evidence.from;
        evidence.engines.push_back(engineThat(time < 5 ? Did{0, 0, 0, 0, 100} : Did{5, 0}, time, 1));
        evidence.engines.push_back(engineThat(time < 0.5 ? Did{100, 0} : Did{5, 0}, time, 2));
    });
    const auto findings = findingsOf(run.judged(), kLimits);
    ASSERT_EQ(findings.size(), 2u);
    expectFinding(findings[0], "stopped", true, 1, 0, 5);
    expectFinding(findings[1], "ownWork", false, 2, 0, 0.5);
}

TEST(Findings, AnEngineThatTookAnothersPlaceIsTold) {
    const auto findingsWith = [](bool replaced) {
        MadeRun run;
        run.engine(10, {5, 0});
        run.each(0.25, [](Evidence& evidence) {
            EngineEnd end;
            end.key = {100, 5000};
            end.name = "PMLoadEngineMai";
            end.time = evidence.to;
            end.status = 3 << 8;
            evidence.ends.push_back(end);
        });
        run.each(10, [replaced](Evidence& evidence) {
            if (replaced) evidence.engines.push_back(engineThat({5, 0}, evidence.from, 101));
        });
        return findingsOf(run.judged(), kLimits);
    };
    const auto replaced = findingsWith(true);
    ASSERT_EQ(replaced.size(), 1u);
    expectFinding(replaced[0], "replaced", true, 100, 10.25, 10);
    EXPECT_EQ(replaced[0].text, "load engine 100 (PMLoadEngineMai) ended with exit code 3; another took its place");
    EXPECT_THAT(replaced[0].advice, HasSubstr("load is missing from then on"));
    const auto gone = findingsWith(false);
    ASSERT_EQ(gone.size(), 1u);
    EXPECT_STREQ(gone[0].kind, "ended");
    EXPECT_EQ(gone[0].text, "load engine 100 (PMLoadEngineMai) ended with exit code 3");
}

TEST(Findings, LimitsThatWereSetAreToldWithWhatPassedThem) {
    JudgeLimits limits;
    limits.engines = 3;
    limits.machinePercent = 90;
    limits.enginePercent = 60;
    limits.memoryPercent = 10;
    limits.swapMegabytes = 1;
    const Judged judged = MadeRun(limits)
                              .each(20,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({90, 0}, evidence.from));
                                        evidence.machine.busy = 0.95 * 2 * kInterval;
                                        evidence.machine.idle = 0.05 * 2 * kInterval;
                                        evidence.machine.memoryAvailableShare = 0.05;
                                        evidence.machine.swapUsedBytes = evidence.from < 10 ? 0 : 3 << 20;
                                        if (evidence.from == 7) evidence.engines[0].group.memoryKills = 1;
                                    })
                              .judged();
    const struct {
        const char* kind;
        std::optional<int> pid;
        const char* text;
    } rows[] = {
        {"missing", std::nullopt, "2 of 3 load engines were missing"},
        {"machineCpu", std::nullopt, "the machine's processors were at or over 90.0 % (up to 95.0 %)"},
        {"engineCpu", 100, "load engine 100 (PMLoadEngineMai) was at or over 60.0 % of one processor (up to 90.0 %)"},
        {"memory", std::nullopt, "available memory fell to 5.0 %, under 10.0 %"},
        {"swap", std::nullopt, "swap in use grew by 3.0 MiB"},
        {"outOfMemory", 100,
         "the kernel killed a process of the control group of load engine 100 (PMLoadEngineMai), which had no memory "
         "left"},
    };
    const auto findings = findingsOf(judged, limits);
    EXPECT_EQ(findings.size(), std::size(rows));
    for (const auto& row : rows) {
        const auto found = std::find_if(findings.begin(), findings.end(), [&row](const RunFinding& finding) {
            return std::string(finding.kind) == row.kind;
        });
        ASSERT_NE(found, findings.end()) << row.kind;
        EXPECT_EQ(found->pid, row.pid) << row.kind;
        EXPECT_EQ(found->text, row.text);
        EXPECT_FALSE(found->advice.empty()) << row.kind;
    }
}

TEST(Findings, TellThatPmenvItselfWokeLate) {
    const auto findingsWith = [](std::uint64_t wakes, std::uint64_t late, const JudgeLimits& limits = {}) {
        MadeRun run(limits);
        run.each(10, [=](Evidence& evidence) {
            evidence.engines.push_back(engineThat({5, 0}, evidence.from));
            evidence.wakes = {wakes, late, evidence.from == 5 ? 0.3 : 0.1};
        });
        return findingsOf(run.judged(), limits);
    };
    EXPECT_THAT(findingsWith(100, 1), IsEmpty());
    EXPECT_EQ(findingsWith(200, 3).size(), 1u);
    EXPECT_THAT(findingsWith(0, 0), IsEmpty()) << "it was never to wake";
    const auto findings = findingsWith(100, 4);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_STREQ(findings[0].kind, "late");
    EXPECT_FALSE(findings[0].pid);
    EXPECT_FALSE(findings[0].spoils);
    EXPECT_EQ(findings[0].seconds, 10);
    EXPECT_EQ(findings[0].text, "pmenv itself woke more than 10.0 ms late in 4.0 % of the times, at most 0.3 s");

    JudgeLimits limits;
    limits.percentile = 75;
    limits.tolerance = 0.1;
    EXPECT_THAT(findingsWith(4, 1, limits), IsEmpty()) << "as often as the percentile allows";
    EXPECT_THAT(findingsWith(4, 2, limits).at(0).text, HasSubstr("more than 100.0 ms late in 50.0 %"));
}

TEST(Findings, TellWhoseAccountsCouldNotBeRead) {
    const RunFinding finding = findingWith({5, 0}, [](Evidence& evidence) {
        if (evidence.from >= 4) evidence.engines[0].busiest = std::nullopt;
    });
    expectFinding(finding, "notReadable", false, 100, 4, 6);
}

// Where the verdict is in doubt, a finding says why, since when and what to do.
TEST(Findings, TellWhyItCannotBeToldWhetherTheHypervisorHeldAnEngineBack) {
    const Judged judged = MadeRun().engine(8, {50, 0}).engine(2, {75, 0, 0, 0, 0, 25}).judged();
    const auto findings = findingsOf(judged, kLimits);
    ASSERT_EQ(findings.size(), 1u);
    expectFinding(findings[0], "perhapsStolen", false, 100, 8, 2);
    EXPECT_THAT(findings[0].text,
                HasSubstr("thread 100 (sender) had no time to spare beside what the hypervisor took"));
    EXPECT_THAT(findings[0].advice, HasSubstr("processors of its own"));
    EXPECT_EQ(reasonText(judged, kLimits),
              "the hypervisor may have held an engine back; for how long at a time cannot be seen");
}

TEST(Findings, NameTheEngineThatWasPerhapsHeldBackForLongest) {
    const auto pidWith = [](double first, double second) {
        MadeRun run;
        run.each(10, [=](Evidence& evidence) {
            const Did stolen{75, 0, 0, 0, 0, 25}, idle{5};
            evidence.engines.push_back(engineThat(evidence.from < first ? stolen : idle, evidence.from, 1));
            evidence.engines.push_back(engineThat(evidence.from < second ? stolen : idle, evidence.from, 2));
        });
        const auto findings = findingsOf(run.judged(), kLimits);
        return findings.size() == 1 ? findings[0].pid : std::nullopt;
    };
    EXPECT_EQ(pidWith(0, 0.5), 2);
    EXPECT_EQ(pidWith(0.5, 0.25), 1);
    EXPECT_EQ(pidWith(0.5, 0.5), 1) << "the first of those that are alike";
}

Judged judgedWithPortsElsewhere(double share) {
    return MadeRun()
        .each(10,
              [share](Evidence& evidence) {
                  for (const int pid : {1, 2}) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from, pid));
                      evidence.engines.back().descriptorShare = 0.1;
                      evidence.engines.back().portShare = pid == 2 ? share : 0.3;
                      evidence.engines.back().portsAtMost = pid == 2;
                  }
              })
        .judged();
}

TEST(Findings, TellWhyItCannotBeToldWhetherPortsAreUsedUp) {
    const Judged judged = judgedWithPortsElsewhere(1);
    const auto findings = findingsOf(judged, kLimits);
    ASSERT_EQ(findings.size(), 1u);
    expectFinding(findings[0], "perhapsPorts", false, 2, 0, 10);
    EXPECT_THAT(findings[0].text, HasSubstr("cannot be read from another network namespace"));
    EXPECT_THAT(findings[0].advice, HasSubstr("run pmenv judge in the network namespace of the engine"));
    EXPECT_EQ(reasonText(judged, kLimits),
              "the local ports may be used up; how many there are in another network namespace cannot be read");
    EXPECT_EQ(signalOf(judged, "local ports").state, Signal::State::NotReadable);
}

TEST(Findings, PortsElsewhereThatAreNotUsedUpAreFine) {
    const Judged judged = judgedWithPortsElsewhere(0.5);
    EXPECT_THAT(findingsOf(judged, kLimits), IsEmpty());
    EXPECT_EQ(signalOf(judged, "local ports").state, Signal::State::Ok);
    EXPECT_EQ(signalOf(judged, "local ports").value, 50);
    EXPECT_EQ(reasonText(judged, kLimits), "no percentile is in doubt; p99 was asked for");
}

// --- signals --------------------------------------------------------------------------------------------------------

TEST(Signals, WhatIsOverStandsBeforeWhatCouldNotBeReadAndWhatIsFine) {
    const auto signals = signalsOf(MadeRun().engine(10, {100, 0}).judged(), kLimits);
    EXPECT_STREQ(signals[0].name, "held back");
    for (std::size_t i = 1; i < signals.size(); ++i) EXPECT_LE(signals[i - 1].state, signals[i].state);
}

TEST(Signals, AreTheseInThisOrder) {
    std::vector<std::string> names;
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        EngineEvidence& engine = evidence.engines[0];
                                        engine.group.throttled = 0;
                                        engine.group.memoryShare = 0;
                                        engine.group.memoryKills = 0;
                                        engine.majorFaults = 0;
                                        engine.descriptorShare = engine.portShare = 0;
                                        MachineEvidence& machine = evidence.machine;
                                        machine.busy = machine.idle = 0.25;
                                        machine.stolen = 0;
                                        machine.memoryAvailableShare = 0.5;
                                        machine.swapUsedBytes = 0;
                                        machine.droppedPackets = machine.segmentsSent = machine.segmentsSentAgain = 0;
                                        machine.cpuPressure = machine.ioPressure = machine.memoryPressure = 0;
                                    })
                              .judged();
    for (const Signal& signal : signalsOf(judged, kLimits)) {
        EXPECT_EQ(signal.state, Signal::State::Ok) << signal.name;
        names.emplace_back(signal.name);
    }
    EXPECT_THAT(
        names, ElementsAre("held back", "by its own work", "by other programs", "by the other engines", "by a quota",
                           "by the hypervisor", "by late waking", "blocked", "stopped", "ready to running", "throttled",
                           "descriptors", "local ports", "pages from disk", "group's memory", "killed for memory",
                           "processors", "available memory", "growth of swap", "packets dropped", "segments sent again",
                           "pressure: processors", "pressure: disks", "pressure: memory", "pmenv woke late"));
}

TEST(Signals, WhatCouldNotBeReadIsNotZero) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                    })
                              .judged();
    for (const char* const name :
         {"by a quota", "by the hypervisor", "throttled", "descriptors", "local ports", "pages from disk",
          "group's memory", "killed for memory", "processors", "available memory", "packets dropped",
          "segments sent again", "pressure: processors"}) {
        const Signal signal = signalOf(judged, name);
        EXPECT_EQ(signal.state, Signal::State::NotReadable) << name;
        EXPECT_FALSE(signal.value) << name;
    }
    EXPECT_EQ(signalOf(judged, "by its own work").state, Signal::State::Ok);
    EXPECT_EQ(signalOf(judged, "by its own work").value, 0);
}

// What is not known of one engine may be worse than what is known of the others.
TEST(Signals, ThatDecideAreReadableWhereTheyAreSoForEveryEngine) {
    const auto judgedWith = [](double known) {
        return MadeRun()
            .each(10,
                  [known](Evidence& evidence) {
                      for (const int pid : {1, 2}) evidence.engines.push_back(engineThat({5, 0}, evidence.from, pid));
                      evidence.engines[0].descriptorShare = known;
                      evidence.engines[0].portShare = known;
                  })
            .judged();
    };
    for (const char* const name : {"descriptors", "local ports"}) {
        EXPECT_EQ(signalOf(judgedWith(0.5), name).state, Signal::State::NotReadable) << name;
        EXPECT_EQ(signalOf(judgedWith(1), name).state, Signal::State::Over) << name;
    }
    EXPECT_EQ(signalOf(judgedWith(0.99), "descriptors").state, Signal::State::Over) << "from which they are used up";
    EXPECT_EQ(signalOf(judgedWith(0.98), "local ports").state, Signal::State::Over);
}

TEST(Signals, HeldBackTimeIsSharedOutAmongItsReasons) {
    const Judged judged =
        MadeRun().engine(4, {100, 0}).engine(3, {5, 0}).engine(1, {0, 0, 0, 0, 100}).engine(2, {5, 0}).judged();
    EXPECT_NEAR(*signalOf(judged, "held back").value, 50, 1e-9);
    EXPECT_NEAR(*signalOf(judged, "by its own work").value, 40, 1e-9);
    EXPECT_NEAR(*signalOf(judged, "stopped").value, 10, 1e-9);
    EXPECT_EQ(signalOf(judged, "blocked").value, 0);
}

// SIGKILL is what the kernel kills with, and anybody else may.
TEST(Signals, KillsForMemoryAreUnknownWhereAnEngineMayHaveBeenKilledSo) {
    const auto kills = [](std::optional<std::uint64_t> before, std::optional<int> status,
                          std::optional<std::uint64_t> atItsEnd) {
        MadeRun run;
        run.each(10, [before](Evidence& evidence) {
            evidence.engines.push_back(engineThat({5, 0}, evidence.from));
            if (evidence.from == 5) evidence.engines[0].group.memoryKills = before;
        });
        run.each(kInterval, [&](Evidence& evidence) {
            evidence.ends.push_back({{100, 5000}, "PMLoadEngineMai", evidence.to, status, false, false, atItsEnd});
        });
        return signalOf(run.judged(), "killed for memory").value;
    };
    EXPECT_EQ(kills(0, SIGKILL, std::nullopt), std::nullopt);
    EXPECT_EQ(kills(0, std::nullopt, std::nullopt), std::nullopt);
    EXPECT_EQ(kills(0, SIGKILL, 0), 0);
    EXPECT_EQ(kills(0, SIGKILL, 1), 1);
    EXPECT_EQ(kills(std::nullopt, SIGKILL, 1), 1);
    EXPECT_EQ(kills(2, SIGKILL, std::nullopt), 2) << "these are known";
    EXPECT_EQ(kills(2, SIGKILL, 1), 3);
    EXPECT_EQ(kills(0, SIGTERM, std::nullopt), 0);
    EXPECT_EQ(kills(0, 0x0900, std::nullopt), 0) << "an exit code is no signal";
}

// Twelve seconds of the machine, in the last ten of them an engine.
TEST(Signals, AreSumsAndExtremesOfTheRun) {
    MadeRun run;
    const auto machine = [](Evidence& evidence) {
        MachineEvidence& figures = evidence.machine;
        figures.busy = 0.1;
        figures.idle = 0.4;
        figures.memoryAvailableShare = evidence.from == 5 ? 0.3 : 0.5;
        figures.droppedPackets = 3;
        figures.segmentsSent = 100;
        figures.segmentsSentAgain = 5;
        figures.cpuPressure = 0.025;
        figures.ioPressure = 0.05;
        figures.memoryPressure = 0.0125;
        evidence.wakes = {25, 1, 0.020};
    };
    run.each(2, machine);
    run.each(10, [&machine](Evidence& evidence) {
        machine(evidence);
        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
        EngineEvidence& engine = evidence.engines[0];
        engine.waited = 0.5;
        engine.group.throttled = 0.025;
        engine.group.timesThrottled = 0;
        engine.group.memoryShare = evidence.from == 5 ? 0.7 : 0.5;
        engine.group.memoryKills = evidence.from == 5 ? 1 : 0;
    });
    const Judged judged = run.judged();
    const std::pair<const char*, double> rows[] = {
        {"ready to running", 0.005},  {"throttled", 10},        {"group's memory", 70},   {"killed for memory", 1},
        {"processors", 20},           {"available memory", 30}, {"packets dropped", 144}, {"segments sent again", 5},
        {"pressure: processors", 10}, {"pressure: disks", 20},  {"pressure: memory", 5},  {"pmenv woke late", 4},
    };
    for (const auto& [name, value] : rows) EXPECT_NEAR(signalOf(judged, name).value.value_or(-1), value, 1e-9) << name;
    EXPECT_EQ(signalOf(judged, "killed for memory").state, Signal::State::Over);
    EXPECT_EQ(signalOf(judged, "pmenv woke late").state, Signal::State::Over);
    EXPECT_NEAR(*signalOf(judged, "pmenv woke late").limit, 1, 1e-9);
}

TEST(Signals, NothingIsZeroAndNoShareOfNothing) {
    const auto judgedWith = [](std::optional<double> idle, std::uint64_t wakes) {
        return MadeRun()
            .each(10,
                  [=](Evidence& evidence) {
                      evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                      evidence.engines[0].group.memoryKills = 0;
                      evidence.machine.busy = 0;
                      evidence.machine.idle = idle;
                      evidence.machine.segmentsSent = 0;
                      evidence.machine.segmentsSentAgain = 0;
                      evidence.wakes = {wakes, 0, 0};
                  })
            .judged();
    };
    EXPECT_EQ(signalOf(judgedWith(0.5, 25), "processors").value, 0);
    EXPECT_EQ(signalOf(judgedWith(0, 25), "processors").state, Signal::State::NotReadable);
    EXPECT_EQ(signalOf(judgedWith(std::nullopt, 25), "processors").state, Signal::State::NotReadable);
    EXPECT_EQ(signalOf(judgedWith(0.5, 25), "segments sent again").value, 0);
    EXPECT_EQ(signalOf(judgedWith(0.5, 25), "killed for memory").state, Signal::State::Ok);
    EXPECT_EQ(signalOf(judgedWith(0.5, 25), "pmenv woke late").state, Signal::State::Ok);
    EXPECT_EQ(signalOf(judgedWith(0.5, 0), "pmenv woke late").state, Signal::State::NotReadable);
}

TEST(Signals, WithoutATurnNobodyKnowsHowLongOneIsWaitedFor) {
    const auto readyToRunning = [](std::uint64_t turns) {
        MadeRun run;
        run.each(10, [turns](Evidence& evidence) {
            evidence.engines.push_back(engineThat({0, 0, 0, 0, 100}, evidence.from));
            evidence.engines[0].turns = turns;
            evidence.engines[0].waited = 0.25;
        });
        return signalOf(run.judged(), "ready to running").value;
    };
    EXPECT_EQ(readyToRunning(0), std::nullopt);
    EXPECT_EQ(readyToRunning(1), 0.25);
}

// A share of little time is one as well.
TEST(Signals, OfAMomentAreKnown) {
    Evidence moment = intervalFrom(0);
    moment.wakes = {1, 0, 0};
    moment.machine.busy = 0.125;
    moment.machine.idle = 0.375;
    moment.machine.cpuPressure = 0.125;
    moment.engines.push_back(engineThat({5, 0}, 0));
    moment.engines[0].turns = 1;
    moment.engines[0].waited = 0.5;
    moment.engines[0].group.throttled = 0.0625;
    const Judged judged = MadeRun().add(moment).judged();
    const std::pair<const char*, double> rows[] = {
        {"ready to running", 0.5},    {"throttled", 25},      {"processors", 25},
        {"pressure: processors", 50}, {"pmenv woke late", 0},
    };
    for (const auto& [name, value] : rows) EXPECT_EQ(signalOf(judged, name).value, value) << name;
}

TEST(Signals, AReasonsShareIsOfAllTime) {
    const Judged judged = MadeRun().engine(0.25, {0, 0, 0, 0, 100}).engine(9.75, {5, 0}).judged();
    EXPECT_DOUBLE_EQ(signalOf(judged, "stopped").value.value_or(-1), 2.5);
    EXPECT_DOUBLE_EQ(signalOf(judged, "blocked").value.value_or(-1), 0);
}

TEST(Signals, OfNoTimeAreNotKnown) {
    Evidence begin = intervalFrom(1);
    begin.to = 1;
    begin.machine.cpuPressure = 0;
    EXPECT_EQ(signalOf(MadeRun().add(begin).judged(), "pressure: processors").state, Signal::State::NotReadable);
}

TEST(Signals, SegmentsSentAgainAreAShareOfThoseThatAreKnown) {
    const auto stateWith = [](std::optional<std::uint64_t> sent, std::optional<std::uint64_t> again) {
        Evidence evidence = intervalFrom(0);
        evidence.machine.segmentsSent = sent;
        evidence.machine.segmentsSentAgain = again;
        return signalOf(MadeRun().add(evidence).judged(), "segments sent again").state;
    };
    EXPECT_EQ(stateWith(100, 1), Signal::State::Ok);
    EXPECT_EQ(stateWith(100, std::nullopt), Signal::State::NotReadable);
    EXPECT_EQ(stateWith(std::nullopt, 1), Signal::State::NotReadable);
}

TEST(Signals, WithoutAnEngineNoneIsFine) {
    for (const Signal& signal : signalsOf(MadeRun().each(10, [](Evidence&) {}).judged(), kLimits)) {
        EXPECT_TRUE(signal.state == Signal::State::NotReadable || std::string(signal.name) == "pmenv woke late")
            << signal.name;
    }
}

TEST(Signals, SwapHasGrownSinceItWasLeast) {
    std::uint64_t used = 500;
    const Judged judged = MadeRun()
                              .each(3,
                                    [&used](Evidence& evidence) {
                                        evidence.machine.swapUsedBytes = used;
                                        used = used == 500 ? 300 : used + 10;
                                    })
                              .judged();
    EXPECT_EQ(signalOf(judged, "growth of swap").value, 100);
}

TEST(Signals, AreTheWorstEngines) {
    const Judged judged = MadeRun()
                              .each(10,
                                    [](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 1));
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from, 2));
                                        evidence.engines[0].descriptorShare = 0.2;
                                        evidence.engines[1].descriptorShare = 0.7;
                                        evidence.engines[1].majorFaults = 2;
                                    })
                              .judged();
    EXPECT_NEAR(*signalOf(judged, "descriptors").value, 70, 1e-9);
    EXPECT_EQ(signalOf(judged, "pages from disk").value, 80);
}

// With exactly so many in use the verdict was spoiled and the row was fine.
TEST(Signals, DescriptorsAndPortsAreUsedUpFromTheirLimitOn) {
    EXPECT_EQ(signalOf(judgedWithUsage(0.99, 0.5), "descriptors").state, Signal::State::Over);
    EXPECT_EQ(signalOf(judgedWithUsage(0.98, 0.5), "descriptors").state, Signal::State::Ok);
    EXPECT_EQ(signalOf(judgedWithUsage(0.5, 0.98), "local ports").state, Signal::State::Over);
    EXPECT_EQ(signalOf(judgedWithUsage(0.5, 0.97), "local ports").state, Signal::State::Ok);
    EXPECT_EQ(judgedWithUsage(0.99, 0.5).outcome, Outcome::Spoiled);
    EXPECT_EQ(judgedWithUsage(0.5, 0.98).outcome, Outcome::Spoiled);
    EXPECT_NEAR(*signalOf(judgedWithUsage(0.5, 0.5), "descriptors").limit, 99, 1e-9);
    EXPECT_NEAR(*signalOf(judgedWithUsage(0.5, 0.5), "held back").limit, 1, 1e-9);
}

// --- the verdict ----------------------------------------------------------------------------------------------------

TEST(ReasonText, SaysWhereNoPercentileCanBeBelieved) {
    JudgeLimits limits;
    limits.engines = 2;
    limits.percentile = 99.99;
    EXPECT_EQ(reasonText(MadeRun(limits).engine(10, {5, 0}).judged(), limits),
              "which percentiles can be believed cannot be told; p99.99 was asked for");
}

TEST(ReasonText, NamesThePercentileThatCanBeBelieved) {
    EXPECT_EQ(reasonText(MadeRun().engine(59, {5, 0}).engine(1, {100, 0}).judged(), kLimits),
              "percentiles up to p98.3 can be believed; p99 was asked for");
    EXPECT_EQ(reasonText(MadeRun().engine(10, {5, 0}).judged(), kLimits),
              "no percentile is in doubt; p99 was asked for; descriptors and local ports could not be read");
}

// Who reads only the first line is told as well what the verdict does not rest on.
TEST(ReasonText, OfACleanRunNamesWhatDecidesAndCouldNotBeRead) {
    const auto reasonWith = [](std::optional<double> descriptors, std::optional<double> ports, const Did& did) {
        const Judged judged = MadeRun()
                                  .each(10,
                                        [&](Evidence& evidence) {
                                            for (const int pid : {1, 2}) {
                                                evidence.engines.push_back(engineThat(did, evidence.from, pid));
                                                evidence.engines.back().descriptorShare = pid == 1 ? 0.1 : descriptors;
                                                evidence.engines.back().portShare = pid == 1 ? 0.1 : ports;
                                            }
                                        })
                                  .judged();
        return reasonText(judged, kLimits);
    };
    const std::string clean = "no percentile is in doubt; p99 was asked for";
    EXPECT_EQ(reasonWith(0.1, 0.1, {5, 0}), clean);
    EXPECT_EQ(reasonWith(std::nullopt, 0.1, {5, 0}), clean + "; descriptors could not be read");
    EXPECT_EQ(reasonWith(0.1, std::nullopt, {5, 0}), clean + "; local ports could not be read");
    EXPECT_EQ(reasonWith(std::nullopt, std::nullopt, {5, 0}),
              clean + "; descriptors and local ports could not be read");
    EXPECT_EQ(reasonWith(std::nullopt, std::nullopt, {100, 0}),
              "percentiles up to p0 can be believed; p99 was asked for");
}

TEST(ReasonText, SaysWhyNothingCanBeTold) {
    EXPECT_EQ(reasonText(MadeRun().each(9, [](Evidence&) {}).judged(), kLimits), "no load engine was seen");
    EXPECT_EQ(reasonText(MadeRun().engine(1, {5, 0}).judged(), kLimits), "the watch was too short: 1 s");
    EXPECT_EQ(reasonText(MadeRun().engine(10, {5, 0}).judged(true), kLimits),
              "an engine that was asked for was not seen");
    const auto reasonWith = [](const auto& change) {
        return reasonText(MadeRun()
                              .each(10,
                                    [&change](Evidence& evidence) {
                                        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                                        change(evidence);
                                    })
                              .judged(),
                          kLimits);
    };
    EXPECT_EQ(reasonWith([](Evidence& evidence) {
                  evidence.engines[0].readable = false;
                  evidence.engines[0].busiest = std::nullopt;
              }),
              "what the kernel keeps about an engine could not be read");
    EXPECT_EQ(reasonWith([](Evidence& evidence) { evidence.wakes.late = 5; }),
              "no engine was seen held back, but pmenv itself woke late too often");
    MadeRun gap;
    Evidence unseen = intervalFrom(10);
    unseen.to = 15;
    EXPECT_EQ(reasonText(gap.engine(10, {5, 0}).add(unseen).judged(), kLimits),
              "pmenv itself got too little of the processors to watch");
    JudgeLimits skipping;
    skipping.skip = 1;
    EXPECT_EQ(reasonText(MadeRun(skipping).engine(2, {5, 0}).judged(), skipping),
              "the watch was too short: 1 s behind the 1 s that --skip leaves out");
}

}  // namespace
