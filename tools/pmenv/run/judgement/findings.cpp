#include "judgement/findings.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <limits>

#include <sys/wait.h>

#include "percentile.h"
#include "text.h"
#include "units.h"

std::string endText(int status) {
    if (!WIFSIGNALED(status)) return " ended with exit code " + std::to_string(WEXITSTATUS(status));
    const char* const name = sigabbrev_np(WTERMSIG(status));
    return std::string(" was ended by signal ") +
           (name != nullptr ? "SIG" + std::string(name) : std::to_string(WTERMSIG(status)));
}

namespace {

// --- words ----------------------------------------------------------------------------------------------------------

std::string millisecondsText(double seconds) { return fixedText(1000 * seconds, 1) + " ms"; }
std::string shareText(double share) { return percentText(100 * share); }

std::string engineText(int pid, const std::string& name) {
    return "load engine " + std::to_string(pid) + " (" + printable(name) + ")";
}

double allowedShare(const JudgeLimits& limits) { return 1 - limits.percentile / 100; }

// --- what held engines back -----------------------------------------------------------------------------------------

constexpr std::array<Reason, 10> kReasons{Reason::OwnWork,     Reason::OtherPrograms, Reason::Crowded, Reason::Quota,
                                          Reason::Stolen,      Reason::WokenLate,     Reason::Blocked, Reason::Stopped,
                                          Reason::Descriptors, Reason::Ports};

// The share of the time in which an engine was held back for a reason.
double shareHeldBack(const JudgedEngine& engine, Reason reason) {
    double seconds = 0;
    for (const Stretch& stretch : engine.stretches) seconds += stretch.reason == reason ? stretch.seconds : 0;
    return engine.heldBack > 0 ? engine.share * seconds / engine.heldBack : 0;
}

// The stretches of one reason, of the engine that they held back for the largest share of its time.
struct ByReason {
    const JudgedEngine* engine = nullptr;
    double share = 0;
    double since = 0;
    double seconds = 0;
    std::size_t engines = 0;
    std::size_t stretches = 0;
};

ByReason stretchesOf(const std::vector<JudgedEngine>& engines, Reason reason) {
    ByReason worst;
    std::size_t count = 0;
    for (const JudgedEngine& engine : engines) {
        ByReason own;
        for (const Stretch& stretch : engine.stretches) {
            if (stretch.reason != reason) continue;
            if (own.stretches++ == 0) own.since = stretch.from;
            own.seconds += stretch.seconds;
        }
        if (own.stretches == 0) continue;
        own.engine = &engine;
        own.share = shareHeldBack(engine, reason);
        ++count;
        if (worst.engine == nullptr || own.share > worst.share) worst = own;
    }
    worst.engines = count;
    return worst;
}

std::string othersText(const Judged& judged) {
    std::string text;
    for (const ProgramTime& program : judged.machine.others) {
        if (program.seconds < 0.01 * judged.seconds) break;
        text += (text.empty() ? "" : ", ") + printable(program.name) + " " +
                fixedText(program.seconds / std::max(judged.seconds, 1e-3), 1);
    }
    return text;
}

std::string processorsUsedText(const Judged& judged) {
    const double seconds = std::max(judged.seconds, 1e-3);
    std::string text = "the engines used " + fixedText(judged.machine.enginesRan / seconds, 1) + " of " +
                       std::to_string(judged.machine.processors) +
                       (judged.machine.processors == 1 ? " processor" : " processors");
    if (!judged.machine.busy) return text;
    const double others = std::max(0.0, *judged.machine.busy - judged.machine.enginesRan) / seconds;
    text += ", others " + fixedText(others, 1);
    const std::string programs = othersText(judged);
    return programs.empty() ? text : text + " (" + programs + ")";
}

std::string wokenAfterText(const JudgedEngine& engine) {
    if (engine.turns == 0) return "for a processor";
    return millisecondsText(engine.waited / static_cast<double>(engine.turns)) + " on average for a processor";
}

std::string quotaText(const JudgedEngine& engine) {
    std::string text = engine.throttledGroup.empty()
                           ? "its control group's quota"
                           : "the quota of its control group " + printable(engine.throttledGroup);
    if (engine.quota) text += " (" + fixedText(*engine.quota, 2) + " processors)";
    text += " was used up";
    return engine.timesThrottled ? text + " " + std::to_string(*engine.timesThrottled) + " times" : text;
}

std::string faultsText(const JudgedEngine& engine) {
    if (engine.majorFaults.value_or(0) == 0) return "";
    return "; " + std::to_string(*engine.majorFaults) + " pages had to be read from a disk";
}

std::string threadText(const JudgedEngine& engine) {
    return "its thread " + std::to_string(engine.tid) + " (" + printable(engine.thread) + ")";
}

struct Words {
    std::string text;
    std::string advice;
};

Words wordsOf(Reason reason, const JudgedEngine& engine, const Judged& judged) {
    switch (reason) {
        case Reason::OwnWork:
            return {
                threadText(engine) + " ran without a pause",
                "one thread cannot do more: spread its users over more engines; if this thread sends no load, leave it "
                "out with --ignore-thread"};
        case Reason::OtherPrograms:
            return {"it was ready to run, but other programs had the processors; " + processorsUsedText(judged),
                    "stop the other programs during the run, or give the engines processors of their own"};
        case Reason::Crowded:
            return {"it was ready to run, but the engines took the processors from each other; " +
                        processorsUsedText(judged),
                    "run fewer engines here and use more load generators"};
        case Reason::Quota:
            return {"it was ready to run, but " + quotaText(engine),
                    "raise the quota of the control group, or run fewer users here"};
        case Reason::Stolen:
            return {"the hypervisor gave the processors to somebody else",
                    "give this virtual machine processors of its own, or use another host"};
        case Reason::WokenLate:
            return {"its threads waited " + wokenAfterText(engine) + "; " + processorsUsedText(judged),
                    "let fewer threads be due at the same moment, or use more load generators"};
        case Reason::Blocked:
            return {threadText(engine) + " was blocked, as by a slow disk or want of memory" + faultsText(engine),
                    "log less or to another disk; with pages read from a disk, run fewer users here"};
        case Reason::Stopped:
            return {"it was stopped by a signal or a debugger",
                    "find out who stops it, and leave it alone during a run"};
        case Reason::Descriptors:
            return {"its descriptors were used up (" + shareText(engine.mostDescriptors.value_or(1)) + " of its limit)",
                    "raise the limit on open files (ulimit -n) before it starts, or run fewer users here"};
        case Reason::Ports:
            return {
                "the local ports were used up (" + shareText(engine.mostPorts.value_or(1)) + " of them)",
                "widen net.ipv4.ip_local_port_range, keep connections open, or use more addresses or load generators"};
        case Reason::Ended:
            break;  // an incident tells it
    }
    return {};
}

std::optional<RunFinding> heldBackFinding(Reason reason, const Judged& judged, const JudgeLimits& limits) {
    const ByReason found = stretchesOf(judged.engines, reason);
    if (found.engine == nullptr) return std::nullopt;
    const JudgedEngine& engine = *found.engine;
    const bool spoils = std::any_of(judged.engines.begin(), judged.engines.end(), [&](const JudgedEngine& each) {
        return each.share > allowedShare(limits) && shareHeldBack(each, reason) > 0;
    });
    const Words words = wordsOf(reason, engine, judged);
    std::string text = engineText(engine.key.pid, engine.name);
    if (found.engines == 2) text += " and 1 other";
    if (found.engines > 2) text += " and " + std::to_string(found.engines - 1) + " others";
    text += ": " + words.text;
    if (found.stretches > 1) text += "; in " + std::to_string(found.stretches) + " stretches";
    return RunFinding{reasonName(reason), spoils, engine.key.pid, found.since, found.seconds, text, words.advice};
}

// --- incidents ------------------------------------------------------------------------------------------------------

Words wordsOfEnd(const Incident& incident) {
    const std::optional<int> status = incident.end->status;
    std::string text =
        engineText(incident.pid, incident.name) + (status ? endText(*status) : " ended; how is not known");
    if (incident.end->zombie) text += "; its parent has not asked for it (zombie)";
    if (incident.replaced) text += "; another took its place";
    return {text, incident.spoils ? "load is missing from then on: look into the engine's own log"
                                  : "nothing to do if the test was over"};
}

Words wordsOf(const Incident& incident, const JudgeLimits& limits) {
    switch (incident.kind) {
        case Incident::Kind::Ended:
            return wordsOfEnd(incident);
        case Incident::Kind::Missing:
            return {
                fixedText(incident.worst, 0) + " of " + std::to_string(*limits.engines) + " load engines were missing",
                "look why they did not run, and repeat the run"};
        case Incident::Kind::OutOfMemory:
            return {"the kernel killed a process of the control group of " + engineText(incident.pid, incident.name) +
                        ", which had no memory left",
                    "give the group more memory, or run fewer users here"};
        case Incident::Kind::MachineCpu:
            return {"the machine's processors were at or over " + percentText(limits.machinePercent) + " (up to " +
                        percentText(incident.worst) + ")",
                    "use more load generators"};
        case Incident::Kind::EngineCpu:
            return {engineText(incident.pid, incident.name) + " was at or over " + percentText(limits.enginePercent) +
                        " of one processor (up to " + percentText(incident.worst) + ")",
                    "spread its work over more engines"};
        case Incident::Kind::Memory:
            return {"available memory fell to " + percentText(100 - incident.worst) + ", under " +
                        percentText(limits.memoryPercent),
                    "run fewer users here"};
        case Incident::Kind::Swap:
            return {"swap in use grew by " + bytesText(static_cast<std::uint64_t>(incident.worst)),
                    "run fewer users here"};
    }
    return {};
}

const char* kindName(Incident::Kind kind) {
    switch (kind) {
        case Incident::Kind::Ended:
            return "ended";
        case Incident::Kind::Missing:
            return "missing";
        case Incident::Kind::OutOfMemory:
            return "outOfMemory";
        case Incident::Kind::MachineCpu:
            return "machineCpu";
        case Incident::Kind::EngineCpu:
            return "engineCpu";
        case Incident::Kind::Memory:
            return "memory";
        case Incident::Kind::Swap:
            return "swap";
    }
    return "";
}

RunFinding findingOf(const Incident& incident, const JudgeLimits& limits) {
    const Words words = wordsOf(incident, limits);
    const bool replaced = incident.kind == Incident::Kind::Ended && incident.replaced;
    return {replaced ? "replaced" : kindName(incident.kind),
            incident.spoils,
            incident.pid != 0 ? std::optional(incident.pid) : std::nullopt,
            incident.since,
            incident.seconds,
            words.text,
            words.advice};
}

// --- about the watch itself -----------------------------------------------------------------------------------------

double lateShare(const Judged& judged) {
    return judged.wakes.wakes == 0 ? 0
                                   : static_cast<double>(judged.wakes.late) / static_cast<double>(judged.wakes.wakes);
}

std::optional<RunFinding> lateFinding(const Judged& judged, const JudgeLimits& limits) {
    if (lateShare(judged) <= allowedShare(limits)) return std::nullopt;
    return RunFinding{"late",
                      false,
                      std::nullopt,
                      judged.from,
                      judged.seconds,
                      "pmenv itself woke more than " + millisecondsText(limits.tolerance) + " late in " +
                          shareText(lateShare(judged)) + " of the times, at most " + secondsText(judged.wakes.longest),
                      "where pmenv has no more rights to the processors than others, so it goes for the engines"};
}

std::optional<RunFinding> notReadableFinding(const Judged& judged) {
    for (const JudgedEngine& engine : judged.engines) {
        if (engine.unreadable == 0) continue;
        return RunFinding{"notReadable",
                          false,
                          engine.key.pid,
                          engine.unreadableSince,
                          engine.unreadable,
                          engineText(engine.key.pid, engine.name) + ": its accounts could not be read",
                          "run pmenv as the engine's user or as root; the kernel needs CONFIG_SCHED_INFO"};
    }
    return std::nullopt;
}

Words wordsOfDoubt(Reason reason, const JudgedEngine& engine) {
    if (reason == Reason::Ports) {
        return {
            "nearly all local ports between the lowest and the highest in use are in use towards one destination; "
            "whether "
            "there are more cannot be read from another network namespace",
            "run pmenv judge in the network namespace of the engine, as in its container"};
    }
    return {threadText(engine) +
                " had no time to spare beside what the hypervisor took; it was late if that came in long turns, and on "
                "time "
                "if in short ones",
            "give this virtual machine processors of its own, or use another host"};
}

// What may have held an engine back, where that decides.
std::optional<RunFinding> perhapsFinding(const Judged& judged) {
    if (judged.doubt != Doubt::Stolen && judged.doubt != Doubt::Ports) return std::nullopt;
    const bool ports = judged.doubt == Doubt::Ports;
    const Reason reason = ports ? Reason::Ports : Reason::Stolen;
    const auto seconds = [reason](const JudgedEngine& engine) {
        const auto found = engine.perhaps.find(reason);
        return found != engine.perhaps.end() ? found->second.seconds : 0;
    };
    const JudgedEngine& engine = *std::max_element(
        judged.engines.begin(), judged.engines.end(),
        [&](const JudgedEngine& left, const JudgedEngine& right) { return seconds(left) < seconds(right); });
    const Words words = wordsOfDoubt(reason, engine);
    return RunFinding{ports ? "perhapsPorts" : "perhapsStolen",
                      false,
                      engine.key.pid,
                      engine.perhaps.at(reason).since,
                      seconds(engine),
                      engineText(engine.key.pid, engine.name) + ": " + words.text,
                      words.advice};
}

bool worse(const RunFinding& left, const RunFinding& right) {
    return left.spoils != right.spoils ? left.spoils : left.seconds > right.seconds;
}

}  // namespace

