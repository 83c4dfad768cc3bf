// A recording as metrics over time: names, labels and values, in the order that the format wants, and nothing that is not
// known.
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/history.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

RecordingHeader headerOf(const std::string& host) {
    RecordingHeader header = someHeader();
    header.host = host;
    header.start = std::chrono::system_clock::time_point(std::chrono::microseconds(1'700'000'000'250'999));
    return header;
}

std::string printed(History& history) {
    std::ostringstream text;
    history.print(text);
    return text.str();
}

// Quarters of a second, in which `fill` says what happened.
template <class Fill>
std::string exported(double seconds, Fill fill, const std::string& host = "gen1") {
    History history(headerOf(host));
    MadeRun().each(seconds, [&](Evidence& evidence) {
        fill(evidence);
        history.add(evidence);
    });
    return printed(history);
}

std::string linesWith(const std::string& text, const std::string& part) {
    std::istringstream lines(text);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(part) != std::string::npos) found += line + "\n";
    }
    return found;
}

const std::string kEngine = R"({host="gen1",name="PMLoadEngineMai",pid="100")";

// The samples of the engine's processor time: each value and the seconds of its time.
std::string ranUpTo(const std::vector<std::pair<std::string, std::string>>& samples) {
    std::ostringstream lines;
    for (const auto& [value, seconds] : samples) {
        lines << "pmenv_engine_cpu_seconds_total" << kEngine << "} " << value << " 170000000" << seconds << '\n';
    }
    return lines.str();
}

TEST(History, TellsWhatWasCountedUpToEachSecond) {
    const std::string text = exported(2.5, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({40, 20}, evidence.from));
        evidence.machine.busy = 0.5;
        evidence.machine.memoryAvailableShare = 0.25;
    });
    EXPECT_EQ(linesWith(text, "pmenv_engine_cpu_seconds"),
              "# HELP pmenv_engine_cpu_seconds Processor time of the engine.\n"
              "# TYPE pmenv_engine_cpu_seconds counter\n" +
                  ranUpTo({{"0.1", "0.500"}, {"0.3", "1.000"}, {"0.7", "2.000"}, {"1", "2.750"}}));
    EXPECT_THAT(text, HasSubstr("\npmenv_engine_busiest_thread_seconds_total" + kEngine +
                                ",state=\"waiting\"} 0.5 1700000002.750\n"));
    EXPECT_THAT(text, HasSubstr("\npmenv_machine_cpu_seconds_total{host=\"gen1\",mode=\"busy\"} 5 1700000002.750\n"));
    EXPECT_THAT(text, HasSubstr("\npmenv_machine_memory_available_ratio{host=\"gen1\"} 0.25 1700000000.500\n"));
    EXPECT_THAT(text, EndsWith("\n# EOF\n"));
}

TEST(History, CountsKillsForMemoryToTheEndOfAnEngine) {
    const auto kills = [](std::optional<std::uint64_t> atItsEnd) {
        const std::string text = exported(1.5, [atItsEnd](Evidence& evidence) {
            if (evidence.from < 1) {
                evidence.engines.push_back(engineThat({40}, evidence.from));
                evidence.engines[0].group.memoryKills = 0;
            } else if (evidence.from == 1) {
                evidence.ends.push_back({{100, 5000}, "PMLoadEngineMai", evidence.to, 9, false, false, atItsEnd});
                evidence.ends.push_back({{200, 5000}, "PMLoadEngineMai", evidence.to, 9, false, false, 3});  // unknown
            }
        });
        EXPECT_THAT(text, Not(HasSubstr("pid=\"200\"")));
        return linesWith(text, "pmenv_engine_group_memory_kills_total{");
    };
    const std::string series = "pmenv_engine_group_memory_kills_total" + kEngine + "} ";
    EXPECT_THAT(kills(1), EndsWith(series + "1 1700000001.500\n"));
    EXPECT_THAT(kills(std::nullopt), EndsWith(series + "0 1700000001.250\n"));
}

