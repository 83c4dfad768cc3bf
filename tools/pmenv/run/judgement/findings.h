// findings.h - a judgement as findings and signals: what was seen, why, and what to do. Pure: values in, values out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "judgement/judgement.h"

struct RunFinding {
    const char* kind;
    bool spoils;
    std::optional<int> pid;
    double since;
    double seconds;
    std::string text;
    std::string advice;
};

/// What was found, the worst first.
std::vector<RunFinding> findingsOf(const Judged& judged, const JudgeLimits& limits);

struct Signal {
    enum class State { Over, NotReadable, Ok };
    enum class Unit { Percent, Seconds, Count, Bytes };

    const char* name;
    State state;
    std::optional<double> value;
    std::optional<double> limit;
    Unit unit;
};

/// Every signal that was looked at, the worst first. One that decides is readable where it is so for every engine.
std::vector<Signal> signalsOf(const Judged& judged, const JudgeLimits& limits);

/// "clean", "spoiled", "cannot tell".
const char* outcomeText(Outcome outcome);

/// How a process ended, by its status as wait() has it: " ended with exit code 1", " was ended by signal SIGKILL".
std::string endText(int status);

/// The reason as programs name it: "ownWork".
const char* reasonName(Reason reason);

/// The verdict's reason in one sentence.
std::string reasonText(const Judged& judged, const JudgeLimits& limits);
