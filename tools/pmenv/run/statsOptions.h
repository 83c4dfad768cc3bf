// statsOptions.h - what the user wants of `stats`.
#pragma once

#include <optional>
#include <string>

#include "commandLine.h"
#include "counters.h"

struct StatsOptions {
    enum class Format { Table, JsonLines, Csv, OpenMetrics };

    Format format = Format::Table;
    double interval = 1;             ///< seconds between samples
    std::size_t count = 1;           ///< samples; 0 for no end
    std::optional<double> duration;  ///< seconds; takes the place of the count
    bool watch = false;
    ExpositionParts parts;
    std::string output;  ///< file to replace; "" for standard output
    std::string record;  ///< file for the recording; "" for none
};

/// Throws Failure with kExitUsage for options that do not go together.
StatsOptions readStatsOptions(const CommandLine& line);
