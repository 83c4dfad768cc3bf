// judgement.h - which percentiles of a run may be believed? Pure: evidence goes in, the judgement comes out; no file, no
// clock, so that a recording is judged exactly as the run itself.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/evidence.h"
#include "evidence/seldomRead.h"
#include "judgement/heldBack.h"

struct JudgeLimits {
    double percentile = 99;                ///< the one that is to be believed
    double tolerance = 0.010;              ///< seconds that a request may be late
    double skip = 0;                       ///< seconds at the beginning that are not judged
    std::optional<std::size_t> engines;    ///< as many are to run throughout
    std::optional<double> machinePercent;  ///< of the machine's processors; these and the following add findings
    std::optional<double> enginePercent;   ///< of one processor
    double sustain = 10;                   ///< for how many seconds in all these two are to be passed
    std::optional<double> memoryPercent;   ///< of the memory must stay available
    std::optional<double> swapMegabytes;   ///< by which swap in use may grow
};

/// A time in which an engine was held back for one reason. Short pauses between are part of it.
struct Stretch {
    double from = 0;
    double to = 0;
    double seconds = 0;  ///< of it, held back
    Reason reason = Reason::OwnWork;
};

/// Time in which an engine may have been held back.
struct Uncertain {
    double since = 0;
    double seconds = 0;
};

struct JudgedEngine {
    ProcessKey key;
    std::string name;
    double from = 0;
    double to = 0;
    bool ended = false;
    bool readable = false;       ///< in some interval
    double unreadable = 0;       ///< seconds in which its accounts could not be read
    double unreadableSince = 0;  ///< when that was first
    double heldBack = 0;         ///< seconds
    double share = 0;            ///< held back, of the time in which it was watched
    std::vector<Stretch> stretches;
    std::map<Reason, Uncertain> perhaps;  ///< what may have held it back in the rest of the time
    double perhapsShare = 0;              ///< of the time, held back with that

    int tid = 0;  ///< the thread that was the busiest most often
    std::string thread;
    Parts parts;  ///< of the busiest threads over all intervals
    double slack = 0;
    double waited = 0;
    std::uint64_t turns = 0;
    double ran = 0;
    std::optional<double> throttled;  ///< of its control group
    std::optional<std::uint64_t> timesThrottled;
    std::string throttledGroup;
    std::optional<double> quota;
    std::optional<std::uint64_t> majorFaults;
    std::optional<double> mostDescriptors;  ///< share
    std::optional<double> mostPorts;        ///< share
    std::optional<double> mostMemory;       ///< share of its control group's
    std::optional<std::uint64_t> memoryKills;
    bool killsUnseen = false;  ///< it may have been killed for memory itself, which could not be read
};

/// Something to tell beside what held engines back.
struct Incident {
    enum class Kind { Ended, Missing, OutOfMemory, MachineCpu, EngineCpu, Memory, Swap };

    Kind kind = Kind::Ended;
    bool spoils = true;
    double since = 0;
    double seconds = 0;
    std::optional<EngineEnd> end;
    int pid = 0;
    std::string name;
    double worst = 0;       ///< per cent, bytes, or a number, as the kind says
    bool replaced = false;  ///< another engine took its place
};

struct JudgedMachine {
    int processors = 1;
    std::optional<double> busy;  ///< processor seconds
    std::optional<double> idle;
    std::optional<double> stolen;
    double enginesRan = 0;
    std::optional<double> leastAvailable;  ///< share of the memory
    std::optional<std::uint64_t> swapGrowth;
    std::optional<std::uint64_t> droppedPackets;
    std::optional<std::uint64_t> segmentsSent;
    std::optional<std::uint64_t> segmentsSentAgain;
    std::optional<double> cpuPressure;
    std::optional<double> ioPressure;
    std::optional<double> memoryPressure;
    std::vector<ProgramTime> others;  ///< that took most
};

enum class Outcome { Clean, Spoiled, CannotTell };

/// Why nothing can be told.
enum class Doubt { None, TooShort, NoEngine, NameNotSeen, NotReadable, Unseen, WatcherLate, Stolen, Ports };

struct Judged {
    Outcome outcome = Outcome::CannotTell;
    Doubt doubt = Doubt::None;
    double from = 0;                    ///< where the time that is judged begins
    double seconds = 0;                 ///< how long it is
    std::optional<double> share;        ///< of the worst engine
    std::optional<double> believed;     ///< percentile, rounded down to a tenth; empty where that cannot be told
    std::vector<JudgedEngine> engines;  ///< the worst first
    std::vector<Incident> incidents;
    JudgedMachine machine;
    WakeEvidence wakes;
    std::size_t samples = 0;
};

class Judgement {
public:
    explicit Judgement(const JudgeLimits& limits) : limits_(limits) {}

    /// Takes the next interval; they follow each other. Those that end within the time to skip are not judged.
    void add(const Evidence& evidence);

    /// What can be said so far. `namesMissing`: an engine that was asked for by its name has never been seen.
    Judged judged(bool namesMissing) const;

    const JudgeLimits& limits() const { return limits_; }

private:
    // Held-back time that is not ended yet, or may still grow together with what follows.
    struct OpenStretch {
        double from = 0;
        double to = 0;
        double seconds = 0;
        Parts parts;
        double enginesRan = 0;
        double othersRan = 0;
        std::map<Reason, double> reasons;
    };
    // The time in which a figure was beyond a limit that was set, however often it dipped.
    struct Beyond {
        std::optional<double> since;
        double seconds = 0;
        double worst = 0;
        void add(double figure, bool beyond, double from, double to);
    };
    struct Watched {
        JudgedEngine engine;
        bool standIn = false;
        std::optional<OpenStretch> open;
        std::map<int, std::pair<std::size_t, std::string>> deciders;  // by thread: how often, its name
        Beyond cpu;
        Beyond memoryKills;
    };

    void addInterval(const Evidence& evidence);
    void forgetStandIns();
    void addMachine(const MachineEvidence& machine);
    void addEngine(const EngineEvidence& evidence);
    void addEnd(const EngineEnd& end, const Evidence& evidence);
    static void addKills(Watched& watched, const std::optional<std::uint64_t>& kills, const Evidence& evidence);
    void addHeldBack(Watched& watched, const EngineEvidence& evidence, const Yardstick& yardstick, double enginesRan,
                     double othersRan);
    void followLimits(const Evidence& evidence);
    static void close(Watched& watched);
    std::vector<JudgedEngine> judgedEngines() const;
    void addMissingTime(JudgedEngine& engine) const;
    Doubt doubtOf(const Judged& judged, bool namesMissing) const;
    std::optional<double> believed(const Judged& judged) const;
    bool isSpoiled(const Judged& judged) const;
    std::vector<Incident> incidents() const;
    Incident incidentOf(const EngineEnd& end) const;

    JudgeLimits limits_;
    std::map<ProcessKey, Watched> engines_;
    std::vector<EngineEnd> ends_;
    JudgedMachine machine_;
    std::vector<ProgramTime> othersBefore_;  // at the beginning of what is judged
    WakeEvidence wakes_;
    std::size_t samples_ = 0;
    bool engineSeen_ = false;  // that does not stand in for others
    double begin_ = 0;         // of what is judged
    double end_ = 0;
    double unseen_ = 0;  // seconds in intervals that are too long to tell anything
    std::optional<std::uint64_t> leastSwap_;
    SeldomRead memoryRead_;
    SeldomRead swapRead_;
    Beyond machineCpu_;
    Beyond memory_;
    Beyond swap_;
    Beyond missing_;
};
