// What is counted since a watch began, as a metrics collector gets it.
#include <algorithm>
#include <csignal>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "SampleFigures.h"
#include "counters.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

constexpr ExpositionParts kAll{true, true};
constexpr ExpositionParts kPerProcess{true, false};

// A run that is counted interval by interval.
class CountedRun {
public:
    explicit CountedRun(const std::vector<std::string>& names = {kEngineName})
        : counters_(names, JudgeLimits{}.tolerance) {}

    template <class Fill>
    CountedRun& each(double seconds, Fill fill) {
        run_.each(seconds, [&](Evidence& evidence) {
            fill(evidence);
            counters_.add(evidence);
        });
        return *this;
    }

    CountedRun& idle(double seconds) {
        return each(seconds, [](Evidence&) {});
    }

    CountedRun& engine(double seconds, const Did& did, int pid = 100) {
        return each(seconds,
                    [&](Evidence& evidence) { evidence.engines.push_back(engineThat(did, evidence.from, pid)); });
    }

    // For one interval, an engine that `change` changes.
    template <class Change>
    CountedRun& oddEngine(Change change) {
        return each(kInterval, [&](Evidence& evidence) {
            evidence.engines.push_back(engineThat({40}, evidence.from));
            change(evidence.engines[0]);
        });
    }

    std::string text(const ExpositionParts& parts = kPerProcess, const Figures& sample = figuresAt(0)) const {
        return counters_.text(sample, parts);
    }

private:
    MadeRun run_;
    Counters counters_;
};

const std::string kOfName = R"({name="PMLoadEngineMai"})";
const std::string kOf100 = R"({name="PMLoadEngineMai",pid="100"})";

// All series of an exposition with their values. A series that appears twice, and a metric whose series do not stand
// together, fail the test.
std::map<std::string, double> seriesIn(const std::string& text) {
    std::istringstream lines(text);
    std::map<std::string, double> all;
    std::set<std::string> metrics;
    std::string metric;
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '#') continue;
        const std::size_t end = line.rfind(' ');
        const std::string name = line.substr(0, line.find_first_of("{ "));
        EXPECT_TRUE(name == metric || metrics.insert(name).second) << line;
        EXPECT_TRUE(all.emplace(line.substr(0, end), std::stod(line.substr(end))).second) << line;
        metric = name;
    }
    return all;
}

std::optional<double> valueIn(const std::string& text, const std::string& series) {
    const auto all = seriesIn(text);
    const auto found = all.find(series);
    return found == all.end() ? std::nullopt : std::optional(found->second);
}

std::size_t seriesCount(const std::string& text, const std::string& metric) {
    const auto all = seriesIn(text);
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const auto& series) {
        return series.first.compare(0, metric.size(), metric) == 0;
    }));
}

bool isCounted(const std::string& series) { return series.find("_total{") != std::string::npos; }

// --- what is counted ------------------------------------------------------------------------------------------------

TEST(Counters, CountUpWhatAnEngineDid) {
    Did did;
    did.ran = 40;
    did.waited = 20;
    did.blocked = 2;
    did.stopped = 6;
    did.stolen = 4;
    const std::string text = CountedRun()
                                 .each(10,
                                       [&](Evidence& evidence) {
                                           evidence.engines.push_back(engineThat(did, evidence.from));
                                           evidence.engines[0].lateTurns = 0.5;
                                           evidence.engines[0].majorFaults = 3;
                                       })
                                 .text();
    const std::string state = R"({name="PMLoadEngineMai",pid="100",state=")";
    for (const auto& [series, value] : std::map<std::string, double>{
             {"cpu_seconds_total" + kOf100, 4},
             {"waiting_seconds_total" + kOf100, 2},
             {"turns_total" + kOf100, 4000},
             {"late_turns_total" + kOf100, 20},
             {"major_faults_total" + kOf100, 120},
             {"busiest_thread_seconds_total" + state + "running\"}", 4},
             {"busiest_thread_seconds_total" + state + "waiting\"}", 2},
             {"busiest_thread_seconds_total" + state + "blocked\"}", 0.2},
             {"busiest_thread_seconds_total" + state + "stopped\"}", 0.6},
             {"busiest_thread_seconds_total" + state + "stolen\"}", 0.4},
         }) {
        EXPECT_NEAR(valueIn(text, "pmenv_engine_" + series).value_or(-1), value, 1e-9) << series;
        const std::string ofName = "pmenv_engines_" + std::string(series).erase(series.find(",pid=\"100\""), 10);
        EXPECT_NEAR(valueIn(text, ofName).value_or(-1), value, 1e-9) << ofName;
    }
}

