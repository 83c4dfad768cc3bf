// Logging.h - the product's log: records with a level, a category and a source position.
//
// A record is composed only when its level is enabled, so a disabled record costs one atomic load. Enabled at
// start: Error, Warning and Execution, unless the process environment says otherwise:
//
//   PM_LOG       the enabled levels, separated by commas: level names, `all` or `none` (PM_LOG=Error,Trace)
//   PM_LOG_FILE  the file that the default sink appends to instead of writing to standard error
//
// Both are read once, at the first use of the log. An empty variable counts as not set, and so does a PM_LOG without a
// known level.
// The default sink writes one line per record in one write and escapes control characters, so that one record is always
// one line. Numbers are written the same in every locale, and a log call does not change errno.
//
// Threads: everything here may be called from any thread at any time, also from destructors at process exit. A thread
// that is cancelled (pthread_cancel) while it delivers a record delivers it and ends at its next cancellation point.
#pragma once

#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

#include "KrfExport.h"

namespace nLogging {

/// The level of a record. Error, Warning and Execution are delivered unless the host program or PM_LOG says otherwise.
enum class Level { Error, Warning, Trace, TraceDebugInfo, Execution, Incomplete, ErrorPerformance, WarningPerformance };

/// One record as a sink receives it. The C strings are valid as long as the program that logged them.
struct Record {
    std::chrono::system_clock::time_point time;  ///< when the record was completed
    Level level;                                 ///< one that is enabled
    const char* category;                        ///< "PMEnvironment" for the environment library
    const char* file;                            ///< source position, for example "../src/krenvf"
    int line;                                    ///< source position, counted from 1
    std::thread::id thread;                      ///< the thread that logged
    std::string text;                            ///< the message; may hold any byte, may be empty
};

/// Receives every enabled record on the thread that logged it, so it may be called on several threads at once. Records
/// that the sink itself logs go to the default sink; exceptions that it throws are dropped.
using Sink = std::function<void(const Record&)>;

/// Sends all further records to `sink`; an empty function restores the default sink. Another thread that is in the old
/// sink at that moment finishes its call.
KRF_EXPORT void gSetSink(Sink sink);

/// Enables or disables one level from now on.
KRF_EXPORT void gEnable(Level level, bool on);

/// True when records of `level` are composed and delivered.
KRF_EXPORT bool gIsEnabled(Level level);

/// The level's name as PM_LOG and the default sink write it: "Error", "Warning", ...; "?" for no level at all.
KRF_EXPORT const char* gLevelName(Level level);

/// Collects the pieces of one record and delivers it when it goes out of scope. Use it through PM_LOG_RECORD.
class KRF_EXPORT RecordWriter {
public:
    /// Begins a record. The texts are not copied; pass string literals.
    RecordWriter(Level level, const char* category, const char* file, int line);
    /// Delivers the record to the sink.
    ~RecordWriter();
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    /// Appends anything that can be written to a std::ostream.
    template <class Piece>
    RecordWriter& operator<<(const Piece& piece) {
        text_ << piece;
        return *this;
    }

    /// Appends a C string; null is shown as "<NullChar*>", not dereferenced.
    RecordWriter& operator<<(const char* piece) {
        text_ << (piece != nullptr ? piece : "<NullChar*>");
        return *this;
    }
    /// The same for a C string that is not const.
    RecordWriter& operator<<(char* piece) { return *this << static_cast<const char*>(piece); }

private:
    int error_;  // errno before the first piece
    Level level_;
    const char* category_;
    const char* file_;
    int line_;
    std::ostringstream text_;
};

/// Gives both sides of PM_LOG_RECORD's conditional the same type; & binds weaker than <<.
struct RecordEnd {
    /// Does nothing.
    void operator&(const RecordWriter&) const {}
};

}  // namespace nLogging

/// Streams a record: PM_LOG_RECORD(nLogging::Level::Error, "PMEnvironment", "../src/krenvf", __LINE__) << "text";
/// Nothing but the level is evaluated while the level is disabled.
#define PM_LOG_RECORD(level, category, file, line)        \
    !::nLogging::gIsEnabled(level) ? static_cast<void>(0) \
                                   : ::nLogging::RecordEnd() & ::nLogging::RecordWriter(level, category, file, line)