const char* outcomeText(Outcome outcome) {
    switch (outcome) {
        case Outcome::Clean:
            return "clean";
        case Outcome::Spoiled:
            return "spoiled";
        case Outcome::CannotTell:
            return "cannot tell";
    }
    return "";
}

const char* reasonName(Reason reason) {
    switch (reason) {
        case Reason::OwnWork:
            return "ownWork";
        case Reason::OtherPrograms:
            return "otherPrograms";
        case Reason::Crowded:
            return "crowded";
        case Reason::Quota:
            return "quota";
        case Reason::Stolen:
            return "stolen";
        case Reason::WokenLate:
            return "wokenLate";
        case Reason::Blocked:
            return "blocked";
        case Reason::Stopped:
            return "stopped";
        case Reason::Descriptors:
            return "descriptors";
        case Reason::Ports:
            return "ports";
        case Reason::Ended:
            return "ended";
    }
    return "";
}

std::vector<RunFinding> findingsOf(const Judged& judged, const JudgeLimits& limits) {
    std::vector<RunFinding> findings;
    for (const Reason reason : kReasons) {
        if (auto finding = heldBackFinding(reason, judged, limits)) findings.push_back(std::move(*finding));
    }
    for (const Incident& incident : judged.incidents) findings.push_back(findingOf(incident, limits));
    if (auto finding = lateFinding(judged, limits)) findings.push_back(std::move(*finding));
    if (auto finding = notReadableFinding(judged)) findings.push_back(std::move(*finding));
    if (auto finding = perhapsFinding(judged)) findings.push_back(std::move(*finding));
    std::stable_sort(findings.begin(), findings.end(), worse);
    return findings;
}

