#include "judgeLimits.h"

#include <optional>

#include "failure.h"

namespace {

std::optional<double> numberOf(const CommandLine& line, const char* option, std::optional<double> otherwise) {
    return line.has(option) ? std::optional(line.number(option, 0)) : otherwise;
}

}  // namespace

JudgeLimits judgeLimits(const CommandLine& line, const JudgeLimits& otherwise) {
    JudgeLimits limits = otherwise;
    limits.percentile = line.number("percentile", limits.percentile);
    limits.skip = line.number("skip", limits.skip);
    if (line.has("tolerance")) limits.tolerance = line.number("tolerance", 0) / 1000;
    if (line.has("engines")) limits.engines = static_cast<std::size_t>(line.number("engines", 0));
    limits.machinePercent = numberOf(line, "cpu-limit", limits.machinePercent);
    limits.enginePercent = numberOf(line, "engine-limit", limits.enginePercent);
    limits.sustain = line.number("sustain", limits.sustain);
    limits.memoryPercent = numberOf(line, "memory-limit", limits.memoryPercent);
    limits.swapMegabytes = numberOf(line, "swap-limit", limits.swapMegabytes);
    if (line.has("sustain") && !limits.machinePercent && !limits.enginePercent) {
        throw Failure("--sustain needs --cpu-limit or --engine-limit; see 'pmenv judge --help'", kExitUsage);
    }
    return limits;
}

std::string fileOption(const CommandLine& line, const char* option) {
    if (line.has(option) && line.text(option).empty()) {
        throw Failure("--" + std::string(option) + " needs the name of a file; see 'pmenv judge --help'", kExitUsage);
    }
    return line.text(option);
}
