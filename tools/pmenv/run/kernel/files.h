// files.h - the only place that opens the kernel's files.
//
// Reading /proc/PID/task/TID/schedstat takes 1.0 microsecond through a descriptor that is kept, and 7.2 when it is opened
// each time (stat: 3.9 and 11.0), so files that are read four times a second stay open, as far as the process may have
// descriptors. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kernel {

/// A file that is read again and again. It stays bound to its process or thread: when that has ended it cannot be read,
/// even if the id is in use again.
class KeptFile {
public:
    explicit KeptFile(std::string path) : path_(std::move(path)) {}
    ~KeptFile() { close(); }
    KeptFile(KeptFile&& other) noexcept;
    KeptFile& operator=(KeptFile&&) = delete;

    /// What it holds now, at most 64 KiB of it; valid until the next file is read. Empty when it cannot be read; errno
    /// tells why.
    std::optional<std::string_view> read();

    const std::string& path() const { return path_; }

private:
    bool open();
    void close();

    std::string path_;
    int descriptor_ = -1;
    bool kept_ = false;
};

/// The same for a file that is read once; at most `most` bytes of it.
std::optional<std::string_view> readFile(const std::string& path, std::size_t most = 65536);

/// The entries of a directory that are whole numbers; empty when it cannot be read, with errno telling why.
std::optional<std::vector<int>> listNumbers(const std::string& directory);

/// How many descriptors a process has open (/proc/PID/fd); empty when that may not be seen.
std::optional<std::size_t> countDescriptors(int pid);

/// Where a symbolic link leads; "" when that may not be seen.
std::string linkTarget(const std::string& path);

/// True when the last failure means that a process or a thread has ended, and not that its file may not be read.
bool hasEnded(int error);

/// Lets this process open as many files as it may, and tells how many of them may be kept.
void allowManyFiles();

/// Seconds on a clock that never goes back, and the processor time that this thread has used: others of the process, which
/// answer questions, do not make it look less often.
double clockSeconds();
double ownCpuSeconds();

/// Clock ticks, in which /proc/stat and /proc/PID/stat count processor time, as seconds.
double secondsOfTicks(std::uint64_t ticks);

}  // namespace kernel
