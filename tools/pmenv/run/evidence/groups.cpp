#include "evidence/groups.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

std::vector<std::string> upwards(const std::optional<kernel::GroupPlace>& place) {
    std::vector<std::string> directories;
    if (!place) return directories;
    std::string directory = place->directory;
    while (directory.size() > place->top.size()) {
        directories.push_back(directory);
        directory.resize(directory.rfind('/'));
    }
    directories.push_back(place->top);
    return directories;
}

std::optional<std::uint64_t> numberIn(const std::string& path) {
    const auto text = kernel::readFile(path);
    return text ? kernel::parseSingleNumber(*text) : std::nullopt;
}

std::optional<std::uint64_t> either(std::optional<std::uint64_t> first, std::optional<std::uint64_t> second) {
    return first ? first : second;
}

// Empty where the counters are not known, or have gone back, as those of a group that was made anew.
std::optional<kernel::Throttling> changeBetween(const std::optional<kernel::Throttling>& before,
                                                const std::optional<kernel::Throttling>& now) {
    if (!before || !now) return std::nullopt;
    if (now->nanoseconds < before->nanoseconds || now->times < before->times || now->periods < before->periods) {
        return std::nullopt;
    }
    return kernel::Throttling{now->nanoseconds - before->nanoseconds, now->times - before->times,
                              now->periods - before->periods};
}

// A group that no engine was in during the last interval need not be read any more; it may be gone.
template <class Group>
void forgetUnused(std::map<std::string, Group>& groups) {
    for (auto entry = groups.begin(); entry != groups.end();) {
        entry = std::exchange(entry->second.used, false) ? std::next(entry) : groups.erase(entry);
    }
}

// In version 1 a group without a quota has -1, which is no number here.
std::optional<double> readQuota(const std::string& directory) {
    if (const auto text = kernel::readFile(directory + "/cpu.max")) return kernel::parseCpuMax(*text);
    const auto quota = numberIn(directory + "/cpu.cfs_quota_us"), period = numberIn(directory + "/cpu.cfs_period_us");
    if (!quota || !period || *period == 0) return std::nullopt;
    return static_cast<double>(*quota) / static_cast<double>(*period);
}

// Empty where a counter is not known or has gone back.
std::optional<std::uint64_t> killsBetween(const std::optional<std::uint64_t>& before,
                                          const std::optional<std::uint64_t>& now) {
    return before && now && *now >= *before ? std::optional(*now - *before) : std::nullopt;
}

std::optional<std::uint64_t> readKills(const std::string& directory) {
    for (const char* const file : {"/memory.events", "/memory.oom_control"}) {
        const auto text = kernel::readFile(directory + file);
        if (text) return kernel::parseMemoryKills(*text);
    }
    return std::nullopt;
}

// Version 1 writes a number near the largest where there is no limit.
constexpr std::uint64_t kNoLimit = 1ULL << 62;

std::optional<Usage> readMemory(const std::string& directory) {
    const auto used = either(numberIn(directory + "/memory.current"), numberIn(directory + "/memory.usage_in_bytes"));
    const auto limit = either(numberIn(directory + "/memory.max"), numberIn(directory + "/memory.limit_in_bytes"));
    if (!used || !limit || *limit == 0) return std::nullopt;
    Usage usage{static_cast<double>(*used), std::nullopt};
    if (*limit < kNoLimit) usage.limit = static_cast<double>(*limit);
    return usage;
}

// The group that is the nearest to its limit.
void keepTighter(std::optional<Usage>& tightest, const std::optional<Usage>& usage) {
    if (usage && (!tightest || usage->share() > tightest->share())) tightest = usage;
}

}  // namespace

Groups::Groups() {
    constexpr std::size_t kMost = 1 << 20;
    const auto text = kernel::readFile("/proc/self/mountinfo", kMost);
    if (text) mounts_ = kernel::parseGroupMounts(*text);
}

// The mounts of this process are looked at, and not those of the other: through them the files are opened.
GroupPlaces Groups::find(int pid) const {
    const auto text = kernel::readFile("/proc/" + std::to_string(pid) + "/cgroup");
    if (!text) return {};
    const auto memberships = kernel::parseMemberships(*text);
    return {upwards(kernel::findGroup(memberships, mounts_, "cpu")),
            upwards(kernel::findGroup(memberships, mounts_, "memory"))};
}

void Groups::sample(bool memory) {
    forgetUnused(cpu_);
    forgetUnused(memory_);
    for (auto& [directory, group] : cpu_) sampleCpu(directory, group);
    for (auto& [directory, group] : memory_) {
        group.newKills = std::nullopt;
        if (memory) sampleMemory(directory, group);
    }
}

void Groups::sampleCpu(const std::string& directory, CpuGroup& group) {
    const auto text = group.file.read();
    const auto now = text ? kernel::parseThrottling(*text) : std::nullopt;
    group.change = changeBetween(group.last, now);
    group.last = now;
    if (group.change && group.change->nanoseconds > 0 && !group.quota) group.quota = readQuota(directory);
}

void Groups::sampleMemory(const std::string& directory, MemoryGroup& group) {
    const auto kills = readKills(directory);
    group.newKills = killsBetween(group.kills, kills);
    group.kills = kills;
    group.usage = readMemory(directory);
}

GroupEvidence Groups::of(const GroupPlaces& places) {
    GroupEvidence evidence;
    for (const std::string& directory : places.cpu) {
        CpuGroup& group = cpu_.try_emplace(directory, directory).first->second;
        group.used = true;
        if (!group.change) continue;
        const double throttled = static_cast<double>(group.change->nanoseconds) * 1e-9;
        if (evidence.throttled && *evidence.throttled >= throttled) continue;
        evidence.throttled = throttled;
        evidence.timesThrottled = group.change->times;
        evidence.periods = group.change->periods;
        evidence.throttledGroup = directory;
        evidence.quota = group.quota;
    }
    for (const std::string& directory : places.memory) {
        MemoryGroup& group = memory_.try_emplace(directory).first->second;
        group.used = true;
        keepTighter(evidence.memory, group.usage);
        if (group.newKills) evidence.memoryKills = std::max(evidence.memoryKills.value_or(0), *group.newKills);
    }
    if (evidence.memory) evidence.memoryShare = evidence.memory->share();
    return evidence;
}

// The kills of a group that is gone are counted in the groups above it, but not by version 1.
std::optional<std::uint64_t> Groups::killsSince(const GroupPlaces& places) const {
    std::optional<std::uint64_t> most;
    for (const std::string& directory : places.memory) {
        const auto group = memory_.find(directory);
        const auto before = group == memory_.end() ? std::nullopt : group->second.kills;
        const auto newKills = killsBetween(before, readKills(directory));
        const bool isItsOwn = directory == places.memory.front();
        if (newKills && (isItsOwn || *newKills > 0)) most = std::max(most.value_or(0), *newKills);
    }
    return most;
}
