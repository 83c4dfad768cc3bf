// times.h - moments as users type them.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

using Moment = std::chrono::time_point<std::chrono::system_clock, std::chrono::milliseconds>;

/// "now"; "-90s", "-10m", "-2h" and "-1d" before `now`; seconds since 1970, as "1795309835.5"; and RFC 3339:
/// "2026-11-21T02:20:33Z", "2026-11-21T04:20:33.123+02:00". Empty for everything else, before 1970 and after 2199.
std::optional<Moment> parseMoment(std::string_view text, Moment now);
