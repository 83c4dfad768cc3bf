#include "chart/page.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <numeric>

#include "chart/axis.h"
#include "chart/charts.h"
#include "chart/markup.h"
#include "chart/plot.h"
#include "chart/style.h"
#include "isoTime.h"
#include "judgeFormats.h"
#include "judgement/findings.h"
#include "units.h"

namespace {

double secondsSince1970(std::chrono::system_clock::time_point time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

std::string section(const std::string& title, const std::string& content) {
    return content.empty() ? "" : element("section", "", textElement("h2", title) + "\n" + content) + "\n";
}

// "2026-11-21 22:36:08 UTC"
std::string clockText(std::chrono::system_clock::time_point time) {
    std::string text = isoTime(time);
    text[text.find('T')] = ' ';
    return text.substr(0, text.find('.')) + " UTC";
}

// --- the time axis --------------------------------------------------------------------------------------------------

// Nearer than this, times are not told apart on the axis.
double leastGap(const PageTime& page) { return page.seconds / 300; }

double offsetOf(const ChartRun& run, const PageTime& page) { return secondsSince1970(run.start) - page.start; }

std::vector<TimeSpan> spoiledTimes(const ChartRun& run, const char* kind = nullptr) {
    std::vector<TimeSpan> spans;
    for (const JudgedEngine& engine : run.judged.engines) {
        for (const Stretch& stretch : engine.stretches) {
            if (kind != nullptr && std::string(kind) != reasonName(stretch.reason)) continue;
            spans.emplace_back(stretch.from, stretch.to);
        }
    }
    return spans;
}

constexpr std::size_t kMostMarks = 24;

std::vector<Mark> shownMarks(const ChartRun& run) {
    std::vector<Mark> marks;
    for (const Mark& mark : run.marks) {
        if (mark.time >= 0 && mark.time <= run.seconds && marks.size() < kMostMarks) marks.push_back(mark);
    }
    return marks;
}

Track trackOf(const ChartRun& run, const PageTime& page) {
    Track track{
        page.seconds, offsetOf(run, page), run.judgedFrom, run.seconds, joined(spoiledTimes(run), leastGap(page)), {}};
    for (const Mark& mark : shownMarks(run)) track.marks.push_back(mark.time);
    return track;
}

// --- the verdict ----------------------------------------------------------------------------------------------------

struct Look {
    const char* style;
    const char* icon;
};

Look lookOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Clean:
            return {"clean", "M4 12.5L9.5 18L20 6.5"};
        case Outcome::Spoiled:
            return {"spoiled", "M5 5L19 19M19 5L5 19"};
        case Outcome::CannotTell:
            break;
    }
    return {"unsure", "M7.5 8.5A4.5 4.5 0 1 1 12 13V15.5M12 20V20.1"};
}

