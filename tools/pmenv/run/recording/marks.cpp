#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

#include "failure.h"
#include "kernel/files.h"
#include "recording/boot.h"
#include "recording/encoder.h"
#include "recording/line.h"
#include "recording/recording.h"

namespace {

class OpenFile {
public:
    OpenFile(const std::string& path, int flags) : descriptor_(open(path.c_str(), flags)) {}
    ~OpenFile() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
    throw Failure("no mark was added to " + path + ": " + why);
}

// The end of the file, long enough for a line that ends a recording. The first line tells a compressed file.
std::string readEnd(int descriptor) {
    constexpr off_t kLongEnough = 4096;
    const off_t size = lseek(descriptor, 0, SEEK_END);
    char text[kLongEnough];
    const ssize_t length = pread(descriptor, text, sizeof text, std::max<off_t>(size - kLongEnough, 0));
    return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

bool isWhole(const std::string& end) { return !end.empty() && end.back() == '\n'; }

bool tellsOutcome(const std::string& end) {
    const std::size_t begin = end.rfind('\n', end.size() - 2) + 1;  // 0 where the end has no other line
    return end.compare(begin, sizeof kOutcomeBegin - 1, kOutcomeBegin) == 0;
}

// A line that is just being written is seen in part.
std::string readWholeEnd(int descriptor) {
    constexpr int kTimes = 50;
    constexpr useconds_t kPause = 10'000;
    std::string end = readEnd(descriptor);
    for (int i = 0; i < kTimes && !isWhole(end); ++i) {
        usleep(kPause);
        end = readEnd(descriptor);
    }
    return end;
}

bool isCompressed(int descriptor) {
    char first = 0;
    return pread(descriptor, &first, 1, 0) == 1 && first != '{';
}

// Another host has another clock; there the time of day has to do.
double secondsSinceStart(const RecordingHeader& header) {
    if (!header.boot.empty() && header.boot == recording::readBootId()) return kernel::clockSeconds() - header.clock;
    return std::chrono::duration<double>(std::chrono::system_clock::now() - header.start).count();
}

}  // namespace

void appendMark(const std::string& path, const std::string& text) {
    const RecordingHeader header = RecordingReader(path).header();
    const double time = secondsSinceStart(header);
    const OpenFile file(path, O_RDWR | O_APPEND | O_CLOEXEC);
    if (file.descriptor() < 0) refuse(path, std::strerror(errno));
    if (isCompressed(file.descriptor())) refuse(path, "it is compressed, so that its watch is over");
    const std::string end = readWholeEnd(file.descriptor());
    if (!isWhole(end)) refuse(path, "its last line is cut off, so that its watch is over");
    if (tellsOutcome(end)) refuse(path, "its watch is over");
    const int error = recording::appendLine(file.descriptor(), markLine({time, text}));
    if (error != 0) refuse(path, std::strerror(error));
}
