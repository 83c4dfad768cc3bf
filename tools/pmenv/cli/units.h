// units.h - figures as people read them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// "0 B", "1023 B", "1.0 KiB", "15.6 GiB"; "-" when it is not known.
std::string bytesText(std::optional<std::uint64_t> bytes);

/// "0.0 %", "99.5 %"; "-" when it is not known.
std::string percentText(std::optional<double> percent);

/// "1 engine", "2 engines"; `what` is the name of one.
std::string countText(std::uint64_t count, const std::string& what);

/// "1.50", with as many digits behind the point as asked for.
std::string fixedText(double number, int decimals);

/// "12 s", "1.5 s".
std::string secondsText(double seconds);
