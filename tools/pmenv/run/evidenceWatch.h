// evidenceWatch.h - gathers evidence about the engines while a command waits for something.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "events.h"
#include "evidence/evidenceSampler.h"

class EvidenceWatch {
public:
    using Receiver = std::function<void(const Evidence&)>;

    /// Begins the watch. `receive` gets each interval as a recording holds it, and at once the first one, which
    /// has no length.
    EvidenceWatch(const EngineChoice& choice, const IgnoredThreads& ignored, double tolerance, Receiver receive);

    /// Waits as `events` does, in turns of 10 ms, and gathers evidence meanwhile. How late its turns are tells how late a
    /// light sleeper is woken on this machine.
    Events::Event wait(Events& events, double seconds);

    /// Takes what there is since the last interval, if that is long enough to be judged.
    void finish();

    std::vector<std::string> missingNames() const { return sampler_.missingNames(); }

private:
    void take();
    void noteWake(double late);

    double tolerance_;
    EvidenceSampler sampler_;
    Receiver receive_;
    WakeEvidence wakes_;
    double lastTake_ = 0;  // seconds on the clock of kernel::clockSeconds()
    double nextTake_;
};
