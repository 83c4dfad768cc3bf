// input.h - what can be given to `pmenv check`: files, directories, pipes.
#pragma once

#include <string>
#include <vector>

#include "check/check.h"

/// The settings files that `argument` stands for: of a directory the *.ini in it and below it, in the order of their
/// names, else the argument itself. Throws Failure for a directory without any or one that cannot be read.
std::vector<std::string> settingsFilesOf(const std::string& argument);

/// Checks `file`, which may be a pipe, or "-" for standard input. Throws Failure when it cannot be read.
CheckedFile checkInput(const std::string& file, const std::vector<std::string>& ignored);
