// axis.h - where an axis has its ticks, and what is written beside them.
#pragma once

#include <string>
#include <vector>

enum class ChartUnit { Percent, Processors, Bytes, Milliseconds };

struct Tick {
    double at = 0;
    std::string label;
    bool major = true;  ///< also shown where there is little room
};

/// "12.5 %", "2", "512.0 MiB", "250 ms".
std::string valueText(double value, ChartUnit unit);

/// The ticks of an axis that begins at 0 and reaches at least `most`; the last tick is its end.
std::vector<Tick> valueTicks(double most, ChartUnit unit);

/// The ticks of a time axis from 0 to `seconds`, at round times.
std::vector<Tick> timeTicks(double seconds);

/// A time of the run: "0:07", "12:30", "1:05:00"; a short run shows tenths: "0:07.2".
std::string elapsedText(double seconds, bool tenths);

/// A length of time: "2.5 s", "12 min 30 s", "1 h 5 min".
std::string durationText(double seconds);
