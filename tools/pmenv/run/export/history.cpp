#include "export/history.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <utility>

#include "exposition.h"
#include "failure.h"
#include "judgement/heldBack.h"
#include "text.h"

namespace {

// --- which metrics --------------------------------------------------------------------------------------------------

enum class Kind { Gauge, Counter };

// A value of evidence and what it is called. Rows of one metric stand together and differ in their label.
template <class Source>
struct Row {
    const char* metric;
    Kind kind;
    const char* help;
    const char* label;
    std::optional<double> (*valueOf)(const Source& source, double tolerance);
};

template <class Number>
std::optional<double> number(const std::optional<Number>& value) {
    return value ? std::optional(static_cast<double>(*value)) : std::nullopt;
}

// What a thread did, of the one with the least slack.
template <double Parts::*part>
std::optional<double> partOf(const EngineEvidence& engine, double) {
    return engine.busiest ? std::optional(engine.busiest->parts.*part) : std::nullopt;
}

std::optional<double> heldBackOf(const EngineEvidence& engine, double tolerance) {
    return engine.readable ? std::optional(heldBackIn(engine, tolerance).seconds) : std::nullopt;
}

constexpr char kThreadHelp[] = "What the engine's thread with the least slack did.";
constexpr Row<EngineEvidence> kEngineRows[] = {
    {"pmenv_engine_cpu_seconds", Kind::Counter, "Processor time of the engine.", "",
     [](const EngineEvidence& engine, double) { return std::optional(engine.ran); }},
    {"pmenv_engine_held_back_seconds", Kind::Counter, "Time in which the engine was held back.", "", heldBackOf},
    {"pmenv_engine_thread_seconds", Kind::Counter, kThreadHelp, "state=\"running\"", partOf<&Parts::running>},
    {"pmenv_engine_thread_seconds", Kind::Counter, kThreadHelp, "state=\"waiting\"", partOf<&Parts::waiting>},
    {"pmenv_engine_thread_seconds", Kind::Counter, kThreadHelp, "state=\"throttled\"", partOf<&Parts::throttled>},
    {"pmenv_engine_thread_seconds", Kind::Counter, kThreadHelp, "state=\"stolen\"", partOf<&Parts::stolen>},
    {"pmenv_engine_thread_seconds", Kind::Counter, kThreadHelp, "state=\"blocked\"", partOf<&Parts::blocked>},
    {"pmenv_engine_thread_seconds", Kind::Counter, kThreadHelp, "state=\"stopped\"", partOf<&Parts::stopped>},
    {"pmenv_engine_group_throttled_seconds", Kind::Counter, "Time in which the quota of its control group was used up.", "",
     [](const EngineEvidence& engine, double) { return engine.group.throttled; }},
    {"pmenv_engine_group_memory_ratio", Kind::Gauge, "Memory that its control group uses of what it may use.", "",
     [](const EngineEvidence& engine, double) { return engine.group.memoryShare; }},
    {"pmenv_engine_major_faults", Kind::Counter, "Pages that had to be read from a disk.", "",
     [](const EngineEvidence& engine, double) { return number(engine.majorFaults); }},
    {"pmenv_engine_descriptors_ratio", Kind::Gauge, "Open descriptors of those that it may have.", "",
     [](const EngineEvidence& engine, double) { return engine.descriptorShare; }},
    {"pmenv_engine_ports_ratio", Kind::Gauge, "Local ports in use of those that there are.", "",
     [](const EngineEvidence& engine, double) { return engine.portShare; }},
};

constexpr char kCpuHelp[] = "Processor time of the machine.";
constexpr char kPressureHelp[] = "Time in which some thread had to wait for the resource.";
constexpr Row<Evidence> kMachineRows[] = {
    {"pmenv_engines", Kind::Gauge, "Load engines that run.", "",
     [](const Evidence& evidence, double) { return std::optional(static_cast<double>(evidence.engines.size())); }},
    {"pmenv_machine_processors", Kind::Gauge, "Processors that are online.", "",
     [](const Evidence& evidence, double) { return std::optional<double>(evidence.machine.processors); }},
    {"pmenv_machine_cpu_seconds", Kind::Counter, kCpuHelp, "mode=\"busy\"",
     [](const Evidence& evidence, double) { return evidence.machine.busy; }},
    {"pmenv_machine_cpu_seconds", Kind::Counter, kCpuHelp, "mode=\"idle\"",
     [](const Evidence& evidence, double) { return evidence.machine.idle; }},
    {"pmenv_machine_cpu_seconds", Kind::Counter, kCpuHelp, "mode=\"steal\"",
     [](const Evidence& evidence, double) { return evidence.machine.stolen; }},
    {"pmenv_machine_memory_available_ratio", Kind::Gauge, "Share of the memory that programs can still get.", "",
     [](const Evidence& evidence, double) { return evidence.machine.memoryAvailableShare; }},
    {"pmenv_machine_swap_used_bytes", Kind::Gauge, "Swap space in use.", "",
     [](const Evidence& evidence, double) { return number(evidence.machine.swapUsedBytes); }},
    {"pmenv_machine_dropped_packets", Kind::Counter, "Packets that the network devices dropped.", "",
     [](const Evidence& evidence, double) { return number(evidence.machine.droppedPackets); }},
    {"pmenv_machine_segments_sent", Kind::Counter, "TCP segments sent.", "",
     [](const Evidence& evidence, double) { return number(evidence.machine.segmentsSent); }},
    {"pmenv_machine_segments_sent_again", Kind::Counter, "TCP segments sent again.", "",
     [](const Evidence& evidence, double) { return number(evidence.machine.segmentsSentAgain); }},
    {"pmenv_machine_pressure_seconds", Kind::Counter, kPressureHelp, "resource=\"cpu\"",
     [](const Evidence& evidence, double) { return evidence.machine.cpuPressure; }},
    {"pmenv_machine_pressure_seconds", Kind::Counter, kPressureHelp, "resource=\"io\"",
     [](const Evidence& evidence, double) { return evidence.machine.ioPressure; }},
    {"pmenv_machine_pressure_seconds", Kind::Counter, kPressureHelp, "resource=\"memory\"",
     [](const Evidence& evidence, double) { return evidence.machine.memoryPressure; }},
    {"pmenv_watch_wakes", Kind::Counter, "How often pmenv's own timer woke it.", "",
     [](const Evidence& evidence, double) { return std::optional(static_cast<double>(evidence.wakes.wakes)); }},
    {"pmenv_watch_late_wakes", Kind::Counter, "How often it did so later than the tolerance.", "",
     [](const Evidence& evidence, double) { return std::optional(static_cast<double>(evidence.wakes.late)); }},
};

template <class Source, std::size_t count>
void take(const Row<Source> (&rows)[count], const Source& source, double tolerance,
          std::vector<std::optional<double>>& values) {
    values.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::optional<double> value = rows[i].valueOf(source, tolerance);
        if (rows[i].kind == Kind::Gauge) {
            values[i] = value;
        } else if (value) {
            values[i] = values[i].value_or(0) + *value;
        }
    }
}

}  // namespace

