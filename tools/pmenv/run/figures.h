// figures.h - one sample of the machine and its load engines.
//
// Unknown is not zero: a figure that could not be measured is empty.
//
// The library finds the engines and tells the machine's memory. Processor time and resident memory are read here, from
// the same files of the kernel: the library's collector keeps a percentage for a second and more, so it has none on every
// full second, repeats the last one when a sample fails, takes a process id that is used again for the same process, and
// counts memory in 32 bits.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "MachineStats.h"
#include "evidence/engineName.h"
#include "judgement/heldBackSums.h"
#include "kernel/machineFiles.h"
#include "kernel/taskFiles.h"

struct EngineFigures {
    int processId;
    std::string name;                  ///< its command name
    std::optional<double> cpuPercent;  ///< of ONE processor; one that runs several threads may pass 100
    std::optional<std::uint64_t> residentBytes;
    std::uint64_t startTicks = 0;  ///< when it started, since boot; tells an id that is used again
    std::optional<HeldBackFigures> heldBack = std::nullopt;  ///< since the last sample
};

struct Figures {
    std::chrono::system_clock::time_point time;
    double seconds;    ///< since the sampler was made, on a clock that never goes back
    std::string host;  ///< the machine's name
    int processors;
    std::optional<double> cpuPercent;  ///< of all processors together, 0 to 100
    std::uint64_t memoryBytes;
    std::uint64_t freeBytes;                      ///< without caches
    std::optional<std::uint64_t> availableBytes;  ///< what programs can still get, caches included
    std::uint64_t swapBytes;
    std::optional<std::uint64_t> swapUsedBytes;
    std::vector<EngineFigures> engines;
    std::vector<std::string> warnings;  ///< what could not be measured, and why
};

/// Time, host and processors, and nothing else.
Figures figuresOfHost();

/// Memory of a process that is not on a disk; empty when it has ended.
std::optional<std::uint64_t> residentBytes(int processId);

/// The machine's processor time in two parts, in per cent of all processors.
struct CpuParts {
    double engines;
    double others;  ///< everything that is no load engine
};
/// Empty while the machine's figure or that of an engine is not known.
std::optional<CpuParts> cpuParts(const Figures& figures);

/// The share of all processors' time between two moments in which they were busy, in per cent. Empty when no time lies
/// between them, or a count has gone back.
std::optional<double> busyPercent(const kernel::MachineTicks& before, const kernel::MachineTicks& now);

/// What the kernel tells about a load engine.
struct EngineLook {
    kernel::TaskStat stat;
    double begun = 0;  ///< seconds, before it was read ...
    double ended = 0;  ///< ... and afterwards
    std::optional<std::uint64_t> residentBytes;
};

/// The processor time that one process used between two looks, in per cent of one processor, against the longest time
/// that can lie between them. Empty when its count went back or rose by more than `processors` can give: such a figure is
/// none.
std::optional<double> enginePercent(const EngineLook& before, const EngineLook& now, int processors);

/// The figures of an engine that was looked at `before` too, or not (null). Another process with the same id is not the
/// one from before, so its processor time is not known yet. A warning tells of a figure that is none.
EngineFigures engineFigures(const EngineLook* before, const EngineLook& now, int processors,
                            std::vector<std::string>* warnings);

/// Takes samples. Percentages are known from the second sample that sees the same process on. An engine that ends while
/// it is looked at is not in them, and neither is one that has ended and waits for its parent to notice.
class Sampler {
public:
    Figures take();

    /// Since it was made.
    double seconds() const;

private:
    void addMemory(Figures& figures);
    void addProcessors(Figures& figures);
    void addEngines(Figures& figures);

    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    MachineStats collector_;
    std::optional<kernel::MachineTicks> ticks_;
    std::map<int, EngineLook> engines_;  // as they were last looked at, by process id
};
