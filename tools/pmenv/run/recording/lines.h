// lines.h - the lines of a file, plain or compressed with gzip, in constant memory.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct gzFile_s;  // of zlib

namespace recording {

class Lines {
public:
    /// Throws Failure when the file cannot be opened.
    explicit Lines(const std::string& path);
    ~Lines();
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    /// The next line without its end, valid until the next call; empty after the last whole one. Throws Failure when the
    /// file cannot be read or its compressed data are damaged, and BadLine for a line longer than any of a recording.
    std::optional<std::string_view> next();

    /// At the end: text without a line's end followed, or the compressed data broke off.
    bool cut() const { return cut_; }

    /// How many have been read.
    std::size_t number() const { return number_; }

private:
    bool fill();

    std::string path_;
    gzFile_s* file_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;     // of the next line
    std::size_t searched_ = 0;  // no line ends before
    std::size_t end_ = 0;       // of what has been read
    std::size_t number_ = 0;
    bool cut_ = false;
};

}  // namespace recording
