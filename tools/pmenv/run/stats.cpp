// stats: figures of the machine and its load engines, once, repeatedly, or on a live screen. A recording holds what judge
// records of the same time: evidence that is judged, and not the samples that are shown.
#include <algorithm>
#include <csignal>
#include <iostream>
#include <limits>

#include <unistd.h>

#include "atomicFile.h"
#include "commandLine.h"
#include "counters.h"
#include "events.h"
#include "failure.h"
#include "judgement/findings.h"
#include "judgement/heldBackSums.h"
#include "judgement/judgement.h"
#include "keys.h"
#include "liveTerminal.h"
#include "recording/recording.h"
#include "runWatch.h"
#include "schedule.h"
#include "screen.h"
#include "statsFormats.h"
#include "statsOptions.h"
#include "units.h"

namespace {

// --- a run ----------------------------------------------------------------------------------------------------------

// An exposition counts for as long as it goes on, for weeks; nothing is kept of it to be judged at its end.
JudgeLimits limitsFor(const StatsOptions& options) {
    JudgeLimits limits;
    const bool counts = options.format == StatsOptions::Format::OpenMetrics;
    if (counts && options.record.empty()) limits.skip = std::numeric_limits<double>::infinity();
    return limits;
}

// Samples one after the other, until the options' count or duration is reached. The engines are watched in between.
class Run {
public:
    Run(const StatsOptions& options, RecordingWriter* recording)
        : options_(options),
          watch_({}, {}, limitsFor(options), recording, [this](const Evidence& evidence) { add(evidence); }) {}

    const Figures& sample() {
        take();
        if (taken_ == 0) begin_ = figures_.seconds;
        ++taken_;
        return figures_;
    }

    // A sample in which no percentage is known yet, and which does not count. The first one that does is due on the next
    // full second.
    const Figures& warmUp() {
        take();
        return figures_;
    }
    static double pauseAfterWarmUp() { return untilNextSample(clock(), 1); }

    const Figures& figures() const { return figures_; }

    // What has happened since the watch began, and what is the case now.
    std::string exposition() const { return counters_.text(figures_, options_.parts); }

    Events::Event wait(Events& events, double seconds) { return watch_.wait(events, seconds); }

    // Whether the engines have been held back since the watch began.
    Judged judged() const { return watch_.judged(); }

    // The end of the recording.
    void finish() { watch_.finish(); }

    bool finished() const {
        if (options_.duration) return figures_.seconds - begin_ >= *options_.duration;
        return options_.count != 0 && taken_ >= options_.count;
    }

    // The time to the next sample.
    double pause() const {
        std::optional<double> left;
        if (options_.duration) left = *options_.duration - (sampler_.seconds() - begin_);
        return untilNextSample(clock(), options_.interval, left);
    }

private:
    void add(const Evidence& evidence) {
        heldBack_.add(evidence);
        if (options_.format == StatsOptions::Format::OpenMetrics) counters_.add(evidence);
    }

    void take() {
        figures_ = sampler_.take();
        watch_.catchUp();
        const auto heldBack = heldBack_.take();
        for (EngineFigures& engine : figures_.engines) {
            const auto found = heldBack.find({engine.processId, engine.startTicks});
            if (found != heldBack.end()) engine.heldBack = found->second;
        }
    }

    static double clock() {
        return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    }

    const StatsOptions& options_;
    Sampler sampler_;
    Figures figures_{};
    double begin_ = 0;  // when the first sample was taken
    std::size_t taken_ = 0;
    HeldBackSums heldBack_{JudgeLimits{}.tolerance};
    Counters counters_{{kEngineName}, JudgeLimits{}.tolerance};
    RunWatch watch_;  // behind what it fills
};

// --- printing -------------------------------------------------------------------------------------------------------

void printTable(const Figures& figures, bool first) {
    const auto size = terminalSize();
    std::cout << (first ? "" : "\n")
              << statsTable(figures, Style(STDOUT_FILENO), size ? std::optional(size->columns) : std::nullopt);
}

void publish(const StatsOptions& options, const std::string& exposition) {
    if (options.output.empty()) {
        std::cout << exposition;
    } else {
        replaceFile(options.output, exposition);
    }
}

void print(const StatsOptions& options, const Run& run, bool first) {
    switch (options.format) {
        case StatsOptions::Format::Table:
            printTable(run.figures(), first);
            break;
        case StatsOptions::Format::JsonLines:
            printJsonLine(statsJson(run.figures()));
            break;
        case StatsOptions::Format::Csv:
            std::cout << (first ? csvHeader() : "") << statsCsv(run.figures());
            break;
        case StatsOptions::Format::OpenMetrics:
            publish(options, run.exposition());
            break;
    }
    finishOutput();
}

// --- line by line ---------------------------------------------------------------------------------------------------

// Until the options' end or a signal, which is returned; 0 for none.
int sampleToTheEnd(const StatsOptions& options, Run& run, Events& events) {
    run.warmUp();
    double pause = Run::pauseAfterWarmUp();
    for (bool first = true;; first = false, pause = run.pause()) {
        const Events::Event event = run.wait(events, pause);
        if (event.kind == Events::Kind::Signal) return event.value;
        for (const std::string& warning : run.sample().warnings) printWarning(warning);
        print(options, run, first);
        if (run.finished()) return 0;
    }
}

// A signal ends the program at once, unless a recording has to be ended first.
int runPlain(const StatsOptions& options, RecordingWriter* recording) {
    Events events(recording != nullptr ? std::vector<int>{SIGINT, SIGTERM, SIGHUP} : std::vector<int>{}, false);
    Run run(options, recording);
    const int endedBy = sampleToTheEnd(options, run, events);
    run.finish();
    return endedBy;
}

// --- on a live screen -----------------------------------------------------------------------------------------------

class Watch {
public:
    Watch(const StatsOptions& options, RecordingWriter* recording)
        : run_(options, recording), events_({SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP}, isatty(STDIN_FILENO) != 0) {}

