// mark: adds a mark to the recording of a watch that goes on.
#include "commandLine.h"
#include "failure.h"
#include "recording/recording.h"

namespace {

int runMark(const CommandLine& line) {
    const std::string file = line.text("record");
    if (file.empty()) throw Failure("a mark needs --record FILE; see 'pmenv mark --help'", kExitUsage);
    appendMark(file, line.arguments()[0]);
    return kExitDone;
}

}  // namespace

Command markCommand() {
    return {"mark",
            "set a mark in the recording of a run that is being watched",
            {{"TEXT", "what happens now"}},
            {{"record", Option::Kind::File, "FILE", "the recording that 'pmenv judge' or 'pmenv stats' writes"}},
            "pmenv mark 'ramp-up is over' --record gen1.pmrec   shown at this moment of the run",
            runMark};
}
