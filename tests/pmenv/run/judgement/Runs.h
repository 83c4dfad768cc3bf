// Runs.h - made-up evidence: a run as a tester would tell it.
#pragma once

#include <string>
#include <utility>

#include "judgement/judgement.h"

constexpr double kInterval = 0.25;

/// What a thread did with an interval, in per cent.
struct Did {
    double ran = 0;
    double waited = 0;
    double throttled = 0;
    double blocked = 0;
    double stopped = 0;
    double stolen = 0;
};

/// An engine whose only thread did this in the quarter of a second from `from` on.
inline EngineEvidence engineThat(const Did& did, double from, int pid = 100) {
    EngineEvidence engine;
    engine.key = {pid, 5000};
    engine.name = "PMLoadEngineMai";
    engine.from = from;
    engine.to = from + kInterval;
    engine.readable = true;
    ThreadEvidence thread;
    thread.tid = pid;
    thread.name = "sender";
    thread.seconds = kInterval;
    const double percent = kInterval / 100;
    thread.parts.running = did.ran * percent;
    thread.parts.waiting = did.waited * percent;
    thread.parts.throttled = did.throttled * percent;
    thread.parts.blocked = did.blocked * percent;
    thread.parts.stopped = did.stopped * percent;
    thread.parts.stolen = did.stolen * percent;
    thread.turns = 100;
    engine.turns = 100;
    engine.waited = (did.waited + did.throttled) * percent;
    engine.ran = thread.parts.running;
    engine.busiest = thread;
    if (did.throttled > 0) {
        engine.group.throttled = thread.parts.throttled;
        engine.group.timesThrottled = 2;
    }
    return engine;
}

/// The next interval, of a machine on which nothing happens.
inline Evidence intervalFrom(double from) {
    Evidence evidence;
    evidence.from = from;
    evidence.to = from + kInterval;
    evidence.machine.processors = 2;
    evidence.wakes.wakes = 25;
    return evidence;
}

/// A run that is made up interval by interval.
class MadeRun {
public:
    explicit MadeRun(const JudgeLimits& limits = {}) : judgement_(limits) {}

    /// For so many seconds, an engine that did this.
    MadeRun& engine(double seconds, const Did& did, double othersBusy = 0) {
        return each(seconds, [&](Evidence& evidence) {
            evidence.engines.push_back(engineThat(did, evidence.from));
            evidence.machine.busy = evidence.engines[0].ran + othersBusy * kInterval;
            evidence.machine.idle = 2 * kInterval - *evidence.machine.busy;
        });
    }

    /// For so many seconds, what `fill` makes of each interval.
    template <class Fill>
    MadeRun& each(double seconds, Fill fill) {
        for (double end = now_ + seconds; now_ < end - kInterval / 2; now_ += kInterval) {
            Evidence evidence = intervalFrom(now_);
            fill(evidence);
            judgement_.add(evidence);
        }
        return *this;
    }

    MadeRun& add(Evidence evidence) {
        now_ = evidence.to;
        judgement_.add(evidence);
        return *this;
    }

    Judged judged(bool namesMissing = false) const { return judgement_.judged(namesMissing); }
    double now() const { return now_; }

private:
    Judgement judgement_;
    double now_ = 0;
};

/// Of an idle engine that has these shares of its descriptors and local ports in use.
inline Judged judgedWithUsage(double descriptors, double ports) {
    return MadeRun()
        .each(10,
              [=](Evidence& evidence) {
                  evidence.engines.push_back(engineThat({5, 0}, evidence.from));
                  evidence.engines[0].descriptorShare = descriptors;
                  evidence.engines[0].portShare = ports;
              })
        .judged();
}