TEST(History, CountsThePeriodsOfTheQuotaAndTheIntervals) {
    const std::string text = exported(2.5, [](Evidence& evidence) {
        Did did;
        did.throttled = 40;
        evidence.engines.push_back(engineThat(did, evidence.from));
    });
    EXPECT_THAT(text, HasSubstr("\npmenv_engine_group_throttled_periods_total" + kEngine + "} 20 1700000002.750\n"));
    EXPECT_THAT(text, HasSubstr("\npmenv_watch_intervals_total{host=\"gen1\"} 10 1700000002.750\n"));
}

// The verdict adds the time in which an engine should have run and had ended.
TEST(History, EnginesAreHeldBackAsLongAsTheVerdictSays) {
    History history(headerOf("gen1"));
    Judgement judgement{JudgeLimits{}};
    for (Evidence& evidence : RandomRun(7).of(400)) {
        evidence.ends.clear();
        judgement.add(evidence);
        history.add(evidence);
    }
    std::istringstream lines(printed(history));
    double exportedSeconds = 0, judgedSeconds = 0;
    std::map<std::string, double> last;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("pmenv_engine_held_back_seconds_total{") != 0) continue;
        const std::size_t end = line.rfind(' ');
        const std::size_t value = line.rfind(' ', end - 1);
        last[line.substr(0, value)] = std::stod(line.substr(value));
    }
    for (const auto& [series, value] : last) exportedSeconds += value;
    for (const JudgedEngine& engine : judgement.judged(false).engines) judgedSeconds += engine.heldBack;
    EXPECT_GT(judgedSeconds, 1);
    EXPECT_NEAR(exportedSeconds, judgedSeconds, 1e-6);
}

TEST(History, SamplesOfASeriesStandTogetherAndSeriesOfAMetric) {
    History history(headerOf("gen1"));
    for (const Evidence& evidence : RandomRun(3).of(400)) history.add(evidence);
    std::istringstream lines(printed(history));
    std::set<std::string> metrics, allSeries;
    std::string metric, series;
    double time = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '#') continue;
        const std::size_t end = line.find("} ") + 1;
        const std::string thisMetric = line.substr(0, line.find('{'));
        EXPECT_TRUE(thisMetric == metric || metrics.insert(thisMetric).second) << line;
        const bool isNew = line.substr(0, end) != series;
        EXPECT_TRUE(!isNew || allSeries.insert(line.substr(0, end)).second) << line;
        const double thisTime = std::stod(line.substr(line.rfind(' ')));
        EXPECT_TRUE(isNew || thisTime > time) << line;
        metric = thisMetric;
        series = line.substr(0, end);
        time = thisTime;
    }
    EXPECT_GT(metrics.size(), 20U);
    EXPECT_GT(allSeries.size(), 200U);
}

TEST(History, WhatIsNotKnownDoesNotAppear) {
    const std::string text = exported(1, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({100}, evidence.from));
        evidence.engines[0].readable = false;
        evidence.engines[0].busiest = std::nullopt;
    });
    EXPECT_THAT(text, ContainsRegex("pmenv_engine_in_doubt_seconds_total.* 1 ")) << "that nothing is known is";
    EXPECT_THAT(text, Not(ContainsRegex("pmenv_engine_[^i]")));
    for (const char* const name : {"cpu", "memory", "swap", "packets", "segments", "pressure", "run", "mark"}) {
        EXPECT_THAT(text, Not(HasSubstr(name)));
    }
    EXPECT_THAT(text, HasSubstr("\npmenv_machine_processors{host=\"gen1\"} 2 "));
}

TEST(History, AnEngineThatHasEndedGetsNoMoreSamples) {
    const std::string text = exported(4, [](Evidence& evidence) {
        if (evidence.from < 1.5) evidence.engines.push_back(engineThat({40}, evidence.from));
    });
    EXPECT_THAT(linesWith(text, "pmenv_engine_cpu_seconds_total"), EndsWith("} 0.6 1700000001.750\n"));
    EXPECT_THAT(linesWith(text, "pmenv_watch_wakes_total"), EndsWith("} 400 1700000004.250\n"));
}

