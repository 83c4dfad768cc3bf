#include "evidence/accounts.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace {

constexpr double kNanoseconds = 1e-9;

// A counter that goes back is a thread's that has taken the place of another.
std::uint64_t wentOn(std::uint64_t before, std::uint64_t now) { return std::max(before, now) - before; }

double secondsBetween(std::uint64_t before, std::uint64_t now) {
    return static_cast<double>(wentOn(before, now)) * kNanoseconds;
}

bool isStopped(char state) { return state == 'T' || state == 't'; }

// A thread that is blocked and did nothing was blocked all the time. Of another, a look or two tell nothing.
double blockedShare(const ThreadInterval& interval, bool didNothing) {
    constexpr int kFewLooks = 3;
    if (didNothing && interval.state == 'D') return 1;
    if (interval.samples.looks < kFewLooks) return 0;
    return static_cast<double>(interval.samples.blocked) / interval.samples.looks;
}

}  // namespace

ThreadEvidence account(const ThreadInterval& interval) {
    const auto& [before, now, seconds, wasReady, toldBefore, state, samples, blockedSeconds, throttled, stolenPerBusy] =
        interval;
    ThreadEvidence thread;
    thread.seconds = seconds;
    thread.turns = wentOn(before.turns, now.turns);
    double left = seconds;
    const auto take = [&left](double part) {
        const double taken = std::clamp(part, 0.0, left);
        left -= taken;
        return taken;
    };

    const double ran = secondsBetween(before.ran, now.ran);
    const double waitsEnded = secondsBetween(before.waited, now.waited);
    const bool didNothing = ran == 0 && waitsEnded == 0 && thread.turns == 0;
    double waited = std::max(waitsEnded - toldBefore, 0.0);
    Parts& parts = thread.parts;
    parts.running = take(ran);
    thread.waitedBefore = std::max(waited - left, 0.0);
    // Still waiting; the counter follows later. One that was not ready before has been woken just now, for all that is known.
    if (didNothing && wasReady && state == 'R') waited = seconds;
    const double ready = take(waited);
    parts.throttled = std::min(ready, throttled);
    parts.waiting = ready - parts.throttled;
    if (isStopped(state)) parts.stopped = take(left);
    parts.blocked = take(std::max(blockedSeconds.value_or(0), seconds * blockedShare(interval, didNothing)));
    parts.stolen = take(ran * stolenPerBusy);
    thread.blockedAtOnce = parts.blocked / static_cast<double>(std::max<std::uint64_t>(thread.turns, 1));
    return thread;
}

double lateTurns(const kernel::SchedStat& before, const kernel::SchedStat& now, double tolerance) {
    constexpr double kFew = 3;
    const double waited = secondsBetween(before.waited, now.waited);
    const auto turns = static_cast<double>(wentOn(before.turns, now.turns));
    if (turns == 0 || waited <= tolerance) return 0;
    if (turns <= kFew) return std::min(turns, std::floor(waited / tolerance));
    return turns * std::exp(-tolerance * turns / waited);
}

// Names as the kernel keeps them, 15 characters at most. Java: "C2 CompilerThre", "GC Thread#0", "G1 Main Marker", "VM
// Thread"; .NET: ".NET Tiered Com"; Node: "V8 Worker"; LuaJIT and Python have none, and Go gives its threads no names.
bool isRuntimeThread(const std::string& name) {
    constexpr std::string_view kBeginnings[] = {
        "C1 CompilerThre",
        "C2 CompilerThre",
        "JVMCI",
        "GC Thread#",
        "GC task thread",
        "G1 ",
        "ZGC",
        "ZWorker",
        "ZDriver",
        "ZDirector",
        "Shenandoah",
        "Concurrent Mark",
        "ParGC",
        "CMS ",
        "VM Thread",
        "VM Periodic",
        "Sweeper thread",
        "Signal Dispatch",
        "Finalizer",
        "Reference Handl",
        "Service Thread",
        "Monitor Deflat",
        "Common-Cleaner",
        "Notification Th",
        "V8 Worker",
        "V8 DefaultWorke",
        "node-V8Worker",
        "DelayedTaskSche",
        ".NET ",
        "Finalizer thre",
        "GC Worker",
    };
    return std::any_of(std::begin(kBeginnings), std::end(kBeginnings), [&name](std::string_view beginning) {
        return name.compare(0, beginning.size(), beginning) == 0;
    });
}
