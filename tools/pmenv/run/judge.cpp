// judge: watches the load engines of a run and says which percentiles of its results may be believed.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <ctime>
#include <iostream>
#include <limits>

#include <unistd.h>

#include "atomicFile.h"
#include "command/childProcess.h"
#include "commandLine.h"
#include "events.h"
#include "evidence/engineName.h"
#include "failure.h"
#include "judgeFormats.h"
#include "judgeLimits.h"
#include "judgeRecordings.h"
#include "judgement/judgement.h"
#include "junit.h"
#include "kernel/files.h"
#include "output.h"
#include "recording/recording.h"
#include "runWatch.h"
#include "text.h"
#include "units.h"

namespace {

// --- options --------------------------------------------------------------------------------------------------------

struct JudgeOptions {
    std::optional<double> duration;
    EngineChoice choice;
    IgnoredThreads ignored;
    JudgeLimits limits;
    bool json = false;
    std::string record;                // the file; "" for none
    std::string junit;                 // the same
    std::vector<std::string> program;  // to start; empty to watch what runs
};

[[noreturn]] void refuse(const std::string& what) { throw Failure(what + "; see 'pmenv judge --help'", kExitUsage); }

JudgeOptions optionsOf(const CommandLine& line) {
    for (const char* const option : {"from", "to"}) {
        if (line.has(option)) refuse("--" + std::string(option) + " needs a recording");
    }
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
    options.record = fileOption(line, "record");
    options.junit = fileOption(line, "junit");
    options.program = line.program();
    if (options.program.empty()) return options;
    if (options.duration) refuse("--duration and a command do not go together: the watch ends with the command");
    if (options.choice.names.empty() && !options.choice.pid) {
        options.choice.pid = getpid();  // with the command and all that it starts
        options.choice.standIns = true;
    }
    return options;
}

// --- telling what is watched ----------------------------------------------------------------------------------------

std::string whomText(const EngineChoice& choice) {
    std::string text = std::string("load engines named ") + kEngineName;
    for (const std::string& name : choice.names) text += ", " + printable(name);
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
        std::cerr << "\r\033[K" + time + ", " + countText(engines, "engine") << std::flush;
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
    double now = start;
    while (now < end && watch.wait(events, std::min(kShown, end - now)).kind != Events::Kind::Signal) {
        now = kernel::clockSeconds();
        countdown.show(now - start, watch.engines());
    }
    watch.finish();
}

// As long as the command runs.
void watchCommand(ChildProcess& command, RunWatch& watch) {
    constexpr double kLong = 60;  // seconds
    while (!command.status()) {
        const Events::Event event = watch.wait(command.events(), kLong);
        if (event.kind == Events::Kind::Signal) command.handle(event.value);
    }
    watch.finish();
}

// --- telling the verdict --------------------------------------------------------------------------------------------

// Standard output is the command's, where one was started.
void tellVerdict(const JudgeOptions& options, const JudgedRun& run) {
    const auto& [context, judged, limits] = run;
    const bool started = context.commandStatus.has_value();
    std::ostream& out = started ? std::cerr : std::cout;
    if (options.json) {
        printJson(judgeJson(judged, limits, context), out);
    } else {
        out << judgeText(judged, limits, context, Style(started ? STDERR_FILENO : STDOUT_FILENO));
    }
    if (!options.junit.empty()) replaceFile(options.junit, junitXml({run}));
}

// The command's exit code goes before everything else.
int tellAfterCommand(const JudgeOptions& options, const JudgedRun& run) {
    std::signal(SIGPIPE, SIG_IGN);  // nobody may be there to read the verdict
    const int code = shellExitCode(*run.context.commandStatus);
    try {
        tellVerdict(options, run);
    } catch (const Failure& failure) {
        if (code == 0) throw;
        printError(failure.what());
    }
    return code != 0 ? code : judgeExitCode(run.judged);
}

int tell(const JudgeOptions& options, const JudgedRun& run) {
    if (run.context.commandStatus) return tellAfterCommand(options, run);
    tellVerdict(options, run);
    return judgeExitCode(run.judged);
}

// --- one run --------------------------------------------------------------------------------------------------------

// The command is started before the watch begins, which raises limits that it would inherit, and after the recording is
// created, because a command that cannot be recorded is not to be started.
int judgeLive(const CommandLine& line) {
    const JudgeOptions options = optionsOf(line);
    RecordingHeader header = headerOfThisHost(options.choice, options.ignored, options.limits);
    header.command = options.program;
    std::optional<RecordingWriter> recording;
    if (!options.record.empty()) recording.emplace(options.record, header);
    std::optional<ChildProcess> command;
    if (!options.program.empty()) command.emplace(options.program);
    JudgeContext context;
    context.host = header.host;
    context.start = header.start;
    RunWatch watch(options.choice, options.ignored, options.limits, recording ? &*recording : nullptr);
    if (command) {
        watchCommand(*command, watch);
    } else {
        watchRun(options, watch);
    }
    context.cpuSeconds = watch.cpuSeconds();
    context.missingNames = watch.missingNames();

    const Judged judged = watch.judged();
    if (command) context.commandStatus = command->status();
    const int exitCode = tell(options, {context, judged, options.limits});
    return recording && !recording->complete() ? std::max(exitCode, kExitWrong) : exitCode;
}

int runJudge(const CommandLine& line) { return line.arguments().empty() ? judgeLive(line) : judgeRecordings(line); }

// --- grammar --------------------------------------------------------------------------------------------------------

std::vector<Option> judgeOptions() {
    constexpr Option::Kind kText = Option::Kind::Text;
    constexpr Option::Kind kNumber = Option::Kind::Number;
    constexpr double kLargest = 1e9;
    return {
        {"duration", kNumber, "SECONDS", "watch for this time; until SIGINT or SIGTERM unless given", 2, kLargest},
        {"skip", kNumber, "SECONDS", "watch the first SECONDS, in which load is built up, but do not judge them", 0,
         kLargest},
        {"percentile", kNumber, "P", "the percentile to judge; 99 unless given", 0, 100},
        {"tolerance", kNumber, "MS", "milliseconds by which a request may be late; 10 unless given", 1, 60000},
        {"engine", kText, "NAME", "also watch programs of this command name or file name; may be given several times"},
        {"pid", kNumber, "PID", "also watch this process and the processes that it starts", 1, 4194304, true},
        {"engines", kNumber, "N", "number of engines that must run throughout", 1, kLargest, true},
        {"ignore-thread", kText, "NAME", "ignore threads of this name, which send no load; may be given several times"},
        {"cpu-limit", kNumber, "PERCENT", "limit on the machine's processors; passing it for --sustain spoils the run",
         0, 1000},
        {"engine-limit", kNumber, "PERCENT", "limit on one engine, of one processor; the same", 0, 100000},
        {"sustain", kNumber, "SECONDS", "how long in total these two may be passed; 10 unless given", 0, kLargest},
        {"memory-limit", kNumber, "PERCENT", "share of the memory that must stay available", 0, 100},
        {"swap-limit", kNumber, "MIB", "amount by which swap in use may grow", 0, kLargest},
        {"junit", Option::Kind::File, "FILE", "also write the verdict to FILE as a JUnit report, for a pipeline"},
        {"record", Option::Kind::File, "FILE", "keep what is seen in FILE, to judge, draw or export it"},
        {"from", kNumber, "T", "of a recording: judge from second T on", 0, kLargest},
        {"to", kNumber, "T", "of a recording: judge up to second T", 0, kLargest},
    };
}

}  // namespace