TEST(Counters, TellForHowLongTheEnginesWereWatched) {
    EXPECT_EQ(valueIn(CountedRun().idle(10).text(), "pmenv_watch_seconds_total"), 10);
}

// What a hypervisor took left no slack; nothing was late, so that nobody can say.
TEST(Counters, TimeInDoubtIsNotTimeHeldBack) {
    Did did;
    did.ran = 60;
    did.stolen = 40;
    const std::string text = CountedRun().engine(10, did).engine(5, {100}).engine(5, {10}).text();
    EXPECT_NEAR(*valueIn(text, "pmenv_engine_in_doubt_seconds_total" + kOf100), 10, 1e-9);
    EXPECT_NEAR(*valueIn(text, "pmenv_engine_held_back_seconds_total" + kOf100), 5, 1e-9);
    EXPECT_NEAR(*valueIn(text, "pmenv_engines_in_doubt_seconds_total" + kOfName), 10, 1e-9);
}

// The counter of what is certain stands still then, which looks clean.
TEST(Counters, TimeInWhichAnEngineCannotBeReadIsInDoubt) {
    CountedRun run;
    run.engine(5, {40}).oddEngine([](EngineEvidence& engine) { engine.readable = false; });
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engine_in_doubt_seconds_total" + kOf100), kInterval, 1e-9);
    EXPECT_EQ(valueIn(run.text(), "pmenv_engine_held_back_seconds_total" + kOf100), 0);
}

// A watch that was stopped for a minute saw a minute of rest, whatever happened in it.
TEST(Counters, TimeInWhichTheWatchStoodStillIsInDoubt) {
    CountedRun run;
    run.engine(5, {40}).oddEngine([](EngineEvidence& engine) { engine.to = engine.from + 2; });
    EXPECT_EQ(valueIn(run.text(), "pmenv_engine_in_doubt_seconds_total" + kOf100), 0) << "not yet";
    run.oddEngine([](EngineEvidence& engine) { engine.to = engine.from + 60; });
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engine_in_doubt_seconds_total" + kOf100), 60, 1e-9);
}

TEST(Counters, EnginesThatEndAreCounted) {
    CountedRun run;
    const auto end = [&run](std::optional<int> status, bool descendant = false) {
        run.each(kInterval, [&](Evidence& evidence) {
            evidence.ends.push_back({{100, 5000}, kEngineName, evidence.to, status, false, descendant});
        });
    };
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines_ended_total" + kOfName), 0);
    end(0);             // exit code 0
    end(1 << 8);        // exit code 1
    end(SIGKILL);       // killed
    end(std::nullopt);  // nobody knows
    end(SIGKILL, true);
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines_ended_total" + kOfName), 4);
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines_killed_total" + kOfName), 1);
}

// Of two engines in one group the first is killed for memory: the group counts it, and both engines are in it.
TEST(Counters, KillsForMemoryAreCountedToTheEndOfAnEngine) {
    CountedRun run;
    run.each(1, [](Evidence& evidence) {
        for (const int pid : {100, 101}) {
            evidence.engines.push_back(engineThat({5}, evidence.from, pid));
            evidence.engines.back().group.memoryKills = 0;
            evidence.engines.back().group.memoryShare = 0.5;
        }
    });
    const auto kills = [&run](const std::string& labels) { return valueIn(run.text(), "pmenv_engine" + labels); };
    const std::string of100 = "_group_memory_kills_total" + kOf100, ofAll = "s_group_memory_kills_total" + kOfName;
    EXPECT_EQ(kills(of100), 0);
    run.each(kInterval, [](Evidence& evidence) {
        evidence.ends.push_back({{100, 4999}, kEngineName, evidence.to, SIGKILL, false, false, 7});  // long forgotten
        evidence.ends.push_back({{100, 5000}, kEngineName, evidence.to, SIGKILL, false, false, 1});
        evidence.engines.push_back(engineThat({5}, evidence.from, 101));
        evidence.engines.back().group.memoryKills = 1;
        evidence.engines.back().group.memoryShare = 0.5;
    });
    EXPECT_EQ(kills(of100), 1);
    EXPECT_EQ(kills(ofAll), 1);
    EXPECT_EQ(kills("s_group_memory_ratio" + kOfName), 0.5) << "of the other one, which goes on";
    EXPECT_EQ(kills("_cpu_seconds_total" + kOf100), 0.05);
}

