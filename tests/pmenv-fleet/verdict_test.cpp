// The verdict on a load generator and on all of them: each reason, and which goes before which.
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv-fleet/Generators.h"
#include "verdict/verdict.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Verdict verdictWith(const std::function<void(Generator&)>& change, double percentile = 99) {
    Generator generator = goodGenerator();
    change(generator);
    return verdictOn(generator, percentile, kWindow);
}

std::string whyOf(const Verdict& verdict) {
    std::string text;
    for (const Finding& finding : verdict.findings) text += std::string(text.empty() ? "" : " ") + finding.kind;
    return text;
}

TEST(Verdict, IsCleanWhereNothingIsWrong) {
    const Verdict verdict = verdictWith([](Generator&) {});
    EXPECT_EQ(verdict.outcome, Outcome::Clean);
    EXPECT_THAT(verdict.findings, IsEmpty());
    EXPECT_EQ(verdict.believed, 99.9);
    ASSERT_TRUE(verdict.worst);
    EXPECT_EQ(verdict.worst->name, kSecond);
    EXPECT_EQ(verdict.worst->heldBack, 0.001);
}

TEST(Verdict, DependsOnTheShareOfTheWorstEngineAndThePercentile) {
    const struct {
        double share;
        double percentile;
        Outcome outcome;
        double believed;
    } rows[] = {
        {0, 99, Outcome::Clean, 100},           {0.01, 99, Outcome::Clean, 99},
        {0.0101, 99, Outcome::Spoiled, 98.9},   {0.05, 95, Outcome::Clean, 95},
        {0.0501, 95, Outcome::Spoiled, 94.9},   {0, 100, Outcome::Clean, 100},
        {0.0001, 100, Outcome::Spoiled, 99.9},  {1, 0, Outcome::Clean, 0},
        {1.01, 99, Outcome::Spoiled, 0},        {-0.1, 99, Outcome::Clean, 100},
        {0.0004, 99.95, Outcome::Clean, 99.95},
    };
    for (const auto& row : rows) {
        const auto hold = [&](Generator& generator) {
            generator.engines = {{kFirst, engineHeldBack(0)}, {kSecond, engineHeldBack(row.share)}};
        };
        const Verdict verdict = verdictWith(hold, row.percentile);
        EXPECT_EQ(verdict.outcome, row.outcome) << row.share << " " << row.percentile;
        EXPECT_EQ(verdict.believed, row.believed) << row.share << " " << row.percentile;
    }
}

// --- what held an engine back ---------------------------------------------------------------------------------------

std::string causeWith(const std::function<void(Engine&)>& change) {
    return whyOf(verdictWith([&](Generator& generator) {
        generator.engines[kFirst] = engineHeldBack(0.2);
        change(generator.engines[kFirst]);
    }));
}

// One that ran for a fifth of the run makes its part of the results wrong all the same.
TEST(Verdict, AnEngineIsJudgedByTheTimeInWhichItRan) {
    Generator generator = goodGenerator();
    generator.answered = 40;
    Engine& engine = generator.engines[kFirst] = engineHeldBack(0.006);
    shareIn(engine, State::Throttled) = 0.005;
    EXPECT_EQ(verdictOn(generator, 99, kWindow).outcome, Outcome::Clean) << "of the whole run";
    engine.present = 8;
    const Verdict verdict = verdictOn(generator, 99, kWindow);
    EXPECT_EQ(verdict.outcome, Outcome::Spoiled);
    EXPECT_NEAR(verdict.worst->heldBack, 0.03, 1e-9);
    EXPECT_NEAR(*verdict.worst->figures.heldBackAtMost, 0.03, 1e-9);
    EXPECT_EQ(verdict.believed, 97);
    EXPECT_STREQ(verdict.findings.at(0).kind, "quota") << "most of it, in its own time";
    engine.heldBack = 0;
    EXPECT_EQ(verdictOn(generator, 99, kWindow).outcome, Outcome::CannotTell) << "perhaps for 3 % of its time";
    engine.heldBackAtMost = 0;
    EXPECT_EQ(verdictOn(generator, 99, kWindow).outcome, Outcome::Clean);
}

