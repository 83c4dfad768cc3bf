#include "runWatch.h"

RunWatch::RunWatch(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits,
                   RecordingWriter* recording)
    : judgement_(limits),
      recording_(recording),
      watch_(choice, ignored, limits.tolerance, [this](const Evidence& evidence) { add(evidence); }) {}

void RunWatch::add(const Evidence& evidence) {
    engines_ = evidence.engines.size();
    judgement_.add(evidence);
    if (recording_ != nullptr) recording_->write(evidence);
}
