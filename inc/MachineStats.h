// MachineStats.h - memory, processor load and load-engine processes of this machine, sampled from /proc.
//
// A program that wants figures owns a MachineStats object and calls CollectMachineStats at intervals longer than a
// second. Within a second (1,000,000 ticks of nRealtime::gCurrentRaw_compiler) of the last sample the earlier figure is
// kept.
//
//     MachineStats collector;
//     KREnvMachineStats stats{};
//     collector.CollectMachineStats(stats, false);     // again and again
//
// A load engine is a process whose command name contains "PMLoadEngineMai". Percentages of a process are of all
// processors together: a process that keeps one of four processors busy has 25.
//
// Failures: an unreadable /proc file gives 0 bytes or the last percentage and a Warning record, no error.
// Threads: one collector belongs to one thread at a time. All collectors of the process share the machine's processor
// samples, so two collectors must not collect at the same moment either.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "krexport.h"

/// One raw sample of a process and of the machine's processor time. Ticks are those of sysconf(_SC_CLK_TCK).
struct pstat {
    std::uint32_t user_ticks;         ///< /proc/PID/stat field 14, utime
    std::int32_t child_user_ticks;    ///< field 16, cutime
    std::uint32_t system_ticks;       ///< field 15, stime
    std::int32_t child_system_ticks;  ///< field 17, cstime
    std::uint32_t vsize_bytes;        ///< field 23, vsize
    std::int32_t rss_bytes;           ///< field 24, rss, times the page size
    std::uint64_t cpu_total_ticks;    ///< sum of the first ten columns of the first line of /proc/stat
};

/// Takes a sample of process `pid` into `*out`. 0 on success; -1 when /proc/PID/stat (with a message on standard error)
/// or /proc/stat (after one retry, 200 microseconds later) cannot be opened or is empty. When /proc/stat cannot be
/// opened, the process's file stays open and `*out` is unchanged. A null `out` gets an Error record and -1.
KRENV_EXPORT int get_usage(int pid, pstat* out);

/// The percentage of all processor time between two samples that the process used, in user and system mode. NaN when
/// neither time nor work lies between the samples, infinity for work without time; -1.0 after an Error record for a
/// null sample.
KRENV_EXPORT long double calc_cpu(const pstat* cur, const pstat* prev);

/// The resident memory of process `pid` in bytes (/proc/PID/statm, second field, times sysconf(_SC_PAGESIZE)), as a
/// 32-bit number that wraps at 2 GiB. 0 after a Warning record when the file cannot be read. The flag has no effect.
KRENV_EXPORT int getProcessRSS(int pid, bool flag);

/// Appends the ids of the load-engine processes on this machine, except `excludedPid`, to `pids`, in the order of the
/// directory /proc. Returns 1; or 0, with `pids` unchanged and the reason on standard error, when /proc cannot be
/// opened.
KRENV_EXPORT int getSlavesList(std::vector<int>& pids, int excludedPid);

/// True when every character of `s` is a decimal digit, and for the empty text. Null gets an Error record and false.
KRENV_EXPORT bool IsNumeric(const char* s);

/// The calling process's id (getpid).
KRENV_EXPORT int GetProcessID();

/// The processor sampler of one process. Belongs to one thread at a time.
class KRENV_EXPORT CPUUsage {
public:
    /// Creates a sampler of process `pid`; takes no sample yet.
    explicit CPUUsage(int pid);
    /// Holds no files or memory besides itself.
    ~CPUUsage();

    /// True when more than 1,000,000 clock ticks have passed since the last successful sample.
    bool EnoughTimePassed();

    /// The percentage between the last two samples, see calc_cpu: -1.0 until the first sample succeeds, 0.0 at that
    /// one, and possibly NaN or infinity afterwards. Samples if enough time has passed, else returns the last value. A
    /// sample that fails gets a Warning record and returns the last value; the next call then samples again at once.
    double GetUsage();

private:
    int pid;
    double lastUsage;
    std::uint64_t lastSampleTime;  // clock ticks; 0: never sampled
    pstat previous;                // only the three fields that calc_cpu reads are ever set
    pstat current;
};

/// One load-engine process.
struct KREnvSlaveStats {
    unsigned long long memoryBytes;  ///< resident memory; only the low 32 bits are kept
    double cpuPercent;               ///< 0.0 at the first collection that sees the process, then as CPUUsage::GetUsage:
                                     ///< 0.0 at its first sample, which is the second collection's if it succeeds; -1.0
                                     ///< as long as none has
    int processId;                   ///< as the kernel numbers it
};

