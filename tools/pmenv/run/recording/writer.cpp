#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

#include "failure.h"
#include "output.h"
#include "recording/encoder.h"
#include "recording/line.h"
#include "recording/recording.h"

RecordingWriter::RecordingWriter(std::string path, const RecordingHeader& header)
    : path_(std::move(path)),
      descriptor_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666)),
      encoder_(std::make_unique<EvidenceEncoder>()) {
    const int error = descriptor_ < 0 ? errno : recording::appendLine(descriptor_, headerLine(header));
    if (error == 0) return;
    if (descriptor_ >= 0) close(descriptor_);
    throw Failure("cannot record to " + path_ + ": " + std::strerror(error));
}

RecordingWriter::~RecordingWriter() { close(descriptor_); }

void RecordingWriter::write(const Evidence& evidence) { append(encoder_->line(evidence)); }
void RecordingWriter::write(const Mark& mark) { append(markLine(mark)); }
void RecordingWriter::write(const RecordedOutcome& outcome) { append(outcomeLine(outcome)); }

// After a line that could not be written no other one is: readers rely on seeing every interval.
void RecordingWriter::append(const std::string& line) {
    if (!complete_) return;
    const int error = recording::appendLine(descriptor_, line);
    if (error == 0) return;
    complete_ = false;
    printWarning("the recording " + path_ + " ends here: " + std::strerror(error) + "; the watch goes on");
}
