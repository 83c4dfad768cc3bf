#include "kernel/groupFiles.h"

#include <algorithm>
#include <limits>

#include "kernel/numbers.h"

namespace kernel {

namespace {

// Blanks, tabs, line ends and backslashes stand in mountinfo as \040, \011, \012 and \134.
std::string unescaped(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const auto code = text[0] == '\\' && text.size() >= 4 ? number(text.substr(1, 3), 8) : std::nullopt;
        if (code && *code <= 0xFF) {
            plain += static_cast<char>(*code);
            text.remove_prefix(4);
        } else {
            plain += text[0];
            text.remove_prefix(1);
        }
    }
    return plain;
}

// "33 31 0:30 / /sys/fs/cgroup/cpu rw,relatime shared:7 - cgroup cgroup rw,cpu"
std::optional<GroupMount> parseMount(std::string_view line) {
    for (int field = 0; field < 3; ++field) takeWord(&line);
    GroupMount mount;
    mount.root = unescaped(takeWord(&line));
    mount.directory = unescaped(takeWord(&line));
    while (!line.empty() && takeWord(&line) != "-") {
    }
    const std::string_view type = takeWord(&line);
    takeWord(&line);
    mount.controllers = takeWord(&line);
    mount.version2 = type == "cgroup2";
    if (!mount.version2 && type != "cgroup") return std::nullopt;
    return mount;
}

bool names(std::string_view list, std::string_view controller) {
    while (!list.empty()) {
        if (takeUntil(&list, ',') == controller) return true;
    }
    return false;
}

// The path of a group below a mounted one, "" for that itself; empty when it is not below it.
std::optional<std::string> below(const std::string& root, const std::string& path) {
    if (path.find("/..") != std::string::npos) return std::nullopt;  // outside of this namespace
    if (root == "/") return path == "/" ? "" : path;
    if (path.compare(0, root.size(), root) != 0) return std::nullopt;
    if (path.size() > root.size() && path[root.size()] != '/') return std::nullopt;
    return path.substr(root.size());
}

std::optional<GroupPlace> place(const GroupMembership& membership, const GroupMount& mount) {
    const auto rest = below(mount.root, membership.path);
    if (!rest) return std::nullopt;
    return GroupPlace{mount.version2, mount.directory + *rest, mount.directory};
}

}  // namespace

// "2:cpu,cpuacct:/user.slice" and "0::/user.slice"; the path may hold colons.
std::vector<GroupMembership> parseMemberships(std::string_view text) {
    std::vector<GroupMembership> memberships;
    while (!text.empty()) {
        std::string_view line = takeLine(&text);
        const bool numbered = number(takeUntil(&line, ':')).has_value();
        const std::string_view controllers = takeUntil(&line, ':');
        if (!numbered || line.empty() || line[0] != '/') continue;
        memberships.push_back({std::string(controllers), std::string(line)});
    }
    return memberships;
}

std::vector<GroupMount> parseGroupMounts(std::string_view text) {
    std::vector<GroupMount> mounts;
    while (!text.empty()) {
        if (auto mount = parseMount(takeLine(&text))) mounts.push_back(std::move(*mount));
    }
    return mounts;
}

std::optional<GroupPlace> findGroup(const std::vector<GroupMembership>& memberships,
                                    const std::vector<GroupMount>& mounts, std::string_view controller) {
    for (const bool version2 : {false, true}) {
        for (const GroupMembership& membership : memberships) {
            if (version2 ? !membership.controllers.empty() : !names(membership.controllers, controller)) continue;
            for (const GroupMount& mount : mounts) {
                if (mount.version2 != version2 || (!version2 && !names(mount.controllers, controller))) continue;
                if (auto found = place(membership, mount)) return found;
            }
        }
    }
    return std::nullopt;
}

std::optional<Throttling> parseThrottling(std::string_view text) {
    const auto nanoseconds = numberNamed(text, "throttled_time");
    const auto microseconds = numberNamed(text, "throttled_usec");
    const auto times = numberNamed(text, "nr_throttled"), periods = numberNamed(text, "nr_periods");
    if (nanoseconds && times && periods) return Throttling{*nanoseconds, *times, *periods};
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max() / 1000;
    if (microseconds && times && periods) return Throttling{std::min(*microseconds, kMost) * 1000, *times, *periods};
    if (numberNamed(text, "usage_usec") && !periods) return Throttling{};
    return std::nullopt;
}

std::optional<std::uint64_t> parseMemoryKills(std::string_view text) { return numberNamed(text, "oom_kill"); }

std::optional<std::uint64_t> parseSingleNumber(std::string_view text) {
    const std::string_view word = takeLine(&text);
    if (word == "max") return std::numeric_limits<std::uint64_t>::max();
    return number(word);
}

// "20000 100000": microseconds in each period of so many; "max 100000" without a limit.
std::optional<double> parseCpuMax(std::string_view text) {
    std::string_view line = takeLine(&text);
    const auto quota = number(takeWord(&line)), period = number(takeWord(&line));
    if (!quota || !period || *period == 0) return std::nullopt;
    return static_cast<double>(*quota) / static_cast<double>(*period);
}

}  // namespace kernel
