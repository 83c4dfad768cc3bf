#include "judgement/judgement.h"

#include <algorithm>
#include <csignal>

#include <sys/wait.h>

#include "percentile.h"

namespace {

constexpr double kPause = 1;        // seconds; stretches that lie nearer to each other are one
constexpr double kShortestRun = 2;  // seconds
constexpr double kMegabyte = 1024.0 * 1024.0;

template <class Number>
void addTo(std::optional<Number>& sum, std::optional<Number> value) {
    if (value) sum = sum.value_or(0) + *value;
}

template <class Number>
void keepLargest(std::optional<Number>& largest, std::optional<Number> value) {
    if (value && (!largest || *value > *largest)) largest = value;
}

template <class Number>
void keepLeast(std::optional<Number>& least, std::optional<Number> value) {
    if (value && (!least || *value < *least)) least = value;
}

void addTo(Parts& sum, const Parts& parts) {
    sum.running += parts.running;
    sum.waiting += parts.waiting;
    sum.throttled += parts.throttled;
    sum.stolen += parts.stolen;
    sum.blocked += parts.blocked;
    sum.stopped += parts.stopped;
}

// What the programs used since `before`.
std::vector<ProgramTime> since(const std::vector<ProgramTime>& before, std::vector<ProgramTime> programs) {
    for (ProgramTime& program : programs) {
        for (const ProgramTime& earlier : before) {
            if (earlier.name == program.name) program.seconds = std::max(0.0, program.seconds - earlier.seconds);
        }
    }
    return programs;
}

}  // namespace

// --- taking evidence ------------------------------------------------------------------------------------------------

void Judgement::add(const Evidence& evidence) {
    if (limits_.skip > 0 && evidence.to <= limits_.skip) {
        othersBefore_ = evidence.others;
        return;
    }
    const auto standsIn = [](const EngineEvidence& engine) { return engine.standIn; };
    const std::vector<EngineEvidence>& engines = evidence.engines;
    const auto standIns = std::count_if(engines.begin(), engines.end(), standsIn);
    if (!engineSeen_ && standIns != static_cast<std::ptrdiff_t>(engines.size())) forgetStandIns();
    if (!engineSeen_ || standIns == 0) return addInterval(evidence);
    Evidence counted = evidence;
    counted.engines.erase(std::remove_if(counted.engines.begin(), counted.engines.end(), standsIn),
                          counted.engines.end());
    addInterval(counted);
}

// From the first engine on that does not stand in for others, also what was seen of the stand-ins before does not count.
void Judgement::forgetStandIns() {
    engineSeen_ = true;
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        if (entry->second.standIn) machine_.enginesRan -= entry->second.engine.ran;
        entry = entry->second.standIn ? engines_.erase(entry) : std::next(entry);
    }
}

void Judgement::addInterval(const Evidence& evidence) {
    if (samples_++ == 0) begin_ = evidence.from;
    end_ = evidence.to;
    if (evidence.to - evidence.from > kLongestSeenThrough) unseen_ += evidence.to - evidence.from;
    wakes_.wakes += evidence.wakes.wakes;
    wakes_.late += evidence.wakes.late;
    wakes_.longest = std::max(wakes_.longest, evidence.wakes.longest);
    addMachine(evidence.machine);
    if (!evidence.others.empty()) machine_.others = since(othersBefore_, evidence.others);

    double enginesRan = 0;
    for (const EngineEvidence& engine : evidence.engines) enginesRan += engine.ran;
    machine_.enginesRan += enginesRan;
    const double othersRan = std::max(0.0, evidence.machine.busy.value_or(0) - enginesRan);
    const Yardstick yardstick = yardstickOf(evidence, limits_.tolerance);
    for (const EngineEvidence& engine : evidence.engines) {
        addEngine(engine);
        addHeldBack(engines_[engine.key], engine, yardstick, enginesRan, othersRan);
    }
    for (const EngineEvidence& engine : evidence.engines) {
        addKills(engines_[engine.key], engine.group.memoryKills, evidence);
    }
    for (const EngineEnd& end : evidence.ends) addEnd(end, evidence);
    followLimits(evidence);
}

void Judgement::addMachine(const MachineEvidence& machine) {
    machine_.processors = machine.processors;
    addTo(machine_.busy, machine.busy);
    addTo(machine_.idle, machine.idle);
    addTo(machine_.stolen, machine.stolen);
    keepLeast(machine_.leastAvailable, machine.memoryAvailableShare);
    keepLeast(leastSwap_, machine.swapUsedBytes);
    if (machine.swapUsedBytes) keepLargest(machine_.swapGrowth, std::optional(*machine.swapUsedBytes - *leastSwap_));
    addTo(machine_.droppedPackets, machine.droppedPackets);
    addTo(machine_.segmentsSent, machine.segmentsSent);
    addTo(machine_.segmentsSentAgain, machine.segmentsSentAgain);
    addTo(machine_.cpuPressure, machine.cpuPressure);
    addTo(machine_.ioPressure, machine.ioPressure);
    addTo(machine_.memoryPressure, machine.memoryPressure);
}

