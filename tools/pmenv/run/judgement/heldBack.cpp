#include "judgement/heldBack.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double kMostlyRunning = 0.9;

bool leavesNoSlack(const ThreadEvidence& thread, double used) {
    return thread.seconds > 0 && thread.seconds - used < kNoSlack * thread.seconds;
}

bool hadNoSlack(const ThreadEvidence& thread) {
    return leavesNoSlack(thread, thread.parts.sum() - thread.parts.stolen) || thread.sleeps == 0u;
}

bool hadNoSlackBesideStolen(const ThreadEvidence& thread) { return leavesNoSlack(thread, thread.parts.sum()); }

std::optional<Reason> perhapsHeldBack(const EngineEvidence& engine) {
    if (engine.portsAtMost && engine.portShare.value_or(0) >= kPortsInDoubt) return Reason::Ports;
    if (engine.busiest && hadNoSlackBesideStolen(*engine.busiest)) return Reason::Stolen;
    return std::nullopt;
}

// The requests of an interval are taken to be as late as the turns of the engine's threads are.
double lateShare(const EngineEvidence& engine) {
    return engine.turns == 0 ? 0 : std::min(1.0, engine.lateTurns / static_cast<double>(engine.turns));
}

// Seconds in which the quota kept the engine waiting, for longer than the tolerance at once. Where it was used up in nearly
// every period in which the engine ran, what was due in between waited for the rest of the period before: all of it.
double throttledSeconds(const EngineEvidence& engine, double tolerance) {
    constexpr double kNearlyAll = 0.8;
    const GroupEvidence& group = engine.group;
    if (!group.throttled || group.timesThrottled.value_or(0) == 0) return 0;
    const auto times = static_cast<double>(*group.timesThrottled);
    if (*group.throttled / times <= tolerance || engine.busiest->parts.throttled == 0) return 0;
    const bool always = times >= kNearlyAll * static_cast<double>(group.periods.value_or(*group.timesThrottled * 2));
    return always ? engine.to - engine.from : engine.busiest->parts.throttled;
}

// A request can meet several pages that have to be read from a disk, so that shorter times count where they do.
double blockedSeconds(const EngineEvidence& engine, double tolerance) {
    constexpr double kPagesOfOneRequest = 4;
    const double longest = engine.faulting ? tolerance / kPagesOfOneRequest : tolerance;
    return engine.busiest->blockedAtOnce > longest ? engine.busiest->parts.blocked : 0;
}

// Turns come late when the quota is used up as well, so that these two are not added; a quota that kept the busiest thread
// waiting for longer than other programs did is the reason of both.
HeldBack partly(const EngineEvidence& engine, const Yardstick& yardstick) {
    const Parts& parts = engine.busiest->parts;
    const double length = engine.to - engine.from;
    const double throttled = throttledSeconds(engine, yardstick.tolerance);
    const double blocked = blockedSeconds(engine, yardstick.tolerance);
    // Stolen in short pieces, it made nothing late.
    const double stolen = yardstick.stolenAtOnce > 0 ? std::max(parts.stolen, yardstick.stolenAtOnce) : 0;
    const double late = lateShare(engine) * length;
    const double seconds = std::min(length, std::max(throttled, late) + blocked + parts.stopped + stolen);
    const Reason lateReason = parts.throttled > parts.waiting ? Reason::Quota : Reason::WokenLate;
    const std::pair<double, Reason> candidates[] = {{throttled, Reason::Quota},
                                                    {late, lateReason},
                                                    {blocked, Reason::Blocked},
                                                    {parts.stopped, Reason::Stopped},
                                                    {stolen, Reason::Stolen}};
    return {seconds, false, std::max_element(std::begin(candidates), std::end(candidates))->second, std::nullopt};
}

}  // namespace

Yardstick yardstickOf(const Evidence& interval, double tolerance) {
    const WakeEvidence& wakes = interval.wakes;
    if (wakes.late == 0) return {tolerance, 0};
    const double lateShare = static_cast<double>(wakes.late) / static_cast<double>(std::max(wakes.wakes, wakes.late));
    const double stolen = interval.machine.stolen.value_or(0) / std::max(1, interval.machine.processors);
    return {tolerance, std::min(lateShare * (interval.to - interval.from), stolen)};
}

HeldBack heldBackIn(const EngineEvidence& engine, const Yardstick& yardstick) {
    const double length = engine.to - engine.from;
    const double ports = engine.portsAtMost ? 0 : engine.portShare.value_or(0);
    if (engine.busiest && hadNoSlack(*engine.busiest)) return {length, true, std::nullopt, std::nullopt};
    if (engine.descriptorShare.value_or(0) >= kDescriptorsUsedUp) {
        return {length, false, Reason::Descriptors, std::nullopt};
    }
    if (ports >= kPortsUsedUp) return {length, false, Reason::Ports, std::nullopt};
    HeldBack held = engine.busiest ? partly(engine, yardstick) : HeldBack{};
    held.perhaps = perhapsHeldBack(engine);
    return held;
}

double inDoubtIn(const EngineEvidence& engine, const Yardstick& yardstick) {
    const HeldBack held = heldBackIn(engine, yardstick);
    const bool isRead = engine.readable && engine.busiest;
    const bool isSeenThrough = engine.to - engine.from <= kLongestSeenThrough;
    return isRead && isSeenThrough && !held.perhaps ? 0 : engine.to - engine.from - held.seconds;
}

Reason reasonOf(const Parts& parts, double enginesRan, double othersRan) {
    if (parts.running >= kMostlyRunning * parts.sum()) return Reason::OwnWork;
    const Reason waiting = enginesRan > othersRan ? Reason::Crowded : Reason::OtherPrograms;
    const std::pair<double, Reason> candidates[] = {{parts.waiting, waiting},
                                                    {parts.throttled, Reason::Quota},
                                                    {parts.stolen, Reason::Stolen},
                                                    {parts.blocked, Reason::Blocked},
                                                    {parts.stopped, Reason::Stopped}};
    return std::max_element(std::begin(candidates), std::end(candidates))->second;
}
