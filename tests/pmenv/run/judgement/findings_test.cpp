// A judgement in words and as signals.
#include <csignal>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Runs.h"
#include "judgement/findings.h"

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
    EXPECT_THAT(findings[0].text, HasSubstr("and 1 other"));
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
    JudgeLimits skipping;
    skipping.skip = 10;
    EXPECT_EQ(reasonText(MadeRun(skipping).engine(11, {5, 0}).judged(), skipping),
              "the watch was too short: 1 s behind the 10 s that --skip leaves out");
}

}  // namespace