void Judgement::addEngine(const EngineEvidence& evidence) {
    const auto [place, isNew] = engines_.try_emplace(evidence.key);
    Watched& watched = place->second;
    JudgedEngine& engine = watched.engine;
    if (isNew) engine.from = evidence.from;
    engine.key = evidence.key;
    engine.name = evidence.name;
    watched.standIn = evidence.standIn;
    engine.to = evidence.to;
    engine.waited += evidence.waited;
    engine.turns += evidence.turns;
    engine.ran += evidence.ran;
    addTo(engine.majorFaults, evidence.majorFaults);
    addTo(engine.throttled, evidence.group.throttled);
    addTo(engine.timesThrottled, evidence.group.timesThrottled);
    keepLargest(engine.mostMemory, evidence.group.memoryShare);
    keepLargest(engine.mostDescriptors, evidence.descriptorShare);
    if (!evidence.portsAtMost || evidence.portShare < kPortsInDoubt) {
        keepLargest(engine.mostPorts, evidence.portShare);
    }
    if (evidence.group.quota) {
        engine.quota = evidence.group.quota;
        engine.throttledGroup = evidence.group.throttledGroup;
    }
    if (!evidence.readable || !evidence.busiest) {
        if (engine.unreadable == 0) engine.unreadableSince = evidence.from;
        engine.unreadable += evidence.to - evidence.from;
        return;
    }
    engine.readable = true;
    addTo(engine.parts, evidence.busiest->parts);
    engine.slack += std::max(0.0, evidence.busiest->seconds - evidence.busiest->parts.sum());
    auto& [times, name] = watched.deciders[evidence.busiest->tid];
    ++times;
    name = evidence.busiest->name;
}

void Judgement::addKills(Watched& watched, const std::optional<std::uint64_t>& kills, const Evidence& evidence) {
    addTo(watched.engine.memoryKills, kills);
    const auto number = static_cast<double>(kills.value_or(0));
    watched.memoryKills.add(number, number > 0, evidence.from, evidence.to);
}

// The kernel kills for memory with SIGKILL.
void Judgement::addEnd(const EngineEnd& end, const Evidence& evidence) {
    ends_.push_back(end);
    const auto found = engines_.find(end.key);
    if (found == engines_.end()) return;
    Watched& watched = found->second;
    watched.engine.ended = true;
    addKills(watched, end.memoryKills, evidence);
    const bool wasKilled = !end.status || (WIFSIGNALED(*end.status) && WTERMSIG(*end.status) == SIGKILL);
    watched.engine.killsUnseen = wasKilled && !end.memoryKills;
}

void Judgement::addHeldBack(Watched& watched, const EngineEvidence& evidence, const Yardstick& yardstick,
                            double enginesRan, double othersRan) {
    if (watched.open && evidence.from - watched.open->to > kPause) close(watched);
    const HeldBack held = heldBackIn(evidence, yardstick);
    if (held.perhaps) {
        Uncertain& uncertain =
            watched.engine.perhaps.try_emplace(*held.perhaps, Uncertain{evidence.from}).first->second;
        uncertain.seconds += evidence.to - evidence.from - held.seconds;
    }
    if (held.seconds == 0) return;
    if (!watched.open) watched.open = OpenStretch{evidence.from, {}, {}, {}, {}, {}, {}};
    OpenStretch& open = *watched.open;
    open.to = evidence.to;
    open.seconds += held.seconds;
    open.enginesRan += enginesRan;
    open.othersRan += othersRan;
    if (held.noSlack) addTo(open.parts, evidence.busiest->parts);
    if (held.reason) open.reasons[*held.reason] += held.seconds;
}

void Judgement::close(Watched& watched) {
    const OpenStretch open = *watched.open;
    watched.open.reset();
    std::map<Reason, double> reasons = open.reasons;
    if (open.parts.sum() > 0) reasons[reasonOf(open.parts, open.enginesRan, open.othersRan)] += open.parts.sum();
    const auto most = std::max_element(reasons.begin(), reasons.end(),
                                       [](const auto& left, const auto& right) { return left.second < right.second; });
    watched.engine.stretches.push_back({open.from, open.to, open.seconds, most->first});
}

// --- limits that were set -------------------------------------------------------------------------------------------

void Judgement::Beyond::add(double figure, bool beyond, double from, double to) {
    if (!beyond) return;
    if (!since) {
        since = from;
        worst = figure;
    }
    worst = std::max(worst, figure);
    seconds += to - from;
}

