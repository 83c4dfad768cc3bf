// judgeFormats: a judgement as people and as programs read it.
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "failure.h"
#include "judgeFormats.h"
#include "judgement/findings.h"
#include "support/ScopedEnv.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// One engine that had too much work of its own, and one that could not be read. Each figure has a value of its own, so that
// none can stand in for another.
Judged spoiled() {
    JudgedEngine engine;
    engine.key = {100, 5000};
    engine.name = "PMLoadEngineMai";
    engine.from = 0.5;
    engine.to = 12;
    engine.ended = true;
    engine.readable = true;
    engine.heldBack = 3.25;
    engine.share = 0.25;
    engine.perhapsShare = 0.375;
    engine.stretches = {{1, 4.5, 3.25, Reason::OwnWork}};
    engine.tid = 101;
    engine.thread = "sender";
    engine.parts = {1, 2, 3, 4, 5, 6};
    engine.slack = 7;
    engine.waited = 0.5;
    engine.turns = 20;
    engine.ran = 8;

    JudgedEngine hidden;
    hidden.key = {200, 6000};
    hidden.name = "other";
    hidden.from = 0.25;
    hidden.to = 12.5;
    hidden.unreadable = 12.25;

    Judged judged;
    judged.outcome = Outcome::Spoiled;
    judged.seconds = 12.5;
    judged.share = 0.25;
    judged.believed = 75;
    judged.engines = {engine, hidden};
    judged.machine.processors = 2;
    judged.machine.busy = 10;
    judged.machine.idle = 15;
    judged.machine.stolen = 0.5;
    judged.machine.enginesRan = 8;
    judged.machine.swapGrowth = 3 << 20;
    judged.machine.others = {{"cc1", 1.5, 3}};
    judged.wakes.wakes = 1000;
    judged.wakes.late = 5;
    judged.wakes.longest = 0.02;
    judged.samples = 51;
    return judged;
}

JudgeContext context() {
    JudgeContext context;
    context.host = "loadhost";
    context.start = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'000'000'000'123));
    context.cpuSeconds = 0.75;
    return context;
}

std::string textOf(const Judged& judged, const JudgeContext& about = context()) {
    return judgeText(judged, {}, about, Style(-1));
}

Json jsonOf(const Judged& judged) { return judgeJson(judged, {}, context()); }

Json member(const Json& list, const char* key, const char* value) {
    for (const Json& item : list) {
        if (item.at(key) == value) return item;
    }
    ADD_FAILURE() << "there is no " << value;
    return {};
}

// --- the outcome ----------------------------------------------------------------------------------------------------

TEST(JudgeFormats, EachOutcomeHasItsWordAndItsExitCode) {
    const struct {
        Outcome outcome;
        const char* word;
        int exitCode;
    } rows[] = {{Outcome::Clean, "clean", kExitDone},
                {Outcome::Spoiled, "spoiled", kExitSpoiled},
                {Outcome::CannotTell, "cannot tell", kExitCannotTell}};
    for (const auto& row : rows) {
        Judged judged = spoiled();
        judged.outcome = row.outcome;
        judged.doubt = Doubt::NotReadable;
        EXPECT_EQ(judgeExitCode(judged), row.exitCode) << row.word;
        EXPECT_THAT(textOf(judged), StartsWith(row.word + (": " + reasonText(judged, {}) + "\nwatched ")));
        EXPECT_EQ(jsonOf(judged).at("verdict"), row.word);
        EXPECT_EQ(jsonOf(judged).at("exitCode"), row.exitCode);
        EXPECT_EQ(jsonOf(judged).at("reason"), reasonText(judged, {}));
    }
}

// --- text -----------------------------------------------------------------------------------------------------------

TEST(JudgeText, SaysWhatWasWatched) {
    EXPECT_THAT(textOf(spoiled()), HasSubstr("\nwatched 2 load engines for 12.5 s on loadhost\n\n"));
    Judged one = spoiled();
    one.engines.pop_back();
    JudgeContext about = context();
    about.missingNames = {"wrk", "ab"};
    EXPECT_THAT(textOf(one, about), HasSubstr("\nwatched 1 load engine for 12.5 s on loadhost\n"
                                              "no process named 'wrk' was seen\n"
                                              "no process named 'ab' was seen\n"));
}

TEST(JudgeText, SaysWhatWasSkipped) {
    Judged skipped = spoiled();
    skipped.from = 1;
    EXPECT_THAT(textOf(skipped), HasSubstr("\nwatched 2 load engines for 12.5 s on loadhost, after the first 1 s\n"));
    EXPECT_EQ(jsonOf(skipped).at("from"), 1);
}

