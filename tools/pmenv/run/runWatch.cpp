#include "runWatch.h"

#include <algorithm>

#include "kernel/files.h"

namespace {

constexpr double kTurn = 0.010;            // seconds
constexpr double kShortestInterval = 0.1;  // seconds; the kernel adds running time at its ticks, 10 ms apart or less

}  // namespace

RunWatch::RunWatch(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits,
                   RecordingWriter* recording)
    : limits_(limits),
      sampler_(choice, ignored, limits.tolerance),
      judgement_(limits),
      recording_(recording),
      nextTake_(kernel::clockSeconds()) {
    take();
}

Events::Event RunWatch::wait(Events& events, double seconds) {
    const double end = kernel::clockSeconds() + seconds;
    for (double now = kernel::clockSeconds(); now < end; now = kernel::clockSeconds()) {
        const double due = std::min({now + kTurn, nextTake_, end});
        const Events::Event event = events.wait(due - now);
        const bool inTurn = event.kind == Events::Kind::Timeout;
        const double woken = kernel::clockSeconds();
        if (inTurn) noteWake(woken - due);
        if (woken >= nextTake_) {
            take();  // also between many signals
        } else if (inTurn) {
            sampler_.look();
        }
        if (!inTurn) return event;
    }
    return {Events::Kind::Timeout, 0};
}

void RunWatch::finish() {
    if (nextTake_ - kernel::clockSeconds() <= sampler_.interval() - kShortestInterval) take();
}

void RunWatch::take() {
    Evidence evidence = sampler_.take();
    evidence.wakes = wakes_;
    wakes_ = {};
    engines_ = evidence.engines.size();
    evidence = asRecorded(std::move(evidence));
    judgement_.add(evidence);
    if (recording_ != nullptr) recording_->write(evidence);
    nextTake_ = std::max(nextTake_ + sampler_.interval(), kernel::clockSeconds());
}

void RunWatch::noteWake(double late) {
    ++wakes_.wakes;
    if (late > limits_.tolerance) ++wakes_.late;
    wakes_.longest = std::max(wakes_.longest, late);
}