TEST(Verdict, AnEngineThatWasSeenForAMomentCountsAsATenthOfTheRun) {
    Generator generator = goodGenerator();
    generator.answered = 40;
    generator.engines[kFirst] = engineHeldBack(0.001);
    generator.engines[kFirst].present = 1;
    EXPECT_EQ(verdictOn(generator, 99, kWindow).outcome, Outcome::Clean) << "1 % of a tenth";
    generator.engines[kFirst] = engineHeldBack(0.5);
    generator.engines[kFirst].present = 4;
    EXPECT_EQ(verdictOn(generator, 99, kWindow).worst->heldBack, 1) << "no more than all of it";
}

// It began after the run, so that the fewest engines of the run do not count it.
TEST(Verdict, CannotTellOfAnEngineThatCouldNeverBeRead) {
    Generator generator = goodGenerator();
    generator.answered = 40;
    Engine& hidden = generator.engines[{"PMLoadEngineMai", "13"}];
    hidden.present = 2;
    EXPECT_EQ(verdictOn(generator, 99, kWindow).outcome, Outcome::Clean) << "figures come with the second scrape";
    hidden.present = 3;
    const Verdict verdict = verdictOn(generator, 99, kWindow);
    EXPECT_EQ(verdict.outcome, Outcome::CannotTell);
    EXPECT_STREQ(verdict.findings.at(0).kind, "noEvidence");
}

TEST(Verdict, TellsWhatTheBusiestThreadDidMostBesideRunning) {
    const char* const kinds[] = {"waiting", "quota", "stolen", "blocked", "stopped"};
    for (std::size_t i = 0; i < kStateCount; ++i) {
        EXPECT_EQ(causeWith([&](Engine& engine) {
                      for (auto& did : engine.did) did = 0.06;
                      shareIn(engine, stateOf(i)) = 0.07;
                  }),
                  kinds[i]);
    }
}

TEST(Verdict, TellsItsOwnWorkWhereNothingElseMakesUpForIt) {
    EXPECT_EQ(causeWith([](Engine&) {}), "ownWork");
    EXPECT_EQ(causeWith([](Engine& engine) { shareIn(engine, State::Waiting) = 0.049; }), "ownWork");
    EXPECT_EQ(causeWith([](Engine& engine) { shareIn(engine, State::Waiting) = 0.051; }), "waiting");
}

TEST(Verdict, TellsDescriptorsAndPortsThatWereUsedUp) {
    EXPECT_EQ(causeWith([](Engine& engine) { engine.descriptors = 0.98; }), "ownWork");
    EXPECT_EQ(causeWith([](Engine& engine) { engine.descriptors = 0.99; }), "descriptors");
    EXPECT_EQ(causeWith([](Engine& engine) { engine.ports = 0.97; }), "ownWork");
    EXPECT_EQ(causeWith([](Engine& engine) { engine.ports = 0.98; }), "ports");
    EXPECT_EQ(causeWith([](Engine& engine) {
                  engine.ports = engine.descriptors = 1;
                  shareIn(engine, State::Throttled) = 1;
              }),
              "descriptors");
}

TEST(Verdict, NamesTheWorstEngineAndWhatToDo) {
    const Verdict verdict = verdictWith([](Generator& generator) {
        generator.engines[kFirst] = engineHeldBack(0.05);
        shareIn(generator.engines[kFirst], State::Throttled) = 0.04;
        generator.engines[{"a\x1b[2J", "9"}] = engineHeldBack(0.04);
    });
    ASSERT_EQ(verdict.findings.size(), 1U);
    EXPECT_EQ(
        verdict.findings[0].text,
        "load engine 11 (PMLoadEngineMai) was held back for 5.0 % of the time: the quota of its control group was "
        "used up");
    EXPECT_STREQ(verdict.findings[0].advice, "raise the quota of the control group, or run fewer users here");
    EXPECT_STREQ(verdict.findings[0].inWord, "quota");
}

TEST(Verdict, NamesOfAnyBytesCannotSteerTheTerminal) {
    const Verdict verdict = verdictWith([](Generator& generator) {
        generator.engines[{"a\x1b[2J", "9\n"}] = engineHeldBack(0.4);
    });
    EXPECT_THAT(verdict.findings.at(0).text, testing::StartsWith("load engine 9\\n (a\\x1b[2J) was held back"));
}

