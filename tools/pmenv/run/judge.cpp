// judge: watches the load engines of a run and says which percentiles of its results may be believed.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <ctime>
#include <iostream>
#include <limits>

#include <unistd.h>

#include "commandLine.h"
#include "events.h"
#include "failure.h"
#include "figures.h"
#include "judgeFormats.h"
#include "judgeLimits.h"
#include "judgeRecordings.h"
#include "judgement/judgement.h"
#include "kernel/files.h"
#include "recording/recording.h"
#include "runWatch.h"
#include "units.h"

namespace {

// --- options --------------------------------------------------------------------------------------------------------

struct JudgeOptions {
    std::optional<double> duration;
    EngineChoice choice;
    IgnoredThreads ignored;
    JudgeLimits limits;
    bool json = false;
    std::string record;  ///< file; "" for none
};

[[noreturn]] void refuse(const std::string& what) { throw Failure(what + "; see 'pmenv judge --help'", kExitUsage); }

JudgeOptions optionsOf(const CommandLine& line) {
    if (line.has("to")) refuse("--to needs a recording");
    JudgeOptions options;
    if (line.has("duration")) options.duration = line.number("duration", 0);
    options.choice.names = line.texts("engine");
    if (line.has("pid")) options.choice.pid = static_cast<int>(line.number("pid", 0));
    for (const std::string& name : options.choice.names) {
        if (name.empty()) refuse("--engine needs a name");
    }
    options.ignored = line.texts("ignore-thread");
    options.limits = judgeLimits(line);
    options.json = line.has("json");
    options.record = recordOption(line);
    return options;
}

// --- telling what is watched ----------------------------------------------------------------------------------------

std::string whomText(const EngineChoice& choice) {
    std::string text = std::string("load engines named ") + kEngineName;
    for (const std::string& name : choice.names) text += ", " + name;
    if (choice.pid) text += ", process " + std::to_string(*choice.pid) + " and what it starts";
    return text;
}

std::string clockText(double inSeconds) {
    const std::time_t end = std::time(nullptr) + static_cast<std::time_t>(inSeconds);
    std::tm parts{};
    localtime_r(&end, &parts);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%H:%M:%S", &parts)};
}

// One line on standard error: counting down on a terminal, else written once.
class Countdown {
public:
    explicit Countdown(const JudgeOptions& options) : options_(options), live_(isatty(STDERR_FILENO) != 0) {
        std::string until = ", until SIGINT or SIGTERM";
        if (options.duration) {
            until = " for " + secondsText(*options.duration) + ", until " + clockText(*options.duration);
        }
        std::cerr << "pmenv: watching " + whomText(options.choice) + until + "\n" << std::flush;
    }
    ~Countdown() {
        if (live_) std::cerr << "\r\033[K" << std::flush;
    }
    Countdown(const Countdown&) = delete;
    Countdown& operator=(const Countdown&) = delete;

