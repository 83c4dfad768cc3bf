// Measures a log record whose level is off.
#include "Logging.h"
#include "areas.h"

namespace {

constexpr int kRecords = 1000;

volatile bool never = false;

void logNothing() {
    for (int i = 0; i < kRecords; ++i) {
        PM_LOG_RECORD(nLogging::Level::TraceDebugInfo, "PMEnvironment", "../src/krenvf", __LINE__) << "record " << i;
    }
}

// A branch on a variable that the compiler cannot optimise away.
void branchOver() {
    for (int i = 0; i < kRecords; ++i) {
        if (never) keep(i);
    }
}

}  // namespace

void measureLog(Report& report) {
    nLogging::gEnable(nLogging::Level::TraceDebugInfo, false);
    report.measure({"a log record, its level off",
                    "",
                    {0, 0, 2},
                    {{Kind::Ours, "", logNothing}, {Kind::Floor, "an empty branch", branchOver}},
                    kRecords});
}
