// stats: figures of the machine and its load engines, once, repeatedly, on a live screen, or as a verdict on a run.
#include <algorithm>
#include <csignal>
#include <iostream>

#include <unistd.h>

#include "atomicFile.h"
#include "commandLine.h"
#include "events.h"
#include "failure.h"
#include "liveTerminal.h"
#include "screen.h"
#include "statsFormats.h"
#include "statsOptions.h"
#include "units.h"

namespace {

// --- a run ----------------------------------------------------------------------------------------------------------

// Samples one after the other, judged on the way, until the options' count or duration is reached.
class Run {
public:
    explicit Run(const StatsOptions& options) : options_(options), verdict_(options.limits) {}

    const Figures& sample() {
        figures_ = sampler_.take();
        verdict_.add(figures_);
        ++taken_;
        return figures_;
    }

    // Two samples that nobody sees, so that the first one shown knows the percentages.
    void warmUp() {
        for (int i = 0; i < 2; ++i) {
            sampler_.take();
            usleep(static_cast<useconds_t>(Sampler::kShortestInterval * 1'000'000));
        }
    }

    const Figures& figures() const { return figures_; }
    const Verdict& verdict() const { return verdict_; }

    bool finished() const {
        if (options_.duration) return verdict_.seconds() >= *options_.duration;
        return options_.count != 0 && taken_ >= options_.count;
    }

    // The time to the next sample; the last one of a duration comes at its end.
    double pause() const {
        double pause = options_.interval;
        if (options_.duration) pause = std::min(pause, *options_.duration - verdict_.seconds());
        return std::max(pause, Sampler::kShortestInterval);
    }

private:
    const StatsOptions& options_;
    Sampler sampler_;
    Verdict verdict_;
    Figures figures_{};
    std::size_t taken_ = 0;
};

// --- printing -------------------------------------------------------------------------------------------------------

void printTable(const Figures& figures, bool first) {
    const auto size = terminalSize();
    std::cout << (first ? "" : "\n")
              << statsTable(figures, Style(STDOUT_FILENO), size ? std::optional(size->columns) : std::nullopt);
}

void publishOpenMetrics(const StatsOptions& options, const Figures& figures) {
    const std::string text = statsOpenMetrics(figures, options.perProcess);
    if (options.output.empty()) {
        std::cout << text;
    } else {
        replaceFile(options.output, text);
    }
}

void print(const StatsOptions& options, const Figures& figures, bool first) {
    switch (options.format) {
        case StatsOptions::Format::Table:
            printTable(figures, first);
            break;
        case StatsOptions::Format::JsonLines:
            printJsonLine(statsJson(figures));
            break;
        case StatsOptions::Format::Csv:
            std::cout << (first ? csvHeader() : "") << statsCsv(figures);
            break;
        case StatsOptions::Format::OpenMetrics:
            publishOpenMetrics(options, figures);
            break;
    }
    finishOutput();
}

// What was seen must be long enough to judge, unless it is bad already.
int printVerdict(const StatsOptions& options, const Verdict& verdict) {
    if (!verdict.saturated() && verdict.seconds() < options.limits.seconds) {
        throw Failure("stopped after " + secondsText(verdict.seconds()) +
                      ", too early for a verdict: a limit must be passed for " + secondsText(options.limits.seconds) +
                      " (--sustain)");
    }
    if (options.format == StatsOptions::Format::JsonLines) {
        printJson(verdictJson(verdict));
    } else {
        std::cout << verdictText(verdict);
    }
    return verdict.saturated() ? kExitSaturated : kExitDone;
}

// --- line by line ---------------------------------------------------------------------------------------------------

// Ctrl-C ends a run that is judged; the verdict on what was seen is still given. Otherwise it ends the program.
int runPlain(const StatsOptions& options) {
    const bool printsSamples = !options.verdict || options.watch;
    Run run(options);
    Events events(options.verdict ? std::vector<int>{SIGINT} : std::vector<int>{}, false);
    if (!options.verdict) run.warmUp();
    for (bool first = true;; first = false) {
        for (const std::string& warning : run.sample().warnings) printWarning(warning);
        if (printsSamples) print(options, run.figures(), first);
        if (run.finished() || events.wait(run.pause()).kind == Events::Kind::Signal) break;
    }
    return options.verdict ? printVerdict(options, run.verdict()) : kExitDone;
}

// --- on a live screen -----------------------------------------------------------------------------------------------

class Watch {
public:
    explicit Watch(const StatsOptions& options)
        : run_(options), events_({SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP}, isatty(STDIN_FILENO) != 0) {}

    // Returns the signal that ends the program, 0 when the user or the options ended the watch, or the terminal has
    // gone.
    int show() {
        do {
            history_.add(run_.sample().engines);
            draw();
        } while (std::cout && !run_.finished() && pause());
        return endedBy_;
    }

    const Verdict& verdict() const { return run_.verdict(); }

private:
    void draw() const {
        const TerminalSize size = terminalSize().value_or(TerminalSize{80, 24});
        terminal_.draw(screenLines(run_.figures(), history_, run_.verdict(), size, Style(STDOUT_FILENO)), size.rows);
    }

