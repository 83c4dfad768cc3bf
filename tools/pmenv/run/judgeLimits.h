// judgeLimits.h - the options that live watches and recordings are judged by.
#pragma once

#include <string>

#include "commandLine.h"
#include "judgement/judgement.h"

/// What the user asks for, and `otherwise` where nothing was asked for. Throws Failure for options that do not go together.
JudgeLimits judgeLimits(const CommandLine& line, const JudgeLimits& otherwise = {});

/// The file that an option names; "" when it was not given.
std::string fileOption(const CommandLine& line, const char* option);
