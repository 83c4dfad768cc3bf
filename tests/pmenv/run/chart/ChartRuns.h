// ChartRuns.h - made-up runs to draw.
#pragma once

#include <string>
#include <utility>

#include "chart/run.h"
#include "pmenv/run/judgement/Runs.h"

/// A run of so many seconds, of what `fill` makes of each interval.
template <class Fill>
ChartRun chartRunOf(double seconds, Fill fill, const JudgeLimits& limits = {}) {
    Judgement judgement(limits);
    ChartRun run(limits);
    for (double now = 0; now < seconds - kInterval / 2; now += kInterval) {
        Evidence evidence = intervalFrom(now);
        fill(evidence);
        judgement.add(evidence);
        run.figures.add(evidence);
    }
    run.host = "loadhost";
    run.judged = judgement.judged(false);
    run.seconds = seconds;
    run.start = std::chrono::system_clock::time_point(std::chrono::seconds(1795300000));
    run.facts = {{"host", "loadhost"}, {"processors", "2"}};
    run.options = {{"percentile", "99"}};
    return run;
}

/// So many engines that do this, on a machine with figures of all kinds.
inline void fillEngines(Evidence& evidence, const Did& did, int engines = 1) {
    double ran = 0;
    for (int i = 0; i < engines; ++i) {
        evidence.engines.push_back(engineThat(did, evidence.from, 100 + i));
        evidence.engines.back().descriptorShare = 0.02;
        evidence.engines.back().portShare = 0.01;
        ran += evidence.engines.back().ran;
    }
    evidence.machine.busy = ran + 0.1 * kInterval;
    evidence.machine.idle = 2 * kInterval - *evidence.machine.busy;
    evidence.machine.stolen = 0;
    evidence.machine.memoryAvailableShare = 0.75;
    evidence.machine.swapUsedBytes = 0;
}

/// Spoiled from second 4 to second 6 by its own work.
inline ChartRun spoiledRun(double seconds = 10, int engines = 1) {
    return chartRunOf(seconds, [engines](Evidence& evidence) {
        fillEngines(evidence, evidence.from >= 4 && evidence.from < 6 ? Did{100} : Did{20}, engines);
    });
}
