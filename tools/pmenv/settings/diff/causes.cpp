#include "diff/causes.h"

#include <algorithm>

namespace {

constexpr std::size_t kMostCauses = 5;
constexpr std::size_t kMostThrough = 8;
constexpr std::size_t kMostLevels = 200;

bool isSame(const Excerpt& a, const Excerpt& b) { return a.hash == b.hash && a.text == b.text && a.length == b.length; }

bool isSame(const std::optional<Excerpt>& a, const std::optional<Excerpt>& b) {
    return a.has_value() == b.has_value() && (!a || isSame(*a, *b));
}

bool isSame(const CauseSide& a, const CauseSide& b) {
    const bool samePlace = a.place.has_value() == b.place.has_value() && (!a.place || (a.place->line == b.place->line));
    return samePlace && isSame(a.text, b.text);
}

// The same cause, whichever way leads there.
bool isSame(const Cause& a, const Cause& b) {
    return isSame(a.reference, b.reference) && isSame(a.a, b.a) && isSame(a.b, b.b);
}

void add(Causes& causes, Cause cause) {
    const auto equals = [&](const Cause& other) { return isSame(cause, other); };
    if (std::any_of(causes.list.begin(), causes.list.end(), equals)) return;
    if (causes.list.size() < kMostCauses) {
        causes.list.push_back(std::move(cause));
    } else {
        ++causes.more;
    }
}

// As it looks from the text that the reference stands in.
Cause seenThrough(const Excerpt& reference, Cause cause) {
    if (!cause.reference) {
        cause.reference = reference;
        return cause;
    }
    cause.through.insert(cause.through.begin(), reference);
    if (cause.through.size() > kMostThrough) {
        cause.through.pop_back();
        ++cause.throughLeftOut;
    }
    return cause;
}

FilePlace placeOf(const ObservedEntry& entry) { return {entry.line, entry.column}; }

// The first of the same reference.
const ObservedStep* find(const std::vector<ObservedStep>& steps, const Excerpt& written) {
    const auto same = [&](const ObservedStep& step) { return isSame(step.written, written); };
    const auto found = std::find_if(steps.begin(), steps.end(), same);
    return found != steps.end() ? &*found : nullptr;
}

}  // namespace

const Causes& CauseFinder::of(const std::string& key) {
    const auto [known, isNew] = ofSettings_.try_emplace(key);
    Causes& causes = known->second;
    if (!isNew) return causes;
    const SideValue& a = *a_.find(key);
    const SideValue& b = *b_.find(key);
    Causes found = ofEntries({a.entry, b.entry});
    compare(found, a.steps, b.steps, false);
    causes = std::move(found);
    return causes;
}

const Causes& CauseFinder::ofEntries(EntryPair entries) {
    const auto [known, isNew] = ofEntries_.try_emplace(entries);
    Causes& causes = known->second;
    if (!isNew) return causes;
    const ObservedEntry& a = a_.settings->entries()[entries.first];
    const ObservedEntry& b = b_.settings->entries()[entries.second];
    Causes found;
    if (!isSame(a.raw, b.raw)) {
        Cause own;
        own.a = {placeOf(a), a.raw};
        own.b = {placeOf(b), b.raw};
        add(found, std::move(own));
    }
    compare(found, a.load.steps, b.load.steps, true);
    causes = std::move(found);
    return causes;
}

// References that are written alike. What is written otherwise is told by the text around them.
void CauseFinder::compare(Causes& causes, const Steps& a, const Steps& b, bool atLoad) {
    for (const ObservedStep& step : a) {
        if (find(a, step.written) != &step) continue;
        const ObservedStep* const other = find(b, step.written);
        const bool isEqual = other == nullptr || (step.expanded && isSame(step.expanded, other->expanded));
        if (!isEqual) compare(causes, step, *other, atLoad);
    }
}

void CauseFinder::compare(Causes& causes, const ObservedStep& a, const ObservedStep& b, bool atLoad) {
    for (Cause& cause : inside(a, b, atLoad).list) add(causes, seenThrough(a.written, std::move(cause)));
}

// As it looks from the text that the reference stands for.
Causes CauseFinder::inside(const ObservedStep& a, const ObservedStep& b, bool atLoad) {
    Cause here;
    here.isVariable = a.isVariable;
    here.a = sideOf(a_, a);
    here.b = sideOf(b_, b);
    const bool bothSettings = a.entry && b.entry;
    if (!bothSettings && !isSame(a.value, b.value)) return {{here}};

    Causes found;
    const bool goesOn = bothSettings && levels_ < kMostLevels;
    if (goesOn && atLoad) {
        ++levels_;
        found = ofEntries({*a.entry, *b.entry});
        --levels_;
    } else if (goesOn) {
        const std::string& key = a_.settings->entries()[*a.entry].key;
        ++levels_;
        if (b_.settings->entries()[*b.entry].key == key) found = of(key);
        --levels_;
    }
    compare(found, a.steps, b.steps, atLoad);
    if (!found.list.empty()) return found;
    here.isKnown = false;
    return {{here}};
}

CauseSide CauseFinder::sideOf(const Side& side, const ObservedStep& step) const {
    const std::vector<ObservedEntry>& entries = side.settings->entries();
    if (step.entry) return {placeOf(entries[*step.entry]), entries[*step.entry].raw};
    if (step.value || step.isVariable) return {std::nullopt, step.value};
    const std::vector<std::size_t>& others = side.settings->entriesOf(step.name);
    return {std::nullopt, std::nullopt, others.empty() ? 0 : entries[others.front()].line};
}
