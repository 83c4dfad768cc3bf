#include "recording/decoder.h"

#include <climits>

#include "judgement/findings.h"
#include "recording/texts.h"

using namespace recording;

namespace {

constexpr int kReadableMajor = 1;
constexpr double kMostSeconds = 1e9;

std::uint64_t unsignedNumber(std::int64_t number) { return static_cast<std::uint64_t>(number); }

JudgeLimits limitsOf(const Value& line) {
    const Value& object = member(line, "limits");
    JudgeLimits limits;
    limits.percentile = memberDouble(object, "percentile", 0, 100);
    limits.skip = memberDouble(object, "skip", 0, kMostSeconds);
    limits.tolerance = memberDouble(object, "tolerance", 0, kMostSeconds);
    const auto engines = memberNumberOrNull(object, "engines", 0, INT_MAX);
    if (engines) limits.engines = static_cast<std::size_t>(*engines);
    limits.machinePercent = memberDoubleOrNull(object, "machinePercent", 0, kMostSeconds);
    limits.enginePercent = memberDoubleOrNull(object, "enginePercent", 0, kMostSeconds);
    limits.sustain = memberDouble(object, "sustain", 0, kMostSeconds);
    limits.memoryPercent = memberDoubleOrNull(object, "memoryPercent", 0, 100);
    limits.swapMegabytes = memberDoubleOrNull(object, "swapMegabytes", 0, kMostSeconds);
    return limits;
}

// What this pmenv cannot know how to read is refused before anything else is looked at.
void takeVersion(const Value& line, RecordingHeader& header) {
    const Value* const format = find(line, "format");
    if (format == nullptr || !format->IsString() || text(*format, "format") != "pmenv recording") {
        throw BadLine{"this is no recording; 'pmenv judge --record FILE' writes one", "", 1};
    }
    const Value& version = memberList(line, "version");
    if (version.Size() < 2) throw BadLine{"\"version\" needs two numbers", "version"};
    header.major = static_cast<int>(wholeNumber(version[0], "version", 1, INT_MAX));
    header.minor = static_cast<int>(wholeNumber(version[1], "version", 0, INT_MAX));
    header.pmenv = memberText(line, "pmenv");
    if (header.major <= kReadableMajor) return;
    throw BadLine{"this recording has format " + std::to_string(header.major) + "." + std::to_string(header.minor) +
                      ", and this pmenv reads formats up to " + std::to_string(kReadableMajor) +
                      "; use the pmenv that wrote it (" + header.pmenv + ") or a later one",
                  "version"};
}

}  // namespace

// --- one line each --------------------------------------------------------------------------------------------------

RecordingHeader decodeHeader(const Value& line) {
    RecordingHeader header;
    takeVersion(line, header);
    header.host = memberText(line, "host");
    header.kernel = memberText(line, "kernel");
    header.processors = static_cast<int>(memberNumber(line, "processors", 1, INT_MAX));
    assign(header.memoryBytes, memberNumberOrNull(line, "memoryBytes", 0, kMost));
    const std::chrono::microseconds start(memberNumber(line, "start", 0, 4 * kMost));
    header.start = std::chrono::system_clock::time_point(start);
    header.clock = fromMillionths(memberNumber(line, "clock", 0, kMost));
    header.boot = memberText(line, "boot");
    const Value& engines = member(line, "engines");
    header.choice.names = memberTexts(engines, "names");
    const auto pid = memberNumberOrNull(engines, "pid", 0, INT_MAX);
    if (pid) header.choice.pid = static_cast<int>(*pid);
    header.ignored = memberTexts(line, "ignoredThreads");
    header.limits = limitsOf(line);
    header.command = memberTexts(line, "command");
    return header;
}

Mark decodeMark(const Value& line) {
    return {fromMillionths(memberNumber(line, "time", -kMost, kMost)), memberText(line, "mark")};
}

RecordedOutcome decodeOutcome(const Value& line) {
    const Value& object = member(line, "outcome");
    const std::string verdict = memberText(object, "verdict");
    RecordedOutcome outcome;
    bool known = false;
    for (const Outcome each : {Outcome::Clean, Outcome::Spoiled, Outcome::CannotTell}) {
        if (verdict != outcomeText(each)) continue;
        outcome.outcome = each;
        known = true;
    }
    if (!known) throw BadLine{"\"verdict\" is none of clean, spoiled, cannot tell", "verdict"};
    outcome.believed = memberDoubleOrNull(object, "believedPercentile", 0, 100);
    outcome.cpuSeconds = memberDouble(object, "cpuSeconds", 0, kMostSeconds);
    return outcome;
}

