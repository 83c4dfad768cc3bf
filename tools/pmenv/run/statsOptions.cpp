#include "statsOptions.h"

#include "failure.h"

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

void check(const CommandLine& line, const StatsOptions& options) {
    allowOneOf(line, {"watch", "json", "csv", "openmetrics"});
    allowOneOf(line, {"count", "duration"});
    demand(line, {"output", "per-process", "machine"}, line.has("openmetrics"), "--openmetrics");
    for (const char* const option : {"output", "record"}) {
        if (line.has(option) && line.text(option).empty())
            refuse("--" + std::string(option) + " needs the name of a file");
    }

    const bool repeated = options.count != 1 || options.duration;
    if (line.has("openmetrics") && repeated && options.output.empty()) {
        refuse("--openmetrics of more than one sample needs --output FILE");
    }
}

}  // namespace

StatsOptions readStatsOptions(const CommandLine& line) {
    if (line.has("verdict")) refuse("--verdict is now the command 'pmenv judge --duration SECONDS'");
    StatsOptions options;
    options.format = formatOf(line);
    options.interval = line.number("interval", options.interval);
    options.watch = line.has("watch");
    options.parts.perProcess = line.has("per-process");
    options.parts.machine = line.has("machine");
    options.output = line.text("output");
    options.record = line.text("record");
    options.count = static_cast<std::size_t>(line.number("count", options.watch || line.has("duration") ? 0 : 1));
    if (line.has("duration")) options.duration = line.number("duration", 0);
    check(line, options);
    return options;
}
