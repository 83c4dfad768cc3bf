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

void setValue(Explanation& explanation, std::string_view value, const HiddenParts& hidden) {
    explanation.root.value = Excerpt(value, hidden);
    explanation.value = hidden.shown(value);
}

// --- reading --------------------------------------------------------------------------------------------------------

// Resolves `text` as the library does when it reads a value, watched. It is the value of the setting `entry`, or stands
// `around` its references. Returns how long the result is, where there is one.
std::size_t read(Explanation& explanation, const ObservedSettings& settings, TreeBuilder& tree, const char* text,
                 const SecretTrace& trace, Around around, std::optional<std::size_t> entry = std::nullopt) {
    const auto definedBy = [&settings](const std::string& name) { return settings.inForce(name); };
    Recorder recorder(entry ? explanation.name : "", entry, text, definedBy, trace);
    AddDelSet inProgress;
    inProgress.observer = &recorder;
    RWCString resolved(text);
    const bool done = KRSRuntimeResolve(inProgress, resolved);

    const Observation observed = recorder.take();
    tree.addSteps(explanation.root, observed.steps, around, Expanded::AtRead, 0);
    explanation.root.stepsLeftOut += observed.stepsNotKept;
    if (observed.failure) explanation.failure = failureOf(*observed.failure, tree, false);
    if (!done) return 0;
    setValue(explanation, resolved.data(), recorder.hiddenOf(resolved.data()));
    return resolved.length();
}

// The references were replaced, but the library has no answer.
void refuseTooLong(Explanation& explanation, std::size_t length) {
    explanation.failure = ExplainedFailure{Reason::TooLong, false, length};
    explanation.value.reset();
    explanation.root.value.reset();
}

void explainRunTimeValue(Explanation& explanation, const TreeBuilder& tree, const char* value,
                         const HiddenParts& secret, std::optional<std::size_t> hidden) {
    explanation.root.source = Source::RunTime;
    setValue(explanation, value, secret);
    explanation.root.raw = explanation.root.value;
    if (hidden) explanation.root.hidden = tree.placeOf(*hidden);
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
void readText(Explanation& explanation, const ObservedSettings& settings, const std::string& text,
              const HiddenParts& hidden, Around around) {
    TreeBuilder tree(settings);
    const SecretTrace trace(settings.secrets(), hidden);
    const std::size_t length = read(explanation, settings, tree, text.c_str(), trace, around);
    KREnvContainerClass env;
    if (explanation.value && env.KRERuntimeResolve(text.c_str()) == nullptr) refuseTooLong(explanation, length);
}

}  // namespace

ExplainedFailure::Reason reasonOf(KRSResolveFailure why) {
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

Explanation explainSetting(const ObservedSettings& settings, const std::string& name) {
    Explanation explanation{settings.file(), "", name, {}, std::nullopt, std::nullopt};
    TreeBuilder tree(settings);
    KREnvContainerClass env;
    const std::optional<std::size_t> entry = settings.inForce(name);
    if (const char* const value = KREGetRuntimeValue(name.c_str())) {
        explainRunTimeValue(explanation, tree, value, settings.secrets().secrets().partsOf(name, value), entry);
    } else if (entry) {
        explanation.root = tree.setting(*entry);
        const char* const stored = KRSGetValue(nEnvSettings::gPressmarkIniTable(), name.c_str());
        const SecretTrace trace(settings.secrets(), name, stored);
        const std::size_t length =
            read(explanation, settings, tree, stored, trace, {&settings.entries()[*entry], true}, entry);
        if (explanation.value && env.KREGetEnvValue(name.c_str()) == nullptr) refuseTooLong(explanation, length);
    } else {
        explainAbsent(explanation, settings, tree);
    }
    return explanation;
}

Explanation explainText(const ObservedSettings& settings, const std::string& text) {
    Explanation explanation{settings.file(), "", "", {}, std::nullopt, std::nullopt};
    explanation.root.source = Source::Text;
    const HiddenParts hidden = settings.secrets().secrets().partsIn(text);
    explanation.root.raw = Excerpt(text, hidden);
    readText(explanation, settings, text, hidden, {});
    return explanation;
}

Explanation explainFurther(const ObservedSettings& settings, const FurtherEntries& further, const std::string& name) {
    Explanation explanation{further.file(), settings.file(), name, {}, std::nullopt, std::nullopt};
    const std::optional<std::size_t> entry = further.inForce(name);
    if (entry) {
        explanation.root = TreeBuilder(settings).furtherSetting(further, *entry);
        readText(explanation, settings, further.valueOf(*entry), further.hiddenOf(*entry),
                 {&further.entries()[*entry], false});
    } else {
        explanation.root.nearest = nearestNames(name, further.names());
        explanation.failure = ExplainedFailure{Reason::NotDefined};
    }
    return explanation;
}
