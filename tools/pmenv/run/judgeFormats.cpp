#include "judgeFormats.h"

#include <algorithm>
#include <cstdio>

#include <sys/wait.h>

#include "failure.h"
#include "isoTime.h"
#include "judgement/findings.h"
#include "table.h"
#include "text.h"
#include "units.h"

std::string whenText(const RunFinding& finding) {
    return "from second " + std::to_string(static_cast<long>(finding.since)) + ", for " + secondsText(finding.seconds) +
           ": ";
}

namespace {

// --- text -----------------------------------------------------------------------------------------------------------

std::string signalTable(const std::vector<Signal>& signals, const Style& style) {
    Table table({{"SIGNAL"}, {"WORST", true}, {"LIMIT", true}, {"STATE"}});
    for (const Signal& signal : signals) {
        table.add({signal.name, signalText(signal.value, signal.unit), signalText(signal.limit, signal.unit),
                   stateText(signal.state)});
    }
    return table.text(style, std::nullopt);
}

std::string headline(const Judged& judged, const JudgeLimits& limits, const Style& style) {
    return verdictText(judged.outcome, style) + ": " + reasonText(judged, limits) + "\n";
}

std::string watchedText(const Judged& judged, const JudgeContext& context) {
    std::string text = "watched " + countText(judged.engines.size(), "load engine") + " for " +
                       secondsText(judged.seconds) + " on " + printable(context.host) +
                       (judged.from > 0 ? ", after the first " + secondsText(judged.from) : "") + "\n";
    if (context.commandStatus.value_or(0) != 0) text += "the command" + endText(*context.commandStatus) + "\n";
    for (const std::string& name : context.missingNames)
        text += "no process named '" + printable(name) + "' was seen\n";
    return text;
}

std::string findingsText(const std::vector<RunFinding>& findings, const Style& style) {
    std::string text;
    for (const RunFinding& finding : findings) {
        text += "\n" + (finding.spoils ? style.red("!") : std::string("-")) + " " + style.bold(whenText(finding)) +
                finding.text + "\n  " + finding.advice + "\n";
    }
    return text;
}

// --- JSON -----------------------------------------------------------------------------------------------------------

template <class Number>
Json orNull(const std::optional<Number>& value) {
    return value ? Json(*value) : Json();
}

Json partsJson(const JudgedEngine& engine) {
    const Parts& parts = engine.parts;
    return Json{{"running", parts.running}, {"waiting", parts.waiting}, {"throttled", parts.throttled},
                {"stolen", parts.stolen},   {"blocked", parts.blocked}, {"stopped", parts.stopped},
                {"slack", engine.slack}};
}

Json stretchesJson(const JudgedEngine& engine) {
    Json json = Json::array();
    for (const Stretch& stretch : engine.stretches) {
        json.push_back(Json{{"from", stretch.from},
                            {"to", stretch.to},
                            {"seconds", stretch.seconds},
                            {"reason", reasonName(stretch.reason)}});
    }
    return json;
}

Json engineJson(const JudgedEngine& engine) {
    const bool known = engine.readable;
    Json json{{"pid", engine.key.pid}, {"name", engine.name},   {"from", engine.from},
              {"to", engine.to},       {"ended", engine.ended}, {"readable", known}};
    json["heldBackShare"] = known ? Json(engine.share) : Json();
    json["heldBackShareAtMost"] = known ? Json(engine.perhapsShare) : Json();
    json["heldBackSeconds"] = known ? Json(engine.heldBack) : Json();
    json["thread"] = known ? Json{{"tid", engine.tid}, {"name", engine.thread}} : Json();
    json["parts"] = known ? partsJson(engine) : Json();
    json["wokenAfter"] = known && engine.turns > 0 ? Json(engine.waited / static_cast<double>(engine.turns)) : Json();
    json["cpuSeconds"] = known ? Json(engine.ran) : Json();
    json["intervals"] = stretchesJson(engine);
    return json;
}

Json findingJson(const RunFinding& finding) {
    return Json{{"kind", finding.kind},    {"spoils", finding.spoils},   {"pid", orNull(finding.pid)},
                {"since", finding.since},  {"seconds", finding.seconds}, {"text", finding.text},
                {"advice", finding.advice}};
}

Json signalJson(const Signal& signal) {
    constexpr const char* kStates[] = {"over", "notReadable", "ok"};
    constexpr const char* kUnits[] = {"percent", "seconds", "count", "bytes"};
    return Json{{"name", signal.name},
                {"state", kStates[static_cast<int>(signal.state)]},
                {"value", orNull(signal.value)},
                {"limit", orNull(signal.limit)},
                {"unit", kUnits[static_cast<int>(signal.unit)]}};
}

Json processorsJson(const JudgedMachine& machine) {
    Json others = Json::array();
    for (const ProgramTime& program : machine.others) {
        others.push_back(Json{{"name", program.name}, {"seconds", program.seconds}, {"processes", program.processes}});
    }
    return Json{{"count", machine.processors},
                {"engineSeconds", machine.enginesRan},
                {"otherSeconds", machine.busy ? Json(std::max(0.0, *machine.busy - machine.enginesRan)) : Json()},
                {"stolenSeconds", orNull(machine.stolen)},
                {"others", others}};
}

Json watcherJson(const Judged& judged, const JudgeContext& context) {
    const WakeEvidence& wakes = judged.wakes;
    const bool woke = wakes.wakes > 0;
    return Json{
        {"samples", judged.samples},
        {"interval", judged.samples > 1 ? Json(judged.seconds / static_cast<double>(judged.samples - 1)) : Json()},
        {"wakes", wakes.wakes},
        {"lateShare", woke ? Json(static_cast<double>(wakes.late) / static_cast<double>(wakes.wakes)) : Json()},
        {"longestLate", woke ? Json(wakes.longest) : Json()},
        {"cpuSeconds", orNull(context.cpuSeconds)}};
}

template <class Items, class ToJson>
Json arrayOf(const Items& items, ToJson toJson) {
    Json json = Json::array();
    for (const auto& item : items) json.push_back(toJson(item));
    return json;
}

}  // namespace

