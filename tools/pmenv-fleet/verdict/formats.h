// formats.h - the verdict on all load generators of a run as text and as JSON. Pure.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "output.h"
#include "terminal.h"
#include "verdict.h"

/// What was judged.
struct FleetRun {
    std::string server;  ///< as it may be shown
    std::string job;
    std::chrono::system_clock::time_point from;
    std::chrono::system_clock::time_point to;
    double percentile;
    std::vector<Judged> generators;     ///< the worst first
    std::vector<std::string> warnings;  ///< of the server
};

/// Of the whole run. It is not clean where the server warned: its answers may lack something.
Outcome outcomeOf(const FleetRun& run);

/// One sentence, and a table with a line for each generator.
std::string fleetText(const FleetRun& run, const Style& style);

/// As docs/fleet.schema.json describes it.
Json fleetJson(const FleetRun& run);
