// charts.h - which charts are drawn of a run.
#pragma once

#include <string>

#include "chart/plot.h"
#include "chart/run.h"

/// All charts of a run; those with nothing to show are one line of text. `id` is one that no other run of the page has.
std::string runCharts(const ChartRun& run, const Track& track, const std::string& id);
