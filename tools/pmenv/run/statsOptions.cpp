#include "statsOptions.h"

#include "failure.h"
#include "units.h"

namespace {

[[noreturn]] void refuse(const std::string& what) { throw Failure(what + "; see 'pmenv stats --help'", kExitUsage); }

// The options given of a list that excludes each other; the second one is refused.
void allowOneOf(const CommandLine& line, std::initializer_list<const char*> options) {
    const char* given = nullptr;
    for (const char* const option : options) {
        if (!line.has(option)) continue;
        if (given != nullptr) refuse("--" + std::string(given) + " and --" + option + " do not go together");
        given = option;
    }
}

void demand(const CommandLine& line, std::initializer_list<const char*> options, bool condition, const char* needed) {
    for (const char* const option : options) {
        if (line.has(option) && !condition) refuse("--" + std::string(option) + " needs " + needed);
    }
}

StatsOptions::Format formatOf(const CommandLine& line) {
    if (line.has("json")) return StatsOptions::Format::JsonLines;
    if (line.has("csv")) return StatsOptions::Format::Csv;
    if (line.has("openmetrics")) return StatsOptions::Format::OpenMetrics;
    return StatsOptions::Format::Table;
}

VerdictLimits limitsOf(const CommandLine& line) {
    VerdictLimits limits;
    limits.machinePercent = line.number("cpu-limit", limits.machinePercent);
    limits.enginePercent = line.number("engine-limit", limits.enginePercent);
    limits.seconds = line.number("sustain", limits.seconds);
    limits.memoryPercent = line.number("memory-limit", limits.memoryPercent);
    limits.swapMegabytes = line.number("swap-limit", limits.swapMegabytes);
    return limits;
}

void check(const CommandLine& line, const StatsOptions& options) {
    allowOneOf(line, {"json", "csv", "openmetrics"});
    allowOneOf(line, {"watch", "json", "csv", "openmetrics"});
    allowOneOf(line, {"verdict", "csv", "openmetrics"});
    allowOneOf(line, {"count", "duration"});
    allowOneOf(line, {"count", "verdict"});
    demand(line, {"output", "per-process"}, line.has("openmetrics"), "--openmetrics");
    demand(line, {"cpu-limit", "engine-limit", "sustain", "memory-limit", "swap-limit"},
           options.watch || options.verdict, "--verdict or --watch");
    if (line.has("output") && options.output.empty()) refuse("--output needs the name of a file");

    const bool repeated = options.count != 1 || options.duration;
    if (line.has("openmetrics") && repeated && options.output.empty()) {
        refuse("--openmetrics of more than one sample needs --output FILE");
    }
    if (options.verdict && options.duration && *options.duration < options.limits.seconds) {
        refuse("--duration " + secondsText(*options.duration) +
               " is too short for a verdict: a limit must be passed for " + secondsText(options.limits.seconds) +
               " (--sustain)");
    }
}

}  // namespace

StatsOptions readStatsOptions(const CommandLine& line) {
    constexpr double kUsualRun = 60;
    StatsOptions options;
    options.format = formatOf(line);
    options.interval = line.number("interval", options.interval);
    options.watch = line.has("watch");
    options.verdict = line.has("verdict");
    options.perProcess = line.has("per-process");
    options.output = line.text("output");
    options.limits = limitsOf(line);
    options.count = static_cast<std::size_t>(line.number("count", options.watch || line.has("duration") ? 0 : 1));
    if (line.has("duration")) options.duration = line.number("duration", kUsualRun);
    if (options.verdict && !options.watch && !options.duration) options.duration = kUsualRun;
    if (options.duration) options.count = 0;
    check(line, options);
    return options;
}
