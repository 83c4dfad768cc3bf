// check.h - everything that is wrong with a settings file, found in one run.
//
// The references are expanded by the library itself, which tells an observer what it meets. A file that the library
// would refuse is loaded without the refused lines, so that the rest of it is checked as well.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "check/rule.h"

struct CheckedFile {
    std::string file;
    std::vector<SettingsLine> lines;
    std::vector<CheckFinding> findings;  ///< by line and column
    std::size_t allowed;                 ///< how many more were allowed by comments

    /// The line of a finding; "" in an empty file.
    const std::string& sourceOf(const CheckFinding& finding) const;
    /// What of that line must not be shown.
    HiddenParts hiddenOf(const CheckFinding& finding) const;
};

/// What is to be checked, and how.
struct CheckRequest {
    std::string path;
    std::string name;       ///< what the file is called; that of the path unless it is given
    std::string pressmark;  ///< for a further settings file, the pressmark.ini that its references mean; else ""
    std::vector<std::string> ignored;  ///< names of rules
    const KnownKeys* keys = nullptr;   ///< what the product knows; else the file's setting PMENV_KEYS counts
    Secrets secrets{};
};

/// Checks a file as a program would load it, with this process's environment. Throws Failure when it cannot be read, or
/// the known keys that it names cannot be used.
CheckedFile checkFile(const CheckRequest& request);
