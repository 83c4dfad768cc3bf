// history.h - a recording as metrics over time, in the form that metrics collectors take in afterwards.
#pragma once

#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recording/recording.h"

/// Turns evidence into an OpenMetrics text with timestamps. The text holds one metric after the other and the evidence comes
/// interval by interval, so each metric's samples gather in a temporary file; memory does not grow with the recording.
class History {
public:
    /// With a sample for each engine and metric at most every `interval` seconds. What is counted in between is not lost.
    History(const RecordingHeader& header, double interval);

    void add(const Evidence& evidence);

    /// Prints all of it. Throws Failure when the temporary files could not be written.
    void print(std::ostream& out);

    /// The samples of one metric.
    class Family;

private:
    // What was counted or measured last of an engine or the machine: a value for each row of its table.
    struct Series {
        std::string labels;
        std::vector<std::optional<double>> values;
        double time = 0;  // on the clock of the watch
    };

    void addSamples();

    double start_;  // seconds since 1970
    double interval_;
    double tolerance_;
    std::vector<std::shared_ptr<Family>> machineFamilies_;  // for each row; rows of one metric share theirs
    std::vector<std::shared_ptr<Family>> engineFamilies_;
    Series machine_;
    std::map<ProcessKey, Series> engines_;
    std::optional<double> sampled_;  // when the last sample was added
};
