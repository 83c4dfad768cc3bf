// units.h - figures as people read them, and drawn as bars and lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

/// "0 B", "1023 B", "1.0 KiB", "15.6 GiB"; "-" when it is not known.
std::string bytesText(std::optional<std::uint64_t> bytes);

/// "0.0 %", "99.5 %"; "-" when it is not known.
std::string percentText(std::optional<double> percent);

/// "12 s", "1.5 s".
std::string secondsText(double seconds);

/// "[||||    ]", `width` columns in all, filled to `share` (0 to 1); empty when it is not known.
std::string bar(std::optional<double> share, std::size_t width);

/// The last `width` percentages, one column each, as blocks of eight heights. Full height is 100 or the largest of
/// them, whichever is more; what is not known is a blank.
std::string sparkline(const std::deque<std::optional<double>>& percentages, std::size_t width);
