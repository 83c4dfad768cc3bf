#include "chart/plot.h"

#include <algorithm>
#include <cmath>

#include "chart/markup.h"

namespace {

constexpr double kWidth = 1000;  // of the picture that is stretched, in its own units
constexpr double kHeight = 110;  // in pixels, as all that follow
constexpr double kTop = 9;
constexpr double kScaleHeight = 20;
constexpr double kStripHeight = 16;
constexpr double kFlagHeight = 20;

std::string attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + value + "\"";
}

// --- paths ----------------------------------------------------------------------------------------------------------

// Where a column lies in the picture.
struct Box {
    double left;
    double right;
    double low;  // values, of the unit
    double high;
};

class Scale {
public:
    Scale(const Track& track, double most) : track_(track), most_(most) {}

    std::string x(double time) const { return coordinate(kWidth * track_.placeOf(time)); }
    double y(double value) const { return kHeight * (1 - std::clamp(value / most_, 0.0, 1.0)); }

private:
    const Track& track_;
    double most_;
};

// The upper edges from left to right as steps; a column is one value for its whole width.
std::string stepsOf(const std::vector<Box>& boxes, const Scale& scale) {
    std::string path;
    std::string level;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const std::string y = coordinate(scale.y(boxes[i].high));
        if (i == 0) {
            path += "M" + scale.x(boxes[i].left) + " " + y;
        } else if (y != level) {
            path += "H" + scale.x(boxes[i].left) + "V" + y;
        }
        level = y;
    }
    return path + "H" + scale.x(boxes.back().right);
}

// The area between the upper and the lower edges.
std::string areaOf(const std::vector<Box>& boxes, const Scale& scale) {
    std::string path = stepsOf(boxes, scale);
    std::string level;
    for (auto box = boxes.rbegin(); box != boxes.rend(); ++box) {
        const std::string y = coordinate(scale.y(box->low));
        if (y != level) path += (level.empty() ? "V" : "H" + scale.x(box->right) + "V") + y;
        level = y;
    }
    return path + "H" + scale.x(boxes.front().left) + "Z";
}

// What is not known parts the boxes: a gap is shown as one.
using Runs = std::vector<std::vector<Box>>;

template <class BoxOf>
Runs runsOf(const Series& series, const Track& track, BoxOf boxOf) {
    Runs runs;
    bool wasKnown = false;
    for (std::size_t i = 0; i < series.columns().size(); ++i) {
        const Series::Column& column = series.columns()[i];
        const double left = static_cast<double>(i) * series.width();
        const bool known = column.known() && left < track.seconds;
        if (known && !wasKnown) runs.emplace_back();
        const bool last = i + 1 == series.columns().size();
        const double right = std::min(last ? series.end() : left + series.width(), track.seconds);
        if (known) runs.back().push_back(boxOf(i, column, left, std::max(left, right)));
        wasKnown = known;
    }
    return runs;
}

template <class PathOf>
std::string pathsOf(const Runs& runs, const std::string& look, PathOf pathOf) {
    std::string path;
    for (const auto& run : runs) path += pathOf(run);
    return path.empty() ? "" : "<path" + attribute("class", look) + attribute("d", path) + "/>";
}

std::string linePath(const Layer& layer, const Chart& chart, const Track& track, const Scale& scale) {
    const auto boxOf = [&](std::size_t, const Series::Column& column, double left, double right) {
        return Box{left, right, 0, chart.scale * column.mean()};
    };
    return pathsOf(runsOf(*layer.series, track, boxOf), "line " + layer.look,
                   [&](const auto& run) { return stepsOf(run, scale); });
}

// From the least to the largest of each column, where one holds several intervals.
std::string bandPath(const Layer& layer, const Chart& chart, const Track& track, const Scale& scale) {
    if (layer.series->width() <= Series::kFinest) return {};
    const auto boxOf = [&](std::size_t, const Series::Column& column, double left, double right) {
        return Box{left, right, chart.scale * column.least, chart.scale * column.most};
    };
    return pathsOf(runsOf(*layer.series, track, boxOf), "band " + layer.look,
                   [&](const auto& run) { return areaOf(run, scale); });
}

