// page.h - runs as one HTML page: complete in itself, without a script, and well-formed XML as well.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "chart/results.h"
#include "chart/run.h"

/// The time from the first start to the last end of the runs.
struct PageTime {
    double start = 0;    ///< seconds since 1970
    double seconds = 0;  ///< how long
};
PageTime timeOf(const std::vector<ChartRun>& runs);

/// The same runs give the same bytes.
std::string chartPage(const std::vector<ChartRun>& runs, const std::optional<Results>& results);