std::string capitalised(std::string text) {
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

std::string verdictBox(const char* heading, const std::string& title, Outcome outcome, const std::string& reason,
                       const std::string& watched, const std::vector<std::string>& remarks = {}) {
    const Look look = lookOf(outcome);
    std::string content = element(heading, "class=\"outcome\"",
                                  "<svg viewBox=\"0 0 24 24\" aria-hidden=\"true\"><path class=\"icon\" d=\"" +
                                      std::string(look.icon) + "\"/></svg>" + escaped(title)) +
                          element("p", "class=\"reason\"", escaped(capitalised(reason) + ".")) +
                          element("p", "class=\"watched\"", escaped(watched));
    for (const std::string& remark : remarks) content += element("p", "class=\"remark\"", escaped("Note: " + remark));
    return element("header", "class=\"verdict " + std::string(look.style) + "-run\"", content) + "\n";
}

std::string watchedText(const ChartRun& run) {
    const std::string skipped =
        run.judgedFrom > 0 ? " The first " + durationText(run.judgedFrom) + " are left out of the verdict." : "";
    return "Watched " + countText(run.judged.engines.size(), "load engine") + " for " + durationText(run.seconds) +
           " on " + run.host + ", from " + clockText(run.start) + "." + skipped;
}

// --- findings -------------------------------------------------------------------------------------------------------

std::vector<TimeSpan> timesOf(const RunFinding& finding, const ChartRun& run, const PageTime& page) {
    std::vector<TimeSpan> spans = spoiledTimes(run, finding.kind);
    if (spans.empty()) spans.emplace_back(finding.since, std::min(run.seconds, finding.since + finding.seconds));
    return joined(spans, leastGap(page));
}

std::string findingItem(const RunFinding& finding, const ChartRun& run, const PageTime& page, const Track& track) {
    constexpr double kShort = 600;
    const std::string when =
        "from " + elapsedText(finding.since, run.seconds < kShort) + ", for " + durationText(finding.seconds);
    const std::string sign =
        finding.spoils ? "<span class=\"sign spoiled-text\">✕</span>" : "<span class=\"sign\">–</span>";
    return element("li", "",
                   element("h3", "",
                           sign + escaped(when) +
                               (finding.spoils ? "" : " <span class=\"quiet\">(does not spoil the run)</span>")) +
                       timeStrip(when, finding.spoils ? "spoiled" : "told", timesOf(finding, run, page), track) +
                       element("p", "", escaped(finding.text)) +
                       element("p", "class=\"advice\"", escaped(finding.advice))) +
           "\n";
}

std::string findingsSection(const ChartRun& run, const PageTime& page) {
    const Track track = trackOf(run, page);
    std::string items;
    for (const RunFinding& finding : findingsOf(run.judged, run.limits))
        items += findingItem(finding, run, page, track);
    return section("What was found",
                   items.empty() ? "" : element("ol", "class=\"findings\"", items) + timeScale(track));
}

// --- signals --------------------------------------------------------------------------------------------------------

std::string numberCell(const std::string& text) { return element("td", "class=\"number\"", escaped(text)); }

std::string signalRow(const Signal& signal) {
    const bool over = signal.state == Signal::State::Over;
    return element("tr", over ? "class=\"over\"" : "",
                   element("th", "scope=\"row\"", escaped(signal.name)) +
                       numberCell(signalText(signal.value, signal.unit)) +
                       (signal.limit ? numberCell(signalText(signal.limit, signal.unit)) : "") +
                       element("td",
                               over                                ? "class=\"spoiled-text\""
                               : signal.state == Signal::State::Ok ? ""
                                                                   : "class=\"quiet\"",
                               (over ? "✕ " : "") + std::string(stateText(signal.state)))) +
           "\n";
}

std::string tableOf(const std::string& caption, const std::string& head, const std::string& rows) {
    return element(
        "table", "",
        textElement("caption", caption) + element("thead", "", element("tr", "", head)) + element("tbody", "", rows));
}

std::string headCell(const char* name, bool number = false) {
    return element("th", number ? "scope=\"col\" class=\"number\"" : "scope=\"col\"", name);
}

// Those that can spoil a run stand apart from those that only help to explain it.
std::string signalsSection(const ChartRun& run) {
    std::string judged;
    std::string told;
    for (const Signal& signal : signalsOf(run.judged, run.limits)) (signal.limit ? judged : told) += signalRow(signal);
    const std::string worst = headCell("Signal") + headCell("Worst", true);
    const std::string state = headCell("State");
    return section("Signals", element("div", "class=\"tables\"",
                                      tableOf("What is judged", worst + headCell("Limit", true) + state, judged) +
                                          tableOf("What helps to explain it", worst + state, told)));
}

// --- over time ------------------------------------------------------------------------------------------------------

std::string marksPart(const ChartRun& run, const Track& track) {
    constexpr std::size_t kLongestText = 48;
    std::vector<std::pair<double, std::string>> flags;
    for (const Mark& mark : shownMarks(run)) flags.emplace_back(mark.time, shortened(mark.text, kLongestText));
    std::string list;  // takes the place of the flags where there is little room
    for (const auto& [time, text] : flags) list += textElement("li", "⚑ " + elapsedText(time, false) + " " + text);
    const std::size_t hidden = run.marks.size() - flags.size();
    return (flags.empty() ? "" : markFlags(flags, track) + element("ul", "class=\"marks\"", list)) +
           (hidden == 0 ? ""
                        : element("p", "class=\"about\"",
                                  countText(hidden, "further mark") + (hidden == 1 ? " is" : " are") + " not shown."));
}

std::string chartsSection(const ChartRun& run, const PageTime& page, const std::string& id) {
    const Track track = trackOf(run, page);
    const double width = run.figures[Figure::EngineProcessors].width();
    std::string about =
        "The time counts from " +
        clockText(std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::duration<double>(page.start)))) +
        ". Shaded: an engine was held back.";
    if (width > Series::kFinest) {
        about += " Each step shows the mean of " + durationText(width) +
                 ", the pale band beside a line the least and the most.";
    }
    return section("Over time",
                   element("p", "class=\"about\"", escaped(about)) + marksPart(run, track) + runCharts(run, track, id));
}