TEST(Counters, HowManyEnginesAreToRunIsThereWhenItWasSaid) {
    EXPECT_FALSE(valueIn(CountedRun().text(), "pmenv_engines_expected"));
    EXPECT_EQ(valueIn(CountedRun().text({true, false, 4}), "pmenv_engines_expected"), 4);
}

TEST(Counters, HaveTheirHeadings) {
    const std::string text = CountedRun().engine(10, {50}).text();
    EXPECT_THAT(text, HasSubstr("\n# HELP pmenv_engine_cpu_seconds_total Processor time of the engine.\n"
                                "# TYPE pmenv_engine_cpu_seconds_total counter\n"
                                "pmenv_engine_cpu_seconds_total" +
                                kOf100 + " 5\n"));
    EXPECT_THAT(text,
                HasSubstr("\n# HELP pmenv_engines_cpu_seconds_total Processor time of the engine. All engines of a "
                          "name together.\n# TYPE pmenv_engines_cpu_seconds_total counter\n"
                          "pmenv_engines_cpu_seconds_total" +
                          kOfName + " 5\n"));
    EXPECT_THAT(text, EndsWith("\n# EOF\n"));
}

TEST(Counters, CountHeldBackSeconds) {
    CountedRun run;
    EXPECT_NEAR(*valueIn(run.engine(2, {5}).text(), "pmenv_engine_held_back_seconds_total" + kOf100), 0, 1e-9);
    EXPECT_NEAR(*valueIn(run.engine(3, {100}).text(), "pmenv_engine_held_back_seconds_total" + kOf100), 3, 1e-9);
    EXPECT_NEAR(*valueIn(run.engine(2, {5}).text(), "pmenv_engines_held_back_seconds_total" + kOfName), 3, 1e-9);
}

TEST(Counters, CountTheQuotasOfControlGroups) {
    Did did;
    did.throttled = 40;
    const std::string text = CountedRun().engine(5, did).text();
    EXPECT_NEAR(*valueIn(text, "pmenv_engine_group_throttled_seconds_total" + kOf100), 2, 1e-9);
    EXPECT_EQ(valueIn(text, "pmenv_engine_group_throttled_periods_total" + kOf100), 40);
}

TEST(Counters, OfTheWatchItself) {
    CountedRun run;
    run.each(kInterval, [](Evidence& evidence) { evidence.to = evidence.from; });
    EXPECT_EQ(valueIn(run.text(), "pmenv_watch_intervals_total"), 0) << "the first one has no length";
    run.each(2, [](Evidence& evidence) { evidence.wakes = {25, 3, 0.05}; });
    EXPECT_EQ(valueIn(run.text(), "pmenv_watch_intervals_total"), 8);
    EXPECT_EQ(valueIn(run.text(), "pmenv_watch_wakes_total"), 225);
    EXPECT_EQ(valueIn(run.text(), "pmenv_watch_late_wakes_total"), 24);
}

// --- engines of one name --------------------------------------------------------------------------------------------

TEST(Counters, PutTheEnginesOfANameTogether) {
    Did throttled{10};
    throttled.throttled = 20;
    const std::string text = CountedRun()
                                 .each(10,
                                       [&](Evidence& evidence) {
                                           evidence.engines.push_back(engineThat(throttled, evidence.from, 100));
                                           evidence.engines.push_back(engineThat({40}, evidence.from, 101));
                                           evidence.engines.push_back(engineThat(throttled, evidence.from, 102));
                                           evidence.engines[0].descriptorShare = 0.25;
                                           evidence.engines[1].descriptorShare = 0.5;
                                       })
                                 .text();
    EXPECT_EQ(valueIn(text, "pmenv_engines" + kOfName), 3);
    EXPECT_NEAR(*valueIn(text, "pmenv_engines_cpu_seconds_total" + kOfName), 6, 1e-9);
    EXPECT_NEAR(*valueIn(text, "pmenv_engines_group_throttled_seconds_total" + kOfName), 2, 1e-9)
        << "they can be in one group";
    EXPECT_EQ(valueIn(text, "pmenv_engines_group_throttled_periods_total" + kOfName), 80);
    EXPECT_EQ(valueIn(text, "pmenv_engines_descriptors_ratio" + kOfName), 0.5);
    EXPECT_EQ(seriesCount(text, "pmenv_engine_cpu_seconds_total{"), 3u);
    EXPECT_THAT(text, HasSubstr(" The most of any engine of a name.\n# TYPE pmenv_engines_descriptors_ratio gauge\n"));
}

