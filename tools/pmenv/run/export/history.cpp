#include "export/history.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <ostream>
#include <vector>

#include "exposition.h"
#include "judgement/findings.h"
#include "judgement/heldBack.h"

namespace {

// --- which metrics --------------------------------------------------------------------------------------------------

enum class Kind { Gauge, Counter };

// A series: a figure of the evidence and what it is called. Series of one metric stand together and differ in their label.
template <class Source>
struct Figure {
    const char* metric;
    Kind kind;
    const char* help;
    const char* label;
    std::optional<double> (*in)(const Source& source, const Yardstick& yardstick);
};

template <class Number>
std::optional<double> number(const std::optional<Number>& value) {
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
std::optional<double> heldBack(const EngineEvidence& engine, const Yardstick& yardstick) {
    const double seconds = heldBackIn(engine, yardstick).seconds;
    return seconds > 0 || (engine.readable && engine.busiest) ? std::optional(seconds) : std::nullopt;
}

constexpr char kBusiestHelp[] = "What the thread of the engine did that had the least time to spare.";
constexpr Figure<EngineEvidence> kEngineFigures[] = {
    {"pmenv_engine_cpu_seconds", Kind::Counter, "Processor time of the engine.", "",
     ofThreads<double, &EngineEvidence::ran>},
    {"pmenv_engine_held_back_seconds", Kind::Counter, "Time in which the engine was held back.", "", heldBack},
    {"pmenv_engine_waiting_seconds", Kind::Counter,
     "Time in which threads of the engine were ready and waited for a processor.", "",
     ofThreads<double, &EngineEvidence::waited>},
    {"pmenv_engine_turns", Kind::Counter, "How often threads of the engine were put on a processor.", "",
     ofThreads<std::uint64_t, &EngineEvidence::turns>},
    {"pmenv_engine_late_turns", Kind::Counter, "How many of these turns came later than the tolerance.", "",
     ofThreads<double, &EngineEvidence::lateTurns>},
    {"pmenv_engine_busiest_thread_seconds", Kind::Counter, kBusiestHelp, "state=\"running\"",
     ofBusiest<&Parts::running>},
    {"pmenv_engine_busiest_thread_seconds", Kind::Counter, kBusiestHelp, "state=\"waiting\"",
     ofBusiest<&Parts::waiting>},
    {"pmenv_engine_busiest_thread_seconds", Kind::Counter, kBusiestHelp, "state=\"throttled\"",
     ofBusiest<&Parts::throttled>},
    {"pmenv_engine_busiest_thread_seconds", Kind::Counter, kBusiestHelp, "state=\"stolen\"", ofBusiest<&Parts::stolen>},
    {"pmenv_engine_busiest_thread_seconds", Kind::Counter, kBusiestHelp, "state=\"blocked\"",
     ofBusiest<&Parts::blocked>},
    {"pmenv_engine_busiest_thread_seconds", Kind::Counter, kBusiestHelp, "state=\"stopped\"",
     ofBusiest<&Parts::stopped>},
    {"pmenv_engine_group_throttled_seconds", Kind::Counter,
     "Time of all processors that the quota denied the engine's control group.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return engine.group.throttled; }},
    {"pmenv_engine_group_memory_ratio", Kind::Gauge, "Memory in use of what the engine's control group may use.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return engine.group.memoryShare; }},
    {"pmenv_engine_group_memory_kills", Kind::Counter,
     "Processes of the engine's control group that were killed for memory.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return number(engine.group.memoryKills); }},
    {"pmenv_engine_major_faults", Kind::Counter, "Pages that had to be read from a disk for the engine.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return number(engine.majorFaults); }},
    {"pmenv_engine_descriptors_ratio", Kind::Gauge, "Open descriptors of how many the engine may have.", "",
     [](const EngineEvidence& engine, const Yardstick&) { return engine.descriptorShare; }},
    {"pmenv_engine_ports_ratio", Kind::Gauge, "Local ports in use of how many there are.", "",
     [](const EngineEvidence& engine, const Yardstick&) {
         return engine.portsAtMost ? std::nullopt : engine.portShare;
     }},
};

constexpr char kCpuHelp[] = "Processor time of all processors together.";
constexpr char kPressureHelp[] = "Time in which some thread waited for the resource.";
constexpr Figure<Evidence> kMachineFigures[] = {
    {"pmenv_machine_processors", Kind::Gauge, "Processors that are online.", "",
     [](const Evidence& evidence, const Yardstick&) { return std::optional<double>(evidence.machine.processors); }},
    {"pmenv_machine_cpu_seconds", Kind::Counter, kCpuHelp, "mode=\"busy\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.busy; }},
    {"pmenv_machine_cpu_seconds", Kind::Counter, kCpuHelp, "mode=\"idle\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.idle; }},
    {"pmenv_machine_cpu_seconds", Kind::Counter, kCpuHelp, "mode=\"steal\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.stolen; }},
    {"pmenv_machine_memory_available_ratio", Kind::Gauge, "Share of the memory that programs can still get.", "",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.memoryAvailableShare; }},
    {"pmenv_machine_swap_used_bytes", Kind::Gauge, "Swap space in use.", "",
     [](const Evidence& evidence, const Yardstick&) { return number(evidence.machine.swapUsedBytes); }},
    {"pmenv_machine_dropped_packets", Kind::Counter, "Packets that arrived and were dropped.", "",
     [](const Evidence& evidence, const Yardstick&) { return number(evidence.machine.droppedPackets); }},
    {"pmenv_machine_tcp_segments_sent", Kind::Counter, "TCP segments sent.", "",
     [](const Evidence& evidence, const Yardstick&) { return number(evidence.machine.segmentsSent); }},
    {"pmenv_machine_tcp_segments_sent_again", Kind::Counter, "TCP segments sent again.", "",
     [](const Evidence& evidence, const Yardstick&) { return number(evidence.machine.segmentsSentAgain); }},
    {"pmenv_machine_pressure_seconds", Kind::Counter, kPressureHelp, "resource=\"cpu\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.cpuPressure; }},
    {"pmenv_machine_pressure_seconds", Kind::Counter, kPressureHelp, "resource=\"io\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.ioPressure; }},
    {"pmenv_machine_pressure_seconds", Kind::Counter, kPressureHelp, "resource=\"memory\"",
     [](const Evidence& evidence, const Yardstick&) { return evidence.machine.memoryPressure; }},
    {"pmenv_watch_wakes", Kind::Counter, "How often the timer of the watch woke it.", "",
     [](const Evidence& evidence, const Yardstick&) {
         return std::optional(static_cast<double>(evidence.wakes.wakes));
     }},
    {"pmenv_watch_late_wakes", Kind::Counter, "How often it did so later than the tolerance.", "",
     [](const Evidence& evidence, const Yardstick&) {
         return std::optional(static_cast<double>(evidence.wakes.late));
     }},
};

template <class Source, std::size_t count>
Values valuesIn(const Figure<Source> (&figures)[count], const Source& source, const Yardstick& yardstick) {
    Values values;
    for (const Figure<Source>& figure : figures) values.push_back(figure.in(source, yardstick));
    return values;
}

template <class Source, std::size_t count>
Samples samplesOf(const Figure<Source> (&figures)[count]) {
    std::vector<bool> isCounted;
    for (const Figure<Source>& figure : figures) isCounted.push_back(figure.kind == Kind::Counter);
    return Samples(std::move(isCounted));
}

// --- printing -------------------------------------------------------------------------------------------------------

// Fractions are millionths in a recording; a sum of them has no more digits that count.
void printSample(std::ostream& out, const std::string& series, double value, std::int64_t time) {
    char text[64];
    const int length = std::snprintf(text, sizeof text, " %.15g %lld.%03d\n", value,
                                     static_cast<long long>(time / 1000), static_cast<int>(time % 1000));
    out.write(series.data(), static_cast<std::streamsize>(series.size())).write(text, length);
}

// Prints the heading before the first sample: a metric without samples does not appear.
class Metric {
public:
    Metric(std::ostream& out, const std::string& name, Kind kind, const char* help)
        : out_(out),
          name_(kind == Kind::Counter ? name + "_total" : name),
          heading_(metricHeading(name, kind == Kind::Counter ? "counter" : "gauge", help)) {}

    void print(const std::string& labels, double value, std::int64_t time) {
        printSample(head(), name_ + "{" + labels + "}", value, time);
    }

    void print(const std::string& labels, const Samples& samples, std::size_t figure) {
        const std::string series = name_ + "{" + labels + "}";
        for (std::size_t moment = 0; moment < samples.size(); ++moment) {
            const auto value = samples.value(moment, figure);
            if (value) printSample(head(), series, *value, samples.time(moment));
        }
    }

private:
    std::ostream& head() {
        out_ << heading_;
        heading_.clear();
        return out_;
    }

    std::ostream& out_;
    std::string name_;
    std::string heading_;
};

std::string joined(const std::string& labels, const std::string& more) {
    return more.empty() ? labels : labels + "," + more;
}

// `printFigure(metric, i, label)` prints the series of figure `i`.
template <class Source, std::size_t count, class PrintFigure>
void printMetrics(const Figure<Source> (&figures)[count], std::ostream& out, PrintFigure printFigure) {
    for (std::size_t i = 0; i < count;) {
        const Figure<Source>& first = figures[i];
        Metric metric(out, first.metric, first.kind, first.help);
        for (; i < count && std::strcmp(figures[i].metric, first.metric) == 0; ++i) {
            printFigure(metric, i, figures[i].label);
        }
    }
}

}  // namespace

History::History(const RecordingHeader& header)
    : header_(header), host_(label("host", header.host)), machine_(samplesOf(kMachineFigures)) {}

void History::add(const Evidence& evidence) {
    end_ = evidence.to;
    const std::int64_t time = milliseconds(evidence.to);
    const Yardstick yardstick = yardstickOf(evidence, header_.limits.tolerance);
    machine_.add(time, valuesIn(kMachineFigures, evidence, yardstick));
    const bool standInsOnly = std::all_of(evidence.engines.begin(), evidence.engines.end(),
                                          [](const EngineEvidence& engine) { return engine.standIn; });
    if (!engineSeen_ && !standInsOnly) forgetStandIns();
    for (const EngineEvidence& engine : evidence.engines) {
        if (!engineSeen_ || !engine.standIn) addEngine(engine, yardstick, time);
    }
}

// As in the verdict, what stands in for engines does not count where an engine is seen.
void History::forgetStandIns() {
    engineSeen_ = true;
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        entry = entry->second.standIn ? engines_.erase(entry) : std::next(entry);
    }
}

// An engine whose name changes, as that of a program that starts another one in its place, begins another series.
void History::addEngine(const EngineEvidence& engine, const Yardstick& yardstick, std::int64_t time) {
    const std::string labels =
        host_ + "," + label("name", engine.name) + "," + label("pid", std::to_string(engine.key.pid));
    Engine& known = engines_.try_emplace(labels, Engine{engine.standIn, samplesOf(kEngineFigures)}).first->second;
    known.standIn = engine.standIn;
    known.samples.add(time, valuesIn(kEngineFigures, engine, yardstick));
}

void History::add(const Mark& mark) { marks_.emplace(label("text", mark.text), milliseconds(mark.time)); }
void History::add(const RecordedOutcome& outcome) { outcome_ = outcome; }

std::int64_t History::milliseconds(double seconds) const {
    using std::chrono::duration_cast;
    const auto start = duration_cast<std::chrono::microseconds>(header_.start.time_since_epoch());
    return (start.count() + std::llround(1e6 * seconds)) / 1000;
}

void History::print(std::ostream& out) {
    machine_.finish();
    for (auto& [labels, engine] : engines_) engine.samples.finish();
    printMetrics(kMachineFigures, out, [this](Metric& metric, std::size_t figure, const char* more) {
        metric.print(joined(host_, more), machine_, figure);
    });
    printMetrics(kEngineFigures, out, [this](Metric& metric, std::size_t figure, const char* more) {
        for (const auto& [labels, engine] : engines_) metric.print(joined(labels, more), engine.samples, figure);
    });
    printMarks(out);
    printOutcome(out);
    out << "# EOF\n";
}

void History::printMarks(std::ostream& out) const {
    Metric metric(out, "pmenv_mark", Kind::Gauge, "A mark, at the moment at which it was set; always 1.");
    for (const auto& [text, time] : marks_) metric.print(joined(host_, text), 1, time);
}

// All three verdicts appear, so that a query can ask for each of them.
void History::printOutcome(std::ostream& out) const {
    if (!outcome_) return;
    const std::int64_t time = milliseconds(end_);
    Metric verdict(out, "pmenv_run_verdict", Kind::Gauge,
                   "The verdict when the watch ended: 1 for the one that it was.");
    for (const Outcome each : {Outcome::CannotTell, Outcome::Clean, Outcome::Spoiled}) {
        verdict.print(joined(host_, label("verdict", outcomeText(each))), each == outcome_->outcome ? 1 : 0, time);
    }
    Metric believed(out, "pmenv_run_believed_quantile", Kind::Gauge, "Quantiles up to this one can be believed.");
    if (outcome_->believed) believed.print(host_, *outcome_->believed / 100, time);
}
