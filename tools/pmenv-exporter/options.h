// options.h - the command line of pmenv-exporter.
#pragma once

#include <string>
#include <vector>

#include "commandLine.h"
#include "counters.h"
#include "evidence/processes.h"
#include "evidence/threads.h"

struct ExporterOptions {
    std::string listen;
    EngineChoice choice;
    IgnoredThreads ignored;
    double tolerance = 0;  ///< seconds
    ExpositionParts parts;
};

/// `run` is called with what the user typed.
Grammar exporterGrammar(int (*run)(const CommandLine&));

/// Throws Failure for options that make no sense.
ExporterOptions exporterOptions(const CommandLine& line);
