#include "evidenceMetrics.h"

#include <algorithm>
#include <cstdint>

namespace {

// --- values ---------------------------------------------------------------------------------------------------------

template <class Number>
std::optional<double> asDouble(const std::optional<Number>& value) {
    return value ? std::optional(static_cast<double>(*value)) : std::nullopt;
}

// What the threads of an engine did is known when their accounts could be read.
template <class Number, Number EngineEvidence::*figure>
std::optional<double> ofThreads(const EngineEvidence& engine, const Yardstick&) {
    return engine.readable ? std::optional(static_cast<double>(engine.*figure)) : std::nullopt;
}

template <double Parts::*part>
std::optional<double> ofBusiest(const EngineEvidence& engine, const Yardstick&) {
    return engine.readable && engine.busiest ? std::optional(engine.busiest->parts.*part) : std::nullopt;
}

// An engine without descriptors is held back even where its accounts cannot be read.
std::optional<double> heldBackSeconds(const EngineEvidence& engine, const Yardstick& yardstick) {
    const double seconds = heldBackIn(engine, yardstick).seconds;
    return seconds > 0 || (engine.readable && engine.busiest) ? std::optional(seconds) : std::nullopt;
}

std::optional<double> inDoubtSeconds(const EngineEvidence& engine, const Yardstick& yardstick) {
    return inDoubtIn(engine, yardstick);
}

const std::optional<Usage>& descriptorsOf(const EngineEvidence& engine) { return engine.descriptors; }
const std::optional<Usage>& portsOf(const EngineEvidence& engine) { return engine.ports; }
const std::optional<Usage>& memoryOf(const EngineEvidence& engine) { return engine.group.memory; }

template <const std::optional<Usage>& usageOf(const EngineEvidence&)>
std::optional<double> usedOf(const EngineEvidence& engine, const Yardstick&) {
    const std::optional<Usage>& usage = usageOf(engine);
    return usage ? std::optional(usage->used) : std::nullopt;
}

template <const std::optional<Usage>& usageOf(const EngineEvidence&)>
std::optional<double> limitOf(const EngineEvidence& engine, const Yardstick&) {
    const std::optional<Usage>& usage = usageOf(engine);
    return usage ? usage->limit : std::nullopt;
}

double lengthOf(const Evidence& evidence) { return std::max(0.0, evidence.to - evidence.from); }

// --- tables ---------------------------------------------------------------------------------------------------------

constexpr char kBusiestHelp[] = "What the thread of the engine did that had the least time to spare.";
constexpr EvidenceMetric<EngineEvidence> kEngineMetrics[] = {
    {"pmenv_engine_cpu_seconds", MetricKind::Counter, "Processor time of the engine.", "",
     ofThreads<double, &EngineEvidence::ran>},
    {"pmenv_engine_held_back_seconds", MetricKind::Counter, "Time in which the engine was held back.", "",
     heldBackSeconds},
    {"pmenv_engine_in_doubt_seconds", MetricKind::Counter,
     "Time in which the engine was perhaps held back, which could not be seen.", "", inDoubtSeconds},
    {"pmenv_engine_waiting_seconds", MetricKind::Counter,
     "Time in which threads of the engine were ready and waited for a processor.", "",
     ofThreads<double, &EngineEvidence::waited>},
    {"pmenv_engine_turns", MetricKind::Counter, "How often threads of the engine were put on a processor.", "",
     ofThreads<std::uint64_t, &EngineEvidence::turns>},
    {"pmenv_engine_late_turns", MetricKind::Counter, "How many of these turns came later than the tolerance.", "",
     ofThreads<double, &EngineEvidence::lateTurns>},
    {"pmenv_engine_busiest_thread_seconds", MetricKind::Counter, kBusiestHelp, "state=\"running\"",
     ofBusiest<&Parts::running>},
    {"pmenv_engine_busiest_thread_seconds", MetricKind::Counter, kBusiestHelp, "state=\"waiting\"",
     ofBusiest<&Parts::waiting>},
    {"pmenv_engine_busiest_thread_seconds", MetricKind::Counter, kBusiestHelp, "state=\"throttled\"",
     ofBusiest<&Parts::throttled>},
    {"pmenv_engine_busiest_thread_seconds", MetricKind::Counter, kBusiestHelp, "state=\"stolen\"",
     ofBusiest<&Parts::stolen>},
    {"pmenv_engine_busiest_thread_seconds", MetricKind::Counter, kBusiestHelp, "state=\"blocked\"",
     ofBusiest<&Parts::blocked>},
    {"pmenv_engine_busiest_thread_seconds", MetricKind::Counter, kBusiestHelp, "state=\"stopped\"",
     ofBusiest<&Parts::stopped>},
    {"pmenv_engine_group_throttled_seconds", MetricKind::GroupCounter,
     "Time of all processors that the quota denied the engine's control group.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return engine.group.throttled; }},
    {"pmenv_engine_group_throttled_periods", MetricKind::GroupCounter,
     "Periods in which the engine's control group used up its quota.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return asDouble(engine.group.timesThrottled); }},
    {"pmenv_engine_group_memory_ratio", MetricKind::Gauge, "Memory in use of what the engine's control group may use.",
     "", [](const EngineEvidence& engine, const Yardstick&) { return engine.group.memoryShare; }},
    {"pmenv_engine_group_memory_bytes", MetricKind::Gauge, "Memory in use by the engine's control group.", "",
     usedOf<memoryOf>},
    {"pmenv_engine_group_memory_limit_bytes", MetricKind::Gauge, "Memory that the engine's control group may use.", "",
     limitOf<memoryOf>},
    {"pmenv_engine_group_memory_kills", MetricKind::GroupCounter,
     "Processes of the engine's control group that were killed for memory.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return asDouble(engine.group.memoryKills); }},
    {"pmenv_engine_major_faults", MetricKind::Counter, "Pages that had to be read from a disk for the engine.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return asDouble(engine.majorFaults); }},
    {"pmenv_engine_descriptors_ratio", MetricKind::Gauge, "Open descriptors of how many the engine may have.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return engine.descriptorShare; }},
    {"pmenv_engine_descriptors", MetricKind::Gauge, "Open descriptors of the engine.", "", usedOf<descriptorsOf>},
    {"pmenv_engine_descriptors_limit", MetricKind::Gauge, "Descriptors that the engine may have open.", "",
     limitOf<descriptorsOf>},
    {"pmenv_engine_ports_ratio", MetricKind::Gauge, "Local ports in use of how many there are.", "",
     [](const EngineEvidence& engine, const Yardstick&) {
         return engine.portsAtMost ? std::nullopt : engine.portShare;
     }},
    {"pmenv_engine_ports", MetricKind::Gauge, "Local ports in use in the engine's network namespace.", "",
     usedOf<portsOf>},
    {"pmenv_engine_ports_limit", MetricKind::Gauge, "Local ports that there are for connections.", "",
     limitOf<portsOf>},
};

constexpr char kCpuHelp[] = "Processor time of all processors together.";
constexpr char kPressureHelp[] = "Time in which some thread waited for the resource.";
constexpr EvidenceMetric<Evidence> kMachineMetrics[] = {
    {"pmenv_machine_processors", MetricKind::Gauge, "Processors that are online.", "",
     [](const Evidence& evidence, const Yardstick&) { return std::optional<double>(evidence.machine.processors); }},
    {"pmenv_machine_cpu_seconds", MetricKind::Counter, kCpuHelp, "mode=\"busy\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.busy; }},
    {"pmenv_machine_cpu_seconds", MetricKind::Counter, kCpuHelp, "mode=\"idle\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.idle; }},
    {"pmenv_machine_cpu_seconds", MetricKind::Counter, kCpuHelp, "mode=\"steal\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.stolen; }},
    {"pmenv_machine_memory_available_ratio", MetricKind::Gauge, "Share of the memory that programs can still get.", "",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.memoryAvailableShare; }},
    {"pmenv_machine_swap_used_bytes", MetricKind::Gauge, "Swap space in use.", "",
     [](const Evidence& evidence, const Yardstick&) { return asDouble(evidence.machine.swapUsedBytes); }},
    {"pmenv_machine_dropped_packets", MetricKind::Counter, "Packets that arrived and were dropped.", "",
     [](const Evidence& evidence, const Yardstick&) { return asDouble(evidence.machine.droppedPackets); }},
    {"pmenv_machine_tcp_segments_sent", MetricKind::Counter, "TCP segments sent.", "",
     [](const Evidence& evidence, const Yardstick&) { return asDouble(evidence.machine.segmentsSent); }},
    {"pmenv_machine_tcp_segments_sent_again", MetricKind::Counter, "TCP segments sent again.", "",
     [](const Evidence& evidence, const Yardstick&) { return asDouble(evidence.machine.segmentsSentAgain); }},
    {"pmenv_machine_pressure_seconds", MetricKind::Counter, kPressureHelp, "resource=\"cpu\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.cpuPressure; }},
    {"pmenv_machine_pressure_seconds", MetricKind::Counter, kPressureHelp, "resource=\"io\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.ioPressure; }},
    {"pmenv_machine_pressure_seconds", MetricKind::Counter, kPressureHelp, "resource=\"memory\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.memoryPressure; }},
};

constexpr EvidenceMetric<Evidence> kWatchMetrics[] = {
    {"pmenv_watch_intervals", MetricKind::Counter, "Intervals that the watch has looked at.", "",
     [](const Evidence& evidence, const Yardstick&) {
         return std::optional(lengthOf(evidence) > 0 ? 1.0 : 0.0);  // the first one has no length
     }},
    {"pmenv_watch_seconds", MetricKind::Counter, "For how long the engines have been watched.", "",
     [](const Evidence& evidence, const Yardstick&) { return std::optional(lengthOf(evidence)); }},
    {"pmenv_watch_wakes", MetricKind::Counter, "How often the timer of the watch woke it.", "",
     [](const Evidence& evidence, const Yardstick&) {
         return std::optional(static_cast<double>(evidence.wakes.wakes));
     }},
    {"pmenv_watch_late_wakes", MetricKind::Counter, "How often it did so later than the tolerance.", "",
     [](const Evidence& evidence, const Yardstick&) {
         return std::optional(static_cast<double>(evidence.wakes.late));
     }},
};

}  // namespace

MetricTable<EngineEvidence> engineMetrics() { return MetricTable<EngineEvidence>(kEngineMetrics); }
EngineEvidence lastEvidenceOf(const EngineEnd& end) {
    EngineEvidence last;
    last.group.memoryKills = end.memoryKills;
    return last;
}

MetricTable<Evidence> machineMetrics() { return MetricTable<Evidence>(kMachineMetrics); }
MetricTable<Evidence> watchMetrics() { return MetricTable<Evidence>(kWatchMetrics); }
