#include "verdict.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "failure.h"
#include "percentile.h"
#include "text.h"
#include "units.h"

namespace {

// --- words ----------------------------------------------------------------------------------------------------------

std::string shareText(double share) { return percentText(100 * share); }

std::string engineText(const EngineName& name) {
    return "load engine " + printable(name.second) + " (" + printable(name.first) + ")";
}

// The increase of a counter is estimated, and may be 1.03.
std::string countText(double number) { return std::to_string(std::max(1L, std::lround(number))); }

std::string enginesText(double number) {
    return countText(number) + (std::lround(number) > 1 ? " load engines" : " load engine");
}

// --- engines --------------------------------------------------------------------------------------------------------

double clamped(double share) { return std::clamp(share, 0.0, 1.0); }

// The share of the run in which it ran. An engine that was seen for a moment only made a small part of the load, so that it
// counts as if it had run for a tenth, as with `pmenv judge`.
double presence(const Engine& engine, const Generator& generator) {
    constexpr double kLeast = 0.1;
    if (!engine.present || generator.answered.value_or(0) <= 0) return 1;
    return std::clamp(*engine.present / *generator.answered, kLeast, 1.0);
}

// The shares of its own time, from those of the run.
Engine whileItRan(Engine engine, const Generator& generator) {
    const double share = presence(engine, generator);
    for (auto* figure : {&engine.heldBack, &engine.heldBackAtMost}) {
        if (*figure) *figure = clamped(**figure / share);
    }
    for (auto& figure : engine.did) {
        if (figure) *figure /= share;
    }
    return engine;
}

// --- spoiled --------------------------------------------------------------------------------------------------------

struct Cause {
    const char* kind;
    const char* inWord;
    const char* text;
    const char* advice;
};

constexpr Cause kOfStates[kStateCount] = {
    {"waiting", "no processor", "it was ready to run, but others had the processors",
     "stop other programs during the run, or run fewer engines here"},
    {"quota", "quota", "the quota of its control group was used up",
     "raise the quota of the control group, or run fewer users here"},
    {"stolen", "hypervisor", "the hypervisor gave the processors to somebody else",
     "give this virtual machine processors of its own, or use another host"},
    {"blocked", "blocked", "it was blocked, as by a slow disk or want of memory", "log less or to another disk"},
    {"stopped", "stopped", "it was stopped by a signal or a debugger",
     "find out who stops it, and leave it alone during a run"},
};
constexpr Cause kOwnWork{"ownWork", "own work", "a thread of it ran without a pause",
                         "one thread cannot do more: spread its users over more engines"};
constexpr Cause kDescriptors{"descriptors", "descriptors", "its descriptors were used up",
                             "raise the limit on open files (ulimit -n) before it starts, or run fewer users here"};
constexpr Cause kPorts{"ports", "ports", "the local ports were used up",
                       "widen net.ipv4.ip_local_port_range, keep connections open, or use more load generators"};

// What its busiest thread did most beside running, where that makes up for a part of what it lacks; the rest of the run,
// in which it was on time, tells nothing about that. Else it ran.
const Cause& causeOf(const WorstEngine& worst) {
    constexpr double kDescriptorsUsedUp = 0.99, kPortsUsedUp = 0.98, kPart = 0.25;
    const Engine& engine = worst.figures;
    if (engine.descriptors.value_or(0) >= kDescriptorsUsedUp) return kDescriptors;
    if (engine.ports.value_or(0) >= kPortsUsedUp) return kPorts;
    const auto* const most =
        std::max_element(std::begin(engine.did), std::end(engine.did),
                         [](const auto& left, const auto& right) { return left.value_or(0) < right.value_or(0); });
    return most->value_or(0) < kPart * worst.heldBack ? kOwnWork : kOfStates[most - std::begin(engine.did)];
}

Finding heldBackFinding(const WorstEngine& worst) {
    const Cause& cause = causeOf(worst);
    return {cause.kind, cause.inWord,
            engineText(worst.name) + " was held back for " + shareText(worst.heldBack) + " of the time: " + cause.text,
            cause.advice};
}

std::optional<Finding> endedFinding(const Generator& generator) {
    const double killed = generator.killed.value_or(0), ended = std::max(generator.ended.value_or(0), killed);
    if (ended <= 0) return std::nullopt;
    const std::string text =
        enginesText(ended) + " ended" + (killed > 0 ? ", " + countText(killed) + " by a signal" : "");
    if (generator.memoryKills.value_or(0) > 0) {
        return Finding{"outOfMemory", "out of memory", text + "; the kernel killed a process for want of memory",
                       "give the control group more memory, or run fewer users here"};
    }
    return Finding{"ended", "engine ended", text, "load is missing from then on: look into the engine's own log"};
}

std::optional<Finding> missingFinding(const Generator& generator) {
    if (!generator.expected || !generator.fewest || *generator.fewest >= *generator.expected) return std::nullopt;
    const double missing = *generator.expected - *generator.fewest;
    const char* const were = std::lround(missing) > 1 ? " were missing" : " was missing";
    return Finding{"missing", "engine missing", countText(missing) + " of " + enginesText(*generator.expected) + were,
                   "look why it did not run, and repeat the run"};
}

// What engines that were not there would have sent.
std::vector<Finding> lostLoad(const Generator& generator) {
    std::vector<Finding> findings;
    for (auto& finding : {endedFinding(generator), missingFinding(generator)}) {
        if (finding) findings.push_back(*finding);
    }
    return findings;
}

// --- cannot tell ----------------------------------------------------------------------------------------------------

// An engine has its figures, unless it was only just seen or its accounts could not be read. What is certain but has no bound
// is no evidence either.
bool lacksEvidence(const Generator& generator) {
    constexpr double kJustSeen = 2;  // scrapes; the first has no figures yet
    const auto isKnown = [](const auto& engine) { return engine.second.heldBack && engine.second.heldBackAtMost; };
    const auto isHidden = [&](const auto& engine) {
        return !isKnown(engine) && engine.second.present.value_or(0) > kJustSeen;
    };
    const auto& engines = generator.engines;
    const auto known = std::count_if(engines.begin(), engines.end(), isKnown);
    return known == 0 || static_cast<double>(known) < generator.fewest.value_or(0) ||
           std::any_of(engines.begin(), engines.end(), isHidden);
}

std::optional<Finding> whatIsMissing(const Generator& generator, double window) {
    constexpr double kLeast = 0.95;
    if (!generator.watched || !generator.most) {
        return Finding{"noFigures", "no figures", "there are no figures of this time",
                       "look whether pmenv-exporter runs there and the server reaches it"};
    }
    if (*generator.watched < kLeast * window) {
        return Finding{"gap", "gap",
                       "there are figures of only " + shareText(*generator.watched / window) + " of the time",
                       "look why pmenv-exporter did not run or could not be reached"};
    }
    if (*generator.most <= 0) {
        return Finding{"noEngine", "no engine", "no load engine was seen",
                       "name it to pmenv-exporter with --engine, if it is called otherwise"};
    }
    if (!lacksEvidence(generator)) return std::nullopt;
    return Finding{"noEvidence", "no evidence", "what the kernel keeps about an engine could not be read",
                   "run pmenv-exporter as the engine's user or as root; the kernel needs CONFIG_SCHED_INFO"};
}

std::optional<Finding> lateFinding(const Generator& generator, double percentile) {
    if (generator.late && !isTooMuch(*generator.late, percentile)) return std::nullopt;
    return Finding{"late", "watcher late",
                   "no engine was seen held back, but " +
                       (generator.late ? "pmenv itself woke late in " + shareText(*generator.late) + " of the times"
                                       : "how late pmenv itself woke is not known"),
                   "where pmenv has no more rights to the processors than others, so it goes for the engines"};
}

std::optional<Finding> perhapsFinding(const Generator& generator, double percentile) {
    for (const auto& [name, engine] : generator.engines) {
        const double atMost = whileItRan(engine, generator).heldBackAtMost.value_or(0);
        if (!isTooMuch(atMost, percentile)) continue;
        return Finding{"inDoubt", "in doubt",
                       engineText(name) + " may have been held back for up to " + shareText(atMost) +
                           " of the time; that cannot be seen",
                       "watch it with pmenv judge, which tells what is in doubt"};
    }
    return std::nullopt;
}

std::optional<Finding> doubtOn(const Generator& generator, double percentile, double window) {
    if (auto finding = whatIsMissing(generator, window)) return finding;
    if (auto finding = lateFinding(generator, percentile)) return finding;
    return perhapsFinding(generator, percentile);
}

// --- the verdict ----------------------------------------------------------------------------------------------------

std::optional<WorstEngine> worstEngine(const Generator& generator) {
    std::optional<WorstEngine> worst;
    for (const auto& [name, engine] : generator.engines) {
        if (!engine.heldBack) continue;
        const Engine figures = whileItRan(engine, generator);
        if (!worst || *figures.heldBack > worst->heldBack) worst = WorstEngine{name, *figures.heldBack, figures};
    }
    return worst;
}

bool isWorse(const Judged& left, const Judged& right) {
    const Verdict &one = left.verdict, &other = right.verdict;
    if (one.outcome != other.outcome) return one.outcome > other.outcome;
    return (one.worst ? one.worst->heldBack : 0) > (other.worst ? other.worst->heldBack : 0);
}

}  // namespace

