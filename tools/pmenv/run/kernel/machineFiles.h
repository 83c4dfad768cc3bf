// machineFiles.h - what the kernel tells about the machine, as values. Text in, values out: no file, no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kernel {

/// The first line of /proc/stat, all processors together, in ticks of sysconf(_SC_CLK_TCK).
struct MachineTicks {
    std::uint64_t busy = 0;               ///< user, nice, system, interrupts
    std::uint64_t idle = 0;               ///< idle and waiting for a disk
    std::optional<std::uint64_t> stolen;  ///< taken by the hypervisor
};
std::optional<MachineTicks> parseMachineTicks(std::string_view text);

/// /proc/meminfo, in bytes. Each is empty where the kernel does not tell it.
struct MemoryBytes {
    std::optional<std::uint64_t> total;
    std::optional<std::uint64_t> available;  ///< what programs can still get, caches included
    std::optional<std::uint64_t> swapUsed;
};
MemoryBytes parseMemInfo(std::string_view text);

/// /proc/pressure/* and *.pressure of a control group: microseconds in which some thread waited for this.
std::optional<std::uint64_t> parsePressure(std::string_view text);

}  // namespace kernel
