#include "export/history.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <ostream>
#include <vector>

#include "evidenceMetrics.h"
#include "exposition.h"
#include "judgement/findings.h"

namespace {

template <class Source>
Samples samplesOf(const MetricTable<Source>& table) {
    std::vector<bool> isCounted;
    for (std::size_t i = 0; i < table.size(); ++i) isCounted.push_back(isCounter(table[i].kind));
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
    Metric(std::ostream& out, const std::string& name, MetricKind kind, const char* help)
        : out_(out),
          name_(isCounter(kind) ? name + "_total" : name),
          heading_(metricHeading(name, isCounter(kind) ? "counter" : "gauge", help)) {}

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

// `printFigure(metric, i, label)` prints the series of figure `i`.
template <class Source, class PrintFigure>
void printMetrics(const MetricTable<Source>& table, std::ostream& out, PrintFigure printFigure) {
    table.eachMetric([&](std::size_t begin, std::size_t end) {
        Metric metric(out, table[begin].name, table[begin].kind, table[begin].help);
        for (std::size_t i = begin; i < end; ++i) printFigure(metric, i, table[i].label);
    });
}

}  // namespace

History::History(const RecordingHeader& header)
    : header_(header),
      host_(label("host", header.host)),
      machine_(samplesOf(machineMetrics())),
      watch_(samplesOf(watchMetrics())) {}

void History::add(const Evidence& evidence) {
    end_ = evidence.to;
    const std::int64_t time = milliseconds(evidence.to);
    const Yardstick yardstick = yardstickOf(evidence, header_.limits.tolerance);
    machine_.add(time, machineMetrics().valuesIn(evidence, yardstick));
    watch_.add(time, watchMetrics().valuesIn(evidence, yardstick));
    const bool standInsOnly = std::all_of(evidence.engines.begin(), evidence.engines.end(),
                                          [](const EngineEvidence& engine) { return engine.standIn; });
    if (!engineSeen_ && !standInsOnly) forgetStandIns();
    for (const EngineEnd& end : evidence.ends) addEnd(end, yardstick, time);
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
    const std::string labels = labelsOf(engine.name, engine.key.pid);
    Engine& known = engines_.try_emplace(labels, Engine{engine.standIn, samplesOf(engineMetrics())}).first->second;
    known.standIn = engine.standIn;
    known.samples.add(time, engineMetrics().valuesIn(engine, yardstick));
}

void History::addEnd(const EngineEnd& end, const Yardstick& yardstick, std::int64_t time) {
    const auto known = engines_.find(labelsOf(end.name, end.key.pid));
    if (known == engines_.end() || !end.memoryKills) return;
    known->second.samples.add(time, engineMetrics().valuesIn(lastEvidenceOf(end), yardstick));
}

std::string History::labelsOf(const std::string& name, int pid) const {
    return host_ + "," + label("name", name) + "," + label("pid", std::to_string(pid));
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
    watch_.finish();
    for (auto& [labels, engine] : engines_) engine.samples.finish();
    const auto printOf = [this](const Samples& samples) {
        return [this, &samples](Metric& metric, std::size_t figure, const char* more) {
            metric.print(joinedLabels(host_, more), samples, figure);
        };
    };
    printMetrics(machineMetrics(), out, printOf(machine_));
    printMetrics(watchMetrics(), out, printOf(watch_));
    printMetrics(engineMetrics(), out, [this](Metric& metric, std::size_t figure, const char* more) {
        for (const auto& [labels, engine] : engines_) metric.print(joinedLabels(labels, more), engine.samples, figure);
    });
    printMarks(out);
    printOutcome(out);
    out << "# EOF\n";
}

void History::printMarks(std::ostream& out) const {
    Metric metric(out, "pmenv_mark", MetricKind::Gauge, "A mark, at the moment at which it was set; always 1.");
    for (const auto& [text, time] : marks_) metric.print(joinedLabels(host_, text), 1, time);
}

// All three verdicts appear, so that a query can ask for each of them.
void History::printOutcome(std::ostream& out) const {
    if (!outcome_) return;
    const std::int64_t time = milliseconds(end_);
    Metric verdict(out, "pmenv_run_verdict", MetricKind::Gauge,
                   "The verdict when the watch ended: 1 for the one that it was.");
    for (const Outcome each : {Outcome::CannotTell, Outcome::Clean, Outcome::Spoiled}) {
        verdict.print(joinedLabels(host_, label("verdict", outcomeText(each))), each == outcome_->outcome ? 1 : 0,
                      time);
    }
    Metric believed(out, "pmenv_run_believed_quantile", MetricKind::Gauge, "Quantiles up to this one can be believed.");
    if (outcome_->believed) believed.print(host_, *outcome_->believed / 100, time);
}
