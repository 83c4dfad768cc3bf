// plot.h - one chart as inline SVG: figures over time on the axis that all charts of a page share.
//
// A chart is as wide as its page without a script: texts, grid and shades are placed in per cent of the width, and only the
// figures' own lines lie in a nested picture that is stretched.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "chart/axis.h"
#include "chart/series.h"

/// A time from the start of a run, in seconds.
using TimeSpan = std::pair<double, double>;

/// The axis of the page and where a run lies on it.
struct Track {
    double axisSeconds = 0;  ///< the length of the whole axis
    double offset = 0;       ///< where the run begins
    double judgedFrom = 0;   ///< seconds after that, the judged part of it begins
    double seconds = 0;      ///< how long it is
    std::vector<TimeSpan> spoiled;
    std::vector<double> marks;

    /// The place of a time of the run on the axis, 0 to 1.
    double placeOf(double time) const { return axisSeconds > 0 ? (offset + time) / axisSeconds : 0; }
};

/// A figure in a chart. `look` is the class that gives it its colour and its dashes or hatching.
struct Layer {
    const Series* series = nullptr;
    std::string look;
    std::string label;
};

struct ChartLimit {
    double value = 0;
    std::string label;
};

struct Chart {
    std::string id;  ///< one that no other chart of the page has
    std::string title;
    std::string about;  ///< what is to be seen, for those who see it for the first time
    ChartUnit unit = ChartUnit::Percent;
    double scale = 1;          ///< from the figure to the unit
    double most = 0;           ///< the axis reaches at least here, in the unit
    std::vector<Layer> areas;  ///< stacked
    std::vector<Layer> lines;
    std::vector<ChartLimit> limits;
};

/// The chart with its title, its legend and its axes.
std::string chartFigure(const Chart& chart, const Track& track);

/// A band on the time axis that shows when something was so.
std::string timeStrip(const std::string& title, const std::string& look, const std::vector<TimeSpan>& spans,
                      const Track& track);

/// The time axis alone.
std::string timeScale(const Track& track);

/// The marks as flags with their texts, one below the other.
std::string markFlags(const std::vector<std::pair<double, std::string>>& marks, const Track& track);

/// What all charts of a page refer to: patterns, each also for narrow screens, where the picture is squeezed to a third.
std::string hatchings();

/// Times that overlap or lie nearer to each other than `gap` become one.
std::vector<TimeSpan> joined(std::vector<TimeSpan> spans, double gap);
