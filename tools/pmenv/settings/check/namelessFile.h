// namelessFile.h - a file that has no name and vanishes with its object, for the library to read.
#pragma once

#include <string>

class NamelessFile {
public:
    explicit NamelessFile(const std::string& text);
    ~NamelessFile();
    NamelessFile(const NamelessFile&) = delete;
    NamelessFile& operator=(const NamelessFile&) = delete;

    /// What the library can open. Throws Failure when the file could not be made.
    std::string path() const;

    /// Copies what can be read from `descriptor` to its end, but no more than `most` bytes; false when reading failed.
    bool copyFrom(int descriptor, std::size_t most);

private:
    bool append(const char* text, std::size_t length);

    int descriptor_;
    bool complete_;
};
