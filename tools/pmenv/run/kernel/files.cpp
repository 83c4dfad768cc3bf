#include "kernel/files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kernel/numbers.h"

namespace kernel {

namespace {

constexpr std::size_t kAtOnce = 4096;
constexpr std::size_t kMostKept = 65536;
constexpr rlim_t kSpare = 256;  // descriptors for everything else, an exporter's connections among it

std::size_t mayKeep = 256;
std::size_t areKept = 0;

std::string& buffer() {
    static std::string text;
    return text;
}

// From its beginning. Files of one record come whole, so a short read is the end of such a one and spares another; files
// of many lines come in pieces.
bool readAll(int descriptor, std::size_t most, bool once) {
    std::string& text = buffer();
    std::size_t length = 0;
    for (;;) {
        const std::size_t room = std::min(kAtOnce, most - length);
        text.resize(length + room);
        const ssize_t count = room == 0 ? 0 : pread(descriptor, &text[length], room, static_cast<off_t>(length));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
        if (once && static_cast<std::size_t>(count) < room) break;
    }
    text.resize(length);
    return true;
}

int openForReading(const std::string& path) { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

double seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace

// --- files ----------------------------------------------------------------------------------------------------------

KeptFile::KeptFile(KeptFile&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(other.descriptor_), kept_(other.kept_) {
    other.descriptor_ = -1;
    other.kept_ = false;
}

bool KeptFile::open() {
    if (descriptor_ >= 0) return true;
    descriptor_ = openForReading(path_);
    kept_ = descriptor_ >= 0 && areKept < mayKeep;
    if (kept_) ++areKept;
    return descriptor_ >= 0;
}

void KeptFile::close() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (kept_) --areKept;
    descriptor_ = -1;
    kept_ = false;
}

std::optional<std::string_view> KeptFile::read() {
    constexpr std::size_t kMost = 65536;
    if (!open()) return std::nullopt;
    const bool complete = readAll(descriptor_, kMost, true);
    const int error = errno;
    if (!complete || !kept_) close();
    errno = error;
    if (!complete) return std::nullopt;
    return buffer();
}

std::optional<std::string_view> readFile(const std::string& path, std::size_t most) {
    const int descriptor = openForReading(path);
    if (descriptor < 0) return std::nullopt;
    const bool complete = readAll(descriptor, most, false);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    if (!complete) return std::nullopt;
    return buffer();
}

// --- directories and links ------------------------------------------------------------------------------------------

std::optional<std::vector<int>> listNumbers(const std::string& directory) {
    const Directory opened(opendir(directory.c_str()));
    if (!opened) return std::nullopt;
    std::vector<int> numbers;
    while (const dirent* const entry = readdir(opened.get())) {
        const auto value = number(entry->d_name);
        if (value && *value <= INT_MAX) numbers.push_back(static_cast<int>(*value));
    }
    return numbers;
}

// Since Linux 6.2 the size of the directory is their number.
std::optional<std::size_t> countDescriptors(int pid) {
    const std::string directory = "/proc/" + std::to_string(pid) + "/fd";
    struct stat facts {};
    if (stat(directory.c_str(), &facts) == 0 && facts.st_size > 0) return static_cast<std::size_t>(facts.st_size);
    const auto numbers = listNumbers(directory);
    if (!numbers) return std::nullopt;
    return numbers->size();
}

std::string linkTarget(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

bool hasEnded(int error) { return error == ENOENT || error == ESRCH; }

// --- the process itself ---------------------------------------------------------------------------------------------

void allowManyFiles() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, kMostKept);
    if (limit.rlim_cur < before || setrlimit(RLIMIT_NOFILE, &limit) != 0) limit.rlim_cur = before;
    mayKeep =
        limit.rlim_cur > kSpare ? static_cast<std::size_t>(std::min<rlim_t>(limit.rlim_cur - kSpare, kMostKept)) : 0;
}

double clockSeconds() { return seconds(CLOCK_MONOTONIC); }
double ownCpuSeconds() { return seconds(CLOCK_THREAD_CPUTIME_ID); }

double secondsOfTicks(std::uint64_t ticks) {
    static const double perSecond = static_cast<double>(std::max(1L, sysconf(_SC_CLK_TCK)));
    return static_cast<double>(ticks) / perSecond;
}

}  // namespace kernel
