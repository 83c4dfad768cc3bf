// What is asked of the server, and what its answers tell of each load generator.
#include <algorithm>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"
#include "support/TempDir.h"
#include "verdict/figures.h"

using testing::HasSubstr;

namespace {

const Figure& figureAbout(const std::string& part) {
    const auto found = std::find_if(figures().begin(), figures().end(), [&](const Figure& figure) {
        return std::string(figure.expression).find(part) != std::string::npos;
    });
    if (found == figures().end()) throw std::runtime_error("no figure has " + part);
    return *found;
}

Sample sampleOf(const Labels& labels, std::optional<double> value) { return {labels, value}; }

TEST(QueryFor, NamesTheJobAndTheWindowOfEachMetric) {
    EXPECT_EQ(queryFor(figureAbout("late_wakes"), "pmenv", 600000),
              "increase(pmenv_watch_late_wakes_total{job=\"pmenv\"}[600s])"
              " / increase(pmenv_watch_wakes_total{job=\"pmenv\"}[600s])");
    EXPECT_EQ(queryFor(figureAbout("(up"), "a\"b\\c\nd", 1500), "count_over_time(up{job=\"a\\\"b\\\\c\\nd\"}[1500ms])");
    EXPECT_EQ(queryFor(figureAbout("(up"), "[W]", 1000), "count_over_time(up{job=\"[W]\"}[1s])");
}

// No metric without them: it would mix jobs and runs.
TEST(QueryFor, LeavesNoMetricWithoutJobAndWindow) {
    for (const Figure& figure : figures()) {
        std::string query = queryFor(figure, "J", 1000);
        EXPECT_EQ(query.find("[W]"), std::string::npos);
        const std::string selector = "{job=\"J\"}[1s]";
        for (std::size_t at = 0; (at = query.find("pmenv_", at)) != std::string::npos; ++at) {
            const std::size_t end = query.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at);
            EXPECT_EQ(query.compare(end, selector.size(), selector), 0) << query;
            at = end;
        }
    }
}

// The alerts and the verdict on the run are not to differ by their arithmetic.
TEST(Figures, AreWorkedOutAsTheRulesDo) {
    std::istringstream words(readFileText(RULES));
    std::string rules;
    for (std::string word; words >> word;) rules += word + " ";
    for (const char* const part : {"late_wakes", "increase(pmenv_engine_held_back_seconds_total[W]) /",
                                   "(increase(pmenv_engine_held_back_seconds_total[W]) +"}) {
        std::string expression = figureAbout(part).expression;
        for (std::size_t at; (at = expression.find("[W]")) != std::string::npos;) expression.replace(at, 3, "[5m]");
        EXPECT_THAT(rules, HasSubstr(" " + expression));
    }
}

TEST(AddAnswer, PutsEachFigureIntoItsGenerator) {
    Fleet fleet;
    addAnswer(figureAbout("(up"), {{sampleOf({{"instance", "a"}}, 40), sampleOf({{"instance", "b"}}, 3)}, {}}, &fleet);
    addAnswer(figureAbout("increase(pmenv_watch_seconds_total[W])"), {{sampleOf({{"instance", "a"}}, 600)}, {}},
              &fleet);
    EXPECT_EQ(fleet.size(), 2U);
    EXPECT_EQ(fleet["a"].scrapes, 40);
    EXPECT_EQ(fleet["a"].watched, 600);
    EXPECT_EQ(fleet["b"].scrapes, 3);
    EXPECT_EQ(fleet["b"].watched, std::nullopt) << "unknown, not 0";
}

TEST(AddAnswer, EveryFigureHasAPlaceOfItsOwn) {
    Fleet fleet;
    for (const Figure& figure : figures()) {
        const Labels labels{{"instance", "a"}, {"name", "n"}, {"pid", "7"}, {"state", "waiting"}};
        ASSERT_NO_THROW(addAnswer(figure, {{sampleOf(labels, 0.25)}, {}}, &fleet));
    }
    const Generator& generator = fleet.at("a");
    for (const auto& figure :
         {generator.scrapes, generator.answered, generator.watched, generator.late, generator.fewest, generator.most,
          generator.expected, generator.ended, generator.killed, generator.memoryKills}) {
        EXPECT_EQ(figure, 0.25);
    }
    ASSERT_EQ(generator.engines.size(), 1U);
    const auto& [name, engine] = *generator.engines.begin();
    EXPECT_EQ(name, EngineName("n", "7"));
    for (const auto& figure :
         {engine.present, engine.heldBack, engine.heldBackAtMost, engine.descriptors, engine.ports, engine.did[0]}) {
        EXPECT_EQ(figure, 0.25);
    }
}

TEST(AddAnswer, KnowsWhatTheBusiestThreadDid) {
    Fleet fleet;
    Answer answer;
    double value = 0;
    for (const char* const state : {"running", "waiting", "throttled", "stolen", "blocked", "stopped", "new"}) {
        answer.samples.push_back(sampleOf({{"instance", "a"}, {"pid", "7"}, {"state", state}}, value += 0.1));
    }
    addAnswer(figureAbout("busiest"), answer, &fleet);
    const Engine& engine = fleet["a"].engines.begin()->second;
    EXPECT_NEAR(*engine.did[static_cast<int>(State::Waiting)], 0.2, 1e-9);
    EXPECT_NEAR(*engine.did[static_cast<int>(State::Throttled)], 0.3, 1e-9);
    EXPECT_NEAR(*engine.did[static_cast<int>(State::Stolen)], 0.4, 1e-9);
    EXPECT_NEAR(*engine.did[static_cast<int>(State::Blocked)], 0.5, 1e-9);
    EXPECT_NEAR(*engine.did[static_cast<int>(State::Stopped)], 0.6, 1e-9);
}

TEST(AddAnswer, UnknownStaysUnknown) {
    Fleet fleet;
    addAnswer(figureAbout("late_wakes"), {{sampleOf({{"instance", "a"}}, std::nullopt)}, {}}, &fleet);
    EXPECT_EQ(fleet.at("a").late, std::nullopt);
    addAnswer(figureAbout("(up"), {{sampleOf({}, 1)}, {}}, &fleet);
    EXPECT_EQ(fleet.at("").scrapes, 1) << "one without a name is in the table as well";
}

TEST(AddAnswer, RefusesTheSameFigureTwice) {
    Fleet fleet;
    const Answer twice{
        {sampleOf({{"instance", "a"}, {"zone", "1"}}, 1), sampleOf({{"instance", "a"}, {"zone", "2"}}, {})}, {}};
    try {
        addAnswer(figureAbout("(up"), twice, &fleet);
        ADD_FAILURE();
    } catch (const Failure& failure) {
        EXPECT_STREQ(failure.what(),
                     "the server knows a figure of a load generator twice: count_over_time(up[W]); generators of a job "
                     "must differ in their label 'instance'");
    }
}

}  // namespace
