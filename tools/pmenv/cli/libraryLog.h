// libraryLog.h - shows the library's log records as messages of pmenv.
#pragma once

#include <string>
#include <vector>

/// From now on prints the library's errors and warnings as "pmenv: error: text" to standard error, whatever PM_LOG
/// says. Records of other levels and records without a text are not printed.
void showLibraryLog();

/// While it exists, collects the records instead of printing them, for a caller that prints its own message.
class LogPause {
public:
    LogPause();
    ~LogPause();
    LogPause(const LogPause&) = delete;
    LogPause& operator=(const LogPause&) = delete;

    bool sawErrors() const { return sawErrors_; }
    /// The warnings and errors so far, oldest first, each once.
    const std::vector<std::string>& texts() const { return texts_; }

private:
    bool sawErrors_ = false;
    std::vector<std::string> texts_;
};
