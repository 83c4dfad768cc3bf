// EvidenceWatch and RunWatch: when intervals are taken while a command waits, on a clock that the tests set.
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "evidenceWatch.h"
#include "pmenv/run/recording/Recordings.h"
#include "runWatch.h"
#include "support/FakeKernel.h"
#include "support/TempDir.h"

using testing::ElementsAre;
using testing::SizeIs;

namespace {

class EvidenceWatchTest : public testing::Test {
protected:
    EvidenceWatchTest() {
        kernel_.now = 0;
        kernel_.run(FakeKernel::Thread{});
    }

    EvidenceWatch watching(double tolerance = 0.010) {
        return EvidenceWatch({}, {}, tolerance, [this](const Evidence& evidence) { taken_.push_back(evidence); });
    }

    // Waits until a signal comes, which is there already.
    Events::Event waitForSignal(EvidenceWatch& watch) {
        raise(SIGUSR1);
        return watch.wait(events_, 60);
    }

    FakeKernel kernel_;
    Events events_{{SIGUSR1}, false};
    std::vector<Evidence> taken_;
};

TEST_F(EvidenceWatchTest, TheFirstIntervalIsTakenAtOnceAndHasNoLength) {
    const EvidenceWatch watch = watching();
    ASSERT_THAT(taken_, SizeIs(1));
    EXPECT_EQ(taken_[0].from, 0);
    EXPECT_EQ(taken_[0].to, 0);
    ASSERT_THAT(taken_[0].engines, SizeIs(1));
    EXPECT_EQ(taken_[0].engines[0].key.pid, kPid);
    EXPECT_EQ(taken_[0].wakes.wakes, 0u);
}

TEST_F(EvidenceWatchTest, AnIntervalIsTakenWhenItIsDueAlsoBetweenManySignals) {
    EvidenceWatch watch = watching();
    const auto takenAt = [&](double now) {
        kernel_.now = now;
        const Events::Event event = waitForSignal(watch);
        EXPECT_EQ(event.kind, Events::Kind::Signal);
        EXPECT_EQ(event.value, SIGUSR1);
        return taken_.size();
    };
    EXPECT_EQ(takenAt(0.125), 1u);
    EXPECT_EQ(takenAt(0.25), 2u);
    EXPECT_EQ(takenAt(0.375), 2u);
    EXPECT_EQ(takenAt(0.625), 3u);
    EXPECT_EQ(takenAt(0.75), 4u) << "lateness is not carried on";
    const std::vector<double> ends{0, 0.25, 0.625, 0.75};
    for (std::size_t i = 1; i < ends.size(); ++i) {
        EXPECT_EQ(taken_[i].from, ends[i - 1]);
        EXPECT_EQ(taken_[i].to, ends[i]);
    }
}

// An interval of no length tells nothing, and counted as one that does.
TEST_F(EvidenceWatchTest, AfterAWholeIntervalTooLateTheNextIsNotDueAtOnce) {
    EvidenceWatch watch = watching();
    for (const double now : {0.5, 0.5625, 0.59375}) {
        kernel_.now = now;
        waitForSignal(watch);
        watch.finish();
        EXPECT_THAT(taken_, SizeIs(2)) << now;
    }
    kernel_.now = 0.625;
    waitForSignal(watch);
    EXPECT_THAT(taken_, SizeIs(3));
}

TEST_F(EvidenceWatchTest, EachIntervalTellsHowLateTheWatchWasWoken) {
    EvidenceWatch watch = watching(0.125);
    for (const double now : {0.375, 0.6875, 0.8125}) {  // due at 0.25, 0.5 and a tenth of a second after that
        kernel_.now = now;
        waitForSignal(watch);
    }
    ASSERT_THAT(taken_, SizeIs(4));
    const struct {
        std::uint64_t late;
        double longest;
    } rows[] = {{0, 0.125}, {1, 0.1875}, {0, 0.025}};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(taken_[i + 1].wakes.wakes, 1u) << "a signal is none";
        EXPECT_EQ(taken_[i + 1].wakes.late, rows[i].late);
        EXPECT_NEAR(taken_[i + 1].wakes.longest, rows[i].longest, 1e-9);
    }
}

