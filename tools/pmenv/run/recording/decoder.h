// decoder.h - what the lines of a recording tell. Pure: text in, values out.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "recording/fields.h"
#include "recording/jsonLine.h"
#include "recording/recording.h"

/// Each throws BadLine for a line that is not as it should be.
RecordingHeader decodeHeader(const recording::Value& line);
Mark decodeMark(const recording::Value& line);
RecordedOutcome decodeOutcome(const recording::Value& line);

/// Takes the intervals in their order. Holds the engines of the last one and nothing else.
class EvidenceDecoder {
public:
    explicit EvidenceDecoder(int processors) { evidence_.machine.processors = processors; }

    Evidence decode(const recording::Value& line);

private:
    struct Engine {
        EngineEvidence evidence;
        ThreadEvidence thread;
        std::vector<std::pair<int, std::string>> threads;  // ids and names, by number
        std::size_t sample = 0;                            // the last that it was in
    };

    void takeMachine(const recording::Value& line);
    void takeEngines(const recording::Value& line);
    void takeEnds(const recording::Value& line);
    void takeOthers(const recording::Value& line);
    void takeEngine(const recording::Value& entry);
    Engine& known(std::int64_t index, const recording::Value* changes);
    static void takeChanges(Engine& engine, const recording::Value& changes, std::int64_t end);
    static void takeThread(Engine& engine, const recording::Value& entry, std::size_t numbers);

    Evidence evidence_;                       // of the next interval: at first what is as it was before
    std::map<std::int64_t, Engine> engines_;  // by index
    std::size_t samples_ = 0;
    std::int64_t to_ = 0;
};
