#include "screen.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "bars.h"
#include "isoTime.h"
#include "text.h"
#include "units.h"

namespace {

constexpr std::size_t kRemembered = 512;  // samples; wider terminals are rare
constexpr std::size_t kSortedSamples = 10;
constexpr std::size_t kWidestBar = 60;
constexpr std::size_t kNarrowestBar = 6;
constexpr std::size_t kComfortableBar = 20;  // narrower than that, and the words beside it are shortened
constexpr std::size_t kComfortableRows = 16;
constexpr std::size_t kFigureColumns = 30;    // an engine's figures, left of its past
constexpr std::size_t kHeldBackColumns = 10;  // the one more that there is room for ...
constexpr std::size_t kRoomForHeldBack = 60;  // ... on a terminal of so many columns

std::string padLeft(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, displayWidth(text)), ' ') + text;
}

std::string padRight(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, displayWidth(text)), ' ');
}

// --- the machine ----------------------------------------------------------------------------------------------------

// "Memory [||||||      ]  3.4 GiB of 15.6 GiB, 12.2 GiB available"
struct BarLine {
    std::string label;
    std::optional<double> share;
    double first;  // the part of the share that is drawn in another character
    std::string words;
    std::string fewWords;
};

std::optional<double> shareOf(std::optional<std::uint64_t> part, std::uint64_t whole) {
    if (!part) return std::nullopt;
    return whole == 0 ? 0 : static_cast<double>(*part) / static_cast<double>(whole);
}

BarLine cpuLine(const Figures& figures) {
    BarLine line{std::to_string(figures.processors) + (figures.processors == 1 ? " CPU" : " CPUs"), std::nullopt, 0,
                 percentText(figures.cpuPercent), percentText(figures.cpuPercent)};
    if (figures.cpuPercent) line.share = *figures.cpuPercent / 100;
    if (const auto parts = cpuParts(figures)) {
        line.first = parts->engines / 100;
        line.words += ": # engines " + percentText(parts->engines) + ", | others " + percentText(parts->others);
    }
    return line;
}

BarLine memoryLine(const Figures& figures) {
    const std::uint64_t left = figures.availableBytes.value_or(figures.freeBytes);
    const std::uint64_t used = figures.memoryBytes - std::min(left, figures.memoryBytes);
    const std::string words = bytesText(used) + " of " + bytesText(figures.memoryBytes);
    return {"Memory", shareOf(used, figures.memoryBytes), 0,
            words + ", " + bytesText(left) + (figures.availableBytes ? " available" : " free"), words};
}

BarLine swapLine(const Figures& figures) {
    const std::string words = bytesText(figures.swapUsedBytes) + " of " + bytesText(figures.swapBytes);
    return {"Swap", shareOf(figures.swapUsedBytes, figures.swapBytes), 0, words, words};
}

std::size_t widest(const std::vector<BarLine>& lines, std::string BarLine::*text) {
    std::size_t width = 0;
    for (const BarLine& line : lines) width = std::max(width, displayWidth(line.*text));
    return width;
}

// All bars are as wide as the longest words allow; where that would be too little, the words are fewer.
std::vector<std::string> barLines(const std::vector<BarLine>& lines, std::size_t columns) {
    const std::size_t label = widest(lines, &BarLine::label) + 1;
    const auto roomBeside = [&](std::string BarLine::*words) {
        const std::size_t taken = label + 2 + widest(lines, words);
        return columns - std::min(columns, taken);
    };
    const auto words = roomBeside(&BarLine::words) < kComfortableBar ? &BarLine::fewWords : &BarLine::words;
    const std::size_t width = std::min(roomBeside(words), kWidestBar);
    std::vector<std::string> texts;
    for (const BarLine& line : lines) {
        const std::string drawn = width >= kNarrowestBar ? bar(line.share, width, line.first) + "  " : "";
        texts.push_back(cutToWidth(padRight(line.label, label) + drawn + line.*words, columns));
    }
    return texts;
}

// The first of the texts that fits, from the longest to the shortest.
std::string longestThatFits(const std::vector<std::string>& texts, std::size_t columns) {
    for (const std::string& text : texts) {
        if (displayWidth(text) <= columns) return text;
    }
    return cutToWidth(texts.back(), columns);
}

// Samples are taken on full seconds, so their fractions are left out.
std::string titleLine(const Figures& figures, std::size_t columns) {
    const std::string time = isoTime(figures.time).substr(0, sizeof "2026-11-21T05:33:55" - 1) + "Z";
    const std::string keys = time + "  q quits, ↑↓ scroll";
    return longestThatFits({keys + "  " + printable(figures.host), keys, time}, columns);
}

