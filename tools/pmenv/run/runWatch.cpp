#include "runWatch.h"

#include <utility>

#include "kernel/files.h"

RunWatch::RunWatch(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits,
                   RecordingWriter* recording, EvidenceWatch::Receiver receive)
    : cpuBefore_(kernel::ownCpuSeconds()),
      judgement_(limits),
      recording_(recording),
      receive_(std::move(receive)),
      watch_(choice, ignored, limits.tolerance, [this](const Evidence& evidence) { add(evidence); }) {}

void RunWatch::add(const Evidence& evidence) {
    engines_ = evidence.engines.size();
    judgement_.add(evidence);
    if (recording_ != nullptr) recording_->write(evidence);
    if (receive_) receive_(evidence);
}

void RunWatch::finish() {
    watch_.finish();
    cpuSeconds_ = kernel::ownCpuSeconds() - cpuBefore_;
    if (recording_ == nullptr) return;
    const Judged outcome = judged();
    recording_->write(RecordedOutcome{outcome.outcome, outcome.believed, cpuSeconds_});
}
