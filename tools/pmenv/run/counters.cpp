#include "counters.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>

#include <sys/wait.h>

#include "exposition.h"

namespace {

// --- counting -------------------------------------------------------------------------------------------------------

// What an interval told is added to what was counted before it; a state takes the place of the one before. A counter never
// goes back, whatever an interval tells.
template <class Source>
void countUp(const MetricTable<Source>& table, const Values& told, Values* counted) {
    counted->resize(table.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        std::optional<double>& value = (*counted)[i];
        if (!isCounter(table[i].kind)) {
            value = told[i];
        } else if (told[i]) {
            value = value.value_or(0) + std::max(0.0, *told[i]);
        }
    }
}

// What an interval told of one more engine of a name. Shares are no sum either.
void putTogether(const Values& told, Values* all) {
    const MetricTable<EngineEvidence> table = engineMetrics();
    all->resize(table.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        std::optional<double>& value = (*all)[i];
        if (!told[i]) continue;
        const double before = value.value_or(0);
        value = table[i].kind == MetricKind::Counter ? before + *told[i] : std::max(before, *told[i]);
    }
}

// --- text -----------------------------------------------------------------------------------------------------------

template <class Source>
MetricNow metricNow(const EvidenceMetric<Source>& metric, const std::string& name, const std::string& help) {
    return isCounter(metric.kind) ? MetricNow(name + "_total", "counter", help) : MetricNow(name, "gauge", help);
}

// "pmenv_engine_cpu_seconds" -> "pmenv_engines_cpu_seconds"
std::string nameForAll(const std::string& name) {
    constexpr std::string_view kOfOne = "pmenv_engine";
    return "pmenv_engines" + name.substr(kOfOne.size());
}

std::string helpForAll(const EvidenceMetric<EngineEvidence>& metric) {
    const std::string help = metric.help;
    if (metric.kind == MetricKind::Counter) return help + " All engines of a name together.";
    return help + (isCounter(metric.kind) ? " In each interval the most of any engine of a name."
                                          : " The most of any engine of a name.");
}

// What was counted of one engine, or of all engines of a name.
struct EngineSeries {
    std::string labels;
    const Values& values;
    bool runs;

    // Counters stay as they were when an engine has ended; a state has ended with it.
    std::optional<double> value(std::size_t i) const {
        if (i >= values.size()) return std::nullopt;
        return runs || isCounter(engineMetrics()[i].kind) ? values[i] : std::nullopt;
    }
};

std::string engineMetricsText(const std::vector<EngineSeries>& all, bool byName) {
    std::string text;
    const MetricTable<EngineEvidence> table = engineMetrics();
    table.eachMetric([&](std::size_t begin, std::size_t end) {
        const auto& first = table[begin];
        MetricNow metric = byName ? metricNow(first, nameForAll(first.name), helpForAll(first))
                                  : metricNow(first, first.name, first.help);
        for (const EngineSeries& series : all) {
            for (std::size_t i = begin; i < end; ++i) {
                metric.add(joinedLabels(series.labels, table[i].label), series.value(i));
            }
        }
        text += metric.text();
    });
    return text;
}

std::string infoText(const Figures& sample) {
    return MetricNow("pmenv_build_info", "gauge", "The version of pmenv; always 1.")
               .add(label("version", PMENV_VERSION), 1)
               .text() +
           MetricNow("pmenv_host_info", "gauge", "The machine's name; always 1.")
               .add(label("host", sample.host), 1)
               .text();
}

std::string gaugeText(const char* name, const char* help, std::optional<double> value) {
    return MetricNow(name, "gauge", help).add("", value).text();
}

std::map<ProcessKey, double> residentIn(const Figures& sample) {
    std::map<ProcessKey, double> bytes;
    for (const EngineFigures& engine : sample.engines) {
        if (!engine.residentBytes) continue;
        bytes[{engine.processId, engine.startTicks}] = static_cast<double>(*engine.residentBytes);
    }
    return bytes;
}

}  // namespace

// --- counting -------------------------------------------------------------------------------------------------------

