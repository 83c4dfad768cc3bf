// areas.h - the areas that are measured; one source file each.
#pragma once

#include "measure.h"

void measureProcesses(Report& report);
void measureWatching(Report& report);
void measureRecordings(Report& report);
void measureStart(Report& report);
void measureFiles(Report& report);
void measurePaths(Report& report);
void measureReading(Report& report);
void measureSettings(Report& report);
void measureLog(Report& report);
