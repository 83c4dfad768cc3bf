// What is answered to a request, from what the board knows.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board.h"
#include "figures.h"
#include "judgement/judgement.h"
#include "pages.h"
#include "pmenv/run/judgement/Runs.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

double now = 1000;

}  // namespace

// The clock that the board asks.
double fakeClock() __asm__("__wrap__ZN6kernel12clockSecondsEv");
double fakeClock() { return now; }

namespace {

const char* const kNewer = "application/openmetrics-text;version=1.0.0,text/plain;version=0.0.4;q=0.5";

class Pages : public testing::Test {
protected:
    void add(const Evidence& evidence) { board_.add(evidence, figuresOfHost()); }

    Evidence busyInterval() {
        Evidence evidence = intervalFrom(from_);
        evidence.engines.push_back(engineThat({100}, from_));
        from_ += kInterval;
        return evidence;
    }

    Answer get(const std::string& path, const std::string& accept = "") const {
        return answerTo("GET", path, accept, board_);
    }
    std::string metrics(const std::string& accept = "") const { return *get("/metrics", accept).body; }

    Board board_{{kEngineName, "wrk"}, JudgeLimits{}.tolerance, {true, false, 7}};
    double from_ = 0;
};

TEST_F(Pages, MetricsTellWhatWasAdded) {
    add(busyInterval());
    add(busyInterval());
    EXPECT_EQ(get("/metrics").status, 200U);
    EXPECT_THAT(metrics(),
                HasSubstr("\npmenv_engine_held_back_seconds_total{name=\"PMLoadEngineMai\",pid=\"100\"} 0.5\n"));
    EXPECT_THAT(metrics(), HasSubstr("\npmenv_watch_seconds_total 0.5\n"));
    EXPECT_THAT(metrics(), HasSubstr("\npmenv_engines{name=\"wrk\"} 0\n")) << "also before its first process";
    EXPECT_THAT(metrics(), HasSubstr("\npmenv_engines_expected 7\n"));
}

TEST_F(Pages, ACollectorGetsTheFormThatItKnows) {
    add(busyInterval());
    EXPECT_EQ(get("/metrics").type, "text/plain; version=0.0.4; charset=utf-8");
    EXPECT_EQ(get("/metrics", "text/plain").type, "text/plain; version=0.0.4; charset=utf-8");
    EXPECT_EQ(get("/metrics", kNewer).type, "application/openmetrics-text; version=1.0.0; charset=utf-8");
    EXPECT_THAT(metrics(), HasSubstr("# TYPE pmenv_watch_seconds_total counter\npmenv_watch_seconds_total "));
    EXPECT_THAT(metrics(kNewer), HasSubstr("# HELP pmenv_watch_seconds For"));
    EXPECT_THAT(metrics(kNewer), HasSubstr("# TYPE pmenv_watch_seconds counter\npmenv_watch_seconds_total "));
    EXPECT_THAT(metrics(kNewer), HasSubstr("# TYPE pmenv_engines gauge\n"));
    EXPECT_THAT(metrics(kNewer), Not(HasSubstr("_total counter")));
    EXPECT_THAT(metrics(kNewer), EndsWith("\n# EOF\n"));
}

TEST_F(Pages, AnExpositionIsWrittenOnceForAllThatAsk) {
    add(busyInterval());
    for (const char* const accept : {"", kNewer}) {
        const auto first = get("/metrics", accept).body;
        EXPECT_EQ(get("/metrics", accept).body, first);
        add(busyInterval());
        EXPECT_NE(*get("/metrics", accept).body, *first) << "the next interval is in it";
    }
}

TEST_F(Pages, AWatchThatHangsIsNotHealthy) {
    add(busyInterval());
    EXPECT_EQ(get("/-/healthy").status, 200U);
    now += 9.9;
    EXPECT_EQ(get("/-/healthy").status, 200U);
    now += 0.2;
    EXPECT_EQ(get("/-/healthy").status, 503U);
    add(busyInterval());
    EXPECT_EQ(get("/-/healthy").status, 200U);
}

TEST_F(Pages, OtherPathsAndMethodsAreRefused) {
    EXPECT_EQ(get("/").status, 200U);
    EXPECT_THAT(*get("/").body, HasSubstr("<a href=\"/metrics\">"));
    EXPECT_EQ(get("/").type, "text/html; charset=utf-8");
    for (const char* const path : {"", "/metrics/", "//metrics", "/metrics/../metrics", "/etc/passwd", "*"}) {
        EXPECT_EQ(get(path).status, 404U) << path;
    }
    for (const char* const method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "get", ""}) {
        EXPECT_EQ(answerTo(method, "/metrics", "", board_).status, 405U) << method;
    }
    EXPECT_EQ(answerTo("HEAD", "/metrics", "", board_).status, 200U);
}

}  // namespace