Counters::Counters(const std::vector<std::string>& names, double tolerance)
    : tolerance_(tolerance), wanted_(names.begin(), names.end()) {
    for (const std::string& name : names) names_.try_emplace(name);
}

void Counters::add(const Evidence& evidence) {
    const Yardstick yardstick = yardstickOf(evidence, tolerance_);
    countUp(machineMetrics(), machineMetrics().valuesIn(evidence, yardstick), &machine_);
    countUp(watchMetrics(), watchMetrics().valuesIn(evidence, yardstick), &watch_);
    addEngines(evidence, yardstick);
    addEnds(evidence);
    forgetEnded(evidence.to);
    forgetNames();
}

// A process that gets the id of one that has ended continues its series if it has its name too: they have the same labels.
void Counters::addEngines(const Evidence& evidence, const Yardstick& yardstick) {
    for (auto& [labels, engine] : engines_) engine.runs = false;
    for (auto& [text, name] : names_) name.running = 0;
    std::map<std::string, Values> together;
    for (const EngineEnd& end : evidence.ends) {
        const auto known = engines_.find({end.name, end.key.pid});
        if (known == engines_.end() || !(known->second.key == end.key)) continue;
        const Values told = engineMetrics().valuesIn(lastEvidenceOf(end), yardstick);
        countUp(engineMetrics(), told, &known->second.values);
        putTogether(told, &together[end.name]);
    }
    for (const EngineEvidence& engine : evidence.engines) {
        if (engine.standIn) continue;  // no load engine itself
        const Values told = engineMetrics().valuesIn(engine, yardstick);
        Engine& known = engines_[{engine.name, engine.key.pid}];
        known.key = engine.key;
        known.seen = evidence.to;
        known.runs = true;
        countUp(engineMetrics(), told, &known.values);
        putTogether(told, &together[engine.name]);
        ++names_[engine.name].running;
    }
    for (const auto& [text, told] : together) countUp(engineMetrics(), told, &names_[text].values);
}

void Counters::addEnds(const Evidence& evidence) {
    for (const EngineEnd& end : evidence.ends) {
        if (end.descendant) continue;  // these come and go
        Name& name = names_[end.name];
        ++name.ended;
        if (end.status && WIFSIGNALED(*end.status)) ++name.killed;
    }
}

void Counters::forgetEnded(double now) {
    std::vector<Engines::iterator> ended;
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        const Engine& engine = entry->second;
        if (!engine.runs && now - engine.seen > kEndedStays) {
            entry = engines_.erase(entry);
            continue;
        }
        if (!engine.runs) ended.push_back(entry);
        ++entry;
    }
    if (ended.size() > kMostEnded) forgetMostEnded(std::move(ended));
}

void Counters::forgetMostEnded(std::vector<Engines::iterator> ended) {
    std::stable_sort(ended.begin(), ended.end(),
                     [](const auto& left, const auto& right) { return left->second.seen < right->second.seen; });
    ended.resize(ended.size() - kMostEnded);
    for (const auto& entry : ended) engines_.erase(entry);
}

// A name that nobody asked for goes with its last engine.
void Counters::forgetNames() {
    for (auto entry = names_.begin(); entry != names_.end();) {
        const auto engine = engines_.lower_bound({entry->first, std::numeric_limits<int>::min()});
        const bool isUsed = engine != engines_.end() && engine->first.first == entry->first;
        entry = isUsed || wanted_.count(entry->first) != 0 ? std::next(entry) : names_.erase(entry);
    }
}

// --- text -----------------------------------------------------------------------------------------------------------

std::string Counters::text(const Figures& sample, const ExpositionParts& parts) const {
    const Memory memory = residentIn(sample);
    return infoText(sample) + watchText() + (parts.machine ? machineText(sample) : "") +
           namesText(memory, parts.expected) + (parts.perProcess ? enginesText(memory) : "") + "# EOF\n";
}

std::string Counters::watchText() const {
    std::string text;
    watchMetrics().eachMetric([&](std::size_t i, std::size_t) {
        const auto& row = watchMetrics()[i];
        text += metricNow(row, row.name, row.help).add(row.label, i < watch_.size() ? watch_[i] : std::nullopt).text();
    });
    return text;
}

