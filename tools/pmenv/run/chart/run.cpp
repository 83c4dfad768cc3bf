#include "chart/run.h"

#include <algorithm>

#include "judgement/heldBack.h"

namespace {

constexpr std::array<const char*, kFigures> kNames{"held_back_worst",
                                                   "held_back_median",
                                                   "thread_running",
                                                   "thread_waiting",
                                                   "thread_throttled",
                                                   "thread_stolen",
                                                   "thread_blocked",
                                                   "thread_stopped",
                                                   "engine_processors",
                                                   "other_processors",
                                                   "stolen_processors",
                                                   "throttled",
                                                   "memory_in_use",
                                                   "group_memory",
                                                   "swap_bytes",
                                                   "descriptors",
                                                   "ports"};

template <class Number>
void keepLargest(std::optional<double>& largest, std::optional<Number> value) {
    if (value) largest = std::max(largest.value_or(0), static_cast<double>(*value));
}

// Empty when nothing is known about what the engine did in the interval.
std::optional<double> heldBackShare(const EngineEvidence& engine, const Yardstick& yardstick) {
    const double length = engine.to - engine.from;
    if (!(length > 0)) return std::nullopt;
    const double seconds = heldBackIn(engine, yardstick).seconds;
    if (seconds == 0 && (!engine.readable || !engine.busiest)) return std::nullopt;
    return std::clamp(seconds / length, 0.0, 1.0);
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

const ThreadEvidence* withLeastSlack(const std::vector<EngineEvidence>& engines) {
    const ThreadEvidence* worst = nullptr;
    const auto busy = [](const ThreadEvidence& thread) { return thread.parts.sum() / thread.seconds; };
    for (const EngineEvidence& engine : engines) {
        if (!engine.busiest || !(engine.busiest->seconds > 0)) continue;
        if (worst == nullptr || busy(*engine.busiest) > busy(*worst)) worst = &*engine.busiest;
    }
    return worst;
}

}  // namespace

const char* figureName(Figure figure) { return kNames[static_cast<std::size_t>(figure)]; }

// As in the judgement, what only stands in for engines counts as long as no engine is seen.
void RunFigures::add(const Evidence& evidence) {
    const auto standsIn = [](const EngineEvidence& engine) { return engine.standIn; };
    const auto& engines = evidence.engines;
    engineSeen_ = engineSeen_ || !std::all_of(engines.begin(), engines.end(), standsIn);
    if (!engineSeen_ || std::none_of(engines.begin(), engines.end(), standsIn)) return addInterval(evidence);
    Evidence counted = evidence;
    counted.engines.erase(std::remove_if(counted.engines.begin(), counted.engines.end(), standsIn),
                          counted.engines.end());
    addInterval(counted);
}

void RunFigures::addInterval(const Evidence& evidence) {
    if (!(evidence.to > evidence.from)) return;
    addHeldBack(evidence);
    addBusiestThread(evidence);
    addProcessors(evidence);
    addEngineFigures(evidence);
    addMemory(evidence);
}

void RunFigures::addHeldBack(const Evidence& evidence) {
    const Yardstick yardstick = yardstickOf(evidence, tolerance_);
    std::vector<double> shares;
    for (const EngineEvidence& engine : evidence.engines) {
        const auto share = heldBackShare(engine, yardstick);
        if (!share) continue;
        shares.push_back(*share);
        addShareOf(engine.key, evidence, *share);
    }
    const bool any = !shares.empty();
    of(Figure::HeldBackWorst)
        .add(evidence.from, evidence.to,
             any ? std::optional(*std::max_element(shares.begin(), shares.end())) : std::nullopt);
    of(Figure::HeldBackMedian).add(evidence.from, evidence.to, any ? std::optional(median(shares)) : std::nullopt);
}

void RunFigures::addShareOf(const ProcessKey& key, const Evidence& evidence, double share) {
    if (manyEngines_) return;
    engines_[key].add(evidence.from, evidence.to, share);
    if (engines_.size() <= kFewEngines) return;
    manyEngines_ = true;
    engines_.clear();
}

void RunFigures::addBusiestThread(const Evidence& evidence) {
    constexpr std::pair<Figure, double Parts::*> kParts[] = {
        {Figure::ThreadRunning, &Parts::running},     {Figure::ThreadWaiting, &Parts::waiting},
        {Figure::ThreadThrottled, &Parts::throttled}, {Figure::ThreadStolen, &Parts::stolen},
        {Figure::ThreadBlocked, &Parts::blocked},     {Figure::ThreadStopped, &Parts::stopped}};
    const ThreadEvidence* const thread = withLeastSlack(evidence.engines);
    for (const auto& [figure, part] : kParts) {
        of(figure).add(evidence.from, evidence.to,
                       thread != nullptr ? std::optional(thread->parts.*part / thread->seconds) : std::nullopt);
    }
}

void RunFigures::addProcessors(const Evidence& evidence) {
    const double seconds = evidence.to - evidence.from;
    const MachineEvidence& machine = evidence.machine;
    processors_ = std::max(processors_, machine.processors);
    double ran = 0;
    for (const EngineEvidence& engine : evidence.engines) ran += engine.ran;
    of(Figure::EngineProcessors).add(evidence.from, evidence.to, ran / seconds);
    of(Figure::OtherProcessors)
        .add(evidence.from, evidence.to,
             machine.busy ? std::optional(std::max(0.0, *machine.busy - ran) / seconds) : std::nullopt);
    of(Figure::StolenProcessors)
        .add(evidence.from, evidence.to, machine.stolen ? std::optional(*machine.stolen / seconds) : std::nullopt);
}

void RunFigures::addEngineFigures(const Evidence& evidence) {
    const double seconds = evidence.to - evidence.from;
    std::optional<double> throttled;
    std::optional<double> memory;
    std::optional<double> descriptors;
    std::optional<double> ports;
    for (const EngineEvidence& engine : evidence.engines) {
        keepLargest(throttled, engine.group.throttled);
        keepLargest(memory, engine.group.memoryShare);
        keepLargest(descriptors, engine.descriptorShare);
        if (!engine.portsAtMost) keepLargest(ports, engine.portShare);
    }
    of(Figure::Throttled)
        .add(evidence.from, evidence.to, throttled ? std::optional(*throttled / seconds) : std::nullopt);
    of(Figure::GroupMemory).add(evidence.from, evidence.to, memory);
    of(Figure::Descriptors).add(evidence.from, evidence.to, descriptors);
    of(Figure::Ports).add(evidence.from, evidence.to, ports);
}

void RunFigures::addMemory(const Evidence& evidence) {
    const MachineEvidence& machine = evidence.machine;
    const bool known = machine.memoryAvailableShare || machine.swapUsedBytes;
    const double since = known ? memoryRead_.since(evidence) : evidence.from;
    const auto available = machine.memoryAvailableShare;
    of(Figure::MemoryInUse).add(since, evidence.to, available ? std::optional(1 - *available) : std::nullopt);
    of(Figure::SwapBytes)
        .add(since, evidence.to,
             machine.swapUsedBytes ? std::optional(static_cast<double>(*machine.swapUsedBytes)) : std::nullopt);
}
