// judgeRecordings.h - `pmenv judge FILE...`: recordings are judged as the runs themselves were.
#pragma once

#include "commandLine.h"

/// Prints the verdict on one recording, or on several load generators together, and returns the exit code.
int judgeRecordings(const CommandLine& line);
