#include "evidence/threads.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

constexpr double kBlockedLately = 5;  // seconds

bool isIgnored(const std::string& name, const IgnoredThreads& ignored) {
    return isRuntimeThread(name) || std::any_of(ignored.begin(), ignored.end(), [&name](const std::string& each) {
               return each.substr(0, kernel::kNameLength) == name;
           });
}

double slackShare(const ThreadEvidence& thread) {
    return thread.seconds > 0 ? 1 - thread.parts.sum() / thread.seconds : 1;
}

}  // namespace

Threads::Thread::Thread(const std::string& directory, int tid)
    : schedStatFile(directory + std::to_string(tid) + "/schedstat"),
      statFile(directory + std::to_string(tid) + "/stat") {}

Threads::Threads(int pid, IgnoredThreads ignored)
    : pid_(pid), directory_("/proc/" + std::to_string(pid) + "/task/"), ignored_(std::move(ignored)) {}

bool Threads::list() {
    auto tids = kernel::listNumbers(directory_);
    if (!tids) return !kernel::hasEnded(errno);
    std::sort(tids->begin(), tids->end());
    for (auto thread = threads_.begin(); thread != threads_.end();) {
        const bool runs = std::binary_search(tids->begin(), tids->end(), thread->first);
        thread = runs ? std::next(thread) : threads_.erase(thread);
    }
    for (const int tid : *tids) threads_.try_emplace(tid, directory_, tid);
    countMostTurns();
    return !threads_.empty();
}

// What a thread did that has ended tells nothing about how seldom the others run.
void Threads::countMostTurns() {
    mostTurns_ = 0;
    for (const auto& [tid, thread] : threads_) {
        if (thread.last && !thread.ignored) mostTurns_ = std::max(mostTurns_, thread.last->turns);
    }
}

// --- one interval ---------------------------------------------------------------------------------------------------

bool Threads::sample(const IntervalContext& context, EngineEvidence* evidence) {
    ++intervals_;
    std::size_t index = intervals_;
    for (auto entry = threads_.begin(); entry != threads_.end();) {
        auto& [tid, thread] = *entry;
        const bool looks = tid == pid_ || ++index % context.lookEvery == 0;
        entry = sampleThread(tid, thread, looks, context, evidence) ? std::next(entry) : threads_.erase(entry);
    }
    return !threads_.empty() || list();
}

// False when the thread has ended. A thread leaves its state only by running, so that the state of one that has not run
// since it was looked at is known.
bool Threads::sampleThread(int tid, Thread& thread, bool looks, const IntervalContext& context,
                           EngineEvidence* evidence) {
    const double time = kernel::clockSeconds();
    errno = 0;
    const auto now = readTurns(thread, context.tolerance);
    if (!now) return !kernel::hasEnded(errno);
    accountsKept_ = accountsKept_ || now->turns > 0;
    evidence->readable = accountsKept_;

    const bool wasReady = thread.stateTurns == now->turns && thread.state == 'R';
    const bool unchanged = thread.stateTurns == now->turns && thread.state != 'R' && thread.state != '?';
    if (!unchanged) thread.state = '?';
    if (!unchanged && (looks || wasReady || thread.name.empty()) && !lookAt(thread)) return false;
    thread.stateTurns = now->turns;
    if (tid == pid_) leaderState_ = thread.state;

    if (thread.last && accountsKept_) {
        const ThreadInterval interval{*thread.last,
                                      *now,
                                      time - thread.lastTime,
                                      wasReady,
                                      thread.waitTold,
                                      leaderState_ == 'T' ? 'T' : thread.state,
                                      thread.samples,
                                      context.delayAccounting ? thread.blockedSeconds : std::nullopt,
                                      context.throttledSeconds,
                                      context.stolenPerBusy};
        if (!thread.ignored) mostTurns_ = std::max(mostTurns_, now->turns);
        ThreadEvidence told = account(interval);
        told.sleeps = sleepsIn(told, tid, thread);
        const bool waitGoesOn = now->waited == thread.last->waited;
        thread.waitTold = waitGoesOn ? thread.waitTold + told.parts.waiting + told.parts.throttled : 0;
        add(tid, thread, std::move(told), evidence);
    }
    thread.last = now;
    thread.lastTime = time;
    thread.lateTurns = 0;
    thread.samples = {};
    thread.blockedSeconds = std::nullopt;
    return true;
}

