// processes.h - the processes of the machine: which of them are engines, and what the others used.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/evidence.h"
#include "kernel/taskFiles.h"

/// Whom to watch, beside the product's own engines.
struct EngineChoice {
    std::vector<std::string> names;  ///< command names, or file names of executables
    std::optional<int> pid;          ///< a process with its descendants
    bool standIns = false;           ///< these descendants only stand in for the product's engines, where none is seen
};

struct FoundEngine {
    ProcessKey key;
    std::string name;
    std::size_t chosenBy;       ///< index of the name in EngineChoice::names; or one of the following
    std::uint64_t majorFaults;  ///< of all its threads, since it began
    bool standIn = false;
};
constexpr std::size_t kByRule = static_cast<std::size_t>(-1);
constexpr std::size_t kByPid = static_cast<std::size_t>(-2);
constexpr std::size_t kAsDescendant = static_cast<std::size_t>(-3);

class Processes {
public:
    /// `ownPid` is never an engine.
    Processes(EngineChoice choice, int ownPid) : choice_(std::move(choice)), ownPid_(ownPid) {}

    /// Looks at all processes. False when /proc cannot be listed.
    bool scan();

    /// The engines that ran at the last scan, zombies left out.
    const std::vector<FoundEngine>& engines() const { return engines_; }

    /// True when this process ran at the last scan and was none of the engines.
    bool isAnotherProgram(const ProcessKey& key) const;

    /// True when another process had its id at the last scan, so that this one has ended.
    bool idIsTaken(const ProcessKey& key) const;

    /// The programs that used most processor time since the first scan, engines left out; at most `count`.
    std::vector<ProgramTime> others(std::size_t count) const;

private:
    struct Seen {
        std::string name;
        std::string executable;         // the file's name, where names were asked for
        std::uint64_t unseenTicks = 0;  // used before the first scan
        std::uint64_t ticks = 0;
        bool descendant = false;
        bool engine = false;
        unsigned scan = 0;
    };
    struct Finished {
        std::uint64_t ticks = 0;
        int processes = 0;
    };

    void add(const kernel::TaskStat& stat);
    void markDescendants(const std::vector<kernel::TaskStat>& stats);
    std::optional<std::size_t> chosenBy(const kernel::TaskStat& stat, const Seen& seen) const;
    void forgetEnded();
    void forgetSmallPrograms();

    EngineChoice choice_;
    int ownPid_;
    unsigned scans_ = 0;
    std::optional<ProcessKey> root_;  // the process that was chosen by its id
    std::map<ProcessKey, Seen> seen_;
    std::map<std::string, Finished> finished_;  // by name, those that used most
    std::vector<FoundEngine> engines_;
};