TEST(Counters, NameProcessesOnlyWhenAsked) {
    CountedRun run;
    run.engine(1, {40});
    EXPECT_THAT(run.text({}), AllOf(Not(HasSubstr("pid")), HasSubstr("\npmenv_engines_cpu_seconds_total{")));
    EXPECT_THAT(run.text(kPerProcess), HasSubstr("\npmenv_engine_cpu_seconds_total" + kOf100));
}

TEST(Counters, NamesAreThereWithoutEngines) {
    CountedRun run({kEngineName, "wrk"});
    for (int i = 0; i < 2; ++i) {  // before the first process and after the last
        EXPECT_EQ(valueIn(run.text(), "pmenv_engines" + kOfName), 0);
        EXPECT_EQ(valueIn(run.text(), "pmenv_engines{name=\"wrk\"}"), 0);
        run.engine(1, {40});
        EXPECT_EQ(valueIn(run.text(), "pmenv_engines" + kOfName), 1);
        EXPECT_EQ(valueIn(run.text(), "pmenv_engines{name=\"wrk\"}"), 0);
        run.idle(2);
    }
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines_cpu_seconds_total{name=\"wrk\"}"), std::nullopt) << "not 0";
}

TEST(Counters, ANameThatNobodyAskedForGoesWithItsLastEngine) {
    CountedRun run;
    run.oddEngine([](EngineEvidence& engine) { engine.name = "other"; });
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines{name=\"other\"}"), 1);
    EXPECT_EQ(valueIn(run.idle(60).text(), "pmenv_engines{name=\"other\"}"), 0);
    EXPECT_EQ(valueIn(run.idle(Counters::kEndedStays).text(), "pmenv_engines{name=\"other\"}"), std::nullopt);
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines" + kOfName), 0);
}

TEST(Counters, ANameThatNobodyAskedForGoesWhileEnginesOfOtherNamesStay) {
    for (const char* const name : {"Another", "other"}) {  // before and behind the name that was asked for
        CountedRun run;
        run.oddEngine([&](EngineEvidence& engine) { engine.name = name; });
        const std::string text = run.engine(Counters::kEndedStays + 1, {40}).text();
        EXPECT_EQ(valueIn(text, "pmenv_engines{name=\"" + std::string(name) + "\"}"), std::nullopt);
        EXPECT_EQ(valueIn(text, "pmenv_engines" + kOfName), 1);
    }
}

TEST(Counters, WhatStandsInForEnginesIsNone) {
    const std::string text = CountedRun().oddEngine([](EngineEvidence& engine) { engine.standIn = true; }).text();
    EXPECT_EQ(valueIn(text, "pmenv_engines" + kOfName), 0);
    EXPECT_THAT(text, Not(HasSubstr("cpu_seconds")));
}

// --- engines that end -----------------------------------------------------------------------------------------------

TEST(Counters, OfAnEngineThatHasEndedStayForAWhile) {
    CountedRun run;
    run.engine(10, {40}).idle(60);
    EXPECT_NEAR(valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100).value_or(-1), 4, 1e-9);
    run.idle(Counters::kEndedStays - 60);
    EXPECT_NEAR(valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100).value_or(-1), 4, 1e-9) << "5 minutes";
    run.idle(kInterval);
    EXPECT_EQ(valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100), std::nullopt);
    EXPECT_NEAR(valueIn(run.text(), "pmenv_engines_cpu_seconds_total" + kOfName).value_or(-1), 4, 1e-9)
        << "the sum of the name never goes back";
}

TEST(Counters, OnlyTheLastEnginesThatHaveEndedStay) {
    constexpr int kMost = static_cast<int>(Counters::kMostEnded);
    CountedRun run;
    for (int pid = 1; pid <= kMost + 10; ++pid) run.engine(kInterval, {40}, pid);
    run.idle(kInterval);
    const std::string text = run.text();
    EXPECT_EQ(seriesCount(text, "pmenv_engine_cpu_seconds_total{"), Counters::kMostEnded);
    EXPECT_THAT(text, Not(HasSubstr("pid=\"10\"}")));
    EXPECT_THAT(text, HasSubstr("pid=\"11\"}"));
    run.each(kInterval, [](Evidence& evidence) {
        for (int pid = 1; pid <= kMost + 10; ++pid) evidence.engines.push_back(engineThat({40}, evidence.from, pid));
    });
    EXPECT_EQ(seriesCount(run.text(), "pmenv_engine_cpu_seconds_total{"), Counters::kMostEnded + 10) << "these run";
    run.idle(kInterval);
    EXPECT_EQ(seriesCount(run.text(), "pmenv_engine_cpu_seconds_total{"), Counters::kMostEnded)
        << "they ended together";
}

