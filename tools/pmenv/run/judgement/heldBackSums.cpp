#include "judgement/heldBackSums.h"

#include <algorithm>
#include <utility>

#include "judgement/heldBack.h"

namespace {

// The scheduler's account of a thread and the clock are not read at the same moment, so that a part can exceed the whole.
double shareOf(double part, double whole) { return whole > 0 ? std::min(1.0, part / whole) : 0; }

double busyShare(const ThreadEvidence& thread) { return shareOf(thread.parts.sum(), thread.seconds); }

}  // namespace

void HeldBackSums::add(const Evidence& evidence) {
    const Yardstick yardstick = yardstickOf(evidence, tolerance_);
    for (const EngineEvidence& engine : evidence.engines) {
        if (engine.to <= engine.from) continue;
        Sum& sum = sums_[engine.key];
        sum.seconds += engine.to - engine.from;
        sum.heldBack += heldBackIn(engine, yardstick).seconds;
        sum.inDoubt += inDoubtIn(engine, yardstick);
        if (engine.group.throttled) sum.throttled = sum.throttled.value_or(0) + *engine.group.throttled;
        if (!engine.readable || !engine.busiest) continue;
        if (!sum.worst || busyShare(*engine.busiest) > busyShare(*sum.worst)) sum.worst = engine.busiest;
    }
}

std::map<ProcessKey, HeldBackFigures> HeldBackSums::take() {
    std::map<ProcessKey, HeldBackFigures> figures;
    for (const auto& [key, sum] : std::exchange(sums_, {})) {
        if (!sum.worst) continue;
        HeldBackFigures& figure = figures[key];
        if (sum.inDoubt == 0 || sum.inDoubt < sum.heldBack) {
            figure.heldBackPercent = 100 * shareOf(sum.heldBack, sum.seconds);
        }
        if (sum.throttled) figure.throttledPercent = 100 * *sum.throttled / sum.seconds;
        figure.worstThread = sum.worst->tid;
        figure.worstThreadName = sum.worst->name;
        figure.worstThreadPercent = 100 * busyShare(*sum.worst);
    }
    return figures;
}
