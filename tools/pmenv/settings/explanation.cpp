#include "explanation.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <utility>

#include <unistd.h>

#include "EnvSettings.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"
#include "nearest.h"

namespace {

using Reason = ExplainedFailure::Reason;
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

// --- the tree -------------------------------------------------------------------------------------------------------

// The text in which references stand: an entry's value as the file has it or as it was stored, a process variable's
// value, a text of the user's.
struct Around {
    const ObservedEntry* entry = nullptr;
    bool stored = false;
};

class TreeBuilder {
public:
    explicit TreeBuilder(const ObservedSettings& settings) : settings_(settings) {}

    // The setting, with what became of its references when the file was loaded.
    ExplainedValue setting(std::size_t index, std::size_t level = 0);
    void addSteps(ExplainedValue& value, const std::vector<ObservedStep>& steps, Around around, Expanded expanded,
                  std::size_t level);
    // Tells of a name that is not defined what may help; `line` is where it was looked for while the file was loaded.
    void describeMissing(ExplainedValue& value, const std::string& name, bool isVariable, int line);

    FilePlace placeOf(std::size_t index) const {
        return {settings_.entries()[index].line, settings_.entries()[index].column};
    }

private:
    ExplainedValue step(const ObservedStep& step, Around around, Expanded expanded, std::size_t level);
    static std::optional<FilePlace> writtenAt(const ObservedStep& step, Around around);
    const std::vector<std::string>& suggestions(const std::string& name, bool isVariable);

    const ObservedSettings& settings_;
    std::size_t values_ = 0;
    std::uint64_t comparisons_ = 0;
    std::vector<std::string> names_;
    std::vector<std::string> variables_;
    std::map<std::pair<std::string, bool>, std::vector<std::string>> suggestions_;
};

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

void TreeBuilder::addSteps(ExplainedValue& value, const std::vector<ObservedStep>& steps, Around around,
                           Expanded expanded, std::size_t level) {
    for (const ObservedStep& each : steps) {
        if (level >= kMostLevels || values_ >= kMostValues) {
            ++value.stepsLeftOut;
        } else {
            value.steps.push_back(step(each, around, expanded, level + 1));
        }
    }
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

// --- the failure ----------------------------------------------------------------------------------------------------

Reason reasonOf(KRSResolveFailure why) {
    switch (why) {
        case KRSResolveFailure::Cycle:
            return Reason::Cycle;
        case KRSResolveFailure::Levels:
            return Reason::Levels;
        case KRSResolveFailure::Substitutions:
            return Reason::Substitutions;
        case KRSResolveFailure::TextLength:
            return Reason::TextLength;
        case KRSResolveFailure::Searching:
            return Reason::Searching;
    }
    return Reason::Searching;
}

ExplainedFailure failureOf(const ObservedFailure& observed, const TreeBuilder& tree, bool atLoad) {
    ExplainedFailure failure{reasonOf(observed.why), atLoad};
    for (const ObservedLink& link : observed.chain) {
        std::optional<FilePlace> place;
        if (link.entry) place = tree.placeOf(*link.entry);
        failure.chain.push_back({link.name, link.isVariable, place, link.text});
    }
    failure.linksLeftOut = observed.linksNotKept;
    return failure;
}

// --- reading --------------------------------------------------------------------------------------------------------

// Resolves `text` as the library does when it reads a value, watched.
void read(Explanation& explanation, const ObservedSettings& settings, TreeBuilder& tree, const char* text,
          std::optional<std::size_t> entry) {
    const auto definedBy = [&settings](const std::string& name) { return settings.inForce(name); };
    Recorder recorder(explanation.name, entry, text, definedBy);
    AddDelSet inProgress;
    inProgress.observer = &recorder;
    RWCString resolved(text);
    const bool done = KRSRuntimeResolve(inProgress, resolved);

    const Observation observed = recorder.take();
    const Around around{entry ? &settings.entries()[*entry] : nullptr, entry.has_value()};
    tree.addSteps(explanation.root, observed.steps, around, Expanded::AtRead, 0);
    explanation.root.stepsLeftOut += observed.stepsNotKept;
    if (observed.failure) explanation.failure = failureOf(*observed.failure, tree, false);
    if (!done) return;
    explanation.root.value = Excerpt(resolved.data());
    explanation.value = resolved.data();
}

// The references were replaced, but the library has no answer.
void refuseTooLong(Explanation& explanation) {
    explanation.failure = ExplainedFailure{Reason::TooLong, false, explanation.value->size()};
    explanation.value.reset();
    explanation.root.value.reset();
}

void explainRunTimeValue(Explanation& explanation, const TreeBuilder& tree, const char* value,
                         std::optional<std::size_t> hidden) {
    explanation.root.source = Source::RunTime;
    explanation.root.raw = explanation.root.value = Excerpt(value);
    if (hidden) explanation.root.hidden = tree.placeOf(*hidden);
    explanation.value = value;
}

// A setting without a value: the last of its entries, which was left out like all the others, or nothing at all.
void explainAbsent(Explanation& explanation, const ObservedSettings& settings, TreeBuilder& tree) {
    const std::vector<std::size_t>& entries = settings.entriesOf(explanation.name);
    if (entries.empty()) {
        tree.describeMissing(explanation.root, explanation.name, false, 0);
        explanation.failure = ExplainedFailure{Reason::NotDefined};
        return;
    }
    explanation.root = tree.setting(entries.back());
    explanation.failure = failureOf(*settings.entries()[entries.back()].load.failure, tree, true);
}

}  // namespace

Explanation explainSetting(const ObservedSettings& settings, const std::string& name) {
    Explanation explanation{settings.file(), name, {}, std::nullopt, std::nullopt};
    TreeBuilder tree(settings);
    KREnvContainerClass env;
    const std::optional<std::size_t> entry = settings.inForce(name);
    if (const char* const value = KREGetRuntimeValue(name.c_str())) {
        explainRunTimeValue(explanation, tree, value, entry);
    } else if (entry) {
        explanation.root = tree.setting(*entry);
        read(explanation, settings, tree, KRSGetValue(nEnvSettings::gPressmarkIniTable(), name.c_str()), entry);
        if (explanation.value && env.KREGetEnvValue(name.c_str()) == nullptr) refuseTooLong(explanation);
    } else {
        explainAbsent(explanation, settings, tree);
    }
    return explanation;
}

Explanation explainText(const ObservedSettings& settings, const std::string& text) {
    Explanation explanation{settings.file(), "", {}, std::nullopt, std::nullopt};
    explanation.root.source = Source::Text;
    explanation.root.raw = Excerpt(text);
    TreeBuilder tree(settings);
    read(explanation, settings, tree, text.c_str(), std::nullopt);
    KREnvContainerClass env;
    if (explanation.value && env.KRERuntimeResolve(text.c_str()) == nullptr) refuseTooLong(explanation);
    return explanation;
}
