#include "screen.h"

#include <algorithm>

#include "statsFormats.h"
#include "text.h"
#include "units.h"

namespace {

constexpr std::size_t kRemembered = 512;  // samples; wider terminals are rare
constexpr std::size_t kLabel = 8;
constexpr std::size_t kWidestBar = 60;

std::string padLeft(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, displayWidth(text)), ' ') + text;
}

std::string padRight(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, displayWidth(text)), ' ');
}

// "Memory  [||||||      ]  3.4 GiB of 15.6 GiB": the bar takes what the words leave.
std::string barLine(const char* label, std::optional<double> share, const std::string& words, std::size_t columns) {
    const std::size_t taken = kLabel + 2 + displayWidth(words);
    const std::size_t room = columns > taken ? columns - taken : 0;
    const std::string drawn = room >= 8 ? bar(share, std::min(room, kWidestBar)) + "  " : "";
    return cutToWidth(padRight(label, kLabel) + drawn + words, columns);
}

double shareOf(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

std::string memoryLine(const Figures& figures, std::size_t columns) {
    const std::uint64_t left = figures.availableBytes.value_or(figures.freeBytes);
    const std::uint64_t used = figures.memoryBytes - std::min(left, figures.memoryBytes);
    return barLine("Memory", shareOf(used, figures.memoryBytes),
                   bytesText(used) + " of " + bytesText(figures.memoryBytes) + ", " + bytesText(left) +
                       (figures.availableBytes ? " available" : " free"),
                   columns);
}

std::string swapLine(const Figures& figures, std::size_t columns) {
    return barLine("Swap", shareOf(figures.swapUsedBytes.value_or(0), figures.swapBytes),
                   bytesText(figures.swapUsedBytes) + " of " + bytesText(figures.swapBytes), columns);
}

std::string cpuLine(const Figures& figures, std::size_t columns) {
    const std::optional<double> share =
        figures.cpuPercent ? std::optional<double>(*figures.cpuPercent / 100) : std::nullopt;
    const std::string of =
        " of " + std::to_string(figures.processors) + (figures.processors == 1 ? " processor" : " processors");
    return barLine("CPU", share, percentText(figures.cpuPercent) + of, columns);
}

std::string engineLine(const EngineFigures& engine, const History& history, std::size_t columns) {
    const std::string figures = padLeft(std::to_string(engine.processId), 7) + "  " +
                                padLeft(percentText(engine.cpuPercent), 8) + "  " +
                                padLeft(bytesText(engine.residentBytes), 10) + "  ";
    const std::size_t room = columns > figures.size() ? columns - figures.size() : 0;
    return cutToWidth(figures + sparkline(history.of(engine.processId), room), columns);
}

std::vector<std::string> warnings(const Figures& figures, const Verdict& verdict) {
    std::vector<std::string> texts;
    for (const Finding& finding : verdict.findings()) {
        if (finding.lasting) texts.push_back("! " + findingText(finding, verdict.limits()));
    }
    for (const std::string& message : figures.warnings) texts.push_back("! " + printable(message));
    return texts;
}

// Words of a warning may need several lines.
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

}  // namespace

void History::add(const std::vector<EngineFigures>& engines) {
    std::map<int, std::deque<std::optional<double>>> kept;
    for (const EngineFigures& engine : engines) {
        std::deque<std::optional<double>>& line = kept[engine.processId];
        line = std::move(percentages_[engine.processId]);
        line.push_back(engine.cpuPercent);
        if (line.size() > kRemembered) line.pop_front();
    }
    percentages_ = std::move(kept);
}

const std::deque<std::optional<double>>& History::of(int processId) const {
    static const std::deque<std::optional<double>> none;
    const auto found = percentages_.find(processId);
    return found != percentages_.end() ? found->second : none;
}

std::vector<std::string> screenLines(const Figures& figures, const History& history, const Verdict& verdict,
                                     const TerminalSize& size, const Style& style) {
    std::vector<std::string> lines;
    lines.push_back(style.dim(cutToWidth(isoTime(figures.time) + "   q quits", size.columns)));
    lines.push_back(cpuLine(figures, size.columns));
    lines.push_back(memoryLine(figures, size.columns));
    lines.push_back(swapLine(figures, size.columns));
    for (const std::string& warning : warnings(figures, verdict)) {
        for (const std::string& line : wrapped(warning, size.columns)) lines.push_back(style.red(line));
    }

    lines.emplace_back();
    lines.push_back(style.bold(cutToWidth(
        "    PID   OF ONE      MEMORY  LOAD ENGINES " + std::to_string(figures.engines.size()), size.columns)));
    const std::vector<EngineFigures> engines = byCpu(figures.engines);
    for (std::size_t i = 0; i < engines.size(); ++i) {
        const bool lastLine = lines.size() + 1 >= size.rows;
        if (lastLine && i + 1 < engines.size()) {
            lines.push_back(cutToWidth("    and " + std::to_string(engines.size() - i) + " more", size.columns));
            break;
        }
        lines.push_back(engineLine(engines[i], history, size.columns));
    }
    if (lines.size() > size.rows) lines.resize(size.rows);
    return lines;
}