    void show(double seconds, std::size_t engines) const {
        if (!live_) return;
        const std::string time = options_.duration
                                     ? secondsText(std::max(0.0, std::round(*options_.duration - seconds))) + " left"
                                     : secondsText(std::round(seconds));
        std::cerr << "\r\033[K" + time + ", " + std::to_string(engines) + (engines == 1 ? " engine" : " engines")
                  << std::flush;
    }

private:
    const JudgeOptions& options_;
    bool live_;
};

// --- watching -------------------------------------------------------------------------------------------------------

// Until the end of the duration, or until somebody ends it.
void watchRun(const JudgeOptions& options, RunWatch& watch) {
    constexpr double kShown = 1;  // seconds between two lines of the countdown
    Events events({SIGINT, SIGTERM, SIGHUP}, false);
    const Countdown countdown(options);
    const double start = kernel::clockSeconds();
    const double end = options.duration ? start + *options.duration : std::numeric_limits<double>::infinity();
    for (double now = start; now < end; now = kernel::clockSeconds()) {
        if (watch.wait(events, std::min(kShown, end - now)).kind == Events::Kind::Signal) break;
        countdown.show(kernel::clockSeconds() - start, watch.engines());
    }
    watch.finish();
}

int judgeLive(const CommandLine& line) {
    const JudgeOptions options = optionsOf(line);
    const RecordingHeader header = headerOfThisHost(options.choice, options.ignored, options.limits);
    std::optional<RecordingWriter> recording;
    if (!options.record.empty()) recording.emplace(options.record, header);
    JudgeContext context;
    context.host = header.host;
    context.start = header.start;
    const double cpuBefore = kernel::ownCpuSeconds();
    RunWatch watch(options.choice, options.ignored, options.limits, recording ? &*recording : nullptr);
    watchRun(options, watch);
    context.cpuSeconds = kernel::ownCpuSeconds() - cpuBefore;
    context.missingNames = watch.missingNames();

    const Judged judged = watch.judged();
    if (recording) recording->write(RecordedOutcome{judged.outcome, judged.believed, *context.cpuSeconds});
    if (options.json) {
        printJson(judgeJson(judged, options.limits, context));
    } else {
        std::cout << judgeText(judged, options.limits, context, Style(STDOUT_FILENO));
    }
    const int exitCode = judgeExitCode(judged);
    return recording && !recording->complete() ? std::max(exitCode, kExitWrong) : exitCode;
}

int run(const CommandLine& line) { return line.arguments().empty() ? judgeLive(line) : judgeRecordings(line); }

// --- grammar --------------------------------------------------------------------------------------------------------

std::vector<Option> judgeOptions() {
    constexpr Option::Kind kText = Option::Kind::Text;
    constexpr Option::Kind kNumber = Option::Kind::Number;
    constexpr double kMost = 1e9;
    return {
        {"duration", kNumber, "SECONDS", "watch for this time; until SIGINT or SIGTERM unless given", 2, kMost},
        {"percentile", kNumber, "P", "the percentile to judge; 99 unless given", 0, 100},
        {"tolerance", kNumber, "MS", "milliseconds by which a request may be late; 10 unless given", 1, 60000},
        {"engine", kText, "NAME", "also watch programs of this command name or file name; may be given several times"},
        {"pid", kNumber, "PID", "also watch this process and the processes that it starts", 1, 4194304, true},
        {"engines", kNumber, "N", "number of engines that must run throughout", 1, kMost, true},
        {"ignore-thread", kText, "NAME", "ignore threads of this name, which send no load; may be given several times"},
        {"cpu-limit", kNumber, "PERCENT", "limit on the machine's processors; passing it for --sustain spoils the run",
         0, 1000},
        {"engine-limit", kNumber, "PERCENT", "limit on one engine, of one processor; the same", 0, 100000},
        {"sustain", kNumber, "SECONDS", "how long in total these two may be passed; 10 unless given", 0, kMost},
        {"memory-limit", kNumber, "PERCENT", "share of the memory that must stay available", 0, 100},
        {"swap-limit", kNumber, "MIB", "amount by which swap in use may grow", 0, kMost},
        {"record", Option::Kind::File, "FILE", "keep what is seen in FILE, to judge or to draw it again"},
        {"to", kNumber, "T", "of a recording: judge up to second T", 0, kMost},
    };
}

}  // namespace

Command judgeCommand() {
    return {"judge",
            "watch the load engines of a run: which percentiles of its results may be believed?",
            {{"FILE", "a recording to judge again, one for each load generator, instead of watching", true, true,
              Offer::Files}},
            judgeOptions(),
            "pmenv judge --duration 60                          exit code 0 clean, 3 spoiled, 4 cannot tell\n"
            "pmenv judge --duration 60 --percentile 95 --json   as JSON, for a pipeline\n"
            "pmenv judge --duration 60 --record gen1.pmrec      keep what was seen\n"
            "pmenv judge gen1.pmrec gen2.pmrec                  judge two load generators by their recordings\n"
            "pmenv judge --engine wrk --duration 60             another program that generates load\n"
            "pmenv judge --pid 1234 --engines 2                 a process and its children, until Ctrl-C",
            run};
}
