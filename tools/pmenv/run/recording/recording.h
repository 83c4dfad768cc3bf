// recording.h - a run as a file: how it was watched, the evidence of every interval, marks, and the outcome.
//
// docs/recordings.md describes the format. Whoever reads a recording sees exactly the evidence that the run itself was
// judged by, and so comes to the same verdict.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "evidence/evidence.h"
#include "evidence/processes.h"
#include "evidence/threads.h"
#include "judgement/judgement.h"

// --- what is in it --------------------------------------------------------------------------------------------------

struct RecordingHeader {
    int major = 1;  ///< of the format; readers refuse a later one
    int minor = 0;  ///< readers ignore what later ones add
    std::string pmenv;
    std::string host;
    std::string kernel;  ///< "Linux 6.1.0-18-amd64 x86_64"
    int processors = 1;
    std::optional<std::uint64_t> memoryBytes;
    std::chrono::system_clock::time_point start;  ///< when the watch began, in whole microseconds
    double clock = 0;                             ///< the same moment on the clock that never goes back ...
    std::string boot;                             ///< ... since this boot of the host; "" where that is not known
    EngineChoice choice;
    IgnoredThreads ignored;
    JudgeLimits limits;
    std::vector<std::string> command;  ///< that was run; empty when there was none
};

/// The header of a watch that begins now on this host.
RecordingHeader headerOfThisHost(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits);

/// Something that the tester wants to see beside the figures.
struct Mark {
    double time = 0;  ///< seconds on the clock of the watch
    std::string text;
};

struct RecordedOutcome {
    Outcome outcome = Outcome::CannotTell;
    std::optional<double> believed;  ///< percentile
    double cpuSeconds = 0;           ///< that the watch used
};

/// The evidence as a recording holds it: times in whole microseconds, shares in millionths, late turns in thousandths. A
/// run is judged by this even while it is watched, so that its recording cannot come to another verdict.
Evidence asRecorded(Evidence evidence);

// --- writing --------------------------------------------------------------------------------------------------------

class EvidenceEncoder;

/// Appends line by line, each with one write, so that a kill or a full disk loses at most the last line.
class RecordingWriter {
public:
    /// Creates the file or replaces it. Throws Failure when that, or writing the header, is not possible.
    RecordingWriter(std::string path, const RecordingHeader& header);
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// The first line that cannot be written is told as a warning and ends the recording; the watch goes on.
    void write(const Evidence& evidence);  ///< as asRecorded() gives it
    void write(const Mark& mark);
    void write(const RecordedOutcome& outcome);

    /// False when something could not be written.
    bool complete() const { return complete_; }

private:
    void append(const std::string& line);

    std::string path_;
    int descriptor_;
    bool complete_ = true;
    std::unique_ptr<EvidenceEncoder> encoder_;
};

/// Adds a mark that is set now to the recording of a watch that still goes on, also of another process. Throws Failure.
void appendMark(const std::string& path, const std::string& text);

// --- reading --------------------------------------------------------------------------------------------------------

using RecordedItem = std::variant<Evidence, Mark>;

/// Reads one line after the other, plain or compressed with gzip. Errors are Failures: "FILE:LINE:COLUMN: what is wrong".
class RecordingReader {
public:
    /// Opens the file and reads the header.
    explicit RecordingReader(const std::string& path);
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    const RecordingHeader& header() const;

    /// The next interval or mark; empty at the end.
    std::optional<RecordedItem> next();

    // The following are known at the end.

    /// Empty when the recording broke off before the watch ended.
    const std::optional<RecordedOutcome>& outcome() const;

    /// What the reader of a verdict has to know beside it: that the recording broke off, and where.
    const std::vector<std::string>& warnings() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};