    // Returns the signal that ends the program, 0 when the user or the options ended the watch, or the terminal has
    // gone.
    int show() {
        show(run_.warmUp());
        for (bool goesOn = pause(Run::pauseAfterWarmUp()); goesOn && std::cout; goesOn = pause(run_.pause())) {
            show(run_.sample());
            if (run_.finished()) break;
        }
        run_.finish();
        return endedBy_;
    }

private:
    void show(const Figures& figures) {
        screen_.add(figures);
        draw();
    }

    void draw() {
        const TerminalSize size = terminalSize().value_or(TerminalSize{80, 24});
        terminal_.draw(screen_.lines(warnings(), size, Style(STDOUT_FILENO)), size.rows);
    }

    // What a reader of the figures has to know beside them: whether the engines have been held back since the watch began.
    std::vector<std::string> warnings() const {
        const Judged judged = run_.judged();
        std::vector<std::string> texts;
        if (judged.outcome == Outcome::Spoiled) {
            const std::vector<RunFinding> findings = findingsOf(judged, {});
            texts.push_back(reasonText(judged, {}) + (findings.empty() ? "" : ": " + findings[0].text));
        }
        const std::vector<std::string>& more = run_.figures().warnings;
        texts.insert(texts.end(), more.begin(), more.end());
        return texts;
    }

    // Until the next sample; false when the watch is to end.
    bool pause(double seconds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {
            const std::chrono::duration<double> left = end - std::chrono::steady_clock::now();
            const Events::Event event = run_.wait(events_, left.count());
            if (event.kind == Events::Kind::Timeout) return true;
            if (event.kind == Events::Kind::Key && !handleKey(event.value)) return false;
            if (event.kind == Events::Kind::Signal && !handleSignal(event.value)) return false;
        }
    }

    // False for a key that ends the watch.
    bool handleKey(int byte) {
        const std::optional<Key> key = keys_.add(byte);
        if (key && screen_.scroll(*key)) draw();
        return key != Key::Quit;
    }

    // False for a signal that ends the watch.
    bool handleSignal(int signal) {
        if (signal == SIGTERM || signal == SIGHUP) endedBy_ = signal;
        if (signal != SIGWINCH && signal != SIGTSTP) return false;
        if (signal == SIGTSTP) terminal_.suspend();
        draw();
        return true;
    }

