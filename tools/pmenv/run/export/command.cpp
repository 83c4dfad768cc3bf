// export: a recording for other programs.
#include <iostream>
#include <variant>

#include "commandLine.h"
#include "export/history.h"
#include "failure.h"
#include "output.h"
#include "recording/recording.h"

namespace {

int runExport(const CommandLine& line) {
    if (!line.has("openmetrics")) {
        throw Failure("a format is needed: --openmetrics; see 'pmenv export --help'", kExitUsage);
    }
    RecordingReader reader(line.arguments()[0]);
    History history(reader.header());
    while (const auto item = reader.next()) {
        std::visit([&history](const auto& told) { history.add(told); }, *item);
    }
    if (reader.outcome()) history.add(*reader.outcome());
    for (const std::string& warning : reader.warnings()) printWarning(warning);
    history.print(std::cout);
    return kExitDone;
}

}  // namespace

Command exportCommand() {
    return {
        "export",
        "print a recording as metrics over time, for the history of a metrics collector",
        {{"FILE", "a recording that 'judge --record' or 'stats --record' has made", false, false, Offer::Files}},
        {{"openmetrics", Option::Kind::Flag, nullptr, "as OpenMetrics, each sample with its time"}},
        "pmenv export gen1.pmrec --openmetrics > gen1.om   then: promtool tsdb create-blocks-from openmetrics gen1.om "
        "DATA",
        runExport,
        "The metrics are in base units: seconds, bytes, and ratios, where 1 is all of it. Each has the host as a "
        "label, those of an engine also its name and process id. What was counted begins with 0 when the engine was "
        "first seen. There is a sample a second; what is counted loses nothing in between. A figure that was not "
        "known has no sample.\n\n"
        "Marks are samples of pmenv_mark, with their text as a label. The verdict is in pmenv_run_verdict, at the end "
        "of the run. Up to 300 bytes of memory are needed for each engine and second."};
}