// --- signals --------------------------------------------------------------------------------------------------------

namespace {

using State = Signal::State;
using Unit = Signal::Unit;

// The largest of a figure over all engines; empty where none could be read.
template <class Figure>
std::optional<double> largest(const Judged& judged, Figure figure) {
    std::optional<double> found;
    for (const JudgedEngine& engine : judged.engines) {
        const std::optional<double> value = figure(engine);
        if (value && (!found || *value > *found)) found = value;
    }
    return found;
}

// Of a figure that decides, what is not known of one engine may be worse than what is known of the others.
template <class Figure>
std::optional<double> largestOfAll(const Judged& judged, double limit, Figure figure) {
    const auto found = largest(judged, figure);
    const bool everywhere = std::all_of(judged.engines.begin(), judged.engines.end(),
                                        [&](const JudgedEngine& engine) { return figure(engine).has_value(); });
    return everywhere || found >= limit ? found : std::nullopt;
}

std::optional<double> mostDescriptors(const Judged& judged) {
    return largestOfAll(judged, kDescriptorsUsedUp, [](const JudgedEngine& engine) { return engine.mostDescriptors; });
}

std::optional<double> mostPorts(const Judged& judged) {
    const auto most = largestOfAll(judged, kPortsUsedUp, [](const JudgedEngine& engine) { return engine.mostPorts; });
    return judged.doubt == Doubt::Ports ? std::nullopt : most;
}

std::optional<double> percent(std::optional<double> share) {
    return share ? std::optional(100 * *share) : std::nullopt;
}

// A figure that is only told.
Signal told(const char* name, const std::optional<double>& value, Unit unit) {
    return {name, value ? State::Ok : State::NotReadable, value, std::nullopt, unit};
}

Signal limited(const char* name, const std::optional<double>& value, double limit, Unit unit) {
    const State state = !value ? State::NotReadable : *value > limit ? State::Over : State::Ok;
    return {name, state, value, limit, unit};
}

// A share from whose limit on nothing is left.
Signal usedUp(const char* name, const std::optional<double>& share, double limit) {
    const State state = !share ? State::NotReadable : *share >= limit ? State::Over : State::Ok;
    return {name, state, percent(share), 100 * limit, Unit::Percent};
}

// The share of the time in which an engine was held back for this reason, of the engine where it is largest; empty when
// the evidence for it could not be read anywhere.
std::optional<double> heldBackPercent(const Judged& judged, Reason reason, bool readable) {
    if (!readable) return std::nullopt;
    return percent(largest(judged, [reason](const JudgedEngine& engine) -> std::optional<double> {
        return engine.readable ? std::optional(shareHeldBack(engine, reason)) : std::nullopt;
    }));
}

template <class Number>
std::optional<double> number(std::optional<Number> value) {
    return value ? std::optional(static_cast<double>(*value)) : std::nullopt;
}

std::optional<double> perSecond(std::optional<double> seconds, double of) {
    return seconds && of > 0 ? std::optional(100 * *seconds / of) : std::nullopt;
}

std::optional<double> sentAgainPercent(const JudgedMachine& machine) {
    if (!machine.segmentsSent || !machine.segmentsSentAgain) return std::nullopt;
    if (*machine.segmentsSent == 0) return 0;
    return 100 * static_cast<double>(*machine.segmentsSentAgain) / static_cast<double>(*machine.segmentsSent);
}

void addHeldBack(std::vector<Signal>& signals, const Judged& judged, const JudgeLimits& limits) {
    const double allowed = 100 - limits.percentile;
    const bool accounts = judged.share.has_value();
    const bool quota = largest(judged, [](const JudgedEngine& engine) { return engine.throttled; }).has_value();
    const auto add = [&](const char* name, Reason reason, bool readable) {
        signals.push_back(limited(name, heldBackPercent(judged, reason, readable), allowed, Unit::Percent));
    };
    signals.push_back(limited("held back", percent(judged.share), allowed, Unit::Percent));
    add("by its own work", Reason::OwnWork, accounts);
    add("by other programs", Reason::OtherPrograms, accounts);
    add("by the other engines", Reason::Crowded, accounts);
    add("by a quota", Reason::Quota, accounts && quota);
    const bool stolen = judged.machine.stolen.has_value() && judged.doubt != Doubt::Stolen;
    add("by the hypervisor", Reason::Stolen, accounts && stolen);
    add("by late waking", Reason::WokenLate, accounts);
    add("blocked", Reason::Blocked, accounts);
    add("stopped", Reason::Stopped, accounts);
}

// None where each engine that was killed is known to have been killed by something else.
std::optional<double> memoryKills(const Judged& judged) {
    const auto most = largest(judged, [](const JudgedEngine& engine) { return number(engine.memoryKills); });
    const bool allSeen = std::none_of(judged.engines.begin(), judged.engines.end(),
                                      [](const JudgedEngine& engine) { return engine.killsUnseen; });
    return allSeen || most.value_or(0) > 0 ? most : std::nullopt;
}

void addEngineSignals(std::vector<Signal>& signals, const Judged& judged) {
    const auto wokenAfter = largest(judged, [](const JudgedEngine& engine) -> std::optional<double> {
        if (!engine.readable || engine.turns == 0) return std::nullopt;
        return engine.waited / static_cast<double>(engine.turns);
    });
    const auto throttled = largest(
        judged, [](const JudgedEngine& engine) { return perSecond(engine.throttled, engine.to - engine.from); });
    const auto faults = largest(judged, [](const JudgedEngine& engine) { return number(engine.majorFaults); });
    const auto memory = largest(judged, [](const JudgedEngine& engine) { return engine.mostMemory; });
    signals.push_back(told("ready to running", wokenAfter, Unit::Seconds));
    signals.push_back(told("throttled", throttled, Unit::Percent));
    signals.push_back(usedUp("descriptors", mostDescriptors(judged), kDescriptorsUsedUp));
    signals.push_back(usedUp("local ports", mostPorts(judged), kPortsUsedUp));
    signals.push_back(told("pages from disk", faults, Unit::Count));
    signals.push_back(told("group's memory", percent(memory), Unit::Percent));
    signals.push_back(limited("killed for memory", memoryKills(judged), 0, Unit::Count));
}

void addMachineSignals(std::vector<Signal>& signals, const Judged& judged, const JudgeLimits& limits) {
    const JudgedMachine& machine = judged.machine;
    std::optional<double> busy;
    if (machine.busy && machine.idle && *machine.busy + *machine.idle > 0) {
        busy = 100 * *machine.busy / (*machine.busy + *machine.idle);
    }
    signals.push_back(told("processors", busy, Unit::Percent));
    signals.push_back(told("available memory", percent(machine.leastAvailable), Unit::Percent));
    signals.push_back(told("growth of swap", number(machine.swapGrowth), Unit::Bytes));
    signals.push_back(told("packets dropped", number(machine.droppedPackets), Unit::Count));
    signals.push_back(told("segments sent again", sentAgainPercent(machine), Unit::Percent));
    signals.push_back(told("pressure: processors", perSecond(machine.cpuPressure, judged.seconds), Unit::Percent));
    signals.push_back(told("pressure: disks", perSecond(machine.ioPressure, judged.seconds), Unit::Percent));
    signals.push_back(told("pressure: memory", perSecond(machine.memoryPressure, judged.seconds), Unit::Percent));
    const auto late = judged.wakes.wakes > 0 ? std::optional(100 * lateShare(judged)) : std::nullopt;
    signals.push_back(limited("pmenv woke late", late, 100 - limits.percentile, Unit::Percent));
}

}  // namespace

