// trial.h - one situation, once: engines, what disturbs them, and `pmenv judge`, all at the same time.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include <nlohmann/json.hpp>

#include "situations.h"

/// Draws the values of a situation.
using Random = std::mt19937;

/// What came of it: a row with
///   situation, words (as drawn), seconds (watched)
///   requests, late (the share that was sent later than the tolerance or not at all), lateBySecond, p50, p99 (of the
///     lateness, in milliseconds), each of the engine that was worst; null without an engine
///   verdict, told (the share of time in which pmenv says it was held back; null when it cannot tell), reason
///   grade   "hit", "false alarm", "miss", "cannot tell", or "near"
/// Throws NotHere when the machine does not permit the situation, and Disturbed when another load engine runs on it.
nlohmann::json runTrial(const Situation& situation, Random& random);

/// Over this share of late requests the 99th percentile is spoiled.
constexpr double kSpoiled = 0.01;

/// How the verdict of a row stands to its truth. "near" is a wrong verdict where the share that was late is so near to the
/// limit that with so many requests chance decides on which side it is (two standard deviations), and the told one is no
/// further away.
std::string gradeOf(const nlohmann::json& row);
