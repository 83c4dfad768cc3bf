// taskFiles.h - what the kernel tells about a process or a thread, as values. Text in, values out: no file, no clock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kernel {

/// So much the kernel keeps of the name of a program or of its thread. (Its own threads can have longer names.)
constexpr std::size_t kNameLength = 15;

/// /proc/PID/stat, or the same of a thread in /proc/PID/task/TID/stat.
struct TaskStat {
    int id = 0;
    std::string name;  ///< what the kernel keeps of the command's name, any bytes
    char state = '?';  ///< R running or ready, S asleep, D blocked, T or t stopped, Z zombie, X dead, ...
    int parent = 0;
    std::uint64_t majorFaults = 0;  ///< pages that had to be read from a disk
    std::uint64_t ticks = 0;        ///< processor time, user and system, of sysconf(_SC_CLK_TCK)
    std::uint64_t startTicks = 0;   ///< since boot; tells a process id that is used again
    std::uint64_t threads = 0;
    std::optional<std::uint64_t> blockedTicks;  ///< block I/O delay; stays 0 where delay accounting is off
    std::optional<std::uint64_t> exitStatus;    ///< as wait() has it; 0 while it runs or for who may not know
};
std::optional<TaskStat> parseTaskStat(std::string_view text);

/// /proc/PID/statm, whose pages are of so many bytes: the memory that the process holds. Empty for more than 64 bits.
std::optional<std::uint64_t> parseResidentBytes(std::string_view text, std::uint64_t pageSize);

/// /proc/PID/task/TID/schedstat.
struct SchedStat {
    std::uint64_t ran = 0;     ///< nanoseconds on a processor
    std::uint64_t waited = 0;  ///< nanoseconds ready to run, but not running; told when the wait is over
    std::uint64_t turns = 0;   ///< how often it was put on a processor
};
std::optional<SchedStat> parseSchedStat(std::string_view text);

/// How often a thread gave its processor up by itself, to wait for something, in /proc/PID/task/TID/status.
std::optional<std::uint64_t> parseSleeps(std::string_view text);

/// The limit on open descriptors in /proc/PID/limits; the largest number for "unlimited".
std::optional<std::uint64_t> parseDescriptorLimit(std::string_view text);

}  // namespace kernel
