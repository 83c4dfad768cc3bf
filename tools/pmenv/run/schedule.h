// schedule.h - when samples are due.
//
// They are taken when the clock shows full intervals, every ten seconds at :00, :10 and so on: so they do not drift, and
// those of several hosts lie side by side.
#pragma once

#include <optional>

/// Seconds until the next sample, from `clock` on, in seconds since 1970: to the next multiple of `interval` that is at
/// least half an interval away. With `left`, the seconds until sampling ends, the last sample comes exactly then, and
/// takes the place of one shortly before.
double untilNextSample(double clock, double interval, std::optional<double> left = std::nullopt);
