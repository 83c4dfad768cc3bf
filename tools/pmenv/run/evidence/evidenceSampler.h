// evidenceSampler.h - gathers the evidence, interval by interval.
//
// An interval is a quarter of a second; within it the threads are looked at every 10 ms. Both are longer where there are so
// many threads that it would take more than its share of a processor. Once a second the processes are looked through for
// engines, and what changes seldom is read.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "evidence/engineWatch.h"
#include "evidence/evidence.h"
#include "evidence/groups.h"
#include "evidence/machine.h"
#include "evidence/network.h"
#include "evidence/processes.h"

class EvidenceSampler {
public:
    /// A turn on a processor is late when a thread has waited for it longer than the tolerance.
    EvidenceSampler(const EngineChoice& choice, IgnoredThreads ignored, double tolerance);

    /// What happened since the last call. The first call begins the watch; its interval has no length.
    Evidence take();

    /// Looks at the threads within an interval. To be called every 10 ms; does nothing where that is too often.
    void look();

    /// How long the next interval is to be, in seconds.
    double interval() const { return interval_; }

    /// Which of the names that were asked for have never been seen.
    std::vector<std::string> missingNames() const;

private:
    void scan(Evidence& evidence);
    void putOffScan(double cost);
    void forgetLost(Evidence& evidence);
    void sampleEngines(Evidence& evidence, double time);
    IntervalContext context(const MachineEvidence& machine) const;

    EngineChoice choice_;
    IgnoredThreads ignored_;
    Processes processes_;
    Groups groups_;
    Network network_;
    Machine machine_;
    std::map<ProcessKey, std::unique_ptr<EngineWatch>> engines_;
    std::vector<bool> nameSeen_;
    double start_;
    double last_ = 0;
    double lastScan_ = -1e9;
    double betweenScans_ = 1;
    double interval_ = 0.25;
    double tolerance_;
    double nextLook_ = 0;
    std::vector<ProgramTime> others_;
};
