#include "evidence/evidenceSampler.h"

#include <algorithm>

#include <unistd.h>

#include "kernel/files.h"

namespace {

constexpr double kShortestInterval = 0.25;
constexpr double kLongestInterval = 1;
constexpr double kBetweenScans = 1;
constexpr double kLongestBetweenScans = 10;
constexpr double kCostOfIntervals = 0.006;  // of one processor
constexpr double kCostOfLooks = 0.003;
constexpr double kCostOfScans = 0.003;
constexpr std::size_t kLooksAtOnce = 150;  // at the states of threads, 4 microseconds each
constexpr std::size_t kOthersTold = 3;

}  // namespace

EvidenceSampler::EvidenceSampler(const EngineChoice& choice, IgnoredThreads ignored, double tolerance)
    : choice_(choice),
      ignored_(std::move(ignored)),
      processes_(choice, getpid()),
      nameSeen_(choice.names.size()),
      start_(kernel::clockSeconds()),
      tolerance_(tolerance) {
    kernel::allowManyFiles();
}

Evidence EvidenceSampler::take() {
    const double begin = kernel::ownCpuSeconds();
    const double time = kernel::clockSeconds() - start_;
    const bool slow = time - lastScan_ >= betweenScans_ - kShortestInterval / 2;
    Evidence evidence;
    evidence.from = last_;
    evidence.to = time;
    if (slow) scan(evidence);
    const double scanned = kernel::ownCpuSeconds();

    evidence.machine = machine_.sample(slow);
    groups_.sample(slow);
    sampleEngines(evidence, time);
    evidence.others = others_;
    evidence.missingNames = missingNames();
    last_ = time;

    const double cost = kernel::ownCpuSeconds() - scanned;
    interval_ = std::clamp(cost / kCostOfIntervals, kShortestInterval, kLongestInterval);
    if (slow) putOffScan(scanned - begin - network_.countingSeconds());
    return evidence;
}

void EvidenceSampler::putOffScan(double cost) {
    betweenScans_ = std::clamp(cost / kCostOfScans, kBetweenScans, kLongestBetweenScans);
}

void EvidenceSampler::scan(Evidence& evidence) {
    lastScan_ = evidence.to;
    if (!processes_.scan()) return;
    forgetLost(evidence);
    network_.refresh();
    for (const FoundEngine& found : processes_.engines()) {
        auto& engine = engines_[found.key];
        if (!engine) engine = std::make_unique<EngineWatch>(found, ignored_, evidence.to);
        engine->readSlowSignals(found, groups_, network_);
        if (found.chosenBy < nameSeen_.size()) nameSeen_[found.chosenBy] = true;
    }
    others_ = processes_.others(kOthersTold);
}

// An engine that is found no more has ended, which its own watch tells. It does not when another process has got its id
// so soon that its files were opened under it; and an engine can become another program.
void EvidenceSampler::forgetLost(Evidence& evidence) {
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        const bool ended = processes_.idIsTaken(entry->first);
        if (ended) evidence.ends.push_back(entry->second->end(groups_, evidence.to));
        entry = ended || processes_.isAnotherProgram(entry->first) ? engines_.erase(entry) : std::next(entry);
    }
}

void EvidenceSampler::sampleEngines(Evidence& evidence, double time) {
    const IntervalContext context = this->context(evidence.machine);
    for (auto entry = engines_.begin(); entry != engines_.end();) {
        auto engine = entry->second->sample(context, groups_, time);
        if (engine) {
            evidence.engines.push_back(std::move(*engine));
            ++entry;
        } else {
            evidence.ends.push_back(entry->second->end(groups_, time));
            entry = engines_.erase(entry);
        }
    }
}

IntervalContext EvidenceSampler::context(const MachineEvidence& machine) const {
    std::size_t threads = 0;
    for (const auto& [key, engine] : engines_) threads += engine->threadCount();
    IntervalContext context;
    context.tolerance = tolerance_;
    context.delayAccounting = machine_.delayAccounting();
    context.lookEvery = threads / kLooksAtOnce + 1;
    if (machine.stolen && machine.busy && *machine.busy > 0) context.stolenPerBusy = *machine.stolen / *machine.busy;
    return context;
}

void EvidenceSampler::look() {
    const double time = kernel::clockSeconds();
    if (time < nextLook_) return;
    const double before = kernel::ownCpuSeconds();
    for (const auto& [key, engine] : engines_) engine->look(tolerance_);
    nextLook_ = time + (kernel::ownCpuSeconds() - before) / kCostOfLooks;
}

std::vector<std::string> EvidenceSampler::missingNames() const {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < nameSeen_.size(); ++i) {
        if (!nameSeen_[i]) names.push_back(choice_.names[i]);
    }
    return names;
}