// --- the samples of one metric --------------------------------------------------------------------------------------

class History::Family {
public:
    Family(const char* metric, Kind kind, const char* help) : name_(metric), file_(std::tmpfile()) {
        if (file_ == nullptr) throw failure();
        header_ = "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + (kind == Kind::Gauge ? " gauge\n" : " counter\n");
        if (kind == Kind::Counter) name_ += "_total";
    }
    ~Family() {
        if (file_ != nullptr) std::fclose(file_);
    }
    Family(const Family&) = delete;
    Family& operator=(const Family&) = delete;

    void add(const std::string& labels, const char* label, double value, double time) {
        const char* const comma = *label != '\0' ? "," : "";
        const int length = std::fprintf(file_, "%s{%s%s%s} %.15g %.3f\n", name_.c_str(), labels.c_str(), comma, label, value, time);
        if (length < 0) throw failure();
    }

    void print(std::ostream& out) {
        if (std::fflush(file_) != 0) throw failure();
        std::rewind(file_);
        char piece[65536];
        for (std::size_t count = 0; (count = std::fread(piece, 1, sizeof piece, file_)) > 0;) {
            out << std::exchange(header_, "");  // a metric without a known value does not appear
            out.write(piece, static_cast<std::streamsize>(count));
        }
        if (std::ferror(file_) != 0) throw failure();
    }

private:
    static Failure failure() {
        return Failure(std::string("cannot gather the samples in a temporary file: ") + std::strerror(errno));
    }

