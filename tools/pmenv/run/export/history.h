// history.h - a recording as metrics over time, in the form that metrics collectors take in afterwards. Pure.
//
// In that form all samples of a series stand together, and all series of a metric, while a recording tells everything of one
// interval and then of the next. So the figures are gathered first. They are kept once a second: what is counted loses
// nothing by that.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "export/samples.h"
#include "judgement/heldBack.h"
#include "recording/recording.h"

class History {
public:
    explicit History(const RecordingHeader& header);

    void add(const Evidence& evidence);
    void add(const Mark& mark);
    void add(const RecordedOutcome& outcome);

    /// Prints all of it as OpenMetrics, at the end.
    void print(std::ostream& out);

private:
    struct Engine {
        bool standIn;
        Samples samples;
    };

    void addEngine(const EngineEvidence& engine, const Yardstick& yardstick, std::int64_t time);
    void addEnd(const EngineEnd& end, const Yardstick& yardstick, std::int64_t time);
    std::string labelsOf(const std::string& name, int pid) const;
    void forgetStandIns();
    std::int64_t milliseconds(double seconds) const;
    void printMarks(std::ostream& out) const;
    void printOutcome(std::ostream& out) const;

    RecordingHeader header_;
    std::string host_;  // the label
    double end_ = 0;    // of the last interval
    Samples machine_;
    Samples watch_;
    std::map<std::string, Engine> engines_;  // by their labels
    bool engineSeen_ = false;                // that does not stand in for others
    std::set<std::pair<std::string, std::int64_t>> marks_;
    std::optional<RecordedOutcome> outcome_;
};
