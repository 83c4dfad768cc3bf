// The verdict on a run as text and as JSON.
#include <string>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv-fleet/Generators.h"
#include "support/Schema.h"
#include "verdict/formats.h"

using json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Generator heldBackByQuota() {
    Generator generator = goodGenerator();
    generator.engines[kFirst] = engineHeldBack(0.05);
    shareIn(generator.engines[kFirst], State::Throttled) = 0.05;
    generator.expected = 2;
    return generator;
}

FleetRun runOf(const Fleet& fleet, double percentile = 99) {
    const std::chrono::system_clock::time_point begin{std::chrono::seconds(1795310000)};
    return {"http://monitor:9090",
            "pmenv",
            begin,
            begin + std::chrono::seconds(600),
            percentile,
            judged(fleet, percentile, kWindow),
            {}};
}

std::string textOf(const Fleet& fleet, double percentile = 99) {
    return fleetText(runOf(fleet, percentile), Style(-1));
}

std::string headlineOf(const Fleet& fleet, double percentile = 99) {
    const std::string text = textOf(fleet, percentile);
    return text.substr(0, text.find('\n'));
}

TEST(FleetText, HasALineForEachGenerator) {
    Generator growing = goodGenerator();
    growing.fewest = 1;
    EXPECT_EQ(
        textOf({{"gen1:9815", growing}, {"gen2:9815", heldBackByQuota()}, {"gen3:9815", Generator()}}),
        "spoiled: 1 of 3 load generators spoiled the run: gen2:9815 (quota)\n"
        "\n"
        "GENERATOR  VERDICT      BELIEVED  HELD BACK  ENGINES  WHY\n"
        "gen2:9815  spoiled           p95      5.0 %      2/2  load engine 11 (PMLoadEngineMai) was held back for "
        "5.0 % of the time: the quota of its control group was used up (raise the quota of the control group, or "
        "run fewer users here)\n"
        "gen3:9815  cannot tell         -          -        -  there are no figures of this time (look whether "
        "pmenv-exporter runs there and the server reaches it)\n"
        "gen1:9815  clean           p99.9      0.1 %     1..2\n");
}

TEST(FleetText, SaysItInOneSentence) {
    const Generator good = goodGenerator(), bad = heldBackByQuota(), none;
    Generator ended = goodGenerator();
    ended.ended = 1;
    EXPECT_EQ(headlineOf({}), "cannot tell: there was no load generator of the job 'pmenv' in this time");
    EXPECT_EQ(textOf({}), headlineOf({}) + "\n") << "an empty table says nothing";
    EXPECT_EQ(
        headlineOf({{"a", good}}),
        "clean: the load generator kept its schedule; percentiles up to p99.9 can be believed, p99 was asked for");
    EXPECT_EQ(headlineOf({{"a", good}, {"b", bad}}, 95),
              "clean: all 2 load generators kept their schedule; percentiles up to p95 can be believed, p95 was asked "
              "for");
    EXPECT_EQ(headlineOf({{"a", none}}),
              "cannot tell: of 1 of 1 load generator it cannot be told whether the schedule was kept: a (no figures)");
    EXPECT_EQ(headlineOf({{"a", ended}, {"b", bad}, {"c", good}}),
              "spoiled: 2 of 3 load generators spoiled the run: b (quota), a (engine ended)");
    EXPECT_EQ(
        headlineOf({{"a", bad}, {"b", bad}, {"c", bad}, {"d", bad}, {"e", bad}, {"f", bad}}),
        "spoiled: 6 of 6 load generators spoiled the run: a (quota), b (quota), c (quota), d (quota), e (quota) and 1 "
        "other");
}

// A server that asks others answers with what it got, and warns.
TEST(FleetText, IsNotCleanWhereTheServerWarned) {
    FleetRun run = runOf({{"a", goodGenerator()}});
    EXPECT_EQ(outcomeOf(run), Outcome::Clean);
    run.warnings = {"par\x1btial", "other"};
    EXPECT_EQ(outcomeOf(run), Outcome::CannotTell);
    EXPECT_THAT(fleetText(run, Style(-1)), StartsWith("cannot tell: the server warned, so that its answers may lack "
                                                      "something: par\\x1btial\n"));
    const Json all = fleetJson(run);
    EXPECT_EQ(all.at("verdict"), "cannot tell");
    EXPECT_EQ(all.at("exitCode"), 4);
    expectAsDescribed(json(all), FLEET_SCHEMA);
    FleetRun spoiled = runOf({{"a", goodGenerator()}, {"b", heldBackByQuota()}});
    spoiled.warnings = {"partial"};
    EXPECT_EQ(outcomeOf(spoiled), Outcome::Spoiled);
}

