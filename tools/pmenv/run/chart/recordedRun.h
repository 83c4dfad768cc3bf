// recordedRun.h - a recording as a run to draw.
#pragma once

#include <string>

#include "chart/run.h"

/// Reads and judges the recording as it was judged when it was made. Throws Failure as RecordingReader does.
ChartRun readRecordedRun(const std::string& file);