Command judgeCommand() {
    return {
        "judge",
        "watch the load engines of a run: which percentiles of its results may be believed?",
        {{"FILE", "a recording to judge again, one for each load generator, instead of watching", true, true,
          Offer::Files}},
        judgeOptions(),
        "pmenv judge --duration 60                          exit code 0 clean, 3 spoiled, 4 cannot tell\n"
        "pmenv judge --duration 60 --percentile 95 --json   as JSON, for a pipeline\n"
        "pmenv judge --duration 60 --record gen1.pmrec      keep what was seen\n"
        "pmenv judge gen1.pmrec gen2.pmrec                  judge two load generators by their recordings\n"
        "pmenv judge --engine wrk --duration 60             another program that generates load\n"
        "pmenv judge --pid 1234 --engines 2                 a process and its children, until Ctrl-C\n"
        "pmenv judge --skip 10 -- wrk -d 60 http://host     starts a command and watches it until it ends",
        runJudge,
        "With COMMAND, the verdict goes to standard error, also with --json; standard output is the command's. The "
        "exit "
        "code is that of the command (128 and the signal that ended it), and that of the verdict when the command "
        "ended "
        "with 0; 127 when there is no such command, 126 when it cannot be executed.\n\n"
        "INT, TERM, HUP, QUIT, TSTP and CONT are passed on to the command. All processes that it starts count as load "
        "engines, unless --engine or --pid names others or an engine of the product runs. The watch ends with the "
        "command, even if it leaves processes behind.",
        "the command to start, with its arguments; it is watched until it ends"};
}
