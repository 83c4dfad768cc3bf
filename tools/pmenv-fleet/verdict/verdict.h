// verdict.h - did a load generator hold the run back? Pure: figures go in, the verdict comes out.
//
// The words are those of 'pmenv judge', which looks at one generator more closely.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "figures.h"

enum class Outcome { Clean, CannotTell, Spoiled };  // from the best to the worst

/// "clean", "cannot tell", "spoiled"
const char* outcomeText(Outcome outcome);
int exitCodeOf(Outcome outcome);

struct Finding {
    const char* kind;    ///< for programs
    const char* inWord;  ///< "quota", for a list of generators
    std::string text;    ///< what was seen
    const char* advice;  ///< what to do about it
};

struct WorstEngine {
    EngineName name;
    double heldBack;  ///< share of the time in which it ran
    Engine figures;   ///< shares of that time as well
};

struct Verdict {
    Outcome outcome = Outcome::Clean;
    std::optional<WorstEngine> worst;  ///< the engine that was held back most
    std::optional<double> believed;    ///< percentile, rounded down to a tenth; empty also where load is missing
    std::vector<Finding> findings;     ///< what decided; none where it is clean
};

/// What was not read of every engine, as it is called in a text: an engine may have run out of it unseen, also where the
/// verdict is clean.
std::vector<std::string> notRead(const Generator& generator);

/// `percentile` is the one to be believed; `window` is the length of the run in seconds.
Verdict verdictOn(const Generator& generator, double percentile, double window);

struct Judged {
    std::string name;
    Generator generator;
    Verdict verdict;
};

/// All generators, the worst first.
std::vector<Judged> judged(const Fleet& fleet, double percentile, double window);

/// Of the whole run; without generators it cannot be told.
Outcome outcomeOf(const std::vector<Judged>& worstFirst);
