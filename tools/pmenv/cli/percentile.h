// percentile.h - which percentiles of a run's results can be believed, where its load was held back for a share of the time.
#pragma once

#include <string>

/// Whether that is more of the time than the percentile allows.
bool isTooMuch(double share, double percentile);

/// The largest percentile that allows it, rounded down to a tenth.
double believedPercentile(double share);

/// "p99", "p99.9"
std::string percentileText(double percentile);