// --- warnings -------------------------------------------------------------------------------------------------------

// The words of a warning may need several lines.
std::vector<std::string> wrapped(std::string text, std::size_t columns) {
    std::vector<std::string> lines;
    while (columns > 4 && displayWidth(text) > columns) {
        std::size_t end = text.rfind(' ', columns);
        if (end == std::string::npos || end < 3) end = columns;
        lines.push_back(text.substr(0, end));
        text = "  " + text.substr(std::min(text.find_first_not_of(' ', end), text.size()));
    }
    lines.push_back(cutToWidth(text, columns));
    return lines;
}

// Whole if `room` lines are enough, else a line for each, else the first ones and how many more there are.
std::vector<std::string> warningLines(const std::vector<std::string>& warnings, std::size_t columns, std::size_t room) {
    std::vector<std::string> lines;
    for (const std::string& warning : warnings) {
        for (const std::string& line : wrapped("! " + printable(warning), columns)) lines.push_back(line);
    }
    if (lines.size() <= room) return lines;

    lines.clear();
    for (const std::string& warning : warnings) lines.push_back(cutToWidth("! " + printable(warning), columns));
    if (lines.size() <= room) return lines;
    lines.resize(room);
    const std::string left = std::to_string(warnings.size() - room + 1);
    lines.back() = cutToWidth("! " + left + (room == 1 ? " warnings" : " more warnings"), columns);
    return lines;
}

// --- engines --------------------------------------------------------------------------------------------------------

using EngineKey = std::pair<int, std::uint64_t>;  // an id that is used again is another engine

EngineKey keyOf(const EngineFigures& engine) { return {engine.processId, engine.startTicks}; }

std::optional<double> meanOfLast(const std::deque<std::optional<double>>& past) {
    double sum = 0;
    int known = 0;
    for (std::size_t i = past.size() - std::min(past.size(), kSortedSamples); i < past.size(); ++i) {
        sum += past[i].value_or(0);
        known += past[i] ? 1 : 0;
    }
    if (known == 0) return std::nullopt;
    return sum / known;
}

// By a fifth and by more than a tick of the kernel's clock in a second.
bool clearlyChanged(double before, double now) { return std::fabs(now - before) > before / 5 + 1; }

struct EngineWords {
    std::string first, cpu, memory, heldBack;
};

bool showsHeldBack(std::size_t columns) { return columns >= kRoomForHeldBack; }

std::size_t widthOfFigures(std::size_t columns) {
    return kFigureColumns + (showsHeldBack(columns) ? kHeldBackColumns : 0);
}

std::string figureColumns(const EngineWords& words, std::size_t columns) {
    const std::string figures =
        padLeft(words.first, 7) + " " + padLeft(words.cpu, 10) + " " + padLeft(words.memory, 10) + " ";
    return showsHeldBack(columns) ? figures + padLeft(words.heldBack, kHeldBackColumns - 1) + " " : figures;
}

std::string heldBackText(const EngineFigures& engine) {
    return engine.heldBack ? percentText(engine.heldBack->heldBackPercent) : "-";
}

// How many engines there are, and where they do not all fit, which are shown: from long to short.
std::vector<std::string> countTexts(std::size_t count, std::size_t first, std::size_t shown) {
    const std::string all = std::to_string(count);
    if (shown == count || shown == 0) return {"engines: " + all, all};
    const std::string part = std::to_string(first + 1) + "-" + std::to_string(first + shown);
    return {"engines: " + part + " of " + all, part + "/" + all};
}

std::string headingLine(std::size_t columns) {
    const std::string figures = figureColumns({"PID", "OF ONE CPU", "MEMORY", "HELD BACK"}, columns);
    return longestThatFits({figures + "HISTORY  " + sparklineLegend(), figures + "HISTORY", figures}, columns);
}

}  // namespace

void Screen::add(const Figures& figures) {
    figures_ = figures;
    keep(figures.engines);
    for (Row& row : rows_) remember(row);
    std::sort(rows_.begin(), rows_.end(), [](const Row& left, const Row& right) {
        const double leftCpu = left.sortedBy.value_or(-1);
        const double rightCpu = right.sortedBy.value_or(-1);
        return leftCpu != rightCpu ? leftCpu > rightCpu : keyOf(left.engine) < keyOf(right.engine);
    });
}

