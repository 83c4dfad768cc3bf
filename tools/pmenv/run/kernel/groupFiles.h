// groupFiles.h - control groups of both versions, as values. Text in, values out: no file, no clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kernel {

/// A line of /proc/PID/cgroup: the group of a process in one hierarchy.
struct GroupMembership {
    std::string controllers;  ///< "cpu,cpuacct"; "" for version 2
    std::string path;         ///< from the root of the hierarchy, as this process's namespace shows it
};
std::vector<GroupMembership> parseMemberships(std::string_view text);

/// A line of /proc/self/mountinfo about a mounted hierarchy.
struct GroupMount {
    bool version2 = false;
    std::string controllers;  ///< options of the mount, the controllers among them; version 1
    std::string root;         ///< the group that is mounted
    std::string directory;    ///< where
};
std::vector<GroupMount> parseGroupMounts(std::string_view text);

/// Where the files of a process's group for a controller are: its directory, and the directory at which the way up ends.
struct GroupPlace {
    bool version2 = false;
    std::string directory;
    std::string top;
};
/// Version 1 where the controller is mounted so; otherwise version 2. Empty when it is mounted nowhere, or the group lies
/// outside of what is mounted.
std::optional<GroupPlace> findGroup(const std::vector<GroupMembership>& memberships,
                                    const std::vector<GroupMount>& mounts, std::string_view controller);

/// cpu.stat: how long and how often the quota was used up. A group that has no quota tells nothing about it: zeros.
/// Empty for what is no such file.
struct Throttling {
    std::uint64_t nanoseconds = 0;  ///< of all processors together
    std::uint64_t times = 0;        ///< periods in which it was used up
    std::uint64_t periods = 0;      ///< in which the group ran at all
};
std::optional<Throttling> parseThrottling(std::string_view text);

/// memory.events of version 2, or memory.oom_control of version 1: how many processes were killed for want of memory.
std::optional<std::uint64_t> parseMemoryKills(std::string_view text);

/// A file that holds one number. "max" is the largest.
std::optional<std::uint64_t> parseSingleNumber(std::string_view text);

/// The processors that a group may use: cpu.max of version 2; empty for no limit.
std::optional<double> parseCpuMax(std::string_view text);

}  // namespace kernel