void Judgement::followLimits(const Evidence& evidence) {
    const MachineEvidence& machine = evidence.machine;
    if (limits_.machinePercent && machine.busy && machine.idle && *machine.busy + *machine.idle > 0) {
        const double percent = 100 * *machine.busy / (*machine.busy + *machine.idle);
        machineCpu_.add(percent, percent >= *limits_.machinePercent, evidence.from, evidence.to);
    }
    for (const EngineEvidence& engine : evidence.engines) {
        if (!limits_.enginePercent || engine.to <= engine.from) continue;
        const double percent = 100 * engine.ran / (engine.to - engine.from);
        engines_[engine.key].cpu.add(percent, percent >= *limits_.enginePercent, evidence.from, evidence.to);
    }
    if (limits_.memoryPercent && machine.memoryAvailableShare) {
        const double missing = 100 * (1 - *machine.memoryAvailableShare);
        memory_.add(missing, missing > 100 - *limits_.memoryPercent, memoryRead_.since(evidence), evidence.to);
    }
    if (limits_.swapMegabytes && machine.swapUsedBytes) {
        const double growth = static_cast<double>(*machine.swapUsedBytes - *leastSwap_);
        swap_.add(growth, growth > *limits_.swapMegabytes * kMegabyte, swapRead_.since(evidence), evidence.to);
    }
    if (limits_.engines && evidence.engines.size() < *limits_.engines) {
        missing_.add(static_cast<double>(*limits_.engines - evidence.engines.size()), true, evidence.from, evidence.to);
    }
}

// --- judging --------------------------------------------------------------------------------------------------------

Judged Judgement::judged(bool namesMissing) const {
    Judged judged;
    judged.from = begin_;
    judged.seconds = end_ - begin_;
    judged.machine = machine_;
    judged.wakes = wakes_;
    judged.samples = samples_;
    judged.engines = judgedEngines();
    judged.incidents = incidents();
    for (const JudgedEngine& engine : judged.engines) {
        // What an engine lacked for certain is known also where its accounts cannot be read.
        if (engine.readable || engine.heldBack > 0) keepLargest(judged.share, std::optional(engine.share));
    }
    judged.doubt = doubtOf(judged, namesMissing);
    const bool decided = judged.doubt != Doubt::TooShort && judged.doubt != Doubt::NoEngine && isSpoiled(judged);
    judged.outcome = decided ? Outcome::Spoiled : judged.doubt == Doubt::None ? Outcome::Clean : Outcome::CannotTell;
    judged.believed = believed(judged);
    if (decided) judged.doubt = Doubt::None;
    return judged;
}

// No percentile where something else than time held back spoils the run, or where more may have been held back than is known.
std::optional<double> Judgement::believed(const Judged& judged) const {
    if (!judged.share || judged.outcome == Outcome::CannotTell) return std::nullopt;
    const double percentile = believedPercentile(*judged.share);
    if (judged.outcome == Outcome::Clean) return std::max(percentile, limits_.percentile);
    const bool isAllThatSpoils = judged.doubt == Doubt::None && isTooMuch(*judged.share, limits_.percentile);
    return isAllThatSpoils ? std::optional(percentile) : std::nullopt;
}

// Where an engine should have gone on, its load is missing for the rest of the run.
void Judgement::addMissingTime(JudgedEngine& engine) const {
    for (const EngineEnd& end : ends_) {
        if (!(end.key == engine.key) || end.descendant || !incidentOf(end).spoils) continue;
        engine.stretches.push_back({end.time, end_, end_ - end.time, Reason::Ended});
    }
}

// An engine that was seen for a moment only made a small part of the load, so that it counts as if it had run for a tenth
// of the watch.
std::vector<JudgedEngine> Judgement::judgedEngines() const {
    constexpr double kLeastOfRun = 0.1;
    std::vector<JudgedEngine> engines;
    for (auto [key, watched] : engines_) {
        if (watched.open) close(watched);
        JudgedEngine& engine = watched.engine;
        addMissingTime(engine);
        for (const Stretch& stretch : engine.stretches) engine.heldBack += stretch.seconds;
        const double end = engine.stretches.empty() ? engine.to : std::max(engine.to, engine.stretches.back().to);
        const double lived = std::max(end - engine.from, (end_ - begin_) * kLeastOfRun);
        double perhaps = engine.heldBack;
        for (const auto& [reason, uncertain] : engine.perhaps) perhaps += uncertain.seconds;
        if (lived > 0) engine.share = std::min(1.0, engine.heldBack / lived);
        if (lived > 0) engine.perhapsShare = std::min(1.0, perhaps / lived);
        std::size_t most = 0;
        for (const auto& [tid, decider] : watched.deciders) {
            if (decider.first <= most) continue;
            most = decider.first;
            engine.tid = tid;
            engine.thread = decider.second;
        }
        engines.push_back(std::move(engine));
    }
    std::stable_sort(engines.begin(), engines.end(),
                     [](const JudgedEngine& left, const JudgedEngine& right) { return left.share > right.share; });
    return engines;
}

