// heldBack.h - in which intervals was an engine held back, and by what? Pure: no file, no clock.
//
// A thread keeps a schedule as long as it has slack: time in which it neither ran nor wanted to. So an engine is held back
// - in an interval in which a thread of it had no slack, for all of it;
// - for the share of an interval in which its threads were put on a processor later than the tolerance, of all times that
//   they were: threads that have slack can wait as well, beside others or because all of them are due at once;
// - for as long as its busiest thread was stopped, or was kept waiting by a quota, a disk or a hypervisor for longer than the
//   tolerance at once;
// - in an interval in which it had no descriptors or ports left.
//
// Beside what a hypervisor took, a thread had no slack for certain when it did not sleep once.
//
// Two things can be seen to have held it back perhaps, but not whether they did. A thread had no slack beside what the
// hypervisor took, perhaps in pieces so short that they made nothing late. And local ports may be used up where their range
// cannot be read.
#pragma once

#include <optional>
#include <string>

#include "evidence/evidence.h"

enum class Reason {
    OwnWork,
    OtherPrograms,
    Crowded,
    Quota,
    Stolen,
    WokenLate,
    Blocked,
    Stopped,
    Descriptors,
    Ports,
    Ended,
};

/// The share of an interval under which a thread has no slack. The kernel adds the time of a running thread at its ticks,
/// 1 to 10 ms apart, so that a thread without slack seems to have some.
constexpr double kNoSlack = 0.05;
/// An interval of more seconds hides a disturbance of a second.
constexpr double kLongestSeenThrough = 2;
/// The shares at which descriptors and ports are used up: a connection that ends gives its own back between two looks.
constexpr double kDescriptorsUsedUp = 0.99;
constexpr double kPortsUsedUp = 0.98;
/// The share at which ports that are counted every few seconds, and known at most, may have been used up in between.
constexpr double kPortsInDoubt = 0.90;

struct HeldBack {
    double seconds = 0;             ///< of the interval; 0 for not at all
    bool noSlack = false;           ///< the parts of the busiest thread tell the reason
    std::optional<Reason> reason;   ///< where they do not
    std::optional<Reason> perhaps;  ///< what held it back for the rest of the interval, perhaps
};

/// What the intervals of engines are held against.
struct Yardstick {
    double tolerance = 0.010;  ///< seconds that a request may be late
    /// Seconds of the interval in which whoever was due was late because of the hypervisor: as often as pmenv's own timer woke
    /// late, at most as long as time was stolen of one processor.
    double stolenAtOnce = 0;
};
Yardstick yardstickOf(const Evidence& interval, double tolerance);

HeldBack heldBackIn(const EngineEvidence& engine, const Yardstick& yardstick);

/// Seconds of the interval in which the engine was perhaps held back: also all that could not be read, and what an interval
/// hides that is too long.
double inDoubtIn(const EngineEvidence& engine, const Yardstick& yardstick);

/// The reason of a stretch, by what the busiest threads did in it and what the machine's processors did: a thread that
/// ran for most of the time has too much work of its own; else it is what took most of the rest.
Reason reasonOf(const Parts& parts, double enginesRan, double othersRan);
