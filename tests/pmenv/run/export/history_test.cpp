// A recording as metrics over time: each sample says when, counters only grow, and what is unknown does not appear.
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/history.h"
#include "pmenv/run/judgement/Runs.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

RecordingHeader headerOf(const std::string& host) {
    RecordingHeader header;
    header.host = host;
    header.start = std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000250));
    return header;
}

// Quarters of a second, in which `fill` says what happened.
template <class Fill>
std::string exported(double seconds, double interval, Fill fill, const std::string& host = "loadhost") {
    History history(headerOf(host), interval);
    for (double from = 0; from < seconds; from += kInterval) {
        Evidence evidence;
        evidence.from = from;
        evidence.to = from + kInterval;
        fill(evidence);
        history.add(evidence);
    }
    std::ostringstream text;
    history.print(text);
    return text.str();
}

std::string linesWith(const std::string& text, const std::string& part) {
    std::istringstream lines(text);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(part) != std::string::npos) found += line + "\n";
    }
    return found;
}

TEST(History, CountersSumWhatHappenedBetweenTwoSamples) {
    const std::string text = exported(2.5, 1, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({40, 0}, evidence.from));
        evidence.machine.busy = 0.5;
    });
    const std::string labels = "{host=\"loadhost\",name=\"PMLoadEngineMai\",pid=\"100\"} ";
    EXPECT_EQ(linesWith(text, "pmenv_engine_cpu_seconds"),
              "# HELP pmenv_engine_cpu_seconds Processor time of the engine.\n"
              "# TYPE pmenv_engine_cpu_seconds counter\n"
              "pmenv_engine_cpu_seconds_total" + labels + "0.1 1700000000.500\n"
              "pmenv_engine_cpu_seconds_total" + labels + "0.5 1700000001.500\n"
              "pmenv_engine_cpu_seconds_total" + labels + "0.9 1700000002.500\n"
              "pmenv_engine_cpu_seconds_total" + labels + "1 1700000002.750\n");
    EXPECT_THAT(text, HasSubstr("\npmenv_machine_cpu_seconds_total{host=\"loadhost\",mode=\"busy\"} 5 1700000002.750\n"));
    EXPECT_THAT(text, EndsWith("\n# EOF\n"));
}

TEST(History, TheSamplesOfAMetricStandTogether) {
    const std::string text = exported(3, 0, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({40, 0}, evidence.from, 1));
        evidence.engines.push_back(engineThat({100, 0}, evidence.from, 2));
    });
    std::set<std::string> seen;
    std::istringstream lines(text);
    std::string metric;
    std::size_t samples = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '#') continue;
        const std::string name = line.substr(0, line.find('{'));
        EXPECT_TRUE(name == metric || seen.insert(name).second) << name;
        metric = name;
        ++samples;
    }
    EXPECT_GT(seen.size(), 5u);
    EXPECT_EQ(linesWith(text, "held_back_seconds_total{host=\"loadhost\",name=\"PMLoadEngineMai\",pid=\"2\"} 3 17").size(),
              std::string("pmenv_engine_held_back_seconds_total{host=\"loadhost\",name=\"PMLoadEngineMai\",pid=\"2\"} 3 "
                          "1700000003.250\n")
                  .size());
}

TEST(History, WhatIsNotKnownDoesNotAppear) {
    const std::string text = exported(1, 0, [](Evidence& evidence) {
        evidence.engines.push_back(engineThat({5, 0}, evidence.from));
        evidence.engines[0].readable = false;
        evidence.engines[0].busiest = std::nullopt;
    });
    for (const char* const metric : {"held_back", "thread_seconds", "throttled", "descriptors", "swap", "pressure", "busy"}) {
        EXPECT_THAT(text, Not(HasSubstr(metric)));
    }
    EXPECT_THAT(text, HasSubstr("pmenv_engines{host=\"loadhost\"} 1 "));
}

TEST(History, AnEngineThatHasEndedGetsNoMoreSamples) {
    const std::string text = exported(4, 1, [](Evidence& evidence) {
        if (evidence.from < 1) evidence.engines.push_back(engineThat({5, 0}, evidence.from));
    });
    EXPECT_THAT(linesWith(text, "pmenv_engine_cpu_seconds_total"), EndsWith(" 1700000001.500\n"));
    EXPECT_THAT(linesWith(text, "pmenv_engines{"), EndsWith(" 0 1700000004.250\n"));
}

TEST(History, NamesOfAnyBytesAreEscaped) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    const std::string text = exported(
        1, 0,
        [&bytes](Evidence& evidence) {
            evidence.engines.push_back(engineThat({5, 0}, evidence.from));
            evidence.engines[0].name = bytes;
        },
        bytes);
    EXPECT_THAT(text, HasSubstr("host=\"\\\\x01\\\\x02"));
    EXPECT_THAT(text, HasSubstr(" !\\\"#$%&'()*"));
    EXPECT_THAT(text, HasSubstr("[\\\\]^_"));
    EXPECT_THAT(text, HasSubstr("\\\\xfe\\\\xff\""));
}

TEST(History, OfARecordingWithoutEvidenceIsEmpty) {
    EXPECT_EQ(exported(0, 1, [](Evidence&) {}), "# EOF\n");
}

}  // namespace