    // Until the next sample; false when the watch is to end.
    bool pause() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(run_.pause());
        for (;;) {
            const std::chrono::duration<double> left = end - std::chrono::steady_clock::now();
            const Events::Event event = events_.wait(left.count());
            if (event.kind == Events::Kind::Timeout) return true;
            if (event.kind == Events::Kind::Key && (event.value == 'q' || event.value == 'Q')) return false;
            if (event.kind == Events::Kind::Signal && !handle(event.value)) return false;
        }
    }

    // False for a signal that ends the watch.
    bool handle(int signal) {
        if (signal == SIGTERM || signal == SIGHUP) endedBy_ = signal;
        if (signal != SIGWINCH && signal != SIGTSTP) return false;
        if (signal == SIGTSTP) terminal_.suspend();
        draw();
        return true;
    }

    Run run_;
    Events events_;  // before the terminal is taken over and after it is given back, so that no signal comes between
    LiveTerminal terminal_;
    History history_;
    int endedBy_ = 0;
};

int runWatch(const StatsOptions& options) {
    int endedBy = 0;
    Verdict verdict(options.limits);
    {
        Watch watch(options);
        endedBy = watch.show();
        verdict = watch.verdict();
    }
    if (endedBy != 0) raise(endedBy);  // the terminal is as it was; the caller sees what ended the program
    return options.verdict ? printVerdict(options, verdict) : kExitDone;
}

int run(const CommandLine& line) {
    const StatsOptions options = readStatsOptions(line);
    return options.watch && canDrawInPlace() ? runWatch(options) : runPlain(options);
}

// --- grammar --------------------------------------------------------------------------------------------------------

std::vector<Option> statsOptions() {
    constexpr double kMost = 1e9;
    return {
        {"interval", Option::Kind::Number, "SECONDS", "time between samples, 1 or more; 1 unless given", 1, 86400},
        {"count", Option::Kind::Number, "N", "how many samples, 0 for no end; 1 unless given", 0, kMost, true},
        {"duration", Option::Kind::Number, "SECONDS", "sample for so long, instead of --count", 1, kMost},
        {"csv", Option::Kind::Flag, nullptr, "one line for each sample and engine, exact numbers"},
        {"openmetrics", Option::Kind::Flag, nullptr, "text exposition for a metrics collector, in base units"},
        {"per-process", Option::Kind::Flag, nullptr, "with --openmetrics: also a series for each engine, with its pid"},
        {"output", Option::Kind::File, "FILE", "with --openmetrics: replace FILE in one step instead of printing"},
        {"watch", Option::Kind::Flag, nullptr,
         "redraw in place until q or Ctrl-C; on a pipe, print a table for each sample"},
        {"verdict", Option::Kind::Flag, nullptr,
         "watch for --duration (60) and say whether this load generator was the bottleneck"},
        {"cpu-limit", Option::Kind::Number, "PERCENT",
         "of the machine's processors; 90 unless given, over 100 for never", 0, 1000},
        {"engine-limit", Option::Kind::Number, "PERCENT", "of one processor, for one engine; 95 unless given", 0,
         100000},
        {"sustain", Option::Kind::Number, "SECONDS", "how long these two must be passed; 10 unless given", 0, kMost},
        {"memory-limit", Option::Kind::Number, "PERCENT", "of the memory must stay available; 10 unless given", 0, 100},
        {"swap-limit", Option::Kind::Number, "MIB", "by which swap in use may grow; 1 unless given", 0, kMost},
    };
}

}  // namespace

Command statsCommand() {
    return {"stats",
            "print figures of the machine and its load engines, or judge a run",
            {},
            statsOptions(),
            "pmenv stats                                        one table; takes two seconds to measure\n"
            "pmenv stats --json --interval 5 --count 12         a minute, one object a line\n"
            "pmenv stats --watch                                a live screen\n"
            "pmenv stats --openmetrics --output /var/lib/node_exporter/pmenv.prom\n"
            "pmenv stats --duration 60 --verdict || exit 1      refuse a run on a saturated load generator (exit 3)",
            run,
            "The load engines are the processes named PMLoadEngineMai... . The percentages need about two "
            "seconds of measuring. Without one of --json, --csv, --openmetrics, --watch and --verdict a table "
            "for people is printed.\n\n"
            "What is not known yet, as the processor time of an engine at its first two samples, is - in a "
            "table, null in JSON, an empty field in CSV, and left out of an exposition. An engine's processor "
            "time is in per cent of one processor and may pass 100 when several of its threads are busy; its "
            "memory is a 32-bit figure and wraps at 4 GiB.\n\n"
            "With --csv there is a line for each sample and engine, one for a sample without engines; the "
            "names of the fields stand once, before them. With --openmetrics figures are bytes and ratios (1 "
            "is all processors for the machine, one processor for an engine) without times; engines are "
            "summed by name, with their number and the largest. With --output a temporary file beside FILE is "
            "written and renamed, so that a reader never sees half of it.\n\n"
            "With --watch the screen is redrawn with each sample: bars for processors, memory and swap, and "
            "the engines with their last figures as a line, the busiest first. The warnings of --verdict "
            "appear while they last. q or Ctrl-C ends it, Ctrl-Z suspends it. On a pipe a table is printed "
            "for each sample.\n\n"
            "With --verdict, Ctrl-C ends the run early; with --watch too, the verdict follows when the watch "
            "has ended."};
}
