// threads.h - the threads of one engine and their accounts, interval by interval.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/accounts.h"
#include "evidence/evidence.h"
#include "kernel/files.h"
#include "kernel/taskFiles.h"

/// What the intervals of all threads are measured against.
struct IntervalContext {
    double throttledSeconds = 0;
    double stolenPerBusy = 0;
    double tolerance = 0.010;      ///< how late a thread may be put on a processor
    bool delayAccounting = false;  ///< the kernel measures how long threads wait for disks
    std::size_t lookEvery = 1;     ///< a thread's state is read in every so manieth interval
};

/// Names of threads that do not count, beside those of runtimes.
using IgnoredThreads = std::vector<std::string>;

class Threads {
public:
    Threads(int pid, IgnoredThreads ignored);

    /// Lists the threads anew. False when there are none left.
    bool list();

    /// Adds the interval since the last call to `evidence`: what the threads used, and what the busiest of them did. False
    /// when there are none left.
    bool sample(const IntervalContext& context, EngineEvidence* evidence);

    /// Looks at the threads between two samples: the shorter the time between two looks, the better is known how late each
    /// turn came; and how long threads are blocked that were so lately.
    void look(double tolerance);

    /// Has the next looks look at the states of all threads: some may be blocked for moments.
    void suspectBlocked();

    std::size_t size() const { return threads_.size(); }

    /// True when the process has ended and nobody has asked for its status yet.
    bool isZombie() const { return threads_.size() == 1 && leaderState_ == 'Z'; }

private:
    struct Thread {
        Thread(const std::string& directory, int tid);

        kernel::KeptFile schedStatFile;
        kernel::KeptFile statFile;
        std::string name;
        bool ignored = false;
        std::optional<kernel::SchedStat> last;    // at the end of the last interval
        std::optional<kernel::SchedStat> looked;  // at the last look
        double lateTurns = 0;                     // in this interval
        double lastTime = 0;
        double waitTold = 0;  // of a wait that the kernel has not added yet
        char state = '?';
        std::uint64_t stateTurns = 0;  // its turns when the state was read
        StateSamples samples;          // in this interval
        std::optional<std::uint64_t> blockedTicks;
        std::optional<double> blockedSeconds;  // in this interval
        std::optional<double> seenBlocked;     // when it was blocked last
        std::optional<std::uint64_t> sleeps;   // ever, where they were read at the end of the last interval
    };

    bool sampleThread(int tid, Thread& thread, bool looks, const IntervalContext& context, EngineEvidence* evidence);
    static std::optional<kernel::SchedStat> readTurns(Thread& thread, double tolerance);
    bool lookAt(Thread& thread);
    std::optional<std::uint64_t> sleepsIn(const ThreadEvidence& interval, int tid, Thread& thread) const;
    void add(int tid, const Thread& thread, ThreadEvidence account, EngineEvidence* evidence);
    void countMostTurns();

    int pid_;
    std::string directory_;
    IgnoredThreads ignored_;
    std::map<int, Thread> threads_;  // by id
    std::size_t intervals_ = 0;
    char leaderState_ = '?';       // of the first thread; T when the whole process is stopped
    bool accountsKept_ = false;    // the kernel counts at all
    std::uint64_t mostTurns_ = 0;  // of any thread that counts and runs, since it began
};