bool Judgement::isSpoiled(const Judged& judged) const {
    if (judged.share && isTooMuch(*judged.share, limits_.percentile)) return true;
    return std::any_of(judged.incidents.begin(), judged.incidents.end(),
                       [](const Incident& incident) { return incident.spoils; });
}

Doubt Judgement::doubtOf(const Judged& judged, bool namesMissing) const {
    const double allowed = 1 - limits_.percentile / 100;
    if (judged.seconds < kShortestRun) return Doubt::TooShort;
    if (judged.engines.empty()) return Doubt::NoEngine;
    if (namesMissing) return Doubt::NameNotSeen;
    for (const JudgedEngine& engine : judged.engines) {
        if (engine.unreadable >= 1 && engine.unreadable > allowed * (engine.to - engine.from)) {
            return Doubt::NotReadable;
        }
    }
    if (std::none_of(judged.engines.begin(), judged.engines.end(),
                     [](const JudgedEngine& engine) { return engine.readable; })) {
        return Doubt::NotReadable;
    }
    if (unseen_ > allowed * judged.seconds) return Doubt::Unseen;
    if (static_cast<double>(wakes_.late) > allowed * static_cast<double>(wakes_.wakes)) return Doubt::WatcherLate;
    for (const JudgedEngine& engine : judged.engines) {
        if (engine.perhaps.empty() || !isTooMuch(engine.perhapsShare, limits_.percentile)) continue;
        const auto most = std::max_element(
            engine.perhaps.begin(), engine.perhaps.end(),
            [](const auto& left, const auto& right) { return left.second.seconds < right.second.seconds; });
        return most->first == Reason::Ports ? Doubt::Ports : Doubt::Stolen;
    }
    return Doubt::None;
}

// --- incidents ------------------------------------------------------------------------------------------------------

std::vector<Incident> Judgement::incidents() const {
    std::vector<Incident> incidents;
    const auto addBeyond = [&incidents](Incident::Kind kind, const Beyond& beyond, double least,
                                        const JudgedEngine& engine = {}) {
        if (!beyond.since || beyond.seconds < least) return;
        Incident incident;
        incident.kind = kind;
        incident.spoils = kind != Incident::Kind::OutOfMemory;  // an engine that it killed has its own incident
        incident.since = *beyond.since;
        incident.seconds = beyond.seconds;
        incident.worst = beyond.worst;
        incident.pid = engine.key.pid;
        incident.name = engine.name;
        incidents.push_back(incident);
    };
    for (const EngineEnd& end : ends_) {
        if (!end.descendant) incidents.push_back(incidentOf(end));
    }
    addBeyond(Incident::Kind::Missing, missing_, (1 - limits_.percentile / 100) * (end_ - begin_));
    addBeyond(Incident::Kind::MachineCpu, machineCpu_, limits_.sustain);
    for (const auto& [key, watched] : engines_) {
        addBeyond(Incident::Kind::EngineCpu, watched.cpu, limits_.sustain, watched.engine);
        addBeyond(Incident::Kind::OutOfMemory, watched.memoryKills, 0, watched.engine);
    }
    addBeyond(Incident::Kind::Memory, memory_, 0);
    addBeyond(Incident::Kind::Swap, swap_, 0);
    return incidents;
}

// Who was ended by a signal that nobody sends to say "enough", or ended with an error, has crashed. Where it cannot be
// known, an engine that ends while others go on is missing. At the end of a test not all engines end at the same moment.
Incident Judgement::incidentOf(const EngineEnd& end) const {
    constexpr double kAtTheEnd = 2, kOneByOne = 10;  // seconds
    Incident incident;
    incident.kind = Incident::Kind::Ended;
    incident.end = end;
    incident.pid = end.key.pid;
    incident.name = end.name;
    incident.since = end.time;
    incident.seconds = end_ - end.time;
    const auto ended = engines_.find(end.key);
    const double lastSeen = ended != engines_.end() ? ended->second.engine.to : end.time;
    bool othersGoOn = false;
    for (const auto& [key, watched] : engines_) {
        const JudgedEngine& other = watched.engine;
        if (key == end.key) continue;
        if (other.name == end.name && other.from > lastSeen) incident.replaced = true;
        if (other.to - end.time > (other.ended ? kOneByOne : kAtTheEnd)) othersGoOn = true;
    }
    incident.spoils = othersGoOn || incident.replaced;
    if (end.status) {
        const int status = *end.status;
        const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        const bool asked = signal == SIGTERM || signal == SIGINT || signal == SIGHUP;
        incident.spoils = asked ? incident.replaced : status != 0;
    }
    return incident;
}
