// runWatch.h - watches the engines while a command waits for something, and judges what it saw.
#pragma once

#include <string>
#include <vector>

#include "evidenceWatch.h"
#include "judgement/judgement.h"
#include "recording/recording.h"

class RunWatch {
public:
    /// Begins the watch. A recording gets every interval.
    RunWatch(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits,
             RecordingWriter* recording = nullptr);

    /// See EvidenceWatch.
    Events::Event wait(Events& events, double seconds) { return watch_.wait(events, seconds); }
    void finish() { watch_.finish(); }

    Judged judged() const { return judgement_.judged(!missingNames().empty()); }
    std::vector<std::string> missingNames() const { return watch_.missingNames(); }

    /// How many engines ran in the last interval.
    std::size_t engines() const { return engines_; }

private:
    void add(const Evidence& evidence);

    Judgement judgement_;
    RecordingWriter* recording_;
    std::size_t engines_ = 0;
    EvidenceWatch watch_;  // the last member: it begins at once
};
