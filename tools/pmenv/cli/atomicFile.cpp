#include "atomicFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "failure.h"

namespace {

// A new file with a unique name, which is removed unless it was renamed.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string pattern) : name_(std::move(pattern)), descriptor_(mkstemp(name_.data())) {}
    ~TemporaryFile() {
        if (descriptor_ < 0) return;
        close(descriptor_);
        if (!renamed_) unlink(name_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool opened() const { return descriptor_ >= 0; }

    bool write(const std::string& content) const {
        for (std::size_t done = 0; done < content.size();) {
            const ssize_t count = ::write(descriptor_, content.data() + done, content.size() - done);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return false;
            done += static_cast<std::size_t>(count);
        }
        return true;
    }

    // mkstemp makes the file readable for its owner only, but the reader is usually another user.
    bool setMode(mode_t mode) const { return fchmod(descriptor_, mode) == 0; }

    bool renameTo(const std::string& path) { return renamed_ = std::rename(name_.c_str(), path.c_str()) == 0; }

private:
    std::string name_;
    int descriptor_;
    bool renamed_ = false;
};

// The name is hidden and has another ending than `path`, so that a collector that reads a whole directory skips the
// file.
std::string patternBeside(const std::string& path) {
    const std::size_t name = path.rfind('/') + 1;  // 0 without a slash
    return path.substr(0, name) + "." + path.substr(name) + ".XXXXXX";
}

// That of the file that is replaced, or the one that any new file gets.
mode_t modeFor(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return status.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// The file behind links, which need not exist yet. Empty, with the system's error, behind a circle of links or too many.
std::optional<std::string> behindLinks(const std::string& path) {
    constexpr int kMostLinks = 40;  // as the system follows them
    std::filesystem::path file = path;
    for (int links = 0; links <= kMostLinks; ++links) {
        std::error_code noLink;
        const std::filesystem::path target = std::filesystem::read_symlink(file, noLink);
        if (noLink) return file;
        file = file.parent_path() / target;
    }
    errno = ELOOP;
    return std::nullopt;
}

bool replace(const std::string& path, const std::string& content) {
    TemporaryFile file(patternBeside(path));
    return file.opened() && file.write(content) && file.setMode(modeFor(path)) && file.renameTo(path);
}

}  // namespace

void replaceFile(const std::string& path, const std::string& content) {
    const std::optional<std::string> file = behindLinks(path);
    if (file && replace(*file, content)) return;
    const int error = errno;
    throw Failure("cannot write " + path + ": " + std::strerror(error));
}
