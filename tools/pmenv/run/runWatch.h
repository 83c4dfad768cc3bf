// runWatch.h - watches the engines while a command waits for something, and judges what it saw.
#pragma once

#include <string>
#include <vector>

#include "events.h"
#include "evidence/evidenceSampler.h"
#include "judgement/judgement.h"
#include "recording/recording.h"

class RunWatch {
public:
    /// Begins the watch. A recording gets every interval.
    RunWatch(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits,
             RecordingWriter* recording = nullptr);

    /// Waits as `events` does, in turns of 10 ms, and gathers evidence meanwhile. How late its turns are tells how late a
    /// light sleeper is woken on this machine.
    Events::Event wait(Events& events, double seconds);

    /// Takes what there is since the last interval, if that is long enough to be judged.
    void finish();

    Judged judged() const { return judgement_.judged(!missingNames().empty()); }
    std::vector<std::string> missingNames() const { return sampler_.missingNames(); }

    /// How many engines ran in the last interval.
    std::size_t engines() const { return engines_; }

private:
    void take();
    void noteWake(double late);

    JudgeLimits limits_;
    EvidenceSampler sampler_;
    Judgement judgement_;
    RecordingWriter* recording_;
    WakeEvidence wakes_;
    double nextTake_;
    std::size_t engines_ = 0;
};