TEST(JudgeText, SaysHowTheCommandFailed) {
    const struct {
        int status;
        const char* text;
        int exitCode;
    } rows[] = {{0, " on loadhost\n\n", 0},
                {1 << 8, " on loadhost\nthe command ended with exit code 1\n\n", 1},
                {SIGHUP, " on loadhost\nthe command was ended by signal SIGHUP\n\n", 129},
                {SIGKILL, " on loadhost\nthe command was ended by signal SIGKILL\n\n", 137}};
    for (const auto& row : rows) {
        JudgeContext about = context();
        about.commandStatus = row.status;
        EXPECT_THAT(textOf(spoiled(), about), HasSubstr(row.text));
        EXPECT_EQ(judgeJson(spoiled(), {}, about).at("commandExitCode"), row.exitCode);
    }
    EXPECT_TRUE(jsonOf(spoiled()).at("commandExitCode").is_null());
}

TEST(JudgeText, TellsWhatSpoilsFromWhatDoesNot) {
    const std::vector<RunFinding> findings = findingsOf(spoiled(), {});
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_THAT(textOf(spoiled()), HasSubstr("\n\n! from second 1, for 3.2 s: " + findings[0].text + "\n  " +
                                             findings[0].advice + "\n\n- from second 0, for 12.2 s: " +
                                             findings[1].text + "\n  " + findings[1].advice + "\n\nSIGNAL "));
}

TEST(JudgeText, SignalsHaveTheirUnits) {
    const std::string text = textOf(spoiled());
    const auto line = [&text](const std::string& name) {
        const std::size_t begin = text.find("\n" + name + "  ") + 1;
        return text.substr(begin, text.find('\n', begin) - begin);
    };
    EXPECT_THAT(line("held back"), EndsWith("  25.0 %   1.0 %  over"));
    EXPECT_THAT(line("processors"), EndsWith("  40.0 %       -  ok"));
    EXPECT_THAT(line("ready to running"), EndsWith("  25.0 ms       -  ok"));
    EXPECT_THAT(line("growth of swap"), EndsWith("  3.0 MiB       -  ok"));
    EXPECT_THAT(line("packets dropped"), EndsWith("        -       -  not readable"));
    Judged dropped = spoiled();
    dropped.machine.droppedPackets = 12;
    EXPECT_THAT(textOf(dropped), HasSubstr("       12       -  ok\n"));
    EXPECT_EQ(signalText(0.95, Signal::Unit::Seconds), "950.0 ms");
}

TEST(JudgeText, IsWithoutColourOnAPipe) { EXPECT_THAT(textOf(spoiled()), Not(HasSubstr("\x1b"))); }

