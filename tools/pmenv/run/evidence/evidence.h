// evidence.h - what the kernel told about the engines and the machine in one interval, as plain values.
//
// Times are seconds on the clock of the watch, durations seconds. Unknown is not zero: what could not be read is empty.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Tells processes apart even if an id is used again.
struct ProcessKey {
    int pid = 0;
    std::uint64_t startTicks = 0;
    bool operator==(const ProcessKey& other) const { return pid == other.pid && startTicks == other.startTicks; }
    bool operator<(const ProcessKey& other) const {
        return pid != other.pid ? pid < other.pid : startTicks < other.startTicks;
    }
};

/// What a thread did with an interval.
struct Parts {
    double running = 0;
    double waiting = 0;    ///< ready, but others had the processor
    double throttled = 0;  ///< ready, but the quota of its control group was used up
    double stolen = 0;     ///< the hypervisor had the processor
    double blocked = 0;    ///< in uninterruptible sleep
    double stopped = 0;

    double sum() const { return running + waiting + throttled + stolen + blocked + stopped; }
};

struct ThreadEvidence {
    int tid = 0;
    std::string name;
    double seconds = 0;  ///< the length of the interval as this thread saw it
    Parts parts;
    double waitedBefore = 0;   ///< the end of a wait that had begun so long before the interval, and was not told then
    std::uint64_t turns = 0;   ///< how often it was put on a processor
    double blockedAtOnce = 0;  ///< the mean length of its blocked times; 0 when it was not blocked
    /// How often it gave its processor up by itself; read only where the hypervisor took time and little slack was left.
    std::optional<std::uint64_t> sleeps;
};

/// How much of something is in use, and how much there may be; no limit where there is none. Recordings keep the shares
/// that follow from it, which is all that is judged.
struct Usage {
    double used = 0;
    std::optional<double> limit;

    double share() const { return limit ? used / *limit : 0; }
};

/// What the control groups of an engine tell.
struct GroupEvidence {
    std::optional<double> throttled;              ///< the longest of its groups: seconds of all processors together
    std::optional<std::uint64_t> timesThrottled;  ///< periods in which the quota was used up
    std::optional<std::uint64_t> periods;         ///< of all in which the group ran
    std::string throttledGroup;                   ///< that group's directory
    std::optional<double> quota;                  ///< its processors
    std::optional<std::uint64_t> memoryKills;     ///< in this interval
    std::optional<double> memoryShare;            ///< memory in use of what the group may use
    std::optional<Usage> memory;                  ///< the same, in bytes
};

struct EngineEvidence {
    ProcessKey key;
    std::string name;
    bool standIn = false;  ///< counts only as long as no engine is seen that does not stand in for others
    double from = 0;
    double to = 0;
    bool readable = false;                  ///< whether any thread's accounts could be read in this interval
    std::optional<ThreadEvidence> busiest;  ///< the thread with the least slack; empty when none counts
    double waited = 0;                      ///< of all threads that count
    std::uint64_t turns = 0;                ///< how often these were put on a processor
    double lateTurns = 0;                   ///< how many of these turns came later than the tolerance
    double ran = 0;                         ///< processor time of all threads
    std::optional<std::uint64_t> majorFaults;
    bool faulting = false;  ///< pages had to be read from a disk within the last second or so
    GroupEvidence group;
    std::optional<double> descriptorShare;  ///< open descriptors of how many it may have
    std::optional<Usage> descriptors;       ///< the same, in numbers
    std::optional<double> portShare;        ///< local ports in use of how many there are
    std::optional<Usage> ports;             ///< the same, in numbers; empty where how many there are could not be read
    bool portsAtMost = false;               ///< the share can be less, for that reason
};

/// An engine that has ended, or has become a zombie.
struct EngineEnd {
    ProcessKey key;
    std::string name;
    double time = 0;
    std::optional<int> status;  ///< as wait() has it
    bool zombie = false;
    bool descendant = false;  ///< of a process that was chosen with its descendants; these come and go
    /// Killed for memory in its control group since its last interval; empty also where the group is gone.
    std::optional<std::uint64_t> memoryKills = std::nullopt;
};

struct MachineEvidence {
    int processors = 1;
    std::optional<double> busy;  ///< processor seconds in this interval
    std::optional<double> idle;
    std::optional<double> stolen;
    std::optional<double> memoryAvailableShare;
    std::optional<std::uint64_t> swapUsedBytes;
    std::optional<std::uint64_t> droppedPackets;
    std::optional<std::uint64_t> segmentsSent;
    std::optional<std::uint64_t> segmentsSentAgain;
    std::optional<double> cpuPressure;  ///< seconds in which some thread waited for a processor
    std::optional<double> ioPressure;
    std::optional<double> memoryPressure;
};

/// How punctually the watcher's timer woke it.
struct WakeEvidence {
    std::uint64_t wakes = 0;
    std::uint64_t late = 0;  ///< by more than the tolerance
    double longest = 0;
};

/// A program by its name, all processes of that name together.
struct ProgramTime {
    std::string name;
    double seconds = 0;  ///< processor time since the watch began
    int processes = 0;
};

struct Evidence {
    double from = 0;
    double to = 0;
    MachineEvidence machine;
    WakeEvidence wakes;
    std::vector<EngineEvidence> engines;
    std::vector<EngineEnd> ends;
    std::vector<ProgramTime> others;        ///< that took most since the watch began, engines left out
    std::vector<std::string> missingNames;  ///< that were asked for and have not been seen since the watch began
};