// --- response times -------------------------------------------------------------------------------------------------

std::string resultsNotes(const Results& results) {
    std::string text = countText(results.used(), "response");
    if (results.failed() > 0) text += ", " + std::to_string(results.failed()) + " of them failed";
    return text + ". Each step shows " + durationText(results.width()) + ".";
}

std::string resultsSection(const std::vector<ChartRun>& runs, const Results& results, const PageTime& page) {
    Series median;
    Series high;
    for (std::size_t i = 0; i < results.columns().size(); ++i) {
        const ResponseTimes& times = results.columns()[i];
        const double from = static_cast<double>(i) * results.width();
        const double to = std::min(page.seconds, from + results.width());
        const bool any = times.count() > 0;
        median.add(from, to, any ? std::optional(times.percentile(50)) : std::nullopt);
        high.add(from, to, any ? std::optional(times.percentile(99)) : std::nullopt);
    }
    Track track{page.seconds, 0, 0, page.seconds, {}, {}};
    for (const ChartRun& run : runs) {
        for (const auto& [from, to] : spoiledTimes(run)) {
            track.spoiled.emplace_back(offsetOf(run, page) + from, offsetOf(run, page) + to);
        }
    }
    track.spoiled = joined(track.spoiled, leastGap(page));
    Chart chart;
    chart.id = "results";
    chart.title = "Response times";
    chart.about = resultsNotes(results) + " Shaded: an engine was held back, so that these times are in doubt.";
    chart.unit = ChartUnit::Milliseconds;
    chart.lines = {{&high, "worst", "99th percentile"}, {&median, "median", "median"}};
    std::string remarks;
    for (const std::string& remark : results.remarks())
        remarks += element("p", "class=\"about\"", escaped("Note: " + remark));
    return section("Results of the load tool", chartFigure(chart, track) + remarks);
}

// --- what is known about the run ------------------------------------------------------------------------------------

std::string listOf(const NamedTexts& texts) {
    std::string items;
    for (const auto& [name, text] : texts) items += textElement("dt", name) + textElement("dd", text) + "\n";
    return element("dl", "", items);
}

std::string factsSection(const ChartRun& run) {
    return section("Host", listOf(run.facts)) + section("Options of the watch", listOf(run.options));
}

// Each column's mean and its largest value; an empty field is not known.
std::string rawFigures(const RunFigures& figures) {
    std::string text = "second,seconds";
    const auto each = [&figures](auto visit) {
        for (std::size_t i = 0; i < kFigures; ++i) visit(static_cast<Figure>(i), figures[static_cast<Figure>(i)]);
    };
    std::size_t count = 0;
    each([&](Figure figure, const Series& series) {
        text += std::string(",") + figureName(figure) + "," + figureName(figure) + "_most";
        count = std::max(count, series.columns().size());
    });
    text += "\n";
    const double width = figures[Figure::EngineProcessors].width();
    for (std::size_t i = 0; i < count; ++i) {
        text += exactNumber(static_cast<double>(i) * width) + "," + exactNumber(width);
        each([&](Figure, const Series& series) {
            const bool known = i < series.columns().size() && series.columns()[i].known();
            text += known ? "," + shortNumber(series.columns()[i].mean()) + "," + shortNumber(series.columns()[i].most)
                          : ",,";
        });
        text += "\n";
    }
    return text;
}

std::string rawSection(const ChartRun& run, const std::string& id) {
    return element("section", "class=\"raw\"",
                   "<h2>Raw figures</h2>\n<details><summary>As comma-separated values, to take out</summary>" +
                       element("pre", "id=\"" + id + "-figures\" tabindex=\"0\"", rawFigures(run.figures)) +
                       "</details>") +
           "\n";
}

// --- several generators ---------------------------------------------------------------------------------------------

bool isWorse(Outcome left, Outcome right) {
    const auto rank = [](Outcome outcome) {
        return outcome == Outcome::Spoiled ? 2 : outcome == Outcome::CannotTell ? 1 : 0;
    };
    return rank(left) > rank(right);
}

