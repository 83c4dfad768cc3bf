#include "units.h"

#include <array>
#include <cmath>
#include <cstdio>

std::string countText(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string fixedText(double number, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, number);
    return text;
}

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
    return fixedText(number, 1) + " " + units[unit];
}

std::string percentText(std::optional<double> percent) { return percent ? fixedText(*percent, 1) + " %" : "-"; }

std::string secondsText(double seconds) {
    const bool whole = std::fabs(seconds - std::round(seconds)) < 0.05;
    return fixedText(seconds, whole ? 0 : 1) + " s";
}
