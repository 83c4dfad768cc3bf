#include "times.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <string>

namespace {

using std::chrono::milliseconds;

constexpr double kLastSecond = 7258118399;  // of the year 2199; the clock of the C++ library counts to 2262

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// "90", "1795309835.5"
std::optional<double> parseDecimal(std::string_view text) {
    double number = 0;
    if (text.empty() || !isDigit(text.front()) || !isDigit(text.back())) return std::nullopt;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number <= kLastSecond ? std::optional(number) : std::nullopt;
}

milliseconds asMilliseconds(double seconds) { return milliseconds(std::llround(seconds * 1000)); }

std::optional<double> secondsIn(char unit) {
    switch (unit) {
        case 's':
            return 1;
        case 'm':
            return 60;
        case 'h':
            return 3600;
        case 'd':
            return 86400;
        default:
            return std::nullopt;
    }
}

// "-10m"
std::optional<Moment> parseAgo(std::string_view text, Moment now) {
    const std::optional<double> unit = secondsIn(text.back());
    const std::optional<double> number = parseDecimal(text.substr(1, text.size() - 2));
    if (!unit || !number) return std::nullopt;
    return now - asMilliseconds(*number * *unit);
}

// --- RFC 3339 -------------------------------------------------------------------------------------------------------

// Takes a number of exactly `digits` digits from the front, and the character behind it, if one is asked for.
bool take(std::string_view* rest, std::size_t digits, int* number, std::string_view behind) {
    *number = 0;
    if (rest->size() < digits) return false;
    for (const char c : rest->substr(0, digits)) {
        if (!isDigit(c)) return false;
        *number = *number * 10 + (c - '0');
    }
    rest->remove_prefix(digits);
    if (behind.empty()) return true;
    if (rest->empty() || behind.find(rest->front()) == std::string_view::npos) return false;
    rest->remove_prefix(1);
    return true;
}

// ".123", or nothing
std::optional<double> takeFraction(std::string_view* rest) {
    if (rest->empty() || rest->front() != '.') return 0;
    std::size_t end = 1;
    while (end < rest->size() && isDigit((*rest)[end])) ++end;
    const std::optional<double> fraction = parseDecimal("0" + std::string(rest->substr(0, end)));
    rest->remove_prefix(end);
    return fraction;
}

// "Z", "+02:00"
std::optional<double> parseOffset(std::string_view text) {
    if (text == "Z" || text == "z") return 0;
    if (text.empty() || (text[0] != '+' && text[0] != '-')) return std::nullopt;
    const double sign = text[0] == '-' ? -1 : 1;
    int hours = 0, minutes = 0;
    text.remove_prefix(1);
    if (!take(&text, 2, &hours, ":") || !take(&text, 2, &minutes, "") || !text.empty()) return std::nullopt;
    if (hours > 23 || minutes > 59) return std::nullopt;
    return sign * (hours * 3600 + minutes * 60);
}

// timegm takes the 31st of June for the 1st of July.
std::optional<double> secondsOf(std::tm parts) {
    const std::tm given = parts;
    const std::time_t seconds = timegm(&parts);
    const bool exists = given.tm_mon == parts.tm_mon && given.tm_mday == parts.tm_mday &&
                        given.tm_hour == parts.tm_hour && given.tm_min == parts.tm_min && given.tm_sec == parts.tm_sec;
    return exists ? std::optional(static_cast<double>(seconds)) : std::nullopt;
}

// "2026-11-21T04:20:33.123+02:00"
std::optional<Moment> parseDate(std::string_view text) {
    std::tm parts{};
    int year = 0, month = 0;
    const bool taken = take(&text, 4, &year, "-") && take(&text, 2, &month, "-") &&
                       take(&text, 2, &parts.tm_mday, "Tt ") && take(&text, 2, &parts.tm_hour, ":") &&
                       take(&text, 2, &parts.tm_min, ":") && take(&text, 2, &parts.tm_sec, "");
    if (!taken) return std::nullopt;
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    const std::optional<double> seconds = secondsOf(parts);
    const std::optional<double> fraction = takeFraction(&text);
    const std::optional<double> offset = parseOffset(text);
    if (!seconds || !fraction || !offset) return std::nullopt;
    return Moment(asMilliseconds(*seconds + *fraction - *offset));
}

std::optional<Moment> parseAny(std::string_view text, Moment now) {
    if (text == "now") return now;
    if (text.size() > 2 && text[0] == '-') return parseAgo(text, now);
    if (const std::optional<double> seconds = parseDecimal(text)) return Moment(asMilliseconds(*seconds));
    return parseDate(text);
}

}  // namespace

std::optional<Moment> parseMoment(std::string_view text, Moment now) {
    const std::optional<Moment> moment = parseAny(text, now);
    const bool fits = moment && *moment >= Moment() && *moment <= Moment(asMilliseconds(kLastSecond));
    return fits ? moment : std::nullopt;
}