std::vector<Signal> signalsOf(const Judged& judged, const JudgeLimits& limits) {
    std::vector<Signal> signals;
    addHeldBack(signals, judged, limits);
    addEngineSignals(signals, judged);
    addMachineSignals(signals, judged, limits);
    std::stable_sort(signals.begin(), signals.end(),
                     [](const Signal& left, const Signal& right) { return left.state < right.state; });
    return signals;
}

// --- the verdict ----------------------------------------------------------------------------------------------------

namespace {

std::string doubtText(const Judged& judged, const JudgeLimits& limits) {
    switch (judged.doubt) {
        case Doubt::None:
            break;
        case Doubt::TooShort:
            return "the watch was too short: " + secondsText(judged.seconds) +
                   (limits.skip > 0 ? " behind the " + secondsText(limits.skip) + " that --skip leaves out" : "");
        case Doubt::NoEngine:
            return "no load engine was seen";
        case Doubt::NameNotSeen:
            return "an engine that was asked for was not seen";
        case Doubt::NotReadable:
            return "what the kernel keeps about an engine could not be read";
        case Doubt::Unseen:
            return "pmenv itself got too little of the processors to watch";
        case Doubt::WatcherLate:
            return "no engine was seen held back, but pmenv itself woke late too often";
        case Doubt::Stolen:
            return "the hypervisor may have held an engine back; for how long at a time cannot be seen";
        case Doubt::Ports:
            return "the local ports may be used up; how many there are in another network namespace cannot be read";
    }
    return "";
}

// What decides as well, and was not seen.
std::string unseenText(const Judged& judged) {
    const bool descriptors = mostDescriptors(judged).has_value(), ports = mostPorts(judged).has_value();
    if (descriptors && ports) return "";
    if (!descriptors && !ports) return "; descriptors and local ports could not be read";
    return std::string("; ") + (descriptors ? "local ports" : "descriptors") + " could not be read";
}

}  // namespace

std::string reasonText(const Judged& judged, const JudgeLimits& limits) {
    if (judged.outcome == Outcome::CannotTell) return doubtText(judged, limits);
    std::string asked = percentileText(limits.percentile) + " was asked for";
    if (!judged.believed) return "which percentiles can be believed cannot be told; " + asked;
    const std::string unseen = judged.outcome == Outcome::Clean ? unseenText(judged) : "";
    if (*judged.believed == 100) return "no percentile is in doubt; " + asked + unseen;
    return "percentiles up to " + percentileText(*judged.believed) + " can be believed; " + asked + unseen;
}