TEST(Counters, WhichEnginesEndedLastIsNoMatterOfTheirIds) {
    constexpr int kMost = static_cast<int>(Counters::kMostEnded);
    CountedRun run;
    for (int pid = kMost + 10; pid >= 1; --pid) run.engine(kInterval, {40}, pid);
    const std::string text = run.idle(kInterval).text();
    EXPECT_EQ(seriesCount(text, "pmenv_engine_cpu_seconds_total{"), Counters::kMostEnded);
    EXPECT_THAT(text, HasSubstr("pid=\"1\"}"));
    EXPECT_THAT(text, HasSubstr("pid=\"" + std::to_string(kMost) + "\"}"));
    EXPECT_THAT(text, Not(HasSubstr("pid=\"" + std::to_string(kMost + 1) + "\"}")));
}

TEST(Counters, StatesEndWithTheEngine) {
    CountedRun run;
    run.oddEngine([](EngineEvidence& engine) {
        engine.descriptorShare = 0.25;
        engine.portShare = 0.125;
        engine.group.memoryShare = 0.5;
        engine.descriptors = Usage{256, 1024};
        engine.ports = Usage{3529, 28232};
        engine.group.memory = Usage{5e8, 1e9};
    });
    Figures sample = figuresAt(0);
    sample.engines = {engine(100, 40)};
    sample.engines[0].startTicks = 5000;
    for (const char* const state :
         {"descriptors_ratio", "descriptors", "descriptors_limit", "ports_ratio", "ports", "ports_limit",
          "group_memory_ratio", "group_memory_bytes", "group_memory_limit_bytes", "memory_bytes"}) {
        EXPECT_EQ(seriesCount(run.text(kPerProcess, sample), "pmenv_engine_" + std::string(state) + "{"), 1u) << state;
        EXPECT_EQ(seriesCount(run.text(kPerProcess, sample), "pmenv_engines_" + std::string(state) + "{"), 1u) << state;
    }
    run.idle(1);
    for (const auto& [series, value] : seriesIn(run.text(kPerProcess, sample))) {
        EXPECT_TRUE(isCounted(series) || series.find("engine") == std::string::npos ||
                    series == "pmenv_engines" + kOfName)
            << series;
    }
}

// The process that gets the id has the same labels.
TEST(Counters, APidUsedAgainContinuesItsSeries) {
    CountedRun run;
    run.engine(10, {40}).idle(2);
    for (int i = 0; i < 4; ++i) run.oddEngine([](EngineEvidence& engine) { engine.key.startTicks = 6000; });
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100), 4.4, 1e-9);
    EXPECT_EQ(seriesCount(run.text(), "pmenv_engine_cpu_seconds_total{"), 1u);
}

TEST(Counters, AnotherNameOfAProcessIsAnotherSeries) {
    CountedRun run;
    run.engine(1, {40}).oddEngine([](EngineEvidence& engine) { engine.name = "other"; });
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100), 0.4, 1e-9);
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engine_cpu_seconds_total{name=\"other\",pid=\"100\"}"), 0.1, 1e-9);
    EXPECT_EQ(valueIn(run.text(), "pmenv_engines" + kOfName), 0);
}

// --- what always holds ----------------------------------------------------------------------------------------------

TEST(Counters, NeverGoBack) {
    Counters counters({kEngineName}, JudgeLimits{}.tolerance);
    std::map<std::string, double> before;
    std::size_t compared = 0;
    for (const Evidence& evidence : RandomRun(5).of(200)) {
        counters.add(evidence);
        const auto now = seriesIn(counters.text(figuresAt(0), kAll));
        for (const auto& [series, value] : before) {
            if (!isCounted(series)) continue;
            const auto found = now.find(series);
            ASSERT_NE(found, now.end()) << series;
            ASSERT_GE(found->second, value) << series;
            ++compared;
        }
        before = now;
    }
    EXPECT_GT(compared, 10'000u);
}

TEST(Counters, NeverGoBackWhateverAnIntervalTells) {
    CountedRun run;
    run.engine(1, {40}).oddEngine([](EngineEvidence& engine) { engine.ran = -5; });
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100), 0.4, 1e-9);
    EXPECT_NEAR(*valueIn(run.text(), "pmenv_engines_cpu_seconds_total" + kOfName), 0.4, 1e-9);
}