TEST(JudgeText, IsInColourOnATerminal) {
    const ScopedEnv colours("NO_COLOR", nullptr);
    int controller = -1;
    int terminal = -1;
    ASSERT_EQ(openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    const Style style(terminal);
    close(terminal);
    close(controller);
    EXPECT_EQ(verdictText(Outcome::Clean, style), "\x1b[32mclean\x1b[0m");
    EXPECT_EQ(verdictText(Outcome::Spoiled, style), "\x1b[31mspoiled\x1b[0m");
    EXPECT_EQ(verdictText(Outcome::CannotTell, style), "\x1b[33mcannot tell\x1b[0m");
    const std::string text = judgeText(spoiled(), {}, context(), style);
    EXPECT_THAT(text, StartsWith("\x1b[31mspoiled\x1b[0m: "));
    EXPECT_THAT(text, HasSubstr("\n\n\x1b[31m!\x1b[0m \x1b[1mfrom second 1, for 3.2 s: \x1b[0m"));
    EXPECT_THAT(text, HasSubstr("\n\n- \x1b[1mfrom second 0, for 12.2 s: \x1b[0m"));
}

// --- JSON -----------------------------------------------------------------------------------------------------------

TEST(JudgeJson, HasWhatWasAskedForAndWhatCameOut) {
    JudgeLimits limits;
    limits.percentile = 95;
    limits.tolerance = 0.02;
    const Json json = judgeJson(spoiled(), limits, context());
    EXPECT_EQ(json.at("host"), "loadhost");
    EXPECT_EQ(json.at("start"), "2001-09-09T01:46:40.123Z");
    EXPECT_EQ(json.at("seconds"), 12.5);
    EXPECT_EQ(json.at("percentile"), 95);
    EXPECT_EQ(json.at("tolerance"), 0.02);
    EXPECT_EQ(json.at("believedPercentile"), 75);
    EXPECT_EQ(json.at("heldBackShare"), 0.25);
}

TEST(JudgeJson, HasTheAccountsOfAnEngine) {
    const Json engine = jsonOf(spoiled()).at("engines").at(0);
    EXPECT_EQ(engine.at("pid"), 100);
    EXPECT_EQ(engine.at("name"), "PMLoadEngineMai");
    EXPECT_EQ(engine.at("from"), 0.5);
    EXPECT_EQ(engine.at("to"), 12);
    EXPECT_EQ(engine.at("ended"), true);
    EXPECT_EQ(engine.at("readable"), true);
    EXPECT_EQ(engine.at("heldBackShare"), 0.25);
    EXPECT_EQ(engine.at("heldBackShareAtMost"), 0.375);
    EXPECT_EQ(engine.at("heldBackSeconds"), 3.25);
    EXPECT_EQ(engine.at("thread"), (Json{{"tid", 101}, {"name", "sender"}}));
    EXPECT_EQ(engine.at("parts"), (Json{{"running", 1.0},
                                        {"waiting", 2.0},
                                        {"throttled", 3.0},
                                        {"stolen", 4.0},
                                        {"blocked", 5.0},
                                        {"stopped", 6.0},
                                        {"slack", 7.0}}));
    EXPECT_EQ(engine.at("wokenAfter"), 0.025);
    EXPECT_EQ(engine.at("cpuSeconds"), 8);
    EXPECT_EQ(engine.at("intervals"),
              Json::array({Json{{"from", 1.0}, {"to", 4.5}, {"seconds", 3.25}, {"reason", "ownWork"}}}));
}

TEST(JudgeJson, WhatIsNotKnownOfAnEngineIsNull) {
    const Json engine = jsonOf(spoiled()).at("engines").at(1);
    EXPECT_EQ(engine.at("readable"), false);
    EXPECT_EQ(engine.at("ended"), false);
    for (const char* const name :
         {"heldBackShare", "heldBackShareAtMost", "heldBackSeconds", "thread", "parts", "wokenAfter", "cpuSeconds"}) {
        EXPECT_TRUE(engine.at(name).is_null()) << name;
    }
    EXPECT_EQ(engine.at("intervals"), Json::array());
    Judged asleep = spoiled();
    asleep.engines[0].turns = 0;
    EXPECT_TRUE(jsonOf(asleep).at("engines").at(0).at("wokenAfter").is_null());
    asleep.engines[0].turns = 1;
    EXPECT_EQ(jsonOf(asleep).at("engines").at(0).at("wokenAfter"), 0.5);
}

TEST(JudgeJson, HasTheFindings) {
    const RunFinding finding = findingsOf(spoiled(), {}).at(0);
    EXPECT_EQ(jsonOf(spoiled()).at("findings").at(0), (Json{{"kind", "ownWork"},
                                                            {"spoils", true},
                                                            {"pid", 100},
                                                            {"since", 1.0},
                                                            {"seconds", 3.25},
                                                            {"text", finding.text},
                                                            {"advice", finding.advice}}));
    EXPECT_EQ(jsonOf(spoiled()).at("findings").at(1).at("spoils"), false);
}

TEST(JudgeJson, HasTheSignals) {
    const Json signals = jsonOf(spoiled()).at("signals");
    EXPECT_EQ(signals.at(0),
              (Json{{"name", "held back"}, {"state", "over"}, {"value", 25.0}, {"limit", 1.0}, {"unit", "percent"}}));
    EXPECT_EQ(
        member(signals, "name", "ready to running"),
        (Json{
            {"name", "ready to running"}, {"state", "ok"}, {"value", 0.025}, {"limit", nullptr}, {"unit", "seconds"}}));
    EXPECT_EQ(member(signals, "name", "growth of swap").at("unit"), "bytes");
    EXPECT_EQ(member(signals, "name", "packets dropped").at("unit"), "count");
    EXPECT_EQ(member(signals, "name", "packets dropped").at("state"), "notReadable");
    EXPECT_TRUE(member(signals, "name", "packets dropped").at("value").is_null());
}

TEST(JudgeJson, HasWhereTheProcessorTimeWent) {
    EXPECT_EQ(jsonOf(spoiled()).at("processors"),
              (Json{{"count", 2},
                    {"engineSeconds", 8.0},
                    {"otherSeconds", 2.0},
                    {"stolenSeconds", 0.5},
                    {"others", Json::array({Json{{"name", "cc1"}, {"seconds", 1.5}, {"processes", 3}}})}}));
    Judged judged = spoiled();
    judged.machine.enginesRan = 11;
    EXPECT_EQ(jsonOf(judged).at("processors").at("otherSeconds"), 0) << "counted at different moments";
    judged.machine.busy.reset();
    judged.machine.stolen.reset();
    EXPECT_TRUE(jsonOf(judged).at("processors").at("otherSeconds").is_null());
    EXPECT_TRUE(jsonOf(judged).at("processors").at("stolenSeconds").is_null());
}

TEST(JudgeJson, HasHowPunctualTheWatchWas) {
    EXPECT_EQ(jsonOf(spoiled()).at("watcher"), (Json{{"samples", 51},
                                                     {"interval", 0.25},
                                                     {"wakes", 1000},
                                                     {"lateShare", 0.005},
                                                     {"longestLate", 0.02},
                                                     {"cpuSeconds", 0.75}}));
    Judged judged = spoiled();
    judged.samples = 2;
    EXPECT_EQ(jsonOf(judged).at("watcher").at("interval"), 12.5);
    judged.wakes = {1, 1, 0.5};
    EXPECT_EQ(jsonOf(judged).at("watcher").at("lateShare"), 1);
    EXPECT_EQ(jsonOf(judged).at("watcher").at("longestLate"), 0.5);
    judged.samples = 1;
    judged.wakes = {};
    for (const char* const name : {"interval", "lateShare", "longestLate"}) {
        EXPECT_TRUE(jsonOf(judged).at("watcher").at(name).is_null()) << name;
    }
}

}  // namespace
