#include "units.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

std::string fixed(double number, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, number);
    return text;
}

}  // namespace

std::string bytesText(std::optional<std::uint64_t> bytes) {
    constexpr std::array<const char*, 7> units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (!bytes) return "-";
    if (*bytes < 1024) return std::to_string(*bytes) + " B";
    double number = static_cast<double>(*bytes);
    std::size_t unit = 0;
    // 1023.96 KiB would be written as 1024.0.
    while (number >= 1023.95 && unit + 1 < units.size()) {
        number /= 1024;
        ++unit;
    }
    return fixed(number, 1) + " " + units[unit];
}

std::string percentText(std::optional<double> percent) { return percent ? fixed(*percent, 1) + " %" : "-"; }

std::string secondsText(double seconds) {
    const bool whole = std::fabs(seconds - std::round(seconds)) < 0.05;
    return fixed(seconds, whole ? 0 : 1) + " s";
}

std::string bar(std::optional<double> share, std::size_t width) {
    const std::size_t room = std::max<std::size_t>(width, 2) - 2;
    const double filled = std::min(1.0, std::max(0.0, share.value_or(0))) * static_cast<double>(room);
    const auto strokes = static_cast<std::size_t>(std::lround(filled));
    return "[" + std::string(strokes, '|') + std::string(room - strokes, ' ') + "]";
}

std::string sparkline(const std::deque<std::optional<double>>& percentages, std::size_t width) {
    constexpr std::array<const char*, 8> heights{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const std::size_t shown = std::min(width, percentages.size());
    double full = 100;
    for (std::size_t i = percentages.size() - shown; i < percentages.size(); ++i) {
        full = std::max(full, percentages[i].value_or(0));
    }
    std::string line;
    for (std::size_t i = percentages.size() - shown; i < percentages.size(); ++i) {
        const double share = std::max(0.0, percentages[i].value_or(0)) / full;
        line += percentages[i] ? heights[static_cast<std::size_t>(std::lround(share * 7))] : " ";
    }
    return line;
}
