// libraryLog.h - the library's log records as pmenv shows them.
#pragma once

#include <string>
#include <vector>

/// From now on the library's errors and warnings appear as "pmenv: error: text" on standard error, whatever PM_LOG
/// says; records of other levels and records without a text do not appear.
void showLibraryLog();

/// Keeps the records back while it lives, for a caller that reports in words of its own.
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
