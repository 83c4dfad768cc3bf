// SampleFigures.h - figures to begin with, for tests that change some of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "figures.h"

inline constexpr std::uint64_t kGiB = 1024ULL * 1024 * 1024;
inline constexpr std::uint64_t kMiB = 1024ULL * 1024;

/// A machine at rest with 10 GiB, all of it available.
inline Figures figuresAt(double seconds) {
    Figures figures{};
    figures.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'000'000'000'123));
    figures.seconds = seconds;
    figures.host = "loadhost";
    figures.processors = 4;
    figures.cpuPercent = 5.0;
    figures.memoryBytes = 10 * kGiB;
    figures.freeBytes = 8 * kGiB;
    figures.availableBytes = 10 * kGiB;
    figures.swapBytes = 2 * kGiB;
    figures.swapUsedBytes = 0;
    return figures;
}

inline EngineFigures engine(int processId, std::optional<double> percent,
                            std::optional<std::uint64_t> bytes = 3 * kMiB) {
    return {processId, kEngineName, percent, bytes};
}
