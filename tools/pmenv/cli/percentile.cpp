#include "percentile.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr double kRounding = 1e-9;  // of sums of intervals

}  // namespace

bool isTooMuch(double share, double percentile) { return 100 * (1 - share) < percentile - kRounding; }

double believedPercentile(double share) { return std::floor(1000 * (1 - share) + kRounding) / 10; }

std::string percentileText(double percentile) {
    char text[32];
    std::snprintf(text, sizeof text, "p%.10g", percentile);
    return text;
}
