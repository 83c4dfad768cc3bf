// fields.h - the figures of the evidence by the names that they have in a recording.
//
// A recording holds whole numbers: fractions as millionths, so that times are microseconds. One list of the figures serves
// writing, reading and rounding.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

#include "evidence/evidence.h"

namespace recording {

/// A figure as it is recorded; empty when it is unknown.
using RecordedNumber = std::optional<std::int64_t>;

/// No recorded number is further from 0; as microseconds, 31 years.
constexpr std::int64_t kMost = 1'000'000'000'000'000;

inline std::int64_t rounded(double value) { return std::llround(std::clamp(value, -1.0 * kMost, 1.0 * kMost)); }
inline std::int64_t millionths(double value) { return rounded(value * 1e6); }
inline double fromMillionths(std::int64_t number) { return static_cast<double>(number) / 1e6; }

inline RecordedNumber numberOf(double value) { return millionths(value); }
inline RecordedNumber numberOf(bool value) { return value ? 1 : 0; }
inline RecordedNumber numberOf(std::uint64_t value) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(value, static_cast<std::uint64_t>(kMost)));
}
template <class Value>
RecordedNumber numberOf(const std::optional<Value>& value) {
    return value ? numberOf(*value) : std::nullopt;
}

inline void assign(double& figure, RecordedNumber number) { figure = fromMillionths(number.value_or(0)); }
inline void assign(bool& figure, RecordedNumber number) { figure = number.value_or(0) != 0; }
inline void assign(std::uint64_t& figure, RecordedNumber number) {
    figure = static_cast<std::uint64_t>(number.value_or(0));
}
template <class Value>
void assign(std::optional<Value>& figure, RecordedNumber number) {
    figure = std::nullopt;
    if (number) assign(figure.emplace(), number);
}

/// The machine's figures, which are recorded when they are known.
template <class Machine, class Visit>
void visitMachine(Machine& machine, const Visit& visit) {
    visit("busy", machine.busy);
    visit("idle", machine.idle);
    visit("stolen", machine.stolen);
    visit("memory", machine.memoryAvailableShare);
    visit("swap", machine.swapUsedBytes);
    visit("dropped", machine.droppedPackets);
    visit("segments", machine.segmentsSent);
    visit("again", machine.segmentsSentAgain);
    visit("cpuPressure", machine.cpuPressure);
    visit("ioPressure", machine.ioPressure);
    visit("memoryPressure", machine.memoryPressure);
}

/// Those of an engine and its busiest thread that are mostly 0 or stay as they are, so that only changes are recorded.
constexpr std::size_t kSteadyFigures = 19;
template <class Engine, class Thread, class Visit>
void visitSteady(Engine& engine, Thread& thread, const Visit& visit) {
    visit("readable", engine.readable);
    visit("standIn", engine.standIn);
    visit("throttled", thread.parts.throttled);
    visit("stolen", thread.parts.stolen);
    visit("blocked", thread.parts.blocked);
    visit("stopped", thread.parts.stopped);
    visit("waitedBefore", thread.waitedBefore);
    visit("blockedAtOnce", thread.blockedAtOnce);
    visit("sleeps", thread.sleeps);
    visit("faults", engine.majorFaults);
    visit("faulting", engine.faulting);
    visit("groupThrottled", engine.group.throttled);
    visit("times", engine.group.timesThrottled);
    visit("periods", engine.group.periods);
    visit("quota", engine.group.quota);
    visit("memory", engine.group.memoryShare);
    visit("descriptors", engine.descriptorShare);
    visit("ports", engine.portShare);
    visit("portsAtMost", engine.portsAtMost);
}

/// The other numbers of an engine stand in a list, in this order; those of the whole engine as what its other threads add
/// to the busiest, which is 0 for an engine of one thread.
struct EngineNumbers {
    std::int64_t running = 0;
    std::int64_t turns = 0;
    std::int64_t waiting = 0;
    std::int64_t longer = 0;  ///< than the engine's interval was the thread's own
    std::int64_t othersRan = 0;
    std::int64_t othersTurns = 0;
    std::int64_t othersWaited = 0;
    std::int64_t lateTurns = 0;  ///< in thousandths
};

/// A thread that stands for none has only zeros.
EngineNumbers numbersOf(const EngineEvidence& engine, const ThreadEvidence& thread);

/// The other way round, when from, to and the steady figures are filled in.
void assign(EngineEvidence& engine, ThreadEvidence& thread, const EngineNumbers& numbers);

}  // namespace recording
