#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace nLogging {

enum class Level { Error, Warning, Trace, TraceDebugInfo, Execution, Incomplete, ErrorPerformance, WarningPerformance };

struct Record {
    Level level;
    std::string text;
};

/// The whole log.
std::vector<Record>& gRecords();

inline bool gIsEnabled(Level) { return true; }

class RecordWriter {
public:
    explicit RecordWriter(Level level) : level_(level) {}
    ~RecordWriter() { gRecords().push_back({level_, text_.str()}); }

    template <class Piece>
    RecordWriter& operator<<(const Piece& piece) {
        text_ << piece;
        return *this;
    }
    RecordWriter& operator<<(const char* piece) {
        text_ << (piece != nullptr ? piece : "<NullChar*>");
        return *this;
    }
    RecordWriter& operator<<(char* piece) { return *this << static_cast<const char*>(piece); }

private:
    Level level_;
    std::ostringstream text_;
};

}  // namespace nLogging

#define PM_LOG_RECORD(level, category, file, line) \
    static_cast<void>(category), static_cast<void>(file), static_cast<void>(line), ::nLogging::RecordWriter(level)
