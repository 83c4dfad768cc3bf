// check.h - everything that is wrong with a settings file, found in one run.
//
// The references are expanded by the library itself, which tells an observer what it meets. A file that the library
// would refuse is loaded without the refused lines, so that the rest of it is checked as well.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "checkRules.h"

struct CheckFinding {
    Rule rule;
    int line;            ///< from 1
    std::size_t column;  ///< in bytes, from 1
    std::size_t length;  ///< how many bytes of the line are meant
    std::string text;
};

struct CheckedFile {
    std::string file;
    std::vector<std::string> lines;
    std::vector<CheckFinding> findings;  ///< by line and column

    /// The line of a finding; "" in an empty file.
    std::string sourceOf(const CheckFinding& finding) const;
};

/// Checks `file` as a program would load it as pressmark.ini, with this process's environment. Throws Failure when it
/// cannot be read.
CheckedFile checkFile(const std::string& file);
