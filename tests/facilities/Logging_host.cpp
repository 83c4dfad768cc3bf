// A host program that logs once at each level, for tests of what the process environment changes. It prints the enabled
// levels. Its only argument, if any, names a further thing to do.
#include <cerrno>
#include <iostream>
#include <string>

#include <unistd.h>

#include "Logging.h"

namespace {

constexpr int kLevels = 8;

struct LogsAtExit {
    bool armed = false;
    ~LogsAtExit() {
        if (armed) PM_LOG_RECORD(nLogging::Level::Error, "Host", "host", 2) << "at exit";
    }
} logsAtExit;

void logAtEachLevel() {
    for (int i = 0; i < kLevels; ++i) {
        const auto level = static_cast<nLogging::Level>(i);
        if (nLogging::gIsEnabled(level)) std::cout << nLogging::gLevelName(level) << '\n';
        PM_LOG_RECORD(level, "Host", "host", 1) << "text";
    }
}

void logDisabledWithErrno(int error) {
    errno = error;
    PM_LOG_RECORD(nLogging::Level::Trace, "Host", "host", 3) << "text";
    const int after = errno;
    std::cout << "errno " << after << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "close-stderr") close(STDERR_FILENO);
    if (what == "errno") logDisabledWithErrno(EACCES);
    logsAtExit.armed = what == "log-at-exit";
    logAtEachLevel();
    return 0;
}