    std::string name_;
    std::string header_;
    std::FILE* file_;
};

// --- samples --------------------------------------------------------------------------------------------------------

namespace {

// The families of a table's metrics, one for each row.
template <class Source, std::size_t count>
std::vector<std::shared_ptr<History::Family>> familiesOf(const Row<Source> (&rows)[count]) {
    std::vector<std::shared_ptr<History::Family>> families;
    for (std::size_t i = 0; i < count; ++i) {
        const bool another = i == 0 || std::strcmp(rows[i - 1].metric, rows[i].metric) != 0;
        families.push_back(another ? std::make_shared<History::Family>(rows[i].metric, rows[i].kind, rows[i].help)
                                   : families.back());
    }
    return families;
}

template <class Source, std::size_t count>
void addSample(const Row<Source> (&rows)[count], const std::vector<std::shared_ptr<History::Family>>& families,
               const std::string& labels, const std::vector<std::optional<double>>& values, double time) {
    for (std::size_t i = 0; i < count; ++i) {
        if (values[i]) families[i]->add(labels, rows[i].label, *values[i], time);
    }
}

void printEach(const std::vector<std::shared_ptr<History::Family>>& families, std::ostream& out) {
    for (std::size_t i = 0; i < families.size(); ++i) {
        if (i == 0 || families[i] != families[i - 1]) families[i]->print(out);
    }
}

}  // namespace

History::History(const RecordingHeader& header, double interval)
    : start_(std::chrono::duration<double>(header.start.time_since_epoch()).count()),
      interval_(interval),
      tolerance_(header.limits.tolerance),
      machineFamilies_(familiesOf(kMachineRows)),
      engineFamilies_(familiesOf(kEngineRows)) {
    machine_.labels = label("host", printable(header.host));
}

void History::add(const Evidence& evidence) {
    take(kMachineRows, evidence, tolerance_, machine_.values);
    for (const EngineEvidence& engine : evidence.engines) {
        Series& series = engines_[engine.key];
        series.labels = machine_.labels + "," + label("name", printable(engine.name)) + "," +
                        label("pid", std::to_string(engine.key.pid));
        take(kEngineRows, engine, tolerance_, series.values);
        series.time = evidence.to;
    }
    machine_.time = evidence.to;
    if (!sampled_ || evidence.to - *sampled_ >= interval_) addSamples();
}

// An engine that was not seen since the last sample has ended and gets no more.
void History::addSamples() {
    const double time = start_ + machine_.time;
    addSample(kMachineRows, machineFamilies_, machine_.labels, machine_.values, time);
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        const Series& series = entry->second;
        if (sampled_ && series.time <= *sampled_) {
            entry = engines_.erase(entry);
            continue;
        }
        addSample(kEngineRows, engineFamilies_, series.labels, series.values, time);
        ++entry;
    }
    sampled_ = machine_.time;
}

void History::print(std::ostream& out) {
    if (sampled_ && machine_.time > *sampled_) addSamples();
    printEach(machineFamilies_, out);
    printEach(engineFamilies_, out);
    out << "# EOF\n";
}