// --- an interval ----------------------------------------------------------------------------------------------------

Evidence EvidenceDecoder::decode(const Value& line) {
    ++samples_;
    const std::int64_t to = memberNumber(line, "to", to_, kMost);
    const std::int64_t from = find(line, "from") == nullptr ? to_ : memberNumber(line, "from", 0, to);
    to_ = to;
    evidence_.from = fromMillionths(from);
    evidence_.to = fromMillionths(to);
    if (find(line, "wakes") != nullptr) {
        const Value& wakes = memberList(line, "wakes");
        if (wakes.Size() < 3) throw BadLine{"\"wakes\" needs three numbers", "wakes"};
        evidence_.wakes.wakes = unsignedNumber(wholeNumber(wakes[0], "wakes", 0, kMost));
        evidence_.wakes.late = unsignedNumber(wholeNumber(wakes[1], "wakes", 0, kMost));
        evidence_.wakes.longest = fromMillionths(wholeNumber(wakes[2], "wakes", 0, kMost));
    }
    takeMachine(line);
    takeEngines(line);
    takeEnds(line);
    takeOthers(line);
    if (find(line, "missing") != nullptr) evidence_.missingNames = memberTexts(line, "missing");
    Evidence told = std::move(evidence_);
    evidence_ = Evidence();
    evidence_.machine.processors = told.machine.processors;
    evidence_.others = told.others;
    evidence_.missingNames = told.missingNames;
    return told;
}

void EvidenceDecoder::takeMachine(const Value& line) {
    static const Value nothing(rapidjson::kObjectType);
    const Value* const given = find(line, "machine");
    const Value& machine = given == nullptr ? nothing : *given;
    if (!machine.IsObject()) throw BadLine{"\"machine\" is no object", "machine"};
    visitMachine(evidence_.machine, [&machine](const char* name, auto& figure) {
        const Value* const value = find(machine, name);
        assign(figure, value == nullptr ? RecordedNumber() : wholeNumber(*value, name, 0, kMost));
    });
    if (find(machine, "processors") == nullptr) return;
    evidence_.machine.processors = static_cast<int>(memberNumber(machine, "processors", 1, INT_MAX));
}

void EvidenceDecoder::takeEnds(const Value& line) {
    if (find(line, "ends") == nullptr) return;
    for (const Value& entry : memberList(line, "ends").GetArray()) {
        EngineEnd end;
        end.key = {static_cast<int>(memberNumber(entry, "pid", 0, INT_MAX)),
                   unsignedNumber(memberNumber(entry, "start", 0, kMost))};
        end.name = memberText(entry, "name");
        end.time = fromMillionths(memberNumber(entry, "time", 0, to_));
        const auto status = memberNumberOrNull(entry, "status", INT_MIN, INT_MAX);
        if (status) end.status = static_cast<int>(*status);
        end.zombie = memberFlag(entry, "zombie");
        end.descendant = memberFlag(entry, "descendant");
        if (find(entry, "kills") != nullptr) end.memoryKills = unsignedNumber(memberNumber(entry, "kills", 0, kMost));
        evidence_.ends.push_back(std::move(end));
    }
}

void EvidenceDecoder::takeOthers(const Value& line) {
    if (find(line, "others") == nullptr) return;
    evidence_.others.clear();
    for (const Value& entry : memberList(line, "others").GetArray()) {
        if (!entry.IsArray() || entry.Size() < 3)
            throw BadLine{"\"others\" needs a name and two numbers each", "others"};
        evidence_.others.push_back({text(entry[0], "others"), fromMillionths(wholeNumber(entry[1], "others", 0, kMost)),
                                    static_cast<int>(wholeNumber(entry[2], "others", 0, INT_MAX))});
    }
}

// --- engines --------------------------------------------------------------------------------------------------------

void EvidenceDecoder::takeEngines(const Value& line) {
    const Value& list = memberList(line, "engines");
    evidence_.engines.reserve(list.Size());
    for (const Value& entry : list.GetArray()) takeEngine(entry);
    if (engines_.size() == evidence_.engines.size()) return;
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        entry = entry->second.sample == samples_ ? std::next(entry) : engines_.erase(entry);
    }
}

