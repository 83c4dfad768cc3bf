// judgeFormats.h - a judgement as text for people and as JSON for programs.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "judgement/judgement.h"
#include "output.h"
#include "terminal.h"

/// What a judgement does not know by itself.
struct JudgeContext {
    std::string host;
    std::chrono::system_clock::time_point start;
    std::vector<std::string> missingNames;  ///< that were asked for and never seen
    std::optional<double> cpuSeconds;       ///< that the watch used
};

/// The exit code: 0 clean, 3 spoiled, 4 cannot tell.
int judgeExitCode(const Judged& judged);

/// The outcome in its colour.
std::string verdictText(Outcome outcome, const Style& style);

std::string judgeText(const Judged& judged, const JudgeLimits& limits, const JudgeContext& context, const Style& style);

/// As docs/judge.schema.json describes it.
Json judgeJson(const Judged& judged, const JudgeLimits& limits, const JudgeContext& context);