// One line for each: its verdict, and when its engines were held back.
std::string generatorItem(const ChartRun& run, const std::string& id, const PageTime& page) {
    const Track track = trackOf(run, page);
    const std::string outcome = outcomeText(run.judged.outcome);
    const std::string verdict =
        element("span", "class=\"" + std::string(lookOf(run.judged.outcome).style) + "-text\"", outcome);
    return element("li", "",
                   element("h3", "", element("a", "href=\"#" + id + "\"", escaped(run.host)) + ": " + verdict) +
                       timeStrip(outcome, "spoiled", track.spoiled, track) +
                       textElement("p", reasonText(run.judged, run.limits))) +
           "\n";
}

std::vector<std::size_t> worstFirst(const std::vector<ChartRun>& runs) {
    std::vector<std::size_t> order(runs.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&runs](std::size_t left, std::size_t right) {
        return isWorse(runs[left].judged.outcome, runs[right].judged.outcome);
    });
    return order;
}

std::string runId(std::size_t index) { return "run" + std::to_string(index + 1); }

std::string severalVerdicts(const std::vector<ChartRun>& runs, const PageTime& page) {
    const std::vector<std::size_t> order = worstFirst(runs);
    const Outcome outcome = runs[order[0]].judged.outcome;
    const auto alike = static_cast<std::size_t>(std::count_if(
        runs.begin(), runs.end(), [outcome](const ChartRun& run) { return run.judged.outcome == outcome; }));
    std::string items;
    for (const std::size_t index : order) items += generatorItem(runs[index], runId(index), page);
    const Track whole{page.seconds, 0, 0, page.seconds, {}, {}};
    return verdictBox(
               "h1", capitalised(outcomeText(outcome)), outcome,
               std::to_string(alike) + " of " + countText(runs.size(), "load generator") + ": " + outcomeText(outcome),
               "Watched for " + durationText(page.seconds) + " in all.") +
           section("Load generators", element("ol", "class=\"findings\"", items) + timeScale(whole));
}

std::string runVerdict(const ChartRun& run, bool alone) {
    const std::string outcome = outcomeText(run.judged.outcome);
    return verdictBox(alone ? "h1" : "h2", alone ? capitalised(outcome) : run.host + ": " + outcome, run.judged.outcome,
                      reasonText(run.judged, run.limits), watchedText(run), run.remarks);
}

std::string titleOf(const std::vector<ChartRun>& runs) {
    std::string hosts;
    for (const ChartRun& run : runs) hosts += (hosts.empty() ? "" : ", ") + run.host;
    return "Load generator " + shortened(hosts, 80) + ", " + clockText(runs[0].start);
}

}  // namespace

PageTime timeOf(const std::vector<ChartRun>& runs) {
    PageTime page;
    double end = 0;
    for (const ChartRun& run : runs) {
        const double start = secondsSince1970(run.start);
        page.start = &run == runs.data() ? start : std::min(page.start, start);
        end = std::max(end, start + run.seconds);
    }
    page.seconds = end - page.start;
    return page;
}

std::string chartPage(const std::vector<ChartRun>& runs, const std::optional<Results>& results) {
    const PageTime page = timeOf(runs);
    const std::string drawnResults = results ? resultsSection(runs, *results, page) : "";
    const bool alone = runs.size() == 1;
    std::string content = alone ? "" : severalVerdicts(runs, page) + drawnResults;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const ChartRun& run = runs[i];
        const std::string id = runId(i);
        content += element("article", "id=\"" + id + "\"",
                           runVerdict(run, alone) + findingsSection(run, page) + signalsSection(run) +
                               (alone ? drawnResults : "") + chartsSection(run, page, id) + factsSection(run) +
                               rawSection(run, id));
    }
    return "<!DOCTYPE html>\n<html lang=\"en\" xmlns=\"http://www.w3.org/1999/xhtml\">\n<head>\n<meta "
           "charset=\"utf-8\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n" +
           textElement("title", titleOf(runs)) + "\n" + element("style", "", kChartStyle) + "\n</head>\n<body>\n" +
           hatchings() + "\n<main>\n" + content +
           "<footer>Drawn by pmenv chart. This page contains all that it shows.</footer>\n</main>\n</body>\n</html>\n";
}
