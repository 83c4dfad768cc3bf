#include "recording/lines.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include "failure.h"
#include "recording/jsonLine.h"

namespace recording {

namespace {

constexpr std::size_t kAtOnce = 256 * 1024;
constexpr std::size_t kLongestLine = 4 * 1024 * 1024;  // 50,000 engines

[[noreturn]] void failToRead(const std::string& path, int error) {
    throw Failure("cannot read " + path + ": " + std::strerror(error));
}

}  // namespace

Lines::Lines(const std::string& path) : path_(path), buffer_(kAtOnce) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) failToRead(path, errno);
    file_ = gzdopen(descriptor, "rb");
    if (file_ == nullptr) {
        close(descriptor);
        failToRead(path, ENOMEM);
    }
    gzbuffer(file_, kAtOnce);
}

// gzclose would also link the code that compresses.
Lines::~Lines() { gzclose_r(file_); }

std::optional<std::string_view> Lines::next() {
    for (;;) {
        const void* const found = std::memchr(buffer_.data() + searched_, '\n', end_ - searched_);
        if (found != nullptr) {
            const auto lineEnd = static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data());
            const std::string_view line(buffer_.data() + begin_, lineEnd - begin_);
            begin_ = searched_ = lineEnd + 1;
            ++number_;
            return line;
        }
        searched_ = end_;
        if (end_ - begin_ > kLongestLine) {
            ++number_;
            throw BadLine{"the line is longer than any of a recording", "", kLongestLine};
        }
        if (!fill()) {
            cut_ = cut_ || begin_ < end_;
            return std::nullopt;
        }
    }
}

// Reads on behind what there is, which moves to the front. False at the end.
bool Lines::fill() {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    searched_ -= begin_;
    begin_ = 0;
    if (buffer_.size() - end_ < kAtOnce) buffer_.resize(end_ + kAtOnce);
    errno = 0;
    const int count = gzread(file_, buffer_.data() + end_, kAtOnce);
    if (count > 0) {
        end_ += static_cast<std::size_t>(count);
        return true;
    }
    const int systemError = errno;
    int error = Z_OK;
    gzerror(file_, &error);
    if (error == Z_ERRNO) failToRead(path_, systemError);
    if (error == Z_BUF_ERROR) cut_ = true;
    if (error == Z_OK || error == Z_BUF_ERROR || error == Z_STREAM_END) return false;
    throw Failure(path_ + ":" + std::to_string(number_ + 1) + ":1: the compressed data are damaged; take another copy");
}

}  // namespace recording
