// runWatch.h - watches the engines while a command waits for something, and judges what it saw.
#pragma once

#include <string>
#include <vector>

#include "evidenceWatch.h"
#include "judgement/judgement.h"
#include "recording/recording.h"

class RunWatch {
public:
    /// Begins the watch. Every interval goes to the recording, where there is one, and to `receive`.
    RunWatch(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits,
             RecordingWriter* recording, EvidenceWatch::Receiver receive = {});

    /// See EvidenceWatch::wait and EvidenceWatch::finish.
    Events::Event wait(Events& events, double seconds) { return watch_.wait(events, seconds); }
    void catchUp() { watch_.finish(); }

    /// Ends the watch, and the recording with the outcome.
    void finish();

    Judged judged() const { return judgement_.judged(!missingNames().empty()); }
    std::vector<std::string> missingNames() const { return watch_.missingNames(); }

    /// The processor time that the watch used from its beginning to its end.
    double cpuSeconds() const { return cpuSeconds_; }

    /// How many engines ran in the last interval.
    std::size_t engines() const { return engines_; }

private:
    void add(const Evidence& evidence);

    double cpuBefore_;
    double cpuSeconds_ = 0;
    Judgement judgement_;
    RecordingWriter* recording_;
    EvidenceWatch::Receiver receive_;
    std::size_t engines_ = 0;
    EvidenceWatch watch_;  // the last member: it begins at once
};
