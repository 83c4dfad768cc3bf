#include "recording/encoder.h"

#include <array>

#include "judgement/findings.h"
#include "output.h"
#include "recording/texts.h"

using recording::jsonText;
using recording::millionths;
using recording::numberOf;
using recording::RecordedNumber;

namespace {

// --- JSON -----------------------------------------------------------------------------------------------------------

template <class Items, class ToJson>
std::string listOf(const Items& items, ToJson toJson) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : ",") + toJson(item);
    return "[" + text + "]";
}

std::string textOf(RecordedNumber number) { return number ? std::to_string(*number) : "null"; }
std::string textOf(bool value) { return value ? "true" : "false"; }
std::string textsOf(const std::vector<std::string>& texts) { return listOf(texts, jsonText); }

template <class Value>
Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

std::string limitsOf(const JudgeLimits& limits) {
    return Json{{"percentile", limits.percentile},
                {"skip", limits.skip},
                {"tolerance", limits.tolerance},
                {"engines", orNull(limits.engines)},
                {"machinePercent", orNull(limits.machinePercent)},
                {"enginePercent", orNull(limits.enginePercent)},
                {"sustain", limits.sustain},
                {"memoryPercent", orNull(limits.memoryPercent)},
                {"swapMegabytes", orNull(limits.swapMegabytes)}}
        .dump();
}

}  // namespace

class EvidenceEncoder::Members {
public:
    void add(const char* name, const std::string& json) {
        text_ += (text_.empty() ? "\"" : ",\"") + std::string(name) + "\":" + json;
    }
    bool empty() const { return text_.empty(); }
    std::string object() const { return "{" + text_ + "}"; }

private:
    std::string text_;
};

// --- one line each --------------------------------------------------------------------------------------------------

std::string headerLine(const RecordingHeader& header) {
    const auto start = std::chrono::duration_cast<std::chrono::microseconds>(header.start.time_since_epoch());
    return R"({"format":"pmenv recording","version":[)" + std::to_string(header.major) + "," +
           std::to_string(header.minor) + R"(],"pmenv":)" + jsonText(header.pmenv) + R"(,"host":)" +
           jsonText(header.host) + R"(,"kernel":)" + jsonText(header.kernel) + R"(,"processors":)" +
           std::to_string(header.processors) + R"(,"memoryBytes":)" + textOf(numberOf(header.memoryBytes)) +
           R"(,"start":)" + std::to_string(start.count()) + R"(,"clock":)" + std::to_string(millionths(header.clock)) +
           R"(,"boot":)" + jsonText(header.boot) + R"(,"engines":{"names":)" + textsOf(header.choice.names) +
           R"(,"pid":)" + orNull(header.choice.pid).dump() + R"(},"ignoredThreads":)" + textsOf(header.ignored) +
           R"(,"limits":)" + limitsOf(header.limits) + R"(,"command":)" + textsOf(header.command) + "}";
}

std::string markLine(const Mark& mark) {
    return R"({"mark":)" + jsonText(mark.text) + R"(,"time":)" + std::to_string(millionths(mark.time)) + "}";
}

std::string outcomeLine(const RecordedOutcome& outcome) {
    return kOutcomeBegin +
           Json{{"verdict", outcomeText(outcome.outcome)},
                {"believedPercentile", orNull(outcome.believed)},
                {"cpuSeconds", outcome.cpuSeconds}}
               .dump() +
           "}";
}

// --- an interval ----------------------------------------------------------------------------------------------------

std::string EvidenceEncoder::line(const Evidence& evidence) {
    ++samples_;
    Members members;
    members.add("to", textOf(numberOf(evidence.to)));
    if (evidence.from != to_) members.add("from", textOf(numberOf(evidence.from)));
    const WakeEvidence& wakes = evidence.wakes;
    if (wakes.wakes > 0 || wakes.late > 0 || wakes.longest > 0) {
        members.add("wakes", "[" + std::to_string(wakes.wakes) + "," + std::to_string(wakes.late) + "," +
                                 textOf(numberOf(wakes.longest)) + "]");
    }
    Members machine;
    if (evidence.machine.processors != processors_)
        machine.add("processors", std::to_string(evidence.machine.processors));
    recording::visitMachine(evidence.machine, [&machine](const char* name, const auto& figure) {
        if (figure) machine.add(name, textOf(numberOf(figure)));
    });
    if (!machine.empty()) members.add("machine", machine.object());
    members.add("engines", enginesOf(evidence));
    addSeldom(evidence, members);
    to_ = evidence.to;
    processors_ = evidence.machine.processors;
    return members.object();
}

