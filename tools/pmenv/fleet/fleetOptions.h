// fleetOptions.h - what 'pmenv fleet' is asked for. Both pmenv, before it starts pmenv-fleet, and pmenv-fleet check it.
#pragma once

#include <string>

#include "commandLine.h"
#include "times.h"

struct FleetOptions {
    std::string url;  ///< of the Prometheus server
    std::string job;
    Moment from;
    Moment to;
    double percentile;
    double timeout;  ///< seconds for all queries together
    bool json;
};

/// Throws Failure with kExitUsage.
FleetOptions fleetOptions(const CommandLine& line, Moment now);

/// The URL without a user's name and password, for messages.
std::string shownUrl(const std::string& url);