// The rows of the engines that run, the past of those that were known before among them.
void Screen::keep(const std::vector<EngineFigures>& engines) {
    std::map<EngineKey, Row> known;
    for (Row& row : rows_) known[keyOf(row.engine)] = std::move(row);
    rows_.clear();
    for (const EngineFigures& engine : engines) {
        rows_.push_back(std::move(known[keyOf(engine)]));
        rows_.back().engine = engine;
    }
}

void Screen::remember(Row& row) {
    row.past.push_back(row.engine.cpuPercent);
    if (row.past.size() > kRemembered) row.past.pop_front();
    const std::optional<double> mean = meanOfLast(row.past);
    if (mean && (!row.sortedBy || clearlyChanged(*row.sortedBy, *mean))) row.sortedBy = mean;
}

bool Screen::scroll(Key key) {
    const std::size_t before = first_;
    const std::size_t last = rows_.size() - std::min(shown_, rows_.size());
    switch (key) {
        case Key::Up:
            first_ -= std::min<std::size_t>(first_, 1);
            break;
        case Key::Down:
            first_ += 1;
            break;
        case Key::PageUp:
            first_ -= std::min(first_, shown_);
            break;
        case Key::PageDown:
            first_ += shown_;
            break;
        case Key::Top:
            first_ = 0;
            break;
        case Key::Bottom:
            first_ = last;
            break;
        default:
            break;
    }
    first_ = std::min(first_, last);
    return first_ != before;
}

std::vector<std::string> Screen::lines(const std::vector<std::string>& warnings, const TerminalSize& size,
                                       const Style& style) {
    constexpr std::size_t kHeadings = 2;
    constexpr std::size_t kEnginesBeforeWarnings = 3;
    std::vector<std::string> lines{style.dim(titleLine(figures_, size.columns))};
    for (std::string& line : barLines({cpuLine(figures_), memoryLine(figures_), swapLine(figures_)}, size.columns)) {
        lines.push_back(std::move(line));
    }
    const std::size_t blank = size.rows >= kComfortableRows ? 1 : 0;
    const std::size_t taken = lines.size() + blank + kHeadings + std::min(rows_.size(), kEnginesBeforeWarnings);
    const std::size_t room = size.rows > taken ? size.rows - taken : 1;
    for (const std::string& line : warningLines(warnings, size.columns, room)) lines.push_back(style.red(line));
    lines.resize(lines.size() + blank);
    const std::size_t left = size.rows - std::min(lines.size(), size.rows);
    for (std::string& line : engineLines(size, left, style)) lines.push_back(std::move(line));
    lines.resize(std::min(lines.size(), size.rows));
    return lines;
}

// A heading, the sum of all engines, and as many of them as there is room for.
std::vector<std::string> Screen::engineLines(const TerminalSize& size, std::size_t room, const Style& style) {
    if (rows_.empty())
        return {cutToWidth("No load engine runs (a process named " + std::string(kEngineName) + "...)", size.columns)};
    shown_ = std::min(rows_.size(), room - std::min<std::size_t>(room, 2));
    first_ = std::min(first_, rows_.size() - shown_);
    std::vector<std::string> lines{style.bold(headingLine(size.columns)), totalLine(size.columns)};
    const std::size_t past = size.columns - std::min(size.columns, widthOfFigures(size.columns));
    for (std::size_t i = first_; i < first_ + shown_; ++i) {
        const EngineFigures& engine = rows_[i].engine;
        const EngineWords words{std::to_string(engine.processId), percentText(engine.cpuPercent),
                                bytesText(engine.residentBytes), heldBackText(engine)};
        lines.push_back(cutToWidth(figureColumns(words, size.columns) + sparkline(rows_[i].past, past), size.columns));
    }
    return lines;
}

// What is not known of one engine is not known of their sum.
std::string Screen::totalLine(std::size_t columns) const {
    std::optional<double> cpu = 0;
    std::optional<std::uint64_t> memory = 0;
    for (const Row& row : rows_) {
        cpu = cpu && row.engine.cpuPercent ? std::optional(*cpu + *row.engine.cpuPercent) : std::nullopt;
        memory = memory && row.engine.residentBytes ? std::optional(*memory + *row.engine.residentBytes) : std::nullopt;
    }
    const std::string figures = figureColumns({"total", percentText(cpu), bytesText(memory), ""}, columns);
    std::vector<std::string> lines;
    for (const std::string& text : countTexts(rows_.size(), first_, shown_)) lines.push_back(figures + text);
    return longestThatFits(lines, columns);
}
