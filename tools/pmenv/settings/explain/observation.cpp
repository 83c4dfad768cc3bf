#include "explain/observation.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLinksBehindGap = 4;

Excerpt hiddenExcerpt() { return {" ", HiddenParts(1)}; }

// Takes the middle out of a long chain; how many links that were.
std::size_t shorten(std::vector<ObservedLink>& chain) {
    constexpr std::size_t mostLinks = ObservedFailure::kLinksBeforeGap + kLinksBehindGap;
    if (chain.size() <= mostLinks) return 0;
    const std::size_t surplus = chain.size() - mostLinks;
    const auto first = chain.begin() + ObservedFailure::kLinksBeforeGap;
    chain.erase(first, first + static_cast<std::ptrdiff_t>(surplus));
    return surplus;
}

}  // namespace

// --- Excerpt ----------------------------------------------------------------------------------------------------------

Excerpt::Excerpt(std::string_view whole, const HiddenParts& hidden) : Excerpt(whole) {
    if (!hidden.any()) return;
    const std::string shown = hidden.shown(whole);
    text = shown.substr(0, kLongest);
    length = shown.size();
    hides = true;
}

std::size_t countSteps(const std::vector<ObservedStep>& steps) {
    std::size_t count = steps.size();
    for (const ObservedStep& step : steps) count += countSteps(step.steps);
    return count;
}

// --- OriginMap ------------------------------------------------------------------------------------------------------

std::optional<std::size_t> OriginMap::originOf(std::size_t position, std::size_t length) const {
    const auto behind = std::partition_point(patches_.begin(), patches_.end(),
                                             [=](const Patch& patch) { return patch.begin < position + length; });
    if (behind == patches_.begin()) return position;
    const Patch& last = *std::prev(behind);
    if (last.end > position) return std::nullopt;
    return last.originOfEnd + (position - last.end);
}

std::size_t OriginMap::originOfUnchanged(std::size_t position) const {
    if (patches_.empty()) return position;
    return patches_.back().originOfEnd + (position - patches_.back().end);
}

// The leftmost reference is replaced first. So one that begins left of an earlier replacement reaches into it, and all
// patches that end behind its beginning become one with it.
void OriginMap::replace(std::size_t position, std::size_t length, std::size_t newLength) {
    const bool reachesBehindAll = patches_.empty() || position + length >= patches_.back().end;
    Patch patch{position, position + length, 0};
    if (!reachesBehindAll) patch.end = patches_.back().end;
    patch.originOfEnd = originOfUnchanged(patch.end);
    patch.end = patch.end - length + newLength;
    for (; !patches_.empty() && patches_.back().end > position; patches_.pop_back()) {
        patch.begin = std::min(patch.begin, patches_.back().begin);
    }
    patches_.push_back(patch);
}

// --- Recorder -------------------------------------------------------------------------------------------------------

Recorder::Recorder(std::string_view name, std::optional<std::size_t> entry, std::string_view text, FindEntry findEntry,
                   SecretTrace trace, std::size_t mostSteps)
    : findEntry_(std::move(findEntry)), trace_(std::move(trace)), mostSteps_(mostSteps) {
    levels_.push_back({{Excerpt(name), false, entry, Excerpt(text, trace_.parts())}, text.size(), nullptr, 0, 0, {}});
}

void Recorder::found(const KRSReference& reference) {
    const std::string_view written(reference.text + reference.position, reference.length);
    const std::string_view value(reference.value != nullptr ? reference.value : "");
    const std::string name = reference.name();
    trace_.found(reference);
    const bool namesSecret = trace_.hidesReference();
    std::optional<std::size_t> entry;
    if (!reference.isVariable() && reference.value != nullptr) entry = findEntry_(name);

    ObservedStep step{namesSecret ? hiddenExcerpt() : Excerpt(written),
                      levels_.back().origins.originOf(reference.position, reference.length),
                      reference.isVariable(),
                      name.size() <= kLongestName && !namesSecret ? name : "",
                      std::nullopt,
                      entry,
                      std::nullopt,
                      {}};
    if (reference.value != nullptr) step.value = Excerpt(value, trace_.parts());
    ObservedStep* const kept = keep(std::move(step));
    levels_.push_back(
        {{namesSecret ? hiddenExcerpt() : Excerpt(name), reference.isVariable(), entry, Excerpt(value, trace_.parts())},
         value.size(),
         kept,
         reference.position,
         reference.length,
         {}});
}

// A step whose text around it is not kept is not kept either, so the innermost level that is kept has all above it.
ObservedStep* Recorder::keep(ObservedStep step) {
    const bool outermost = levels_.size() == 1;
    ObservedStep* const around = levels_.back().step;
    const bool hangs = outermost || around != nullptr;
    std::vector<ObservedStep>* const steps = outermost ? &observation_.steps : hangs ? &around->steps : nullptr;
    if (!hangs || levels_.size() > kMostLevels || steps->size() >= kMostStepsOfAText || mostSteps_ == 0) {
        countNotKept();
        return nullptr;
    }
    --mostSteps_;
    steps->push_back(std::move(step));
    return &steps->back();
}

// At the innermost text that is kept.
void Recorder::countNotKept() {
    const auto kept = std::find_if(levels_.rbegin(), levels_.rend(), [](const Level& level) { return level.step; });
    ++(kept != levels_.rend() ? (*kept).step->stepsNotKept : observation_.stepsNotKept);
}

void Recorder::resolved(const char* value) {
    const Level level = std::move(levels_.back());
    levels_.pop_back();
    const std::string_view expanded(value);
    trace_.resolved(expanded);
    levels_.back().origins.replace(level.position, level.referenceLength, expanded.size());
    if (level.step != nullptr) level.step->expanded = Excerpt(expanded, trace_.resolvedParts());
}

void Recorder::failed(KRSResolveFailure why, const char* text) {
    observation_.failure = ObservedFailure{why, {}};
    if (why != KRSResolveFailure::Cycle) return;
    observation_.failure->chain = cycleEndingIn(text);
    observation_.failure->linksNotKept = shorten(observation_.failure->chain);
}

// The innermost text equals one further out, whose name may be another. The chain begins with that one when both have
// the same name; else what both refer to stands at its beginning and end.
std::vector<ObservedLink> Recorder::cycleEndingIn(std::string_view text) const {
    const std::size_t hash = Excerpt(text).hash;
    auto first = std::find_if(levels_.begin(), levels_.end(), [&](const Level& level) {
        return level.link.text.hash == hash && level.textLength == text.size();
    });
    const ObservedLink& last = levels_.back().link;
    const bool closed = first->link.name.text == last.name.text && first->link.isVariable == last.isVariable;
    if (!closed && std::next(first) != levels_.end()) ++first;

    std::vector<ObservedLink> chain;
    for (auto level = first; level != levels_.end(); ++level) chain.push_back(level->link);
    if (!closed) chain.push_back(first->link);
    return chain;
}

Observation Recorder::take() {
    observation_.origins = std::move(levels_.front().origins);
    return std::move(observation_);
}