TEST(Counters, OfANameAreTheSumOfItsEngines) {
    Counters counters({kEngineName}, JudgeLimits{}.tolerance);
    for (const Evidence& evidence : RandomRun(9).of(200)) counters.add(evidence);
    const auto all = seriesIn(counters.text(figuresAt(0), kPerProcess));
    for (const char* const metric : {"cpu_seconds", "held_back_seconds", "waiting_seconds", "turns", "late_turns"}) {
        std::map<std::string, double> sums;
        const std::string ofOne = "pmenv_engine_" + std::string(metric) + "_total{";
        for (const auto& [series, value] : all) {
            if (series.compare(0, ofOne.size(), ofOne) != 0) continue;
            sums[series.substr(ofOne.size(), series.find(",pid=") - ofOne.size())] += value;
        }
        EXPECT_GT(sums.size(), 3u) << metric;
        for (const auto& [name, sum] : sums) {
            const auto found = all.find("pmenv_engines_" + std::string(metric) + "_total{" + name + "}");
            ASSERT_NE(found, all.end()) << name;
            EXPECT_NEAR(found->second, sum, 1e-6) << metric << name;
        }
    }
}

// --- unknown is not zero --------------------------------------------------------------------------------------------

TEST(Counters, WhatIsNotKnownDoesNotAppear) {
    CountedRun run;
    const auto unreadable = [](EngineEvidence& engine) {
        engine.readable = false;
        engine.busiest = std::nullopt;
    };
    run.oddEngine(unreadable);
    Figures sample = figuresAt(0);
    sample.availableBytes = std::nullopt;
    sample.swapUsedBytes = std::nullopt;
    sample.engines = {engine(100, std::nullopt, std::nullopt)};
    sample.engines[0].startTicks = 5000;
    std::set<std::string> metrics;
    for (const auto& [series, value] : seriesIn(run.text(kAll, sample))) metrics.insert(series);
    EXPECT_THAT(metrics,
                UnorderedElementsAre(
                    StartsWith("pmenv_build_info{"), "pmenv_host_info{host=\"loadhost\"}",
                    "pmenv_watch_intervals_total", "pmenv_watch_wakes_total", "pmenv_watch_late_wakes_total",
                    "pmenv_watch_seconds_total", "pmenv_engines" + kOfName, "pmenv_engines_ended_total" + kOfName,
                    "pmenv_engines_killed_total" + kOfName, "pmenv_engines_in_doubt_seconds_total" + kOfName,
                    "pmenv_engine_in_doubt_seconds_total" + kOf100, "pmenv_machine_processors",
                    "pmenv_machine_memory_bytes", "pmenv_machine_memory_free_bytes", "pmenv_machine_swap_bytes"));

    run.engine(1, {40}).oddEngine(unreadable);
    EXPECT_NEAR(valueIn(run.text(), "pmenv_engine_cpu_seconds_total" + kOf100).value_or(-1), 0.4, 1e-9)
        << "what was counted is still known";
}

TEST(Counters, TimeHeldBackIsKnownWhereItCouldBeReadOrTheDescriptorsWereUsedUp) {
    const auto heldBack = [](bool readable, bool busiest, double descriptors) {
        CountedRun run;
        run.oddEngine([&](EngineEvidence& engine) {
            engine.readable = readable;
            engine.descriptorShare = descriptors;
            if (!busiest) engine.busiest = std::nullopt;
        });
        return valueIn(run.text(), "pmenv_engine_held_back_seconds_total" + kOf100);
    };
    EXPECT_EQ(heldBack(true, true, 0.5), 0);
    EXPECT_EQ(heldBack(true, false, 0.5), std::nullopt);
    EXPECT_EQ(heldBack(false, true, 0.5), std::nullopt);
    EXPECT_EQ(heldBack(false, false, 1), kInterval);
    EXPECT_EQ(heldBack(true, true, 1), kInterval);
}

