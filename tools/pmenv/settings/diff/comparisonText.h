// comparisonText.h - how a comparison is shown.
#pragma once

#include <string>

#include "diff/comparison.h"
#include "output.h"
#include "terminal.h"

/// The differences, for people; "" when there is none.
std::string comparisonText(const Comparison& comparison, const Style& style);

Json comparisonJson(const Comparison& comparison);
