// export: a recording as metrics over time, for collectors that take in what was measured before.
#include <iostream>
#include <variant>

#include "commandLine.h"
#include "export/history.h"
#include "failure.h"
#include "output.h"
#include "recording/recording.h"

namespace {

int run(const CommandLine& line) {
    if (!line.has("openmetrics")) {
        throw Failure("a format is needed: --openmetrics; see 'pmenv export --help'", kExitUsage);
    }
    RecordingReader reader(line.arguments()[0]);
    History history(reader.header(), line.number("interval", 1));
    while (const auto item = reader.next()) {
        if (const auto* const evidence = std::get_if<Evidence>(&*item)) history.add(*evidence);
    }
    for (const std::string& warning : reader.warnings()) printWarning(warning);
    history.print(std::cout);
    return kExitDone;
}

}  // namespace

Command exportCommand() {
    return {"export",
            "print a recording as metrics over time, for a metrics collector's history",
            {{"FILE", "the recording", false, false, Offer::Files}},
            {{"openmetrics", Option::Kind::Flag, nullptr, "as OpenMetrics with timestamps"},
             {"interval", Option::Kind::Number, "SECONDS", "time between two samples; 1 unless given", 0, 86400}},
            "pmenv export run.jsonl --openmetrics >run.om   then: promtool tsdb create-blocks-from openmetrics run.om data",
            run};
}