int shellExitCode(int status) { return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status); }

const char* stateText(Signal::State state) {
    switch (state) {
        case Signal::State::Over:
            return "over";
        case Signal::State::NotReadable:
            return "not readable";
        case Signal::State::Ok:
            return "ok";
    }
    return "";
}

std::string signalText(std::optional<double> value, Signal::Unit unit) {
    if (!value) return "-";
    char text[32];
    switch (unit) {
        case Signal::Unit::Percent:
            return percentText(value);
        case Signal::Unit::Bytes:
            return bytesText(static_cast<std::uint64_t>(*value));
        case Signal::Unit::Seconds:
            std::snprintf(text, sizeof text, "%.1f ms", 1000 * *value);
            return text;
        case Signal::Unit::Count:
            std::snprintf(text, sizeof text, "%.0f", *value);
            return text;
    }
    return "";
}

int judgeExitCode(const Judged& judged) {
    switch (judged.outcome) {
        case Outcome::Clean:
            return kExitDone;
        case Outcome::Spoiled:
            return kExitSpoiled;
        case Outcome::CannotTell:
            break;
    }
    return kExitCannotTell;
}

std::string verdictText(Outcome outcome, const Style& style) {
    const std::string text = outcomeText(outcome);
    if (outcome == Outcome::Clean) return style.green(text);
    return outcome == Outcome::Spoiled ? style.red(text) : style.yellow(text);
}

std::string judgeText(const Judged& judged, const JudgeLimits& limits, const JudgeContext& context,
                      const Style& style) {
    return headline(judged, limits, style) + watchedText(judged, context) +
           findingsText(findingsOf(judged, limits), style) + "\n" + signalTable(signalsOf(judged, limits), style);
}

Json judgeJson(const Judged& judged, const JudgeLimits& limits, const JudgeContext& context) {
    return Json{{"verdict", outcomeText(judged.outcome)},
                {"exitCode", judgeExitCode(judged)},
                {"reason", reasonText(judged, limits)},
                {"host", context.host},
                {"start", isoTime(context.start)},
                {"from", judged.from},
                {"seconds", judged.seconds},
                {"commandExitCode", context.commandStatus ? Json(shellExitCode(*context.commandStatus)) : Json()},
                {"percentile", limits.percentile},
                {"tolerance", limits.tolerance},
                {"believedPercentile", orNull(judged.believed)},
                {"heldBackShare", orNull(judged.share)},
                {"engines", arrayOf(judged.engines, engineJson)},
                {"findings", arrayOf(findingsOf(judged, limits), findingJson)},
                {"signals", arrayOf(signalsOf(judged, limits), signalJson)},
                {"processors", processorsJson(judged.machine)},
                {"watcher", watcherJson(judged, context)}};
}
