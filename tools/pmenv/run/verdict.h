// verdict.h - was the load generator itself the bottleneck of a run?
//
// A pure judgement: samples with their times go in, findings come out. No clock, no file.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "figures.h"
#include "output.h"

struct VerdictLimits {
    double machinePercent = 90;  ///< processor time of the machine, at or over which ...
    double enginePercent = 95;   ///< processor time of one engine, in per cent of one processor, at or over which ...
    double seconds = 10;         ///< ... for this long is a finding
    double memoryPercent = 10;   ///< available memory under this share of all is a finding
    double swapMegabytes = 1;    ///< swap in use grown by more than this many MiB is a finding
};

struct Finding {
    enum class Kind { MachineCpu, EngineCpu, Memory, Swap };

    Kind kind;
    int processId = 0;     ///< of the engine
    double worst = 0;      ///< per cent; for swap, bytes
    double seconds = 0;    ///< the longest stretch beyond the limit
    double since = 0;      ///< when the longest stretch began, in seconds of the run
    bool lasting = false;  ///< still so at the last sample
};

class Verdict {
public:
    explicit Verdict(const VerdictLimits& limits) : limits_(limits) {}

    /// Takes the next sample; the times of samples rise.
    void add(const Figures& figures);

    /// What has been found so far; empty means healthy.
    std::vector<Finding> findings() const;
    bool saturated() const { return !findings().empty(); }

    /// The time between the first sample and the last.
    double seconds() const;

    /// The worst of each figure seen, for the summary of a healthy run; empty when never known.
    std::optional<double> busiestMachine() const { return busiestMachine_; }
    std::optional<double> busiestEngine() const { return busiestEngine_; }
    std::optional<double> leastMemory() const { return leastMemory_; }
    std::optional<std::uint64_t> swapGrowth() const { return swapGrowth_; }
    std::size_t engineCount() const { return engines_.size(); }

    const VerdictLimits& limits() const { return limits_; }

private:
    // The stretches in which a figure is beyond its limit without a break.
    struct Stretch {
        bool open = false;
        double since = 0;
        double worst = 0;
        std::optional<Finding> longest;  // that has lasted long enough
    };

    void follow(Stretch& stretch, Finding finding, std::optional<double> figure, double limit, const Figures& figures);
    void addEngines(const Figures& figures);
    void addMemory(const Figures& figures);
    void addSwap(const Figures& figures);

    VerdictLimits limits_;
    std::optional<double> first_;
    std::optional<double> last_;
    Stretch machine_;
    std::map<int, Stretch> engines_;  // by process id, those that have ended included
    std::optional<Finding> memory_;
    std::optional<Finding> swap_;
    std::optional<std::uint64_t> leastSwap_;
    std::optional<double> busiestMachine_;
    std::optional<double> busiestEngine_;
    std::optional<double> leastMemory_;
    std::optional<std::uint64_t> swapGrowth_;
};

/// One finding as a sentence with its consequence.
std::string findingText(const Finding& finding, const VerdictLimits& limits);

/// The whole judgement in words, several lines.
std::string verdictText(const Verdict& verdict);
Json verdictJson(const Verdict& verdict);