const char* outcomeText(Outcome outcome) {
    switch (outcome) {
        case Outcome::Clean:
            return "clean";
        case Outcome::CannotTell:
            return "cannot tell";
        case Outcome::Spoiled:
            return "spoiled";
    }
    return "";
}

int exitCodeOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Clean:
            return kExitDone;
        case Outcome::CannotTell:
            return kExitCannotTell;
        case Outcome::Spoiled:
            return kExitSpoiled;
    }
    return kExitWrong;
}

std::vector<std::string> notRead(const Generator& generator) {
    const auto lacks = [&generator](std::optional<double> Engine::*figure) {
        return std::any_of(generator.engines.begin(), generator.engines.end(),
                           [figure](const auto& engine) { return !(engine.second.*figure); });
    };
    std::vector<std::string> names;
    if (lacks(&Engine::descriptors)) names.emplace_back("descriptors");
    if (lacks(&Engine::ports)) names.emplace_back("local ports");
    return names;
}

Verdict verdictOn(const Generator& generator, double percentile, double window) {
    Verdict verdict;
    verdict.worst = worstEngine(generator);
    const std::vector<Finding> lost = lostLoad(generator);
    if (verdict.worst && isTooMuch(verdict.worst->heldBack, percentile)) {
        verdict.findings.push_back(heldBackFinding(*verdict.worst));
    }
    verdict.findings.insert(verdict.findings.end(), lost.begin(), lost.end());
    if (!verdict.findings.empty()) {
        verdict.outcome = Outcome::Spoiled;
    } else if (auto doubt = doubtOn(generator, percentile, window)) {
        verdict.outcome = Outcome::CannotTell;
        verdict.findings.push_back(std::move(*doubt));
    }
    if (verdict.outcome != Outcome::CannotTell && lost.empty()) {
        const double least = verdict.outcome == Outcome::Clean ? percentile : 0;
        verdict.believed = std::max(least, believedPercentile(verdict.worst->heldBack));
    }
    return verdict;
}

std::vector<Judged> judged(const Fleet& fleet, double percentile, double window) {
    std::vector<Judged> all;
    for (const auto& [name, generator] : fleet) {
        all.push_back({name, generator, verdictOn(generator, percentile, window)});
    }
    std::stable_sort(all.begin(), all.end(), isWorse);
    return all;
}

Outcome outcomeOf(const std::vector<Judged>& worstFirst) {
    return worstFirst.empty() ? Outcome::CannotTell : worstFirst[0].verdict.outcome;
}
