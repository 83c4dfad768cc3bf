// Recordings.h - made-up runs on their way through a recording.
#pragma once

#include <cstdio>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "judgeFormats.h"
#include "judgement/judgement.h"
#include "recording/recording.h"

inline RecordingHeader someHeader() {
    RecordingHeader header;
    header.pmenv = "1.0.0";
    header.host = "gen1";
    header.kernel = "Linux 6.1.0 x86_64";
    header.processors = 2;
    header.memoryBytes = 8'000'000'000;
    header.start = std::chrono::system_clock::time_point(std::chrono::microseconds(1'795'309'824'123'456));
    header.clock = 4711.25;
    header.boot = "4e0b6a3c-0001";
    return header;
}

/// Everything that the evidence holds, one figure a line, exact.
class Described {
public:
    static std::string of(const Evidence& evidence) {
        Described all;
        all.add("from", evidence.from).add("to", evidence.to).machine(evidence.machine);
        all.add("wakes", evidence.wakes.wakes).add("late", evidence.wakes.late).add("longest", evidence.wakes.longest);
        for (const EngineEvidence& engine : evidence.engines) all.engine(engine);
        for (const EngineEnd& end : evidence.ends) all.end(end);
        for (const ProgramTime& program : evidence.others) {
            all.add("other", program.name).add("seconds", program.seconds).add("processes", program.processes);
        }
        for (const std::string& name : evidence.missingNames) all.add("missing", name);
        return all.text_;
    }

private:
    Described& add(const std::string& name, const std::string& value) {
        text_ += name + "=" + value + "\n";
        return *this;
    }
    Described& add(const std::string& name, double value) {
        char text[64];
        std::snprintf(text, sizeof text, "%.17g", value);
        return add(name, std::string(text));
    }
    Described& add(const std::string& name, std::uint64_t value) { return add(name, std::to_string(value)); }
    Described& add(const std::string& name, int value) { return add(name, std::to_string(value)); }
    Described& add(const std::string& name, bool value) { return add(name, std::string(value ? "yes" : "no")); }
    template <class Value>
    Described& add(const std::string& name, const std::optional<Value>& value) {
        return value ? add(name, *value) : add(name, std::string("unknown"));
    }

    void machine(const MachineEvidence& machine) {
        add("processors", machine.processors).add("busy", machine.busy).add("idle", machine.idle);
        add("stolen", machine.stolen).add("memory", machine.memoryAvailableShare).add("swap", machine.swapUsedBytes);
        add("dropped", machine.droppedPackets)
            .add("sent", machine.segmentsSent)
            .add("again", machine.segmentsSentAgain);
        add("cpu", machine.cpuPressure).add("io", machine.ioPressure).add("memory", machine.memoryPressure);
    }

    void engine(const EngineEvidence& engine) {
        add("pid", engine.key.pid).add("start", engine.key.startTicks).add("name", engine.name);
        add("from", engine.from).add("to", engine.to).add("readable", engine.readable);
        add("standIn", engine.standIn);
        add("busiest", engine.busiest.has_value());
        if (engine.busiest) thread(*engine.busiest);
        add("waited", engine.waited).add("turns", engine.turns).add("late", engine.lateTurns).add("ran", engine.ran);
        add("faults", engine.majorFaults).add("faulting", engine.faulting);
        add("descriptors", engine.descriptorShare).add("ports", engine.portShare).add("atMost", engine.portsAtMost);
        const GroupEvidence& group = engine.group;
        add("throttled", group.throttled).add("times", group.timesThrottled).add("periods", group.periods);
        add("group", group.throttledGroup).add("quota", group.quota).add("kills", group.memoryKills);
        add("memory", group.memoryShare);
    }

    void thread(const ThreadEvidence& thread) {
        add("tid", thread.tid).add("thread", thread.name).add("seconds", thread.seconds);
        const Parts& parts = thread.parts;
        add("running", parts.running).add("waiting", parts.waiting).add("throttled", parts.throttled);
        add("stolen", parts.stolen).add("blocked", parts.blocked).add("stopped", parts.stopped);
        add("before", thread.waitedBefore).add("turns", thread.turns).add("atOnce", thread.blockedAtOnce);
        add("sleeps", thread.sleeps);
    }

    void end(const EngineEnd& end) {
        add("end of", end.key.pid).add("start", end.key.startTicks).add("name", end.name).add("time", end.time);
        add("status", end.status).add("zombie", end.zombie).add("descendant", end.descendant);
        add("kills", end.memoryKills);
    }

    std::string text_;
};

inline std::string describe(const std::vector<Evidence>& run) {
    std::string text;
    for (const Evidence& evidence : run) text += Described::of(evidence) + "\n";
    return text;
}

/// What a run is judged, to the last digit.
inline std::string judged(const std::vector<Evidence>& run, const JudgeLimits& limits = {}) {
    Judgement judgement(limits);
    for (const Evidence& evidence : run) judgement.add(evidence);
    const bool missing = !run.empty() && !run.back().missingNames.empty();
    return judgeJson(judgement.judged(missing), limits, {}).dump(1, ' ', false, Json::error_handler_t::replace);
}

inline void record(const std::string& path, const std::vector<Evidence>& run,
                   const RecordingHeader& header = someHeader(), bool toItsEnd = true) {
    RecordingWriter writer(path, header);
    for (const Evidence& evidence : run) writer.write(evidence);
    if (toItsEnd) writer.write(RecordedOutcome{Outcome::Clean, 100.0, 0.125});
}

struct ReadRecording {
    RecordingHeader header;
    std::vector<Evidence> run;
    std::vector<Mark> marks;
    std::optional<RecordedOutcome> outcome;
    std::vector<std::string> warnings;
};

inline ReadRecording readRecording(const std::string& path) {
    RecordingReader reader(path);
    ReadRecording read;
    read.header = reader.header();
    while (const auto item = reader.next()) {
        if (const auto* const evidence = std::get_if<Evidence>(&*item)) read.run.push_back(*evidence);
        if (const auto* const mark = std::get_if<Mark>(&*item)) read.marks.push_back(*mark);
    }
    read.outcome = reader.outcome();
    read.warnings = reader.warnings();
    return read;
}

/// A run in which everything happens that can, most of it seldom.
class RandomRun {
public:
    explicit RandomRun(unsigned seed) : random_(seed) {}

    std::vector<Evidence> of(int intervals) {
        std::vector<Evidence> run;
        for (int i = 0; i < intervals; ++i) run.push_back(asRecorded(interval()));
        return run;
    }

private:
    bool chance(double share) { return std::bernoulli_distribution(share)(random_); }
    int whole(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }
    double fraction(double most) { return chance(0.3) ? 0 : std::uniform_real_distribution<double>(0, most)(random_); }
    std::uint64_t count() { return chance(0.4) ? 0 : static_cast<std::uint64_t>(whole(100'000)); }
    std::optional<double> fractionOrUnknown(double most) {
        return chance(0.2) ? std::nullopt : std::optional(fraction(most));
    }
    std::optional<std::uint64_t> countOrUnknown() { return chance(0.2) ? std::nullopt : std::optional(count()); }
    std::string name() {
        static const std::string names[] = {"PMLoadEngineMai",      "sender", "\"quoted\" \\ name", "\xff\xfe\x80",
                                            "\xc3\xa4\xe2\x82\xac", "",       "line\nend\ttab",     "\\xff"};
        return names[whole(7)];
    }

    Evidence interval() {
        Evidence evidence;
        evidence.from = to_;
        evidence.to = to_ += 0.2 + fraction(0.3);
        MachineEvidence& machine = evidence.machine;
        machine.processors = processors_ = chance(0.05) ? 1 + whole(8) : processors_;
        machine.busy = fractionOrUnknown(1);
        machine.idle = fractionOrUnknown(1);
        machine.stolen = fractionOrUnknown(0.1);
        machine.memoryAvailableShare = fractionOrUnknown(1);
        machine.swapUsedBytes = countOrUnknown();
        machine.droppedPackets = countOrUnknown();
        machine.segmentsSent = countOrUnknown();
        machine.segmentsSentAgain = countOrUnknown();
        machine.cpuPressure = fractionOrUnknown(0.25);
        machine.ioPressure = fractionOrUnknown(0.25);
        machine.memoryPressure = fractionOrUnknown(0.25);
        evidence.wakes = {count(), count(), fraction(0.2)};
        for (int pid = 100; pid < 105; ++pid) {
            if (chance(0.8)) evidence.engines.push_back(engine(evidence, pid));
        }
        if (chance(0.1)) {
            evidence.ends.push_back({{100 + whole(5), 7},
                                     name(),
                                     evidence.to,
                                     chance(0.5) ? std::optional(whole(300)) : std::nullopt,
                                     chance(0.5),
                                     chance(0.5),
                                     countOrUnknown()});
        }
        if (chance(0.3)) others_ = {{name(), fraction(50), whole(9)}, {name(), fraction(5), whole(9)}};
        evidence.others = others_;
        if (chance(0.1)) missing_ = chance(0.5) ? std::vector<std::string>{name(), "wrk"} : std::vector<std::string>{};
        evidence.missingNames = missing_;
        return evidence;
    }

    EngineEvidence engine(const Evidence& evidence, int pid) {
        EngineEvidence engine;
        engine.key = {pid, chance(0.9) ? 7U : 8U};
        engine.name = chance(0.9) ? "PMLoadEngineMai" : name();
        engine.from = chance(0.9) ? evidence.from : evidence.to;
        engine.to = evidence.to;
        engine.readable = chance(0.9);
        engine.standIn = chance(0.1);
        if (chance(0.9)) engine.busiest = thread();
        engine.waited = fraction(0.5);
        engine.turns = count();
        engine.lateTurns = fraction(10);
        engine.ran = fraction(1);
        engine.majorFaults = countOrUnknown();
        engine.faulting = chance(0.1);
        engine.group = {fractionOrUnknown(1), countOrUnknown(), countOrUnknown(),     name(),
                        fractionOrUnknown(2), countOrUnknown(), fractionOrUnknown(1), std::nullopt};
        engine.descriptorShare = fractionOrUnknown(1);
        engine.portShare = fractionOrUnknown(1);
        engine.portsAtMost = chance(0.2);
        return engine;
    }

    ThreadEvidence thread() {
        ThreadEvidence thread;
        thread.tid = 200 + whole(4);
        thread.name = chance(0.9) ? "sender" : name();
        thread.seconds = 0.25 + fraction(0.01);
        thread.parts = {fraction(0.1), fraction(0.1), fraction(0.1), fraction(0.1), fraction(0.1), fraction(0.1)};
        thread.waitedBefore = fraction(0.1);
        thread.turns = count();
        thread.blockedAtOnce = fraction(0.1);
        thread.sleeps = countOrUnknown();
        return thread;
    }

    std::mt19937 random_;
    double to_ = 0;
    int processors_ = 2;
    std::vector<ProgramTime> others_;
    std::vector<std::string> missing_;
};