    Run run_;
    Events events_;  // before the terminal is taken over and after it is given back, so that no signal comes between
    LiveTerminal terminal_;
    KeyReader keys_;
    Screen screen_;
    int endedBy_ = 0;
};

int runStats(const CommandLine& line) {
    const StatsOptions options = readStatsOptions(line);
    std::optional<RecordingWriter> file;
    if (!options.record.empty()) file.emplace(options.record, headerOfThisHost({}, {}, JudgeLimits{}));
    RecordingWriter* const recording = file ? &*file : nullptr;
    const bool live = options.watch && canDrawInPlace();
    const int endedBy = live ? Watch(options, recording).show() : runPlain(options, recording);
    const bool complete = !file || file->complete();
    if (live && !complete)
        printWarning("the recording " + options.record + " ended before the watch");  // not seen there
    if (endedBy != 0) raise(endedBy);  // the terminal is as it was; the caller sees what ended the program
    return complete ? kExitDone : kExitWrong;
}

// --- grammar --------------------------------------------------------------------------------------------------------

std::vector<Option> statsOptions() {
    constexpr double kLargest = 1e9;
    return {
        {"interval", Option::Kind::Number, "SECONDS",
         "time between samples, which are taken on full intervals of the clock; 1 unless given", 1, 86400},
        {"count", Option::Kind::Number, "N", "number of samples, 0 for no end; 1 unless given", 0, kLargest, true},
        {"duration", Option::Kind::Number, "SECONDS", "sample for this time, instead of --count", 1, kLargest},
        {"csv", Option::Kind::Flag, nullptr, "print one line for each sample and engine, with exact numbers"},
        {"openmetrics", Option::Kind::Flag, nullptr,
         "print a text exposition for a metrics collector: counters and states, in base units"},
        {"per-process", Option::Kind::Flag, nullptr, "with --openmetrics: also a series for each engine, with its pid"},
        {"machine", Option::Kind::Flag, nullptr,
         "with --openmetrics: also the machine's figures, which other exporters have too"},
        {"output", Option::Kind::File, "FILE", "with --openmetrics: replace FILE in one step instead of printing"},
        {"record", Option::Kind::File, "FILE", "keep what is seen in FILE, to judge, draw or export it"},
        {"watch", Option::Kind::Flag, nullptr,
         "redraw in place until q or Ctrl-C; on a pipe, print a table for each sample"},
        {"verdict", Option::Kind::Flag, nullptr, "is now 'pmenv judge --duration SECONDS'"},
    };
}

}  // namespace

Command statsCommand() {
    return {
        "stats",
        "print figures of the machine and its load engines",
        {},
        statsOptions(),
        "pmenv stats                                        one table; takes about a second to measure\n"
        "pmenv stats --json --interval 5 --count 12         for a minute, one object per line\n"
        "pmenv stats --watch                                a live screen\n"
        "pmenv stats --openmetrics --interval 15 --count 0 --output /var/lib/node_exporter/pmenv.prom\n"
        "pmenv stats --watch --record gen1.pmrec            a live screen, to be judged afterwards",
        runStats,
        "The load engines are the running processes named PMLoadEngineMai... . A process that has ended and waits "
        "for its parent does not count. Percentages need two samples, about a second apart. Without --json, --csv, "
        "--openmetrics and --watch, a table for people is printed.\n\n"
        "Samples are taken when the clock shows full intervals: with --interval 10 at :00, :10, :20. They do not "
        "drift, so samples of several hosts can be put side by side; --json and --csv contain the host's name. The "
        "last sample of --duration is taken at its end.\n\n"
        "An unknown figure, such as the processor time of an engine at its first sample, is - in a table, null in "
        "JSON and an empty field in CSV; an exposition omits it. An engine's processor time is a percentage of one "
        "processor and may exceed 100 when several of its threads are busy. A figure greater than the machine "
        "allows counts as unknown and causes a warning.\n\n"
        "Between two samples the engines are watched as by pmenv judge, at a cost of at most 2 % of one processor. "
        "HELD BACK is the share of the time since the last sample in which an engine could not send what was due, "
        "unknown where as much again or more of it is in doubt, "
        "THROTTLED the processor time that its control group's quota denied it, and WORST THREAD the thread with "
        "the least to spare, with the busy share of its busiest quarter of a second.\n\n"
        "--csv prints a heading with the names of the fields, then a line for each sample and engine, or one line "
        "for a sample without engines.\n\n"
        "--openmetrics counts what happens to the engines from the beginning of the watch on, in seconds and numbers: "
        "the names of these metrics end in _total. What is a state is told as it is: how many engines run, their "
        "memory, and the shares of memory, descriptors and ports in use. The engines of a name are put together, and "
        "their name is there with 0 engines while none runs. With --per-process each engine has series of its own, "
        "which stay for 5 minutes when it has ended. --count 0 goes on for ever, as a collector needs it; what a "
        "single sample counts is a second or two. --output writes a temporary file beside FILE and renames it, so "
        "that a reader never sees half of it.\n\n"
        "--record keeps what pmenv judge --record keeps without options, for pmenv judge, chart and export. INT, TERM, "
        "HUP and the end of --watch end the recording; a program that is killed otherwise cuts it off.\n\n"
        "--watch redraws the screen with each sample. Bars show processors, memory and swap; in the first bar, # "
        "is the share of the load engines and | that of everything else. Below are the sum of the engines and the "
        "engines, the busiest first. Each has its history: each character is a sample, and the heading shows the "
        "percentage at which each height begins. An engine moves in the list only when its use has clearly "
        "changed. Arrow keys, Page Up, Page Down, Home and End scroll, and so do k, j, b, Space, g and G. A "
        "line warns when the engines were held back so much that the 99th percentile cannot be believed. q or "
        "Ctrl-C ends the watch, Ctrl-Z suspends it. On a pipe, "
        "a table is printed for each sample."};
}
