#include "evidenceWatch.h"

#include <algorithm>
#include <utility>

#include "kernel/files.h"
#include "recording/recording.h"

namespace {

constexpr double kTurn = 0.010;        // seconds
constexpr double kLeastToJudge = 0.1;  // seconds; the kernel adds running time at its ticks, 10 ms apart or less

}  // namespace

EvidenceWatch::EvidenceWatch(const EngineChoice& choice, const IgnoredThreads& ignored, double tolerance,
                             Receiver receive)
    : tolerance_(tolerance),
      sampler_(choice, ignored, tolerance),
      receive_(std::move(receive)),
      nextTake_(kernel::clockSeconds()) {
    take();
}

Events::Event EvidenceWatch::wait(Events& events, double seconds) {
    double now = kernel::clockSeconds();
    const double end = now + seconds;
    while (now < end) {
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
        now = kernel::clockSeconds();
    }
    return {Events::Kind::Timeout, 0};
}

void EvidenceWatch::finish() {
    if (kernel::clockSeconds() - lastTake_ >= kLeastToJudge) take();
}

void EvidenceWatch::take() {
    lastTake_ = kernel::clockSeconds();
    Evidence evidence = sampler_.take();
    evidence.wakes = wakes_;
    wakes_ = {};
    receive_(asRecorded(std::move(evidence)));
    nextTake_ = std::max(nextTake_ + sampler_.interval(), kernel::clockSeconds() + kLeastToJudge);
}

void EvidenceWatch::noteWake(double late) {
    ++wakes_.wakes;
    if (late > tolerance_) ++wakes_.late;
    wakes_.longest = std::max(wakes_.longest, late);
}