TEST(Counters, WhatIsInUseAndItsLimitAreToldAsNumbers) {
    CountedRun run;
    run.each(kInterval, [](Evidence& evidence) {
        for (const int pid : {100, 101}) {
            EngineEvidence engine = engineThat({40}, evidence.from, pid);
            engine.descriptors = Usage{pid == 100 ? 256.0 : 7.0, 1024};
            engine.ports = Usage{3529, 28232};
            engine.group.memory = Usage{5e8, 1e9};
            evidence.engines.push_back(engine);
        }
    });
    const std::string text = run.text();
    const std::pair<const char*, double> rows[] = {
        {"descriptors", 256},   {"descriptors_limit", 1024}, {"ports", 3529},
        {"ports_limit", 28232}, {"group_memory_bytes", 5e8}, {"group_memory_limit_bytes", 1e9}};
    for (const auto& [metric, value] : rows) {
        EXPECT_EQ(valueIn(text, "pmenv_engine_" + std::string(metric) + kOf100), value) << metric;
        EXPECT_EQ(valueIn(text, "pmenv_engines_" + std::string(metric) + kOfName), value) << metric;
        EXPECT_THAT(text, HasSubstr("\n# TYPE pmenv_engine_" + std::string(metric) + " gauge\n"));
    }
}

TEST(Counters, WithoutALimitThereIsOnlyWhatIsInUse) {
    const std::string text = CountedRun()
                                 .oddEngine([](EngineEvidence& engine) {
                                     engine.group.memory = Usage{5e8, std::nullopt};
                                 })
                                 .text();
    EXPECT_EQ(valueIn(text, "pmenv_engine_group_memory_bytes" + kOf100), 5e8);
    EXPECT_THAT(text, Not(HasSubstr("group_memory_limit_bytes")));
}

TEST(Counters, PortsThatAreKnownAtMostDoNotAppear) {
    for (const bool atMost : {true, false}) {
        CountedRun run;
        run.oddEngine([&](EngineEvidence& engine) {
            engine.portShare = 0.5;
            engine.portsAtMost = atMost;
        });
        const auto shown = atMost ? std::nullopt : std::optional(0.5);
        EXPECT_EQ(valueIn(run.text(), "pmenv_engine_ports_ratio" + kOf100), shown);
        EXPECT_EQ(valueIn(run.text(), "pmenv_engines_ports_ratio" + kOfName), shown);
    }
}

// --- what the sample tells ------------------------------------------------------------------------------------------

TEST(Counters, MemoryIsThatOfTheSample) {
    CountedRun run;
    run.each(kInterval, [](Evidence& evidence) {
        for (int pid = 100; pid < 104; ++pid) evidence.engines.push_back(engineThat({40}, evidence.from, pid));
    });
    Figures sample = figuresAt(0);
    sample.engines = {engine(100, 40, 1000), engine(101, 40, 3000), engine(102, 40, std::nullopt),
                      engine(103, 40, 7000)};
    for (EngineFigures& engine : sample.engines) engine.startTicks = 5000;
    sample.engines[3].startTicks = 6000;  // a process that began in between
    const std::string text = run.text(kPerProcess, sample);
    EXPECT_EQ(valueIn(text, "pmenv_engines_memory_bytes" + kOfName), 4000);
    EXPECT_EQ(valueIn(text, "pmenv_engines_memory_max_bytes" + kOfName), 3000);
    EXPECT_EQ(valueIn(text, "pmenv_engine_memory_bytes" + kOf100), 1000);
    EXPECT_EQ(seriesCount(text, "pmenv_engine_memory_bytes{"), 2u);
}

