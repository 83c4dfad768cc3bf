// judgeFormats.h - a judgement as text for people and as JSON for programs.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "judgement/findings.h"
#include "judgement/judgement.h"
#include "output.h"
#include "terminal.h"

/// What a judgement does not know by itself.
struct JudgeContext {
    std::string host;
    std::chrono::system_clock::time_point start;
    std::vector<std::string> missingNames;  ///< that were asked for and never seen
    std::optional<double> cpuSeconds;       ///< that the watch used
    std::optional<int> commandStatus;       ///< of the command that was started, as wait() has it
};

/// "from second 3, for 2.5 s: "
std::string whenText(const RunFinding& finding);

/// "over", "not readable", "ok".
const char* stateText(Signal::State state);

/// A signal's value or limit with its unit; "-" where there is none.
std::string signalText(std::optional<double> value, Signal::Unit unit);

/// The exit code of a command as shells have it: its own, or 128 and the signal that ended it.
int shellExitCode(int status);

/// The verdict's exit code: 0 clean, 3 spoiled, 4 cannot tell.
int judgeExitCode(const Judged& judged);

/// The outcome in its colour.
std::string verdictText(Outcome outcome, const Style& style);

std::string judgeText(const Judged& judged, const JudgeLimits& limits, const JudgeContext& context, const Style& style);

/// As docs/judge.schema.json describes it.
Json judgeJson(const Judged& judged, const JudgeLimits& limits, const JudgeContext& context);
