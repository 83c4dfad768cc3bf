#include "explain/explanation.h"

#include "EnvSettings.h"
#include "explain/treeBuilder.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"
#include "nearest.h"

namespace {

using Reason = ExplainedFailure::Reason;
using Source = ExplainedValue::Source;
using Expanded = ExplainedValue::Expanded;

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

// Resolves `text` as the library does when it reads a value, watched. It is the value of the setting `entry`, or stands
// `around` its references.
void read(Explanation& explanation, const ObservedSettings& settings, TreeBuilder& tree, const char* text,
          Around around, std::optional<std::size_t> entry = std::nullopt) {
    const auto definedBy = [&settings](const std::string& name) { return settings.inForce(name); };
    Recorder recorder(entry ? explanation.name : "", entry, text, definedBy);
    AddDelSet inProgress;
    inProgress.observer = &recorder;
    RWCString resolved(text);
    const bool done = KRSRuntimeResolve(inProgress, resolved);

    const Observation observed = recorder.take();
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

// Of a text that no setting of pressmark.ini holds.
void readText(Explanation& explanation, const ObservedSettings& settings, const std::string& text, Around around) {
    TreeBuilder tree(settings);
    read(explanation, settings, tree, text.c_str(), around);
    KREnvContainerClass env;
    if (explanation.value && env.KRERuntimeResolve(text.c_str()) == nullptr) refuseTooLong(explanation);
}

}  // namespace

Explanation explainSetting(const ObservedSettings& settings, const std::string& name) {
    Explanation explanation{settings.file(), "", name, {}, std::nullopt, std::nullopt};
    TreeBuilder tree(settings);
    KREnvContainerClass env;
    const std::optional<std::size_t> entry = settings.inForce(name);
    if (const char* const value = KREGetRuntimeValue(name.c_str())) {
        explainRunTimeValue(explanation, tree, value, entry);
    } else if (entry) {
        explanation.root = tree.setting(*entry);
        read(explanation, settings, tree, KRSGetValue(nEnvSettings::gPressmarkIniTable(), name.c_str()),
             {&settings.entries()[*entry], true}, entry);
        if (explanation.value && env.KREGetEnvValue(name.c_str()) == nullptr) refuseTooLong(explanation);
    } else {
        explainAbsent(explanation, settings, tree);
    }
    return explanation;
}

Explanation explainText(const ObservedSettings& settings, const std::string& text) {
    Explanation explanation{settings.file(), "", "", {}, std::nullopt, std::nullopt};
    explanation.root.source = Source::Text;
    explanation.root.raw = Excerpt(text);
    readText(explanation, settings, text, {});
    return explanation;
}

Explanation explainFurther(const ObservedSettings& settings, const FurtherEntries& further, const std::string& name) {
    Explanation explanation{further.file(), settings.file(), name, {}, std::nullopt, std::nullopt};
    const std::optional<std::size_t> entry = further.inForce(name);
    if (entry) {
        explanation.root = TreeBuilder(settings).furtherSetting(further, *entry);
        readText(explanation, settings, further.valueOf(*entry), {&further.entries()[*entry], false});
    } else {
        explanation.root.nearest = nearestNames(name, further.names());
        explanation.failure = ExplainedFailure{Reason::NotDefined};
    }
    return explanation;
}