// The thread's counters, with what they tell about its turns since the last look. Empty when they cannot be read.
std::optional<kernel::SchedStat> Threads::readTurns(Thread& thread, double tolerance) {
    const auto text = thread.schedStatFile.read();
    const auto now = text ? kernel::parseSchedStat(*text) : std::nullopt;
    if (!now) return std::nullopt;
    if (thread.looked) thread.lateTurns += lateTurns(*thread.looked, *now, tolerance);
    thread.looked = now;
    return now;
}

// False when the thread has ended.
bool Threads::lookAt(Thread& thread) {
    const auto text = thread.statFile.read();
    if (!text) return !kernel::hasEnded(errno);
    const auto stat = kernel::parseTaskStat(*text);
    if (!stat) return true;
    if (thread.name != stat->name) {
        thread.name = stat->name;
        thread.ignored = isIgnored(thread.name, ignored_);
    }
    thread.state = stat->state;
    ++thread.samples.looks;
    if (stat->state == 'D') {
        ++thread.samples.blocked;
        thread.seenBlocked = kernel::clockSeconds();
    }
    if (stat->blockedTicks && thread.blockedTicks && *stat->blockedTicks >= *thread.blockedTicks) {
        thread.blockedSeconds =
            thread.blockedSeconds.value_or(0) + kernel::secondsOfTicks(*stat->blockedTicks - *thread.blockedTicks);
    }
    thread.blockedTicks = stat->blockedTicks;
    return true;
}

// A thread that never slept had no slack, however little is known about the time that the hypervisor took. Where that does
// not matter it is not read, because it takes four times as long as reading turns.
std::optional<std::uint64_t> Threads::sleepsIn(const ThreadEvidence& interval, int tid, Thread& thread) const {
    constexpr double kLittleSlack = 0.2;
    const auto before = std::exchange(thread.sleeps, std::nullopt);
    if (interval.parts.stolen == 0 || slackShare(interval) > kLittleSlack) return std::nullopt;
    const auto text = kernel::readFile(directory_ + std::to_string(tid) + "/status");
    thread.sleeps = text ? kernel::parseSleeps(*text) : std::nullopt;
    if (!before || !thread.sleeps || *thread.sleeps < *before) return std::nullopt;
    return *thread.sleeps - *before;
}

// A thread that is put on a processor much more seldom than others writes a log or keeps house, so that blocked times of
// it keep no load back.
void Threads::add(int tid, const Thread& thread, ThreadEvidence account, EngineEvidence* evidence) {
    constexpr std::uint64_t kSeldom = 10;
    evidence->ran += account.parts.running;
    if (thread.ignored) return;
    evidence->waited += account.parts.waiting + account.parts.throttled + account.waitedBefore;
    evidence->turns += account.turns;
    evidence->lateTurns += thread.lateTurns;
    if (thread.last->turns * kSeldom < mostTurns_) account.parts.blocked = 0;
    if (evidence->busiest && slackShare(*evidence->busiest) <= slackShare(account)) return;
    account.tid = tid;
    account.name = thread.name;
    evidence->busiest = std::move(account);
}

// --- between two ----------------------------------------------------------------------------------------------------

void Threads::look(double tolerance) {
    constexpr int kMostBlocked = 10;  // reading a state takes four times as long as reading turns
    const double now = kernel::clockSeconds();
    int left = kMostBlocked;
    for (auto& [tid, thread] : threads_) {
        if (thread.ignored) continue;
        readTurns(thread, tolerance);
        const bool blockedLately = thread.seenBlocked && now - *thread.seenBlocked < kBlockedLately;
        if (blockedLately && left-- > 0) lookAt(thread);
    }
}

void Threads::suspectBlocked() {
    for (auto& [tid, thread] : threads_) thread.seenBlocked = kernel::clockSeconds();
}