// Each area stands on those before it; what is not known of one of these adds nothing.
std::string stackedPaths(const Chart& chart, const Track& track, const Scale& scale) {
    std::string paths;
    std::vector<double> below;
    for (const Layer& layer : chart.areas) {
        below.resize(std::max(below.size(), layer.series->columns().size()));
        const auto boxOf = [&](std::size_t i, const Series::Column& column, double left, double right) {
            const double low = below[i];
            below[i] += chart.scale * column.mean();
            return Box{left, right, low, below[i]};
        };
        const Runs runs = runsOf(*layer.series, track, boxOf);
        if (layer.series->most() > 0) {
            paths += pathsOf(runs, "area " + layer.look, [&](const auto& run) { return areaOf(run, scale); });
        }
    }
    return paths;
}

// --- what lies behind and above the figures -------------------------------------------------------------------------

std::string rectangle(const std::string& look, const TimeSpan& span, const Track& track, double y, double height) {
    const double left = track.placeOf(span.first);
    return "<rect" + attribute("class", look) + attribute("x", place(left)) + attribute("y", coordinate(y)) +
           attribute("width", place(track.placeOf(span.second) - left)) + attribute("height", coordinate(height)) +
           "/>";
}

std::string upright(const std::string& look, double at, double y1, double y2) {
    return "<line" + attribute("class", look) + attribute("x1", place(at)) + attribute("x2", place(at)) +
           attribute("y1", coordinate(y1)) + attribute("y2", coordinate(y2)) + "/>";
}

std::string level(const std::string& look, double y) {
    return "<line" + attribute("class", look) + " x1=\"0\" x2=\"100%\"" + attribute("y1", coordinate(y)) +
           attribute("y2", coordinate(y)) + "/>";
}

// Labels at the ends of the axis stay inside the picture.
const char* anchorAt(double share) { return share < 0.02 ? "start" : share > 0.97 ? "end" : "middle"; }

std::string timeLabels(const Track& track, double y) {
    std::string labels;
    for (const Tick& tick : timeTicks(track.axisSeconds)) {
        const double at = track.axisSeconds > 0 ? tick.at / track.axisSeconds : 0;
        labels +=
            element("text",
                    std::string("class=\"") + (tick.major ? "tick" : "tick minor") + "\"" + attribute("x", place(at)) +
                        attribute("y", coordinate(y)) + attribute("text-anchor", anchorAt(at)),
                    tick.label);
    }
    return labels;
}

std::string timeGrid(const Track& track, double y1, double y2) {
    std::string lines;
    for (const Tick& tick : timeTicks(track.axisSeconds)) {
        const double at = track.axisSeconds > 0 ? tick.at / track.axisSeconds : 0;
        lines += upright(tick.major ? "grid" : "grid minor", at, y1, y2);
    }
    return lines;
}

std::string markLines(const Track& track, double y1, double y2) {
    std::string lines;
    for (const double mark : track.marks) lines += upright("mark", track.placeOf(mark), y1, y2);
    return lines;
}

std::string spoiledShades(const Track& track) {
    std::string shades;
    for (const TimeSpan& span : track.spoiled) shades += rectangle("spoiled", span, track, kTop, kHeight);
    return shades;
}

std::string limitLines(const Chart& chart, const Scale& scale) {
    constexpr double kRoomAbove = 16;
    std::string lines;
    for (const ChartLimit& limit : chart.limits) {
        const double y = kTop + scale.y(limit.value);
        lines += level("limit", y);
        if (limit.label.empty()) continue;
        lines += element("text",
                         "class=\"limit\" x=\"100%\" dx=\"-5\" text-anchor=\"end\"" +
                             attribute("y", coordinate(y < kTop + kRoomAbove ? y + 13 : y - 4)),
                         escaped(limit.label));
    }
    return lines;
}

// --- the chart ------------------------------------------------------------------------------------------------------

std::string valueAxis(const std::vector<Tick>& ticks, const Scale& scale) {
    std::string labels;
    for (const Tick& tick : ticks) {
        labels += element(
            "text",
            "x=\"100%\" dx=\"-7\" text-anchor=\"end\"" + attribute("y", coordinate(kTop + scale.y(tick.at) + 4)),
            tick.label);
    }
    return element(
        "svg", "class=\"values\" aria-hidden=\"true\"" + attribute("height", coordinate(kTop + kHeight + kScaleHeight)),
        labels);
}

// A small figure to two digits, which is all that a reader takes from it.
double told(double figure) { return figure < 1 ? std::round(figure * 100) / 100 : figure; }

