// encoder.h - the lines of a recording. Pure: values in, text out.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "recording/fields.h"
#include "recording/recording.h"

/// Lines without their end.
std::string headerLine(const RecordingHeader& header);
std::string markLine(const Mark& mark);
std::string outcomeLine(const RecordedOutcome& outcome);

/// The beginning of every outcome line, and of no other.
constexpr char kOutcomeBegin[] = "{\"outcome\":";

/// Writes the intervals, which follow each other: what changes seldom is written when it does.
class EvidenceEncoder {
public:
    std::string line(const Evidence& evidence);

private:
    struct Engine {
        std::size_t index = 0;
        EngineEvidence last;                                         // as it was written
        std::map<int, std::pair<std::size_t, std::string>> threads;  // by id: index and name
        std::size_t sample = 0;                                      // the last that it was in
    };

    class Members;
    std::string entryOf(const EngineEvidence& engine, const Evidence& sample);
    static void addChanges(const Engine& known, const EngineEvidence& engine, Members& changes);
    static recording::RecordedNumber threadOf(Engine& known, const EngineEvidence& engine, Members& changes);
    std::string enginesOf(const Evidence& sample);
    void addSeldom(const Evidence& sample, Members& members);

    std::map<ProcessKey, Engine> engines_;
    std::size_t nextIndex_ = 0;
    std::size_t samples_ = 0;
    double to_ = 0;
    int processors_ = 0;
    std::string others_ = "[]";  // as they were written
    std::string missing_ = "[]";
};
