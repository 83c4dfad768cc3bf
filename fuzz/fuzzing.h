// fuzzing.h - helpers that the fuzz targets share. Each target is a file with one LLVMFuzzerTestOneInput.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

#include "Logging.h"

/// Crashes, so that the fuzzer keeps the input.
[[noreturn]] inline void fail(std::string_view what) {
    std::fprintf(stderr, "not as it should be: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

inline void require(bool holds, std::string_view what) {
    if (!holds) fail(what);
}

inline void requireEqual(std::string_view expected, std::string_view actual, std::string_view what) {
    if (expected == actual) return;
    fail(std::string(what) + "\n  expected: \"" + std::string(expected) + "\"\n  actual:   \"" + std::string(actual) +
         "\"");
}

/// Drops the log's records, which are still composed.
inline void hushLog() {
    static const bool hushed = [] {
        nLogging::gSetSink([](const nLogging::Record&) {});
        return true;
    }();
    static_cast<void>(hushed);
}

/// A regular file in memory, filled anew for each input.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {}
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void fill(std::string_view text) {
        require(ftruncate(descriptor_, 0) == 0, "the file can be emptied");
        require(pwrite(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
                "the file can be written");
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Removes the text up to the first `separator` from the front of `*rest`, and the separator. Returns the text.
inline std::string_view takeUntil(std::string_view* rest, char separator) {
    const std::size_t end = rest->find(separator);
    const std::string_view part = rest->substr(0, end);
    rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
    return part;
}
