// groups.h - the control groups of the engines: quotas and memory.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/evidence.h"
#include "kernel/files.h"
#include "kernel/groupFiles.h"

/// The directories of a process's groups, from its own to the topmost.
struct GroupPlaces {
    std::vector<std::string> cpu;
    std::vector<std::string> memory;
};

class Groups {
public:
    /// Finds out what is mounted.
    Groups();

    /// Where a process's groups are; empty lists where that cannot be told.
    GroupPlaces find(int pid) const;

    /// Ends an interval: what of() tells is what happened since the call before. With `memory`, memory is read as well.
    void sample(bool memory);

    GroupEvidence of(const GroupPlaces& places);

    /// Killed for memory since sample() looked at memory, as far as is known now: a group can end with its last process.
    std::optional<std::uint64_t> killsSince(const GroupPlaces& places) const;

private:
    struct CpuGroup {
        explicit CpuGroup(const std::string& directory) : file(directory + "/cpu.stat") {}
        kernel::KeptFile file;
        std::optional<kernel::Throttling> last;
        std::optional<kernel::Throttling> change;
        std::optional<double> quota;
        bool used = true;  // in this interval
    };
    struct MemoryGroup {
        std::optional<std::uint64_t> kills;
        std::optional<std::uint64_t> newKills;
        std::optional<Usage> usage;
        bool used = true;
    };

    static void sampleCpu(const std::string& directory, CpuGroup& group);
    static void sampleMemory(const std::string& directory, MemoryGroup& group);

    std::vector<kernel::GroupMount> mounts_;
    std::map<std::string, CpuGroup> cpu_;  // by directory
    std::map<std::string, MemoryGroup> memory_;
};
