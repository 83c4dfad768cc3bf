#include "bars.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

// The lowest height is everything below the second one's limit.
struct Height {
    const char* character;
    int fromPercent;
};
constexpr std::array<Height, 8> kHeights{
    {{"▁", 0}, {"▂", 1}, {"▃", 2}, {"▄", 5}, {"▅", 10}, {"▆", 25}, {"▇", 50}, {"█", 90}}};

const char* characterOf(std::optional<double> percent) {
    if (!percent) return " ";
    const char* character = kHeights.front().character;
    for (const Height& height : kHeights) {
        if (*percent >= height.fromPercent) character = height.character;
    }
    return character;
}

std::size_t strokesOf(double share, std::size_t room) {
    return static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * static_cast<double>(room)));
}

}  // namespace

std::string bar(std::optional<double> share, std::size_t width, double first) {
    std::string inside(std::max<std::size_t>(width, 2) - 2, ' ');
    if (share) {
        const std::size_t strokes = strokesOf(*share, inside.size());
        std::fill_n(inside.begin(), strokes, '|');
        std::fill_n(inside.begin(), std::min(strokes, strokesOf(first, inside.size())), '#');
    } else if (!inside.empty()) {
        inside.front() = '?';
    }
    return "[" + inside + "]";
}

std::string sparkline(const std::deque<std::optional<double>>& percentages, std::size_t width) {
    std::string line;
    const std::size_t shown = std::min(width, percentages.size());
    for (std::size_t i = percentages.size() - shown; i < percentages.size(); ++i) line += characterOf(percentages[i]);
    return line;
}

std::string sparklineLegend() {
    std::string legend;
    for (std::size_t i = 1; i < kHeights.size(); ++i) {
        legend += kHeights[i].character + std::to_string(kHeights[i].fromPercent) + " ";
    }
    return legend + "%";
}