// The evidence has the memory of some intervals only, the sample that of now.
std::string Counters::machineText(const Figures& sample) const {
    const auto known = [](std::optional<std::uint64_t> bytes) {
        return bytes ? std::optional(static_cast<double>(*bytes)) : std::nullopt;
    };
    std::string text = gaugeText("pmenv_machine_processors", "Processors that are online.", sample.processors) +
                       gaugeText("pmenv_machine_memory_bytes", "Physical memory.", known(sample.memoryBytes)) +
                       gaugeText("pmenv_machine_memory_free_bytes", "Memory that nothing uses, caches not counted.",
                                 known(sample.freeBytes)) +
                       gaugeText("pmenv_machine_memory_available_bytes", "Memory that programs can still get.",
                                 known(sample.availableBytes)) +
                       gaugeText("pmenv_machine_swap_bytes", "Swap space.", known(sample.swapBytes)) +
                       gaugeText("pmenv_machine_swap_used_bytes", "Swap space in use.", known(sample.swapUsedBytes));
    const MetricTable<Evidence> table = machineMetrics();
    table.eachMetric([&](std::size_t begin, std::size_t end) {
        MetricNow metric = metricNow(table[begin], table[begin].name, table[begin].help);
        for (std::size_t i = begin; i < end; ++i) {
            if (isCounter(table[i].kind) && i < machine_.size()) metric.add(table[i].label, machine_[i]);
        }
        text += metric.text();
    });
    return text;
}

std::string Counters::namesText(const Memory& memory, std::optional<std::size_t> expected) const {
    MetricNow running("pmenv_engines", "gauge", "Load engines that run.");
    const auto asDouble = [](std::size_t number) { return static_cast<double>(number); };
    std::vector<EngineSeries> series;
    for (const auto& [text, name] : names_) {
        running.add(label("name", text), asDouble(name.running));
        series.push_back({label("name", text), name.values, name.running > 0});
    }
    const std::string expectedText = gaugeText("pmenv_engines_expected", "Load engines that are to run.",
                                               expected ? std::optional(asDouble(*expected)) : std::nullopt);
    return running.text() + expectedText + namesEndedText() + engineMetricsText(series, true) + namesMemoryText(memory);
}

std::string Counters::namesEndedText() const {
    MetricNow ended("pmenv_engines_ended_total", "counter", "Load engines that have ended.");
    MetricNow killed("pmenv_engines_killed_total", "counter", "Load engines that a signal has ended.");
    for (const auto& [text, name] : names_) {
        ended.add(label("name", text), static_cast<double>(name.ended));
        killed.add(label("name", text), static_cast<double>(name.killed));
    }
    return ended.text() + killed.text();
}

std::string Counters::namesMemoryText(const Memory& memory) const {
    std::map<std::string, std::pair<double, double>> sumAndMost;  // by name
    for (const auto& [id, engine] : engines_) {
        const auto found = memory.find(engine.key);
        if (!engine.runs || found == memory.end()) continue;
        auto& [sum, most] = sumAndMost[id.first];
        sum += found->second;
        most = std::max(most, found->second);
    }
    MetricNow sum("pmenv_engines_memory_bytes", "gauge", "Resident memory of all engines of a name.");
    MetricNow most("pmenv_engines_memory_max_bytes", "gauge", "Resident memory of the largest engine of a name.");
    for (const auto& [name, bytes] : sumAndMost) {
        sum.add(label("name", name), bytes.first);
        most.add(label("name", name), bytes.second);
    }
    return sum.text() + most.text();
}

std::string Counters::enginesText(const Memory& memory) const {
    MetricNow resident("pmenv_engine_memory_bytes", "gauge", "Resident memory of the engine.");
    std::vector<EngineSeries> series;
    for (const auto& [id, engine] : engines_) {
        const std::string labels = label("name", id.first) + "," + label("pid", std::to_string(id.second));
        series.push_back({labels, engine.values, engine.runs});
        const auto found = memory.find(engine.key);
        if (engine.runs && found != memory.end()) resident.add(labels, found->second);
    }
    return engineMetricsText(series, false) + resident.text();
}
