// findings.h - how findings are shown.
#pragma once

#include <string>
#include <vector>

#include "check/check.h"
#include "output.h"
#include "terminal.h"

/// "FILE:LINE:COLUMN: error: text [rule]", the line beneath it and what is meant underlined, as compilers write it.
std::string findingText(const CheckedFile& checked, const CheckFinding& finding, const Style& style);

Json findingJson(const CheckedFile& checked, const CheckFinding& finding);

/// The rule with its description, what to do, and an example.
std::string ruleText(const Rule& rule, const Style& style);
std::string rulesText(const Style& style);
Json rulesJson();