// Every figure of the machine has a value of its own, so that none can stand in for another.
TEST(Counters, OfTheMachineOnlyWhenAsked) {
    CountedRun run;
    run.each(2, [](Evidence& evidence) {
        evidence.machine.busy = 0.25;
        evidence.machine.idle = 0.375;
        evidence.machine.stolen = 0.125;
        evidence.machine.droppedPackets = 2;
        evidence.machine.segmentsSent = 300;
        evidence.machine.segmentsSentAgain = 4;
        evidence.machine.cpuPressure = 0.0625;
        evidence.machine.ioPressure = 0.03125;
        evidence.machine.memoryPressure = 0.015625;
        evidence.machine.memoryAvailableShare = 0.5;
        evidence.machine.swapUsedBytes = 999;
    });
    Figures sample = figuresAt(0);
    sample.memoryBytes = 5000;
    sample.freeBytes = 1000;
    sample.availableBytes = 2000;
    sample.swapBytes = 700;
    sample.swapUsedBytes = 300;
    EXPECT_EQ(seriesCount(run.text(kPerProcess, sample), "pmenv_machine"), 0u);
    const std::string text = run.text({false, true}, sample);
    const std::map<std::string, double> expected = {{"processors", 4},
                                                    {"memory_bytes", 5000},
                                                    {"memory_free_bytes", 1000},
                                                    {"memory_available_bytes", 2000},
                                                    {"swap_bytes", 700},
                                                    {"swap_used_bytes", 300},
                                                    {"cpu_seconds_total{mode=\"busy\"}", 2},
                                                    {"cpu_seconds_total{mode=\"idle\"}", 3},
                                                    {"cpu_seconds_total{mode=\"steal\"}", 1},
                                                    {"dropped_packets_total", 16},
                                                    {"tcp_segments_sent_total", 2400},
                                                    {"tcp_segments_sent_again_total", 32},
                                                    {"pressure_seconds_total{resource=\"cpu\"}", 0.5},
                                                    {"pressure_seconds_total{resource=\"io\"}", 0.25},
                                                    {"pressure_seconds_total{resource=\"memory\"}", 0.125}};
    for (const auto& [series, value] : expected) EXPECT_EQ(valueIn(text, "pmenv_machine_" + series), value) << series;
    EXPECT_EQ(seriesCount(text, "pmenv_machine"), expected.size());
    EXPECT_THAT(text, HasSubstr("\n# HELP pmenv_machine_swap_used_bytes Swap space in use.\n"
                                "# TYPE pmenv_machine_swap_used_bytes gauge\npmenv_machine_swap_used_bytes 300\n"));
}

TEST(Counters, BeforeTheFirstIntervalTheMachineHasItsStatesOnly) {
    const std::string text = CountedRun().text(kAll);
    EXPECT_EQ(seriesCount(text, "pmenv_machine"), 6u);
    EXPECT_THAT(text, Not(HasSubstr("\npmenv_machine_cpu_seconds_total{")));
    EXPECT_EQ(seriesCount(text, "pmenv_watch"), 0u);
}

TEST(Counters, BeginWithWhoCounts) {
    EXPECT_THAT(CountedRun().text(), StartsWith("# HELP pmenv_build_info The version of pmenv; always 1.\n"
                                                "# TYPE pmenv_build_info gauge\npmenv_build_info{version=\""));
    EXPECT_THAT(CountedRun().text(), ContainsRegex("\npmenv_build_info.version=\"[0-9]+[.][0-9]+[.][0-9]+\". 1\n"));
    EXPECT_THAT(CountedRun().text(), HasSubstr("# TYPE pmenv_host_info gauge\npmenv_host_info{host=\"loadhost\"} 1\n"));
}

// --- readers --------------------------------------------------------------------------------------------------------

TEST(Counters, NamesOfAnyBytesAreLabels) {
    const std::string text =
        CountedRun().oddEngine([](EngineEvidence& engine) { engine.name = "a\"b\\c\nd\xff"; }).text();
    EXPECT_THAT(text, HasSubstr(R"(pmenv_engines{name="a\"b\\\\c\nd\\xff"} 1)"));
    EXPECT_THAT(text, HasSubstr(R"(pmenv_engine_cpu_seconds_total{name="a\"b\\\\c\nd\\xff",pid="100"} 0.1)"));
}

TEST(Counters, AreAcceptedByPromtool) {
    ASSERT_TRUE(isInstalled("/usr/bin/promtool"));
    Counters counters({kEngineName, "wrk"}, JudgeLimits{}.tolerance);
    std::string name;
    for (int byte = 1; byte < 256; ++byte) name += static_cast<char>(byte);
    for (Evidence& evidence : RandomRun(3).of(100)) {
        if (!evidence.engines.empty()) evidence.engines[0].name = name;
        counters.add(evidence);
    }
    const TempDir directory;
    const std::string text = counters.text(figuresAt(0), kAll);
    const std::string path = directory.writeFile("metrics", text);
    const ProgramResult checked = runProgram({"/bin/sh", "-c", "exec /usr/bin/promtool check metrics <\"$0\"", path});
    EXPECT_EQ(checked.status, 0) << checked.err << text;
    EXPECT_EQ(checked.err, "");
    directory.writeFile("metrics", text + "a_counter 1\n");
    EXPECT_NE(runProgram({"/bin/sh", "-c", "exec /usr/bin/promtool check metrics <\"$0\"", path}).status, 0)
        << "it looks";
}

}  // namespace
