// figures.h - one sample of the machine and its load engines.
//
// Unknown is not zero: a figure that could not be measured is empty.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MachineStats.h"

/// What the kernel keeps of the load engines' command name.
constexpr char kEngineName[] = "PMLoadEngineMai";

struct EngineFigures {
    int processId;
    std::string name;                  ///< its command name
    std::optional<double> cpuPercent;  ///< of ONE processor; one that runs several threads may pass 100
    std::optional<std::uint64_t> residentBytes;
};

struct Figures {
    std::chrono::system_clock::time_point time;
    double seconds;  ///< since the sampler was made, on a clock that never goes back
    int processors;
    std::optional<double> cpuPercent;  ///< of all processors together, 0 to 100
    std::uint64_t memoryBytes;
    std::uint64_t freeBytes;                      ///< without caches
    std::optional<std::uint64_t> availableBytes;  ///< what programs can still get, caches included
    std::uint64_t swapBytes;
    std::optional<std::uint64_t> swapUsedBytes;
    std::vector<EngineFigures> engines;
    std::vector<std::string> warnings;  ///< what the library logged as it measured
};

/// What /proc/meminfo tells beyond the library's figures.
struct MemInfo {
    std::optional<std::uint64_t> availableBytes;
    std::optional<std::uint64_t> swapUsedBytes;
};
MemInfo parseMemInfo(std::string_view text);

/// Takes samples. An engine that ends while it is looked at is not in them. Percentages need earlier samples: the
/// machine's is known from the second, an engine's from the third that sees it. Samples lie more than a second apart,
/// as the library's collector wants it.
class Sampler {
public:
    static constexpr double kShortestInterval = 1.01;  // seconds

    Figures take();

private:
    void measure(KREnvMachineStats* stats, std::vector<std::string>* warnings);
    std::vector<EngineFigures> engines(const std::vector<KREnvSlaveStats>& slaves, int processors);

    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    MachineStats collector_;
    std::map<int, int> timesSeen_;  // by process id
};
