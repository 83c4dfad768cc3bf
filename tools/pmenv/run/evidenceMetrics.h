// evidenceMetrics.h - what the evidence tells, as metrics: names in base units, meaning and values. Pure.
//
// A recording that is exported and a watch that goes on share these, so that queries are the same for both.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <vector>

#include "evidence/evidence.h"
#include "judgement/heldBack.h"

/// What is known of each metric of a table.
using Values = std::vector<std::optional<double>>;

enum class MetricKind {
    Gauge,         ///< a state
    Counter,       ///< what happened in an interval, to be counted up; the name of its samples ends in _total
    GroupCounter,  ///< the same of the control group, which engines can share, so that theirs are no sum
};
constexpr bool isCounter(MetricKind kind) { return kind != MetricKind::Gauge; }

/// A series: a figure of the evidence and what it is called. Series of one metric stand together and differ in their label.
template <class Source>
struct EvidenceMetric {
    const char* name;
    MetricKind kind;
    const char* help;
    const char* label;
    std::optional<double> (*in)(const Source& source, const Yardstick& yardstick);
};

template <class Source>
class MetricTable {
public:
    template <std::size_t count>
    explicit MetricTable(const EvidenceMetric<Source> (&metrics)[count]) : metrics_(metrics), size_(count) {}

    std::size_t size() const { return size_; }
    const EvidenceMetric<Source>& operator[](std::size_t i) const { return metrics_[i]; }

    /// What an interval tells.
    Values valuesIn(const Source& source, const Yardstick& yardstick) const {
        Values values;
        for (std::size_t i = 0; i < size_; ++i) values.push_back(metrics_[i].in(source, yardstick));
        return values;
    }

    /// Calls `visit` with the first series of each metric and with the one behind its last.
    template <class Visit>
    void eachMetric(Visit visit) const {
        for (std::size_t begin = 0, end = 0; begin < size_; begin = end) {
            while (end < size_ && std::strcmp(metrics_[end].name, metrics_[begin].name) == 0) ++end;
            visit(begin, end);
        }
    }

private:
    const EvidenceMetric<Source>* metrics_;
    std::size_t size_;
};

MetricTable<EngineEvidence> engineMetrics();

/// What is still told of an engine that has ended.
EngineEvidence lastEvidenceOf(const EngineEnd& end);

/// Of the machine. Other exporters have these too.
MetricTable<Evidence> machineMetrics();

/// Of the watch itself.
MetricTable<Evidence> watchMetrics();