TEST_F(EvidenceWatchTest, NoTimeIsOverAtOnce) {
    EvidenceWatch watch = watching();
    kernel_.now = 0.5;
    for (const double seconds : {0.0, -1.0}) EXPECT_EQ(watch.wait(events_, seconds).kind, Events::Kind::Timeout);
    EXPECT_THAT(taken_, SizeIs(1));
}

// The clock goes on with each look, so that the wait would not end without them.
TEST_F(EvidenceWatchTest, BetweenIntervalsTheEnginesAreLookedAt) {
    EvidenceWatch watch = watching();
    int looks = 0;
    kernel_.before = [&](const std::string& path) {
        EXPECT_EQ(path, "read");
        kernel_.now += 0.0625;
        ++looks;
    };
    EXPECT_EQ(watch.wait(events_, 0.1875).kind, Events::Kind::Timeout);
    EXPECT_EQ(looks, 3);
    EXPECT_THAT(taken_, SizeIs(1));
}

TEST_F(EvidenceWatchTest, TheLastIntervalIsTakenUnlessItIsTooShortToBeJudged) {
    EvidenceWatch watch = watching();
    kernel_.now = 0.0999;
    watch.finish();
    EXPECT_THAT(taken_, SizeIs(1));
    kernel_.now = 0.1;
    watch.finish();
    ASSERT_THAT(taken_, SizeIs(2));
    EXPECT_EQ(taken_[1].to, 0.1);
}

class RunWatchTest : public testing::Test {
protected:
    RunWatchTest() {
        kernel_.now = 0;
        kernel_.run(FakeKernel::Thread{});
    }

    FakeKernel kernel_;
};

TEST_F(RunWatchTest, WhatIsSeenIsJudgedRecordedAndPassedOn) {
    const TempDir directory;
    kernel_.cpu = 1.5;
    std::vector<double> ends;
    {
        RecordingWriter recording(directory / "run", someHeader());
        RunWatch watch({}, {}, {}, &recording, [&](const Evidence& evidence) { ends.push_back(evidence.to); });
        EXPECT_EQ(watch.engines(), 1u);
        for (const double now : {0.25, 0.5}) {
            kernel_.now = now;
            watch.catchUp();
        }
        EXPECT_EQ(watch.judged().samples, 3u);
        kernel_.now = 0.75;
        kernel_.cpu = 2.25;
        watch.finish();
        EXPECT_EQ(watch.cpuSeconds(), 0.75);
        EXPECT_EQ(watch.judged().seconds, 0.75);
    }
    EXPECT_THAT(ends, ElementsAre(0, 0.25, 0.5, 0.75));
    const ReadRecording read = readRecording(directory / "run");
    EXPECT_THAT(read.run, SizeIs(4));
    ASSERT_TRUE(read.outcome);
    EXPECT_EQ(read.outcome->outcome, Outcome::CannotTell) << "too short";
    EXPECT_EQ(read.outcome->cpuSeconds, 0.75);
}

TEST_F(RunWatchTest, NothingIsRecordedOrPassedOnUnlessWanted) {
    RunWatch watch({}, {}, {}, nullptr);
    kernel_.now = 0.25;
    watch.finish();
    EXPECT_EQ(watch.judged().seconds, 0.25);
    kernel_.end(kPid);
    kernel_.now = 0.5;
    watch.catchUp();
    EXPECT_EQ(watch.engines(), 0u);
}

TEST_F(RunWatchTest, ANameThatWasNotSeenIsMissing) {
    EngineChoice choice;
    choice.names = {"wrk"};
    const RunWatch watch(choice, {}, {}, nullptr);
    EXPECT_THAT(watch.missingNames(), ElementsAre("wrk"));
    EXPECT_EQ(watch.judged().outcome, Outcome::CannotTell);
}

}  // namespace
