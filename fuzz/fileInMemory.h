// fileInMemory.h - replaces the calls with which the library reads a settings file, for one file that is only in memory. The
// kernel's part in them took most of the time of a run.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>
#include <string_view>

#include <sys/stat.h>
#include <sys/types.h>

/// What is in the file, and how far it has been read.
struct FileInMemory {
    static constexpr int kDescriptor = 1'000'000;  // no other descriptor is as large

    static const char* path() { return "/in-memory.ini"; }
    static void fill(std::string_view text) { content().assign(text); }

    static std::string& content() {
        static std::string text;
        return text;
    }
    static std::size_t& position() {
        static std::size_t read = 0;
        return read;
    }
};

extern "C" {
int __real_open64(const char* path, int flags, ...);
int __real___fstat64_time64(int descriptor, struct stat* status);
ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
int __real_close(int descriptor);

__attribute__((used)) inline int __wrap_open64(const char* path, int flags, ...) {
    if (std::strcmp(path, FileInMemory::path()) != 0) {
        va_list more;
        va_start(more, flags);
        const auto mode = va_arg(more, mode_t);
        va_end(more);
        return __real_open64(path, flags, mode);
    }
    FileInMemory::position() = 0;
    return FileInMemory::kDescriptor;
}

__attribute__((used)) inline int __wrap___fstat64_time64(int descriptor, struct stat* status) {
    if (descriptor != FileInMemory::kDescriptor) return __real___fstat64_time64(descriptor, status);
    *status = {};
    status->st_mode = S_IFREG;
    status->st_size = static_cast<off_t>(FileInMemory::content().size());
    return 0;
}

__attribute__((used)) inline ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    if (descriptor != FileInMemory::kDescriptor) return __real_read(descriptor, buffer, size);
    const std::string& content = FileInMemory::content();
    std::size_t& position = FileInMemory::position();
    const std::size_t count = std::min(size, content.size() - position);
    std::memcpy(buffer, content.data() + position, count);
    position += count;
    return static_cast<ssize_t>(count);
}

__attribute__((used)) inline int __wrap_close(int descriptor) {
    return descriptor == FileInMemory::kDescriptor ? 0 : __real_close(descriptor);
}
}
