#include "evidence/processes.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>

#include "evidence/engineName.h"
#include "kernel/files.h"

namespace {

constexpr std::ptrdiff_t kMostFinished = 1000;  // programs that have ended and are still known

std::vector<kernel::TaskStat> readAll(const std::vector<int>& pids) {
    std::vector<kernel::TaskStat> stats;
    for (const int pid : pids) {
        const auto text = kernel::readFile("/proc/" + std::to_string(pid) + "/stat");
        auto stat = text ? kernel::parseTaskStat(*text) : std::nullopt;
        if (stat) stats.push_back(std::move(*stat));  // others have ended meanwhile, or are hidden
    }
    return stats;
}

std::string executableName(int pid) {
    constexpr std::string_view kDeleted = " (deleted)";
    std::string path = kernel::linkTarget("/proc/" + std::to_string(pid) + "/exe");
    if (path.size() > kDeleted.size() && path.compare(path.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0) {
        path.resize(path.size() - kDeleted.size());
    }
    return path.substr(path.rfind('/') + 1);
}

bool hasFinished(const kernel::TaskStat& stat) { return stat.state == 'Z' || stat.state == 'X'; }

ProcessKey keyOf(const kernel::TaskStat& stat) { return {stat.id, stat.startTicks}; }

}  // namespace

bool Processes::scan() {
    const auto pids = kernel::listNumbers("/proc");
    if (!pids) return false;
    ++scans_;
    const std::vector<kernel::TaskStat> stats = readAll(*pids);
    for (const kernel::TaskStat& stat : stats) add(stat);
    markDescendants(stats);

    engines_.clear();
    for (const kernel::TaskStat& stat : stats) {
        Seen& seen = seen_[keyOf(stat)];
        const auto by = chosenBy(stat, seen);
        seen.engine = by.has_value();
        if (!by || hasFinished(stat)) continue;
        engines_.push_back({keyOf(stat), stat.name, *by, stat.majorFaults, choice_.standIns && *by == kAsDescendant});
    }
    forgetEnded();
    return true;
}

void Processes::add(const kernel::TaskStat& stat) {
    const auto [place, isNew] = seen_.try_emplace(keyOf(stat));
    Seen& seen = place->second;
    if (isNew && scans_ == 1) seen.unseenTicks = stat.ticks;
    const bool renamed = isNew || seen.name != stat.name;
    if (renamed && !choice_.names.empty()) seen.executable = executableName(stat.id);
    seen.name = stat.name;
    seen.ticks = std::max(stat.ticks, seen.ticks);
    seen.scan = scans_;
    if (scans_ == 1 && choice_.pid == stat.id) root_ = keyOf(stat);
}

// Once a descendant, always a descendant: its parent may end before it. A child may stand before its parent in the list.
void Processes::markDescendants(const std::vector<kernel::TaskStat>& stats) {
    if (!root_) return;
    std::set<int> family;
    for (const kernel::TaskStat& stat : stats) {
        Seen& seen = seen_[keyOf(stat)];
        seen.descendant = seen.descendant || keyOf(stat) == *root_;
        if (seen.descendant) family.insert(stat.id);
    }
    for (bool grew = true; grew;) {
        grew = false;
        for (const kernel::TaskStat& stat : stats) {
            if (family.count(stat.parent) == 0 || family.count(stat.id) != 0) continue;
            seen_[keyOf(stat)].descendant = true;
            grew = family.insert(stat.id).second;
        }
    }
}

// The library's rule for the product's engines is that the command's name holds kEngineName.
std::optional<std::size_t> Processes::chosenBy(const kernel::TaskStat& stat, const Seen& seen) const {
    if (stat.id == ownPid_) return std::nullopt;
    for (std::size_t i = 0; i < choice_.names.size(); ++i) {
        const std::string& name = choice_.names[i];
        if (stat.name == name.substr(0, kernel::kNameLength) || seen.executable == name) return i;
    }
    if (root_ == keyOf(stat)) return kByPid;
    if (stat.name.find(kEngineName) != std::string::npos) return kByRule;
    if (seen.descendant) return kAsDescendant;
    return std::nullopt;
}

void Processes::forgetEnded() {
    for (auto entry = seen_.begin(); entry != seen_.end();) {
        const Seen& seen = entry->second;
        if (seen.scan == scans_) {
            ++entry;
            continue;
        }
        if (!seen.engine) {
            Finished& finished = finished_[seen.name];
            finished.ticks += seen.ticks - seen.unseenTicks;
            ++finished.processes;
        }
        entry = seen_.erase(entry);
    }
    if (finished_.size() > static_cast<std::size_t>(2 * kMostFinished)) forgetSmallPrograms();
}

// Names can be made up for ever.
void Processes::forgetSmallPrograms() {
    std::vector<std::uint64_t> ticks;
    for (const auto& [name, program] : finished_) ticks.push_back(program.ticks);
    const auto least = ticks.begin() + kMostFinished;
    std::nth_element(ticks.begin(), least, ticks.end(), std::greater<>());
    for (auto entry = finished_.begin(); entry != finished_.end();) {
        entry = entry->second.ticks <= *least ? finished_.erase(entry) : std::next(entry);
    }
}

bool Processes::isAnotherProgram(const ProcessKey& key) const {
    const auto found = seen_.find(key);
    return found != seen_.end() && !found->second.engine;
}

bool Processes::idIsTaken(const ProcessKey& key) const {
    const auto found = seen_.lower_bound(ProcessKey{key.pid, 0});
    return found != seen_.end() && found->first.pid == key.pid && !(found->first == key);
}

std::vector<ProgramTime> Processes::others(std::size_t count) const {
    std::map<std::string, Finished> programs = finished_;
    for (const auto& [key, seen] : seen_) {
        if (seen.engine || seen.ticks == seen.unseenTicks) continue;
        programs[seen.name].ticks += seen.ticks - seen.unseenTicks;
        ++programs[seen.name].processes;
    }
    std::vector<ProgramTime> times;
    for (const auto& [name, program] : programs) {
        if (program.ticks > 0) times.push_back({name, kernel::secondsOfTicks(program.ticks), program.processes});
    }
    std::stable_sort(times.begin(), times.end(),
                     [](const ProgramTime& left, const ProgramTime& right) { return left.seconds > right.seconds; });
    if (times.size() > count) times.resize(count);
    return times;
}