// "mean 3.1 %, most 100 %", also for those who do not see the chart.
std::string figuresText(const Layer& layer, const Chart& chart) {
    if (!layer.series->anyKnown()) return "not known";
    double sum = 0;
    double seconds = 0;
    for (const Series::Column& column : layer.series->columns()) {
        sum += column.sum;
        seconds += column.seconds;
    }
    return "mean " + valueText(told(chart.scale * sum / seconds), chart.unit) + ", most " +
           valueText(told(chart.scale * layer.series->most()), chart.unit);
}

std::string legendEntry(const Layer& layer, const Chart& chart, bool area) {
    const std::string sample =
        area ? "<rect" + attribute("class", "area " + layer.look) + " x=\"1\" y=\"1\" width=\"20\" height=\"10\"/>"
             : "<line" + attribute("class", "line " + layer.look) + " x1=\"0\" x2=\"22\" y1=\"6\" y2=\"6\"/>";
    return element("li", "",
                   element("svg", "class=\"key\" width=\"22\" height=\"12\" aria-hidden=\"true\"", sample) +
                       escaped(layer.label) + " " + element("span", "class=\"quiet\"", figuresText(layer, chart)));
}

std::string legend(const Chart& chart) {
    std::string entries;
    for (const Layer& layer : chart.areas) {
        if (layer.series->most() > 0 || !layer.series->anyKnown()) entries += legendEntry(layer, chart, true);
    }
    for (const Layer& layer : chart.lines) entries += legendEntry(layer, chart, false);
    return element("ul", "class=\"keys\"", entries);
}

// What the whole chart does not know. A layer that is not known at all says so in the legend.
std::string gapsText(const Chart& chart) {
    double gaps = 0;
    for (const auto* layers : {&chart.areas, &chart.lines}) {
        for (const Layer& layer : *layers) {
            if (layer.series->anyKnown()) gaps = std::max(gaps, layer.series->unknownSeconds());
        }
    }
    return gaps > 0 ? " Gaps: for " + durationText(gaps) + " nothing is known." : "";
}

std::string description(const Chart& chart) {
    std::string text = chart.about;
    for (const auto* layers : {&chart.areas, &chart.lines}) {
        for (const Layer& layer : *layers) text += " " + layer.label + ": " + figuresText(layer, chart) + ".";
    }
    for (const ChartLimit& limit : chart.limits) text += limit.label.empty() ? "" : " " + limit.label + ".";
    return text + gapsText(chart);
}

// What is stacked is part of a whole, to which `most` reaches; it comes from different counters and may pass it by a little.
double topOf(const Chart& chart) {
    double most = chart.most;
    for (const Layer& layer : chart.lines) most = std::max(most, chart.scale * layer.series->most());
    for (const ChartLimit& limit : chart.limits) most = std::max(most, limit.value);
    return most;
}

std::string picture(const Chart& chart, const Track& track, const std::vector<Tick>& ticks, const Scale& scale) {
    constexpr double kBottom = kTop + kHeight;
    std::string grid;
    for (const Tick& tick : ticks) grid += level(tick.at == 0 ? "base" : "grid", kTop + scale.y(tick.at));
    std::string figures = stackedPaths(chart, track, scale);
    for (const Layer& layer : chart.lines) figures += bandPath(layer, chart, track, scale);
    for (const Layer& layer : chart.lines) figures += linePath(layer, chart, track, scale);
    const std::string content =
        element("title", attribute("id", chart.id + "-title"), escaped(chart.title)) +
        element("desc", attribute("id", chart.id + "-about"), escaped(description(chart))) +
        rectangle("watched", {track.judgedFrom, track.seconds}, track, kTop, kHeight) + timeGrid(track, kTop, kBottom) +
        grid +
        element("svg",
                "x=\"0\" width=\"100%\" preserveAspectRatio=\"none\"" + attribute("y", coordinate(kTop)) +
                    attribute("height", coordinate(kHeight)) +
                    attribute("viewBox", "0 0 " + coordinate(kWidth) + " " + coordinate(kHeight)),
                figures) +
        spoiledShades(track) + limitLines(chart, scale) + markLines(track, 0, kBottom) +
        timeLabels(track, kBottom + 15);
    return element("svg",
                   "class=\"plot\" role=\"img\"" + attribute("height", coordinate(kBottom + kScaleHeight)) +
                       attribute("aria-labelledby", chart.id + "-title " + chart.id + "-about"),
                   content);
}

