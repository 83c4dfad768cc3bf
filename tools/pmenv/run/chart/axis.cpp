#include "chart/axis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "chart/markup.h"
#include "units.h"

namespace {

constexpr double kMostValueSteps = 4;
constexpr double kMostTimeSteps = 12;
constexpr double kMostMajorSteps = 4;  // so that labels like "2:30 h" have room on a telephone
constexpr double kHour = 3600;
constexpr double kDay = 24 * kHour;

// The smallest of 1, 2, 2.5, 5 times a power of ten that is at least `least`.
double roundStep(double least) {
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 2.5, 5.0}) {
        if (factor * power >= least * (1 - 1e-9)) return factor * power;
    }
    return 10 * power;
}

double binaryStep(double least) { return std::exp2(std::ceil(std::log2(least))); }

constexpr std::array<double, 23> kTimeSteps{0.1,       0.2,       0.5,       1,          2,    5,        10,      15,
                                            30,        60,        120,       300,        600,  900,      1800,    kHour,
                                            2 * kHour, 3 * kHour, 6 * kHour, 12 * kHour, kDay, 2 * kDay, 7 * kDay};

double timeStep(double least, double multipleOf) {
    for (const double step : kTimeSteps) {
        const double times = step / multipleOf;
        if (step >= least && std::fabs(times - std::round(times)) < 1e-6) return step;
    }
    double step = multipleOf * std::ceil(kTimeSteps.back() / multipleOf);
    while (step < least) step *= 2;
    return step;
}

std::string timeText(double at, double step) {
    char text[64];
    if (at == 0) return "0";
    if (step >= kDay) return shortNumber(at / kDay) + " d";
    if (step >= kHour) return shortNumber(at / kHour) + " h";
    const long seconds = std::lround(at);
    if (at >= kHour) {
        std::snprintf(text, sizeof text, "%ld:%02ld h", seconds / 3600, seconds / 60 % 60);
        return text;
    }
    if (step >= 60) return shortNumber(at / 60) + " min";
    if (at < 60) return shortNumber(at) + " s";
    std::snprintf(text, sizeof text, "%ld:%02ld", seconds / 60, seconds % 60);
    return text;
}

}  // namespace

std::string valueText(double value, ChartUnit unit) {
    switch (unit) {
        case ChartUnit::Percent:
            return shortNumber(value) + " %";
        case ChartUnit::Bytes:
            return bytesText(static_cast<std::uint64_t>(value));
        case ChartUnit::Milliseconds:
            return value >= 10000 ? shortNumber(value / 1000) + " s" : shortNumber(value) + " ms";
        case ChartUnit::Processors:
            break;
    }
    return shortNumber(value);
}

namespace {

// There is little room beside an axis: "768 MiB", not "768.0 MiB".
std::string tickText(double value, ChartUnit unit) {
    std::string text = valueText(value, unit);
    const std::size_t tenths = text.find(".0 ");
    return tenths == std::string::npos ? text : text.erase(tenths, 2);
}

}  // namespace

std::vector<Tick> valueTicks(double most, ChartUnit unit) {
    if (!(most > 0) || !std::isfinite(most)) most = 1;
    const double least = most / kMostValueSteps;
    const double step = unit == ChartUnit::Bytes ? binaryStep(std::max(1.0, least)) : roundStep(least);
    std::vector<Tick> ticks;
    for (int i = 0; (i - 1) * step < most * (1 - 1e-9); ++i) ticks.push_back({i * step, tickText(i * step, unit)});
    return ticks;
}

std::vector<Tick> timeTicks(double seconds) {
    if (!(seconds > 0) || !std::isfinite(seconds)) return {{0, "0"}};
    const double step = timeStep(seconds / kMostTimeSteps, 0.1);
    const double major = timeStep(seconds / kMostMajorSteps, step);
    const auto every = static_cast<int>(std::lround(major / step));
    std::vector<Tick> ticks;
    for (int i = 0; i * step <= seconds * (1 + 1e-9); ++i) {
        ticks.push_back({i * step, timeText(i * step, step), i % every == 0});
    }
    return ticks;
}

std::string elapsedText(double seconds, bool tenths) {
    char text[64];
    const auto inTenths = static_cast<long long>(std::llround(std::clamp(seconds, 0.0, 1e12) * 10));
    const long long whole = tenths ? inTenths / 10 : (inTenths + 5) / 10;
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    }
    return tenths ? std::string(text) + "." + std::to_string(inTenths % 10) : text;
}

std::string durationText(double seconds) {
    constexpr double kInSeconds = 120;
    if (seconds > 0 && seconds < 0.05) return "less than 0.1 s";
    if (!(seconds >= kInSeconds)) return secondsText(seconds);
    const auto whole = std::llround(std::min(seconds, 1e15));
    const auto both = [](long long large, const char* unit, long long small, const char* smallUnit) {
        return std::to_string(large) + unit + (small == 0 ? "" : " " + std::to_string(small) + smallUnit);
    };
    return whole < 3600 ? both(whole / 60, " min", whole % 60, " s")
                        : both(whole / 3600, " h", whole / 60 % 60, " min");
}
