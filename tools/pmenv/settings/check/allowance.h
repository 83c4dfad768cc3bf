// allowance.h - comments that allow a finding: "; pmenv: allow RULE" allows one finding of RULE on the next line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "check/settingsText.h"

/// A comment that begins with "pmenv:".
struct Allowance {
    int line;
    std::size_t column;       ///< of what stands behind "pmenv:"
    std::size_t length;       ///< of that
    std::string command;      ///< its first word, "allow" unless it is mistyped
    std::string rule;         ///< its second word; what follows may give the reason
    int allowedLine;          ///< the next line that is no such comment
    bool isNeedless = false;  ///< the rule was applied, and no finding of it was left for this comment
};

/// In the order of the lines.
std::vector<Allowance> allowancesIn(const std::vector<SettingsLine>& lines);