// --- load that is missing -------------------------------------------------------------------------------------------

TEST(Verdict, IsSpoiledByEnginesThatEnded) {
    const struct {
        double ended, killed, memoryKills;
        const char* kind;
        const char* text;
    } rows[] = {
        {1.03, 0, 0, "ended", "1 load engine ended"},
        {0.4, 0, 0, "ended", "1 load engine ended"},
        {2.9, 1.1, 0, "ended", "3 load engines ended, 1 by a signal"},
        {0, 1, 0, "ended", "1 load engine ended, 1 by a signal"},
        {1, 1, 1, "outOfMemory", "1 load engine ended, 1 by a signal; the kernel killed a process for want of memory"},
    };
    for (const auto& row : rows) {
        const Verdict verdict = verdictWith([&](Generator& generator) {
            generator.ended = row.ended;
            generator.killed = row.killed;
            generator.memoryKills = row.memoryKills;
        });
        EXPECT_EQ(verdict.outcome, Outcome::Spoiled);
        EXPECT_EQ(whyOf(verdict), row.kind);
        EXPECT_EQ(verdict.findings.at(0).text, row.text);
        EXPECT_EQ(verdict.believed, std::nullopt) << "how much load was missing is not known";
    }
    EXPECT_EQ(verdictWith([](Generator& generator) { generator.memoryKills = 1; }).outcome, Outcome::Clean)
        << "no engine was it";
}

TEST(Verdict, IsSpoiledByFewerEnginesThanExpected) {
    const auto expecting = [](double expected, double fewest) {
        return verdictWith([&](Generator& generator) {
            generator.expected = expected;
            generator.fewest = fewest;
        });
    };
    EXPECT_EQ(expecting(2, 2).outcome, Outcome::Clean);
    EXPECT_EQ(expecting(1, 2).outcome, Outcome::Clean);
    EXPECT_EQ(expecting(2, 1).outcome, Outcome::Spoiled);
    EXPECT_EQ(whyOf(expecting(2, 1)), "missing");
    EXPECT_EQ(expecting(2, 1).findings.at(0).text, "1 of 2 load engines was missing");
    EXPECT_EQ(expecting(4, 1).findings.at(0).text, "3 of 4 load engines were missing");
    EXPECT_EQ(expecting(1, 0).findings.at(0).text, "1 of 1 load engine was missing");
    EXPECT_EQ(expecting(4, 1).believed, std::nullopt);
}

TEST(Verdict, TellsEverythingThatSpoils) {
    EXPECT_EQ(whyOf(verdictWith([](Generator& generator) {
                  generator.engines[kFirst] = engineHeldBack(1);
                  generator.expected = 3;
                  generator.ended = 1;
              })),
              "ownWork ended missing");
}

// --- what cannot be told, in the order in which it is -----------------------------------------------------------------

struct Doubt {
    const char* kind;
    std::function<void(Generator&)> arises;
};

const std::vector<Doubt>& doubts() {
    static const std::vector<Doubt> all{
        {"noFigures", [](Generator& generator) { generator.watched.reset(); }},
        {"noFigures", [](Generator& generator) { generator.most.reset(); }},
        {"gap", [](Generator& generator) { generator.watched = 0.949 * kWindow; }},
        {"noEngine", [](Generator& generator) { generator.fewest = generator.most = 0; }},
        {"noEvidence", [](Generator& generator) { generator.engines.clear(); }},
        {"noEvidence", [](Generator& generator) { generator.engines.erase(kFirst); }},
        {"noEvidence", [](Generator& generator) { generator.engines[kSecond].heldBack.reset(); }},
        {"noEvidence", [](Generator& generator) { generator.engines[kSecond].heldBackAtMost.reset(); }},
        {"late", [](Generator& generator) { generator.late = 0.0101; }},
        {"late", [](Generator& generator) { generator.late.reset(); }},
        {"inDoubt", [](Generator& generator) { generator.engines[kSecond].heldBackAtMost = 0.0101; }},
    };
    return all;
}

TEST(Verdict, CannotTellForEachReason) {
    for (const Doubt& doubt : doubts()) {
        const Verdict verdict = verdictWith(doubt.arises);
        EXPECT_EQ(verdict.outcome, Outcome::CannotTell) << doubt.kind;
        EXPECT_EQ(whyOf(verdict), doubt.kind);
        EXPECT_EQ(verdict.believed, std::nullopt) << doubt.kind;
    }
}

