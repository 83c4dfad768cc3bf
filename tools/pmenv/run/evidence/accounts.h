// accounts.h - the kernel's counters of a thread as parts of an interval. Pure: no file, no clock.
#pragma once

#include <string>

#include "evidence/evidence.h"
#include "kernel/taskFiles.h"

/// How often a thread's state was looked at in an interval, and how often it was blocked.
struct StateSamples {
    int looks = 0;
    int blocked = 0;
};

/// What is known about a thread at the end of an interval.
struct ThreadInterval {
    kernel::SchedStat before;
    kernel::SchedStat now;
    double seconds = 0;
    bool wasReady = false;  ///< at its beginning: running, or waiting for a processor
    double toldBefore = 0;  ///< of a wait that went on at its beginning: what was told of it in the intervals before
    char state = '?';       ///< at its end
    StateSamples samples;
    std::optional<double> blockedSeconds;  ///< by delay accounting, where that is on
    double throttledSeconds = 0;           ///< of its control groups
    double stolenPerBusy = 0;              ///< stolen time for each second that the machine's processors were busy
};

/// Parts of the interval, their sum not longer than it. The kernel adds a wait when it is over, so one that began earlier
/// comes too late; what was not told before and does not fit is waitedBefore. A name and an id are not filled in.
ThreadEvidence account(const ThreadInterval& interval);

/// How many of the turns between two looks came later than the tolerance. Exact for a single turn. Waits of several are
/// known as a sum only: of a few turns most waits are nothing beside the longest; of many they are taken to be spread as
/// those of independent arrivals are.
double lateTurns(const kernel::SchedStat& before, const kernel::SchedStat& now, double tolerance);

/// True for threads that runtimes start beside the program's own: compilers, garbage collectors and the like.
bool isRuntimeThread(const std::string& name);
