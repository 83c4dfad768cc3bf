// commands.h - what each command does. Each prints its result and returns the exit code.
#pragma once

#include "commandLine.h"

int runGet(const CommandLine& line);
int runList(const CommandLine& line);
int runExplain(const CommandLine& line);
int runCheck(const CommandLine& line);

int runFind(const CommandLine& line);
int runResolve(const CommandLine& line);
int runPathSplit(const CommandLine& line);
int runPathMake(const CommandLine& line);
int runPathShorten(const CommandLine& line);
int runPathAbs(const CommandLine& line);

int runIdentity(const CommandLine& line);
int runWalk(const CommandLine& line);

int runReport(const CommandLine& line);
int runStats(const CommandLine& line);