TEST(Verdict, TellsTheFirstOfTwoReasons) {
    for (std::size_t second = 0; second < doubts().size(); ++second) {
        for (std::size_t first = 0; first < second; ++first) {
            const Verdict verdict = verdictWith([&](Generator& generator) {
                doubts()[second].arises(generator);
                doubts()[first].arises(generator);
            });
            EXPECT_EQ(whyOf(verdict), doubts()[first].kind) << doubts()[second].kind;
        }
    }
}

TEST(Verdict, WhatSpoilsGoesBeforeEveryDoubt) {
    const Doubt spoils[] = {
        {"ownWork",
         [](Generator& generator) {
             generator.engines[{"x", "1"}] = engineHeldBack(0.5);
         }},
        {"ended", [](Generator& generator) { generator.ended = 1; }},
        {"missing", [](Generator& generator) { generator.expected = 3, generator.fewest = 2; }},
    };
    for (const Doubt& doubt : doubts()) {
        for (const Doubt& spoil : spoils) {
            const Verdict verdict = verdictWith([&](Generator& generator) {
                doubt.arises(generator);
                spoil.arises(generator);
            });
            EXPECT_EQ(verdict.outcome, Outcome::Spoiled) << doubt.kind << " " << spoil.kind;
            EXPECT_EQ(whyOf(verdict), spoil.kind) << doubt.kind;
        }
    }
}

TEST(Verdict, LimitsOfDoubtsAreInclusive) {
    for (const auto& arises : std::vector<std::function<void(Generator&)>>{
             [](Generator& generator) { generator.watched = 0.95 * kWindow; },
             [](Generator& generator) { generator.late = 0.01; },
             [](Generator& generator) { generator.engines[kSecond].heldBackAtMost = 0.01; },
             [](Generator& generator) { generator.engines[kSecond].descriptors = 1; },
             [](Generator& generator) { generator.fewest = 1; },
             [](Generator& generator) { generator.expected.reset(); },
         }) {
        EXPECT_EQ(verdictWith(arises).outcome, Outcome::Clean);
    }
}

// --- all generators -------------------------------------------------------------------------------------------------

Generator spoiledBy(double share) {
    Generator generator = goodGenerator();
    generator.engines[kFirst] = engineHeldBack(share);
    return generator;
}

TEST(Judged, TheWorstComesFirst) {
    const Fleet fleet{{"a", goodGenerator()},
                      {"b", Generator()},
                      {"c", spoiledBy(0.2)},
                      {"d", spoiledBy(0.3)},
                      {"e", spoiledBy(0.005)}};
    const std::vector<Judged> all = judged(fleet, 99, kWindow);
    std::string order;
    for (const Judged& each : all) order += each.name;
    EXPECT_EQ(order, "dcbea");
    EXPECT_EQ(outcomeOf(all), Outcome::Spoiled);
}

TEST(Judged, TheRunIsAsGoodAsItsWorstGenerator) {
    const auto outcome = [](const Fleet& fleet) { return outcomeOf(judged(fleet, 99, kWindow)); };
    EXPECT_EQ(outcome({}), Outcome::CannotTell);
    EXPECT_EQ(outcome({{"a", goodGenerator()}}), Outcome::Clean);
    EXPECT_EQ(outcome({{"a", goodGenerator()}, {"b", Generator()}}), Outcome::CannotTell);
    EXPECT_EQ(outcome({{"a", Generator()}, {"b", spoiledBy(1)}}), Outcome::Spoiled);
}

TEST(Outcome, HasATextAndAnExitCode) {
    EXPECT_STREQ(outcomeText(Outcome::Clean), "clean");
    EXPECT_STREQ(outcomeText(Outcome::CannotTell), "cannot tell");
    EXPECT_STREQ(outcomeText(Outcome::Spoiled), "spoiled");
    EXPECT_EQ(exitCodeOf(Outcome::Clean), 0);
    EXPECT_EQ(exitCodeOf(Outcome::Spoiled), 3);
    EXPECT_EQ(exitCodeOf(Outcome::CannotTell), 4);
}

}  // namespace