TEST(FleetText, NamesOfAnyBytesCannotSteerTheTerminal) {
    const std::string text = textOf({{"gen\x1b[2J\n\xff", Generator()}});
    for (const char byte : {'\x1b', '\xff'}) EXPECT_EQ(text.find(byte), std::string::npos);
    EXPECT_THAT(headlineOf({{"gen\x1b[2J\n\xff", Generator()}}), HasSubstr("gen\\x1b[2J\\n\\xff (no figures)"));
}

TEST(FleetJson, HasEverything) {
    FleetRun run = runOf({{"gen2:9815", heldBackByQuota()}});
    run.warnings = {"slow"};
    EXPECT_EQ(
        fleetJson(run).dump(),
        R"--({"verdict":"spoiled","exitCode":3,"reason":"1 of 1 load generator spoiled the run: gen2:9815 (quota)",)--"
        R"--("prometheus":"http://monitor:9090","job":"pmenv","from":"2026-11-22T01:13:20.000Z",)--"
        R"--("to":"2026-11-22T01:23:20.000Z","percentile":99.0,"generators":[)--"
        R"--({"generator":"gen2:9815","verdict":"spoiled","believedPercentile":95.0,)--"
        R"--("worstEngine":{"name":"PMLoadEngineMai","pid":"11","heldBackShare":0.05,"heldBackShareAtMost":0.05},)--"
        R"--("engines":{"fewest":2,"most":2,"expected":2,"ended":0,"killed":0},"scrapes":40,"watchedSeconds":600.0,)--"
        R"--("lateShare":0.0,"findings":[{"kind":"quota","text":"load engine 11 (PMLoadEngineMai) was held back for 5.0 % )--"
        R"--(of the time: the quota of its control group was used up",)--"
        R"--("advice":"raise the quota of the control group, or run fewer users here"}],"notRead":["descriptors","local ports"]}],"warnings":["slow"]})--");
}

// The exporter has no right to see the descriptors of other users' engines.
TEST(FleetText, WhatWasNotReadIsNotCalledFine) {
    Generator unread = goodGenerator();
    unread.engines[kFirst].descriptors = std::nullopt;
    const FleetRun run = runOf({{"a", unread}});
    EXPECT_THAT(fleetText(run, Style(-1)), HasSubstr("  not read of every engine: descriptors\n"));
    EXPECT_EQ(fleetJson(run)["generators"][0]["notRead"].dump(), R"(["descriptors"])");
    unread.engines[kSecond].ports = std::nullopt;
    EXPECT_THAT(textOf({{"a", unread}}), HasSubstr("  not read of every engine: descriptors, local ports\n"));
    expectAsDescribed(json(fleetJson(runOf({{"a", unread}}))), FLEET_SCHEMA);
}

TEST(FleetJson, IsAsTheSchemaDescribes) {
    Generator ended = goodGenerator();
    ended.ended = 1;
    FleetRun run = runOf({{"a", goodGenerator()}, {"b", heldBackByQuota()}, {"c", Generator()}, {"d", ended}});
    run.warnings = {"slow"};
    expectAsDescribed(json(fleetJson(run)), FLEET_SCHEMA);
    expectAsDescribed(json(fleetJson(runOf({}))), FLEET_SCHEMA);
}

TEST(FleetJson, UnknownIsNull) {
    const Json generator = fleetJson(runOf({{"a", Generator()}})).at("generators")[0];
    for (const char* const member : {"believedPercentile", "worstEngine", "scrapes", "watchedSeconds", "lateShare"}) {
        EXPECT_TRUE(generator.at(member).is_null()) << member;
    }
    for (const auto& [name, value] : generator.at("engines").items()) EXPECT_TRUE(value.is_null()) << name;
}

}  // namespace