TEST(History, OfStandInsDoesNotAppearWhereAnEngineWasSeen) {
    const auto fill = [](double engineSince) {
        return [engineSince](Evidence& evidence) {
            evidence.engines.push_back(engineThat({40}, evidence.from, 7));
            evidence.engines[0].standIn = true;
            evidence.engines[0].name = "sh";
            if (evidence.from >= engineSince) evidence.engines.push_back(engineThat({40}, evidence.from));
        };
    };
    EXPECT_THAT(exported(4, fill(99)), HasSubstr("name=\"sh\""));
    const std::string text = exported(4, fill(2));
    EXPECT_THAT(text, Not(HasSubstr("name=\"sh\"")));
    EXPECT_THAT(text, HasSubstr("name=\"PMLoadEngineMai\""));
}

TEST(History, APidUsedAgainContinuesItsSeries) {
    const std::string text = exported(2, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({40}, evidence.from));
        if (evidence.from >= 1) evidence.engines[0].key.startTicks = 6000;
    });
    EXPECT_EQ(linesWith(text, "pmenv_engine_cpu_seconds_total"),
              ranUpTo({{"0.1", "0.500"}, {"0.3", "1.000"}, {"0.7", "2.000"}, {"0.8", "2.250"}}));
}

TEST(History, MarksAreSamplesWithTheirText) {
    History history(headerOf("gen1"));
    for (const Mark& mark : {Mark{7.5, "b"}, Mark{3, "a \"b\"\n"}, Mark{2, "b"}, Mark{2, "b"}}) history.add(mark);
    EXPECT_EQ(linesWith(printed(history), "pmenv_mark{"),
              "pmenv_mark{host=\"gen1\",text=\"a \\\"b\\\"\\n\"} 1 1700000003.250\n"
              "pmenv_mark{host=\"gen1\",text=\"b\"} 1 1700000002.250\n"
              "pmenv_mark{host=\"gen1\",text=\"b\"} 1 1700000007.750\n");
}

TEST(History, TheOutcomeIsAtTheEnd) {
    History history(headerOf("gen1"));
    for (const Evidence& evidence : RandomRun(3).of(2)) history.add(evidence);
    history.add(RecordedOutcome{Outcome::Spoiled, 90.5, 0.1});
    const std::string text = printed(history);
    EXPECT_THAT(text, HasSubstr("\npmenv_run_verdict{host=\"gen1\",verdict=\"cannot tell\"} 0 17"));
    EXPECT_THAT(text, HasSubstr("\npmenv_run_verdict{host=\"gen1\",verdict=\"clean\"} 0 17"));
    EXPECT_THAT(text, HasSubstr("\npmenv_run_verdict{host=\"gen1\",verdict=\"spoiled\"} 1 17"));
    const std::string believed = linesWith(text, "pmenv_run_believed_quantile{");
    EXPECT_THAT(believed, HasSubstr("pmenv_run_believed_quantile{host=\"gen1\"} 0.905 17"));
    const std::string wakes = linesWith(text, "pmenv_watch_wakes_total{");
    EXPECT_EQ(believed.substr(believed.rfind(' ')), wakes.substr(wakes.rfind(' ')));
}

TEST(History, WhatCannotBeBelievedHasNoQuantile) {
    History history(headerOf("gen1"));
    history.add(RecordedOutcome{Outcome::CannotTell, std::nullopt, 0.1});
    EXPECT_THAT(printed(history), Not(HasSubstr("believed")));
}

TEST(History, NamesOfAnyBytesAreLabels) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    const auto fill = [&bytes](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5}, evidence.from));
        evidence.engines[0].name = bytes;
    };
    const std::string line = linesWith(exported(0.25, fill, bytes), "pmenv_engine_cpu_seconds_total{");
    EXPECT_THAT(line, HasSubstr("{host=\"\x01\x02\x03\x04\x05\x06\x07\x08\t\\n\x0b"));
    EXPECT_THAT(line, HasSubstr(" !\\\"#$%&'()*"));
    EXPECT_THAT(line, HasSubstr("[\\\\\\\\]^_"));
    EXPECT_THAT(line, HasSubstr("\x7f\\\\x80\\\\x81"));
    EXPECT_THAT(line, HasSubstr("\\\\xfe\\\\xff\",name=\"\x01\x02"));
}

TEST(History, OfARecordingWithoutEvidenceIsEmpty) {
    History history(headerOf("gen1"));
    EXPECT_EQ(printed(history), "# EOF\n");
}

}  // namespace