/// The machine's figures. The caller owns it; start with `KREnvMachineStats stats{};`.
struct KREnvMachineStats {
    unsigned long long reservedValue;        ///< the caller's own; never written
    unsigned long long totalSwapBytes;       ///< sysinfo totalswap x mem_unit
    unsigned long long totalMemoryBytes;     ///< sysinfo (totalram + totalswap) x mem_unit
    unsigned long long physicalMemoryBytes;  ///< sysinfo totalram x mem_unit
    unsigned long long freeMemoryBytes;      ///< sysinfo freeram x mem_unit (without caches; not MemAvailable)
    long double cpuLoadPercent;              ///< /proc/stat, busy share of all processors, 0 to 100. More than 100,
                                             ///< infinite or NaN, but never below 0, if counters have stepped back
    int processId;                           ///< of the collecting process
    std::vector<KREnvSlaveStats> slaves;     ///< one for each load engine found
};

/// Collects the figures of the machine and its load engines. It keeps one sampler for each engine process between
/// calls, because a percentage needs two samples, and drops it when the process has gone.
class KRENV_EXPORT MachineStats {
public:
    /// Takes the machine's first processor sample. If that fails, there is an Error record and the object is still
    /// usable.
    MachineStats();
    /// Releases the engines' samplers.
    ~MachineStats();
    MachineStats(const MachineStats&) = delete;
    MachineStats& operator=(const MachineStats&) = delete;

    /// Fills `stats`: the engines, then the machine. Always true; failures are logged, and the fields concerned keep
    /// their values. While the last sample is less than a second old, which includes the time right after construction,
    /// `cpuLoadPercent` keeps the caller's value, raised to 0 when it is negative.
    bool CollectMachineStats(KREnvMachineStats& stats, bool flag);

    /// Replaces the contents of `slaves` with the load engines that run now. False, after a log record, on an
    /// exception.
    bool CollectSlavesInfo(std::vector<KREnvSlaveStats>& slaves, bool flag);

    /// Resident memory and percentage of one process; the first call for a `pid` creates its sampler. Always true.
    bool GetSpecificProcessInfo(int pid, unsigned long long& memoryBytes, double& cpuPercent, bool flag);

    /// The machine's figures, each described at KREnvMachineStats. Always true.
    bool getBasicMachineStats(unsigned long long& reservedValue, unsigned long long& physicalMemoryBytes,
                              unsigned long long& totalMemoryBytes, unsigned long long& totalSwapBytes,
                              unsigned long long& freeMemoryBytes, long double& cpuLoadPercent, int& processId);

    /// The busy share of all processors since the last call of any collector, 0 to 1: user, nice and system time
    /// divided by these plus idle time (/proc/stat). NaN when no time lies between the calls; negative, above 1 or
    /// infinite when counters have stepped back. -1.0 within a second of this collector's last sample, or when
    /// /proc/stat cannot be opened.
    long double GetCPULoad();

    /// True when more than 1,000,000 clock ticks have passed since this collector's last GetCPULoad.
    bool EnoughTimePassed();

    /// Not measured: sets all three to 0 and returns false. Kept for programs that call it.
    bool GetProcessMemCPU(float& first, unsigned long& second, unsigned long& third);

    /// Not counted: always -1. Kept for programs that call it.
    int GetConsolesCount();

private:
    std::uint64_t lastLoadTime;           // clock ticks at the last GetCPULoad; 0: never
    std::map<int, CPUUsage*> usageByPid;  // owned samplers
    int ownPid;                           // never reported as an engine
};

// Programs are built separately from the library. Compiler options that change the alignment or size of numbers would
// otherwise make the two disagree silently.
#ifdef __i386__
static_assert(offsetof(pstat, cpu_total_ticks) == 24 && sizeof(pstat) == 32, "the sample is read by programs");
static_assert(sizeof(CPUUsage) == 84, "two numbers, the last sample's time and two samples");
static_assert(offsetof(KREnvSlaveStats, cpuPercent) == 8 && offsetof(KREnvSlaveStats, processId) == 16 &&
                  sizeof(KREnvSlaveStats) == 20,
              "the record is read by programs");
static_assert(offsetof(KREnvMachineStats, freeMemoryBytes) == 32 && offsetof(KREnvMachineStats, cpuLoadPercent) == 40 &&
                  offsetof(KREnvMachineStats, processId) == 52 && offsetof(KREnvMachineStats, slaves) == 56 &&
                  sizeof(KREnvMachineStats) == 68,
              "the record is read by programs");
static_assert(sizeof(MachineStats) == 36, "the collector is created by programs");
#endif
