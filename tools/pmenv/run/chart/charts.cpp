#include "chart/charts.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "chart/markup.h"
#include "judgement/heldBack.h"

namespace {

constexpr double kPercent = 100;

std::string percentLabel(const std::string& what, double percent) {
    return what + " " + valueText(percent, ChartUnit::Percent);
}

Chart chartOf(const char* id, const char* title, const char* about, ChartUnit unit, double scale, double most) {
    Chart chart;
    chart.id = id;
    chart.title = title;
    chart.about = about;
    chart.unit = unit;
    chart.scale = scale;
    chart.most = most;
    return chart;
}

// Few engines have a line each; of many, the worst and the median are shown.
Chart heldBackChart(const ChartRun& run) {
    Chart chart = chartOf("held-back", "Held back", "Share of the time in which an engine could not send what was due.",
                          ChartUnit::Percent, kPercent, 100);
    const RunFigures& figures = run.figures;
    if (figures.engines().size() > 1) {
        int number = 0;
        for (const auto& [key, series] : figures.engines()) {
            chart.lines.push_back({&series, "engine" + std::to_string(++number), "engine " + std::to_string(key.pid)});
        }
        return chart;
    }
    const bool many = figures.engines().empty() && figures[Figure::HeldBackWorst].anyKnown();
    chart.lines.push_back({&figures[Figure::HeldBackWorst], "worst", many ? "the worst engine" : "the engine"});
    if (many) chart.lines.push_back({&figures[Figure::HeldBackMedian], "median", "median of the engines"});
    return chart;
}

Chart threadChart(const ChartRun& run) {
    Chart chart =
        chartOf("thread", "The busiest thread",
                "What the engines' thread with the least slack did. Up to the limit it has slack and keeps its "
                "schedule; at 100 % it has none.",
                ChartUnit::Percent, kPercent, 100);
    const std::pair<Figure, std::pair<const char*, const char*>> parts[] = {
        {Figure::ThreadRunning, {"running", "ran"}},
        {Figure::ThreadWaiting, {"waiting", "waited for a processor"}},
        {Figure::ThreadThrottled, {"throttled", "waited for its quota"}},
        {Figure::ThreadStolen, {"stolen", "waited for the hypervisor"}},
        {Figure::ThreadBlocked, {"blocked", "was blocked"}},
        {Figure::ThreadStopped, {"stopped", "was stopped"}}};
    for (const auto& [figure, words] : parts) {
        chart.areas.push_back({&run.figures[figure], words.first, words.second});
    }
    chart.limits.push_back({kPercent * (1 - kNoSlack), percentLabel("no slack above", kPercent * (1 - kNoSlack))});
    return chart;
}

Chart processorChart(const ChartRun& run) {
    const double processors = run.figures.processors();
    Chart chart = chartOf("processors", "The machine's processors", "How many of them were busy, and for whom.",
                          ChartUnit::Processors, 1, processors);
    chart.areas = {{&run.figures[Figure::EngineProcessors], "running", "engines"},
                   {&run.figures[Figure::OtherProcessors], "others", "other programs"},
                   {&run.figures[Figure::StolenProcessors], "stolen", "stolen by the hypervisor"}};
    if (run.limits.machinePercent) {
        chart.limits.push_back(
            {processors * *run.limits.machinePercent / 100, percentLabel("limit", *run.limits.machinePercent)});
    }
    return chart;
}

Chart throttlingChart(const ChartRun& run) {
    Chart chart = chartOf("throttling", "Throttling",
                          "Time for which the quota of a control group kept its threads from running; all processors "
                          "together, so that it may pass 100 %.",
                          ChartUnit::Percent, kPercent, 100);
    chart.lines = {{&run.figures[Figure::Throttled], "worst", "the control group that was throttled most"}};
    return chart;
}

Chart memoryChart(const ChartRun& run) {
    Chart chart = chartOf("memory", "Memory in use", "Of the machine: what is not available to programs any more.",
                          ChartUnit::Percent, kPercent, 100);
    chart.lines = {{&run.figures[Figure::MemoryInUse], "engine1", "of the machine"},
                   {&run.figures[Figure::GroupMemory], "engine2", "of the fullest control group"}};
    if (run.limits.memoryPercent) {
        const double most = 100 - *run.limits.memoryPercent;
        chart.limits.push_back({most, percentLabel("limit", most)});
    }
    return chart;
}

Chart swapChart(const ChartRun& run) {
    Chart chart =
        chartOf("swap", "Swap in use", "Growth during a run means that memory was short.", ChartUnit::Bytes, 1, 0);
    chart.lines = {{&run.figures[Figure::SwapBytes], "worst", "of the machine"}};
    return chart;
}

Chart connectionChart(const ChartRun& run) {
    Chart chart = chartOf("connections", "Connections", "Of what the engine may have that has the most of it.",
                          ChartUnit::Percent, kPercent, 100);
    chart.lines = {{&run.figures[Figure::Descriptors], "engine1", "open descriptors"},
                   {&run.figures[Figure::Ports], "engine2", "local ports in use"}};
    chart.limits = {{kPercent * kPortsUsedUp, percentLabel("used up: ports", kPercent * kPortsUsedUp) +
                                                  percentLabel(", descriptors", kPercent * kDescriptorsUsedUp)},
                    {kPercent * kDescriptorsUsedUp, ""}};
    return chart;
}

// --- what has nothing to show ---------------------------------------------------------------------------------------

bool showsSomething(const std::vector<Layer>& layers) {
    return std::any_of(layers.begin(), layers.end(), [](const Layer& layer) { return layer.series->most() > 0; });
}

// All layers of such a chart are 0 wherever they are known.
std::string quietLine(const Chart& chart) {
    const Series& figure = *(chart.lines.empty() ? chart.areas : chart.lines)[0].series;
    const double unknown = figure.unknownSeconds();
    const std::string state = !figure.anyKnown() ? "not known"
                              : unknown > 0      ? "none as far as known; for " + durationText(unknown) + " it is not"
                                                 : "none throughout";
    return element("li", "", textElement("b", chart.title) + ": " + state);
}

}  // namespace

std::string runCharts(const ChartRun& run, const Track& track, const std::string& id) {
    std::string figures;
    std::string quiet;
    for (Chart chart : {heldBackChart(run), threadChart(run), processorChart(run), throttlingChart(run),
                        memoryChart(run), swapChart(run), connectionChart(run)}) {
        chart.id = id + "-" + chart.id;
        if (showsSomething(chart.areas) || showsSomething(chart.lines)) {
            figures += chartFigure(chart, track);
        } else {
            quiet += quietLine(chart);
        }
    }
    return figures + (quiet.empty() ? "" : element("ul", "class=\"none\"", quiet));
}
