#include "explain/treeBuilder.h"

#include <cstring>

#include <unistd.h>

#include "nearest.h"

namespace {

using Source = ExplainedValue::Source;
using Expanded = ExplainedValue::Expanded;

constexpr std::size_t kMostValues = 200;
constexpr std::size_t kMostLevels = 20;
constexpr std::size_t kMostLines = 10;
constexpr std::uint64_t kMostComparisons = 100'000'000;  // of letters, for suggestions; about a second

void add(LineList& lines, int line) {
    if (lines.lines.size() < kMostLines) {
        lines.lines.push_back(line);
    } else {
        ++lines.more;
    }
}

std::vector<std::string> variableNames() {
    std::vector<std::string> names;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        names.emplace_back(*variable, std::strcspn(*variable, "="));
    }
    return names;
}

}  // namespace

ExplainedValue TreeBuilder::setting(std::size_t index, std::size_t level) {
    const ObservedEntry& entry = settings_.entries()[index];
    ExplainedValue value;
    value.source = Source::Setting;
    value.place = placeOf(index);
    value.raw = entry.raw;
    value.stored = entry.stored;
    for (const std::size_t other : settings_.entriesOf(entry.key)) {
        const ObservedEntry& same = settings_.entries()[other];
        if (!same.stored && other != index) add(value.leftOut, same.line);
        if (same.stored && other < index) add(value.replaced, same.line);
    }
    addSteps(value, entry.load.steps, {&entry, false}, Expanded::AtLoad, level);
    value.stepsLeftOut += entry.load.stepsNotKept;
    return value;
}

ExplainedValue TreeBuilder::furtherSetting(const FurtherEntries& further, std::size_t index) const {
    const ObservedEntry& entry = further.entries()[index];
    ExplainedValue value;
    value.source = Source::Setting;
    value.place = FilePlace{entry.line, entry.column};
    value.raw = value.stored = entry.raw;
    for (std::size_t other = 0; other < index; ++other) {
        if (further.entries()[other].key == entry.key) add(value.replaced, further.entries()[other].line);
    }
    return value;
}

void TreeBuilder::addSteps(ExplainedValue& value, const std::vector<ObservedStep>& steps, Around around,
                           Expanded expanded, std::size_t level) {
    for (const ObservedStep& each : steps) {
        if (level >= kMostLevels || values_ >= kMostValues) {
            value.stepsLeftOut += countOf(each);
        } else {
            value.steps.push_back(step(each, around, expanded, level + 1));
        }
    }
}

// The reference and all those below it that would be shown.
std::size_t TreeBuilder::countOf(const ObservedStep& step) {
    const std::size_t atLoad = step.entry ? countOf(settings_.entries()[*step.entry]) : 0;
    return 1 + atLoad + countOf(step.steps) + step.stepsNotKept;
}

std::size_t TreeBuilder::countOf(const std::vector<ObservedStep>& steps) {
    std::size_t count = 0;
    for (const ObservedStep& step : steps) count += countOf(step);
    return count;
}

// Counted once: many references may lead to the same setting, and so may those below it.
std::size_t TreeBuilder::countOf(const ObservedEntry& entry) {
    const auto known = counts_.find(&entry);
    if (known != counts_.end()) return known->second;
    return counts_[&entry] = countOf(entry.load.steps) + entry.load.stepsNotKept;
}

ExplainedValue TreeBuilder::step(const ObservedStep& step, Around around, Expanded expanded, std::size_t level) {
    ++values_;
    ExplainedValue value;
    Around inside;
    if (step.entry) {
        value = setting(*step.entry, level);
        inside = {&settings_.entries()[*step.entry], true};
    } else if (step.value) {
        value.source = Source::Variable;
        value.raw = step.value;
    } else {
        const bool atLoad = around.entry != nullptr && expanded == Expanded::AtLoad;
        describeMissing(value, step.name, step.isVariable, atLoad ? around.entry->line : 0);
    }
    value.reference = step.written;
    value.expanded = expanded;
    value.writtenAt = writtenAt(step, around);
    value.value = step.expanded;
    addSteps(value, step.steps, inside, expanded, level);
    value.stepsLeftOut += step.stepsNotKept;
    return value;
}

std::optional<FilePlace> TreeBuilder::writtenAt(const ObservedStep& step, Around around) {
    std::optional<std::size_t> position = step.position;
    if (around.stored && position) position = around.entry->load.origins.originOf(*position, step.written.length);
    if (!position) return std::nullopt;
    if (around.entry == nullptr) return FilePlace{0, *position + 1};
    return FilePlace{around.entry->line, around.entry->column + *position};
}

void TreeBuilder::describeMissing(ExplainedValue& value, const std::string& name, bool isVariable, int line) {
    value.source = Source::Nowhere;
    if (name.empty()) return;
    if (!isVariable) {
        for (const std::size_t index : settings_.entriesOf(name)) {
            const ObservedEntry& entry = settings_.entries()[index];
            if (!entry.stored) add(value.leftOut, entry.line);
            const bool below = line > 0 && entry.line >= line;
            if (below && entry.stored && value.definedBelow == 0) value.definedBelow = entry.line;
        }
    }
    if (value.definedBelow == 0) value.nearest = suggestions(name, isVariable);
}

const std::vector<std::string>& TreeBuilder::suggestions(const std::string& name, bool isVariable) {
    static const std::vector<std::string> none;
    const auto known = suggestions_.find({name, isVariable});
    if (known != suggestions_.end()) return known->second;
    std::vector<std::string>& names = isVariable ? variables_ : names_;
    if (names.empty()) names = isVariable ? variableNames() : settings_.names();
    comparisons_ += std::uint64_t{names.size()} * name.size() * name.size();
    if (comparisons_ > kMostComparisons) return none;
    const std::vector<std::string> nearest = nearestNames(name, names);
    return suggestions_.emplace(std::pair(name, isVariable), nearest).first->second;
}