struct Hatching {
    const char* name;
    const char* size;
    const char* lines;
};

std::string pattern(const Hatching& hatching, const char* suffix, const std::string& transform) {
    const std::string size = attribute("width", hatching.size) + attribute("height", hatching.size);
    return element("pattern",
                   attribute("id", std::string("hatch-") + hatching.name + suffix) + size +
                       " patternUnits=\"userSpaceOnUse\"" + transform,
                   "<rect" + attribute("class", std::string("ground ") + hatching.name) + size + "/><path" +
                       attribute("class", std::string("hatch ") + hatching.name) + attribute("d", hatching.lines) +
                       "/>");
}

std::string bare(const std::string& look, double height, const std::string& content, const std::string& title = "") {
    const std::string named = title.empty() ? "aria-hidden=\"true\"" : "role=\"img\"";
    return element("div", attribute("class", "frame " + look),
                   "<span class=\"values\"></span>" +
                       element("svg", named + attribute("class", "plot") + attribute("height", coordinate(height)),
                               (title.empty() ? "" : textElement("title", title)) + content));
}

}  // namespace

std::string chartFigure(const Chart& chart, const Track& track) {
    const std::vector<Tick> ticks = valueTicks(topOf(chart), chart.unit);
    const Scale scale(track, ticks.back().at);
    return element(
               "figure", attribute("id", chart.id),
               element("figcaption", "",
                       textElement("h3", chart.title) + legend(chart) +
                           element("p", "class=\"about\"", escaped(chart.about + gapsText(chart)))) +
                   element("div", "class=\"frame\"", valueAxis(ticks, scale) + picture(chart, track, ticks, scale))) +
           "\n";
}

std::string timeStrip(const std::string& title, const std::string& look, const std::vector<TimeSpan>& spans,
                      const Track& track) {
    std::string content = rectangle("watched", {track.judgedFrom, track.seconds}, track, 0, kStripHeight);
    for (const TimeSpan& span : spans) content += rectangle(look, span, track, 0, kStripHeight);
    return bare("strip", kStripHeight, content + markLines(track, 0, kStripHeight), title);
}

std::string timeScale(const Track& track) {
    return bare("scale", kScaleHeight, timeGrid(track, 0, 4) + timeLabels(track, 16));
}

std::string markFlags(const std::vector<std::pair<double, std::string>>& marks, const Track& track) {
    std::string content;
    double y = 0;
    for (const auto& [time, text] : marks) {
        const double at = track.placeOf(time);
        const bool left = at > 0.5;  // of its pole, where there is more room
        content += upright("mark", at, y, kFlagHeight * static_cast<double>(marks.size()));
        content += element("text",
                           "class=\"flag\"" + attribute("x", place(at)) + attribute("dx", left ? "-6" : "6") +
                               attribute("y", coordinate(y + 14)) + attribute("text-anchor", left ? "end" : "start"),
                           escaped(left ? text + " ⚑" : "⚑ " + text));
        y += kFlagHeight;
    }
    return bare("flags", y, content, "marks");
}

std::string hatchings() {
    constexpr Hatching kHatchings[] = {{"others", "6", "M0 6L6 0"},
                                       {"stolen", "5", "M2.5 0V5"},
                                       {"waiting", "8", "M0 0L8 8"},
                                       {"throttled", "6", "M0 6L6 0M0 0L6 6"},
                                       {"blocked", "5", "M0 2.5H5"},
                                       {"stopped", "6", "M0 3H6M3 0V6"},
                                       {"spoiled", "7", "M-1 8L8 -1M-1 1L1 -1M6 8L8 6"}};
    std::string patterns;
    for (const Hatching& hatching : kHatchings) {
        patterns +=
            pattern(hatching, "", "") + pattern(hatching, "-narrow", attribute("patternTransform", "scale(3 1)"));
    }
    return element("svg", "class=\"hatchings\" width=\"0\" height=\"0\" aria-hidden=\"true\"",
                   element("defs", "", patterns));
}

std::vector<TimeSpan> joined(std::vector<TimeSpan> spans, double gap) {
    std::sort(spans.begin(), spans.end());
    std::vector<TimeSpan> all;
    for (const TimeSpan& span : spans) {
        if (!all.empty() && span.first - all.back().second <= gap) {
            all.back().second = std::max(all.back().second, span.second);
        } else {
            all.push_back(span);
        }
    }
    return all;
}