void EvidenceDecoder::takeEngine(const Value& entry) {
    if (!entry.IsArray() || entry.Empty()) throw BadLine{"\"engines\" needs a list of numbers each", "engines"};
    const bool hasChanges = entry[entry.Size() - 1].IsObject();
    const Value* const changes = hasChanges ? &entry[entry.Size() - 1] : nullptr;
    const std::size_t count = entry.Size() - (hasChanges ? 1 : 0);
    if (count == 0) throw BadLine{"\"engines\" needs a list of numbers each", "engines"};

    Engine& engine = known(wholeNumber(entry[0], "engines", 0, kMost), changes);
    engine.evidence.from = evidence_.from;
    engine.evidence.to = evidence_.to;
    engine.evidence.group.memoryKills = std::nullopt;
    if (changes != nullptr) takeChanges(engine, *changes, to_);

    const auto number = [&](unsigned position, std::int64_t least) {
        return position < count ? wholeNumber(entry[position], "engines", least, kMost) : 0;
    };
    EngineNumbers numbers;
    numbers.running = number(2, 0);
    numbers.turns = number(3, 0);
    numbers.waiting = number(4, 0);
    numbers.longer = number(5, -kMost);
    numbers.othersRan = number(6, -numbers.running);
    numbers.othersTurns = number(7, -numbers.turns);
    numbers.othersWaited = number(8, -kMost);
    numbers.lateTurns = number(9, 0);
    assign(engine.evidence, engine.thread, numbers);
    takeThread(engine, entry, count);
    evidence_.engines.push_back(engine.evidence);
}

EvidenceDecoder::Engine& EvidenceDecoder::known(std::int64_t index, const Value* changes) {
    const bool introduced = changes != nullptr && find(*changes, "pid") != nullptr;
    const auto found = engines_.find(index);
    if (!introduced && found == engines_.end()) {
        throw BadLine{"\"engines\": engine " + std::to_string(index) + " has not been introduced", "engines"};
    }
    Engine& engine = introduced ? engines_[index] = Engine() : found->second;
    if (engine.sample == samples_) {
        throw BadLine{"\"engines\": engine " + std::to_string(index) + " is there twice", "engines"};
    }
    engine.sample = samples_;
    if (introduced) {
        engine.evidence.key = {static_cast<int>(memberNumber(*changes, "pid", 0, INT_MAX)),
                               unsignedNumber(memberNumber(*changes, "start", 0, kMost))};
        engine.evidence.name = memberText(*changes, "name");
    }
    return engine;
}

void EvidenceDecoder::takeChanges(Engine& engine, const Value& changes, std::int64_t end) {
    EngineEvidence& evidence = engine.evidence;
    if (find(changes, "name") != nullptr) evidence.name = memberText(changes, "name");
    if (find(changes, "to") != nullptr) evidence.to = fromMillionths(memberNumber(changes, "to", 0, end));
    if (find(changes, "from") != nullptr) {
        evidence.from = fromMillionths(memberNumber(changes, "from", 0, end));
    }
    if (evidence.from > evidence.to) throw BadLine{"\"to\" of an engine lies before its \"from\"", "engines"};
    if (find(changes, "group") != nullptr) evidence.group.throttledGroup = memberText(changes, "group");
    if (find(changes, "kills") != nullptr) {
        evidence.group.memoryKills = unsignedNumber(memberNumber(changes, "kills", 0, kMost));
    }
    visitSteady(evidence, engine.thread, [&changes](const char* name, auto& figure) {
        const Value* const value = find(changes, name);
        if (value != nullptr) assign(figure, memberNumberOrNull(changes, name, 0, kMost));
    });
}

// The busiest thread by its number; null for none.
void EvidenceDecoder::takeThread(Engine& engine, const Value& entry, std::size_t count) {
    engine.evidence.busiest.reset();
    if (count > 1 && entry[1].IsNull()) return;
    const auto index = static_cast<std::size_t>(count > 1 ? wholeNumber(entry[1], "engines", 0, INT_MAX) : 0);
    const Value& last = entry[entry.Size() - 1];
    if (last.IsObject() && find(last, "tid") != nullptr && index <= engine.threads.size()) {
        if (index == engine.threads.size()) engine.threads.emplace_back();
        engine.threads[index] = {static_cast<int>(memberNumber(last, "tid", 0, INT_MAX)), memberText(last, "thread")};
    }
    if (index >= engine.threads.size()) {
        throw BadLine{"\"engines\": thread " + std::to_string(index) + " has not been introduced", "engines"};
    }
    engine.thread.tid = engine.threads[index].first;
    engine.thread.name = engine.threads[index].second;
    engine.evidence.busiest = engine.thread;
}
