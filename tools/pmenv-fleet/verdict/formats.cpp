#include "formats.h"

#include <algorithm>
#include <cmath>

#include "isoTime.h"
#include "percentile.h"
#include "table.h"
#include "text.h"
#include "units.h"

namespace {

// --- the sentence ---------------------------------------------------------------------------------------------------

std::size_t countOf(const FleetRun& run, Outcome outcome) {
    return static_cast<std::size_t>(
        std::count_if(run.generators.begin(), run.generators.end(),
                      [outcome](const Judged& each) { return each.verdict.outcome == outcome; }));
}

// "gen07 (quota), gen31 (engine ended) and 3 others"
std::string firstOf(const FleetRun& run, std::size_t count) {
    constexpr std::size_t kNamed = 5;
    std::string text;
    for (std::size_t i = 0; i < std::min(count, kNamed); ++i) {
        const Judged& each = run.generators[i];
        text += (i > 0 ? ", " : "") + printable(each.name) + " (" + each.verdict.findings[0].inWord + ")";
    }
    if (count <= kNamed) return text;
    return text + " and " + std::to_string(count - kNamed) + (count == kNamed + 1 ? " other" : " others");
}

// Every one of them can be believed up to here.
std::string leastBelieved(const FleetRun& run) {
    double least = 100;
    for (const Judged& each : run.generators) least = std::min(least, each.verdict.believed.value_or(100));
    return percentileText(least);
}

std::string reasonText(const FleetRun& run) {
    const std::string all = countText(run.generators.size(), "load generator");
    const Outcome outcome = outcomeOf(run);
    const std::size_t count = countOf(run, outcome);
    const std::string some = std::to_string(count) + " of " + all;
    if (run.generators.empty())
        return "there was no load generator of the job '" + printable(run.job) + "' in this time";
    if (outcome == Outcome::CannotTell && count == 0) {
        return "the server warned, so that its answers may lack something: " + printable(run.warnings[0]);
    }
    switch (outcome) {
        case Outcome::Spoiled:
            return some + " spoiled the run: " + firstOf(run, count);
        case Outcome::CannotTell:
            return "of " + some + " it cannot be told whether the schedule was kept: " + firstOf(run, count);
        case Outcome::Clean:
            break;
    }
    return (count == 1 ? "the load generator kept its schedule" : "all " + all + " kept their schedule") +
           "; percentiles up to " + leastBelieved(run) + " can be believed, " + percentileText(run.percentile) +
           " was asked for";
}

std::string highlighted(Outcome outcome, const Style& style) {
    const std::string text = outcomeText(outcome);
    if (outcome == Outcome::Clean) return style.green(text);
    return outcome == Outcome::Spoiled ? style.red(text) : style.yellow(text);
}

// --- the table ------------------------------------------------------------------------------------------------------

std::string numberText(double number) { return std::to_string(std::lround(number)); }

// "3/4" of those expected, or "2", or "1..2"
std::string enginesText(const Generator& generator) {
    if (!generator.fewest || !generator.most) return "-";
    const std::string fewest = numberText(*generator.fewest), most = numberText(*generator.most);
    if (generator.expected) return fewest + "/" + numberText(*generator.expected);
    return fewest == most ? most : fewest + ".." + most;
}

// Why the verdict is what it is, and what it does not know where nothing else is to be told.
std::string whyText(const Generator& generator, const Verdict& verdict) {
    std::string text;
    for (const Finding& finding : verdict.findings) {
        text += (text.empty() ? "" : "; ") + finding.text + " (" + finding.advice + ")";
    }
    if (!text.empty()) return text;
    for (const std::string& name : notRead(generator)) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "" : "not read of every engine: " + text;
}

std::string tableText(const FleetRun& run, const Style& style) {
    Table table({{"GENERATOR"}, {"VERDICT"}, {"BELIEVED", true}, {"HELD BACK", true}, {"ENGINES", true}, {"WHY"}});
    for (const auto& [name, generator, verdict] : run.generators) {
        table.add({name, outcomeText(verdict.outcome), verdict.believed ? percentileText(*verdict.believed) : "-",
                   verdict.worst ? percentText(100 * verdict.worst->heldBack) : "-", enginesText(generator),
                   whyText(generator, verdict)});
    }
    return table.text(style, std::nullopt);
}

// --- JSON -----------------------------------------------------------------------------------------------------------

Json orNull(const std::optional<double>& value) { return value ? Json(*value) : Json(); }

// Of what is estimated from samples, where only whole numbers make sense.
Json wholeOrNull(const std::optional<double>& value) { return value ? Json(std::llround(*value)) : Json(); }

Json enginesJson(const Generator& generator) {
    return Json{{"fewest", wholeOrNull(generator.fewest)},
                {"most", wholeOrNull(generator.most)},
                {"expected", wholeOrNull(generator.expected)},
                {"ended", wholeOrNull(generator.ended)},
                {"killed", wholeOrNull(generator.killed)}};
}

Json worstJson(const std::optional<WorstEngine>& worst) {
    if (!worst) return {};
    return Json{{"name", worst->name.first},
                {"pid", worst->name.second},
                {"heldBackShare", worst->heldBack},
                {"heldBackShareAtMost", orNull(worst->figures.heldBackAtMost)}};
}

Json findingsJson(const Verdict& verdict) {
    Json findings = Json::array();
    for (const Finding& finding : verdict.findings) {
        findings.push_back(Json{{"kind", finding.kind}, {"text", finding.text}, {"advice", finding.advice}});
    }
    return findings;
}

Json generatorJson(const Judged& judged) {
    const auto& [name, generator, verdict] = judged;
    return Json{{"generator", name},
                {"verdict", outcomeText(verdict.outcome)},
                {"believedPercentile", orNull(verdict.believed)},
                {"worstEngine", worstJson(verdict.worst)},
                {"engines", enginesJson(generator)},
                {"scrapes", wholeOrNull(generator.scrapes)},
                {"watchedSeconds", orNull(generator.watched)},
                {"lateShare", orNull(generator.late)},
                {"findings", findingsJson(verdict)},
                {"notRead", notRead(generator)}};
}

}  // namespace

Outcome outcomeOf(const FleetRun& run) {
    const Outcome outcome = outcomeOf(run.generators);
    return outcome == Outcome::Clean && !run.warnings.empty() ? Outcome::CannotTell : outcome;
}

std::string fleetText(const FleetRun& run, const Style& style) {
    const std::string headline = highlighted(outcomeOf(run), style) + ": " + reasonText(run) + "\n";
    return run.generators.empty() ? headline : headline + "\n" + tableText(run, style);
}

Json fleetJson(const FleetRun& run) {
    const Outcome outcome = outcomeOf(run);
    Json generators = Json::array();
    for (const Judged& each : run.generators) generators.push_back(generatorJson(each));
    return Json{{"verdict", outcomeText(outcome)},
                {"exitCode", exitCodeOf(outcome)},
                {"reason", reasonText(run)},
                {"prometheus", run.server},
                {"job", run.job},
                {"from", isoTime(run.from)},
                {"to", isoTime(run.to)},
                {"percentile", run.percentile},
                {"generators", generators},
                {"warnings", run.warnings}};
}