// An engine that is missing in an interval is forgotten, here and by the reader.
std::string EvidenceEncoder::enginesOf(const Evidence& sample) {
    std::string text = listOf(sample.engines, [&](const EngineEvidence& engine) { return entryOf(engine, sample); });
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        entry = entry->second.sample == samples_ ? std::next(entry) : engines_.erase(entry);
    }
    return text;
}

void EvidenceEncoder::addSeldom(const Evidence& sample, Members& members) {
    if (!sample.ends.empty()) {
        members.add("ends", listOf(sample.ends, [](const EngineEnd& end) {
                        Members of;
                        of.add("pid", std::to_string(end.key.pid));
                        of.add("start", std::to_string(end.key.startTicks));
                        of.add("name", jsonText(end.name));
                        of.add("time", textOf(numberOf(end.time)));
                        of.add("status", orNull(end.status).dump());
                        of.add("zombie", textOf(end.zombie));
                        of.add("descendant", textOf(end.descendant));
                        if (end.memoryKills) of.add("kills", textOf(numberOf(end.memoryKills)));
                        return of.object();
                    }));
    }
    const std::string others = listOf(sample.others, [](const ProgramTime& program) {
        return "[" + jsonText(program.name) + "," + textOf(numberOf(program.seconds)) + "," +
               std::to_string(program.processes) + "]";
    });
    if (others != others_) members.add("others", others);
    others_ = others;
    const std::string missing = textsOf(sample.missingNames);
    if (missing != missing_) members.add("missing", missing);
    missing_ = missing;
}

// --- an engine ------------------------------------------------------------------------------------------------------

std::string EvidenceEncoder::entryOf(const EngineEvidence& engine, const Evidence& sample) {
    const auto [place, isNew] = engines_.try_emplace(engine.key);
    Engine& known = place->second;
    Members changes;
    if (isNew) {
        known.index = nextIndex_++;
        changes.add("pid", std::to_string(engine.key.pid));
        changes.add("start", std::to_string(engine.key.startTicks));
    }
    if (isNew || engine.name != known.last.name) changes.add("name", jsonText(engine.name));
    if (engine.from != sample.from) changes.add("from", textOf(numberOf(engine.from)));
    if (engine.to != sample.to) changes.add("to", textOf(numberOf(engine.to)));
    const RecordedNumber thread = threadOf(known, engine, changes);
    addChanges(known, engine, changes);

    const recording::EngineNumbers numbers = recording::numbersOf(engine, engine.busiest.value_or(ThreadEvidence{}));
    std::vector<RecordedNumber> list{static_cast<std::int64_t>(known.index),
                                     thread,
                                     numbers.running,
                                     numbers.turns,
                                     numbers.waiting,
                                     numbers.longer,
                                     numbers.othersRan,
                                     numbers.othersTurns,
                                     numbers.othersWaited,
                                     numbers.lateTurns};
    while (list.size() > 1 && list.back() == 0) list.pop_back();
    std::string text = listOf(list, [](RecordedNumber number) { return textOf(number); });
    if (!changes.empty()) text.insert(text.size() - 1, "," + changes.object());
    known.last = engine;
    known.sample = samples_;
    return text;
}

// Threads are introduced by their id and name, and meant by their number from then on.
RecordedNumber EvidenceEncoder::threadOf(Engine& known, const EngineEvidence& engine, Members& changes) {
    if (!engine.busiest) return std::nullopt;
    const auto [place, isNew] = known.threads.try_emplace(engine.busiest->tid, known.threads.size(), "");
    auto& [index, name] = place->second;
    if (isNew || name != engine.busiest->name) {
        changes.add("tid", std::to_string(engine.busiest->tid));
        changes.add("thread", jsonText(engine.busiest->name));
    }
    name = engine.busiest->name;
    return static_cast<std::int64_t>(index);
}

void EvidenceEncoder::addChanges(const Engine& known, const EngineEvidence& engine, Members& changes) {
    std::array<RecordedNumber, recording::kSteadyFigures> before;
    const ThreadEvidence none;
    std::size_t i = 0;
    recording::visitSteady(known.last, known.last.busiest ? *known.last.busiest : none,
                           [&](const char*, const auto& figure) { before[i++] = numberOf(figure); });
    i = 0;
    recording::visitSteady(engine, engine.busiest ? *engine.busiest : none, [&](const char* name, const auto& figure) {
        const RecordedNumber now = numberOf(figure);
        if (now != before[i++]) changes.add(name, textOf(now));
    });
    if (engine.group.throttledGroup != known.last.group.throttledGroup) {
        changes.add("group", jsonText(engine.group.throttledGroup));
    }
    if (engine.group.memoryKills) changes.add("kills", textOf(numberOf(engine.group.memoryKills)));
}
