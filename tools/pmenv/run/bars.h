// bars.h - shares and histories as characters of a terminal.
#pragma once

#include <deque>
#include <optional>
#include <string>

/// A bar of `width` columns whose filled part shows `share`, 0 to 1. The beginning of it that shows `first`, a part of
/// that share, has characters of its own: "[##|||     ]". An unknown share is "[?         ]".
std::string bar(std::optional<double> share, std::size_t width, double first = 0);

/// The last `width` percentages, one character each; unknown is a blank. The steps are finer the lower they are, so that
/// 1 and 5 % can be told apart, and the same everywhere, so that lines can be compared. All from 90 % on is full height.
std::string sparkline(const std::deque<std::optional<double>>& percentages, std::size_t width);

/// From how many per cent on each height is drawn: "▂1 ▃2 ▄5 ▅10 ▆25 ▇50 █90 %".
std::string sparklineLegend();
