// figures.h - what is asked of the server, and what its answers tell of each load generator. Pure.
//
// W is the window, the whole run. All figures of a generator are from the same scrapes, so that in a ratio of two increases
// what Prometheus adds at the ends of the window cancels out.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "answer.h"

/// What its busiest thread did beside running, as a share of the time. In the order of `kStates` of the source.
enum class State { Waiting, Throttled, Stolen, Blocked, Stopped };
constexpr std::size_t kStateCount = 5;

struct Engine {
    std::optional<double> present;         ///< of the answered scrapes, those in which it ran
    std::optional<double> heldBack;        ///< share of the time
    std::optional<double> heldBackAtMost;  ///< with what is in doubt
    std::optional<double> did[kStateCount];
    std::optional<double> descriptors;  ///< share of those that it may have, the most
    std::optional<double> ports;        ///< the same of local ports
};

using EngineName = std::pair<std::string, std::string>;  // its name and process id

/// A load generator. What the server does not know is empty.
struct Generator {
    std::optional<double> scrapes;   ///< how often the server tried to reach its exporter
    std::optional<double> answered;  ///< of these
    std::optional<double> watched;   ///< seconds
    std::optional<double> late;      ///< share of the times at which the watch itself woke
    std::optional<double> fewest;    ///< engines that ran
    std::optional<double> most;
    std::optional<double> expected;
    std::optional<double> ended;
    std::optional<double> killed;  ///< of these, by a signal
    std::optional<double> memoryKills;
    std::map<EngineName, Engine> engines;
};

using Fleet = std::map<std::string, Generator>;  // by instance

/// What to ask, and where the value of a sample belongs; null for one that is of no interest.
struct Figure {
    const char* expression;
    std::optional<double>* (*place)(Generator& generator, const Labels& labels);
};
const std::vector<Figure>& figures();

/// The expression for a job and a window: "increase(x[W])" -> "increase(x{job=\"pmenv\"}[600s])".
std::string queryFor(const Figure& figure, const std::string& job, std::int64_t windowMilliseconds);

/// Adds what an answer tells. Throws Failure where two samples tell the same figure.
void addAnswer(const Figure& figure, const Answer& answer, Fleet* fleet);
