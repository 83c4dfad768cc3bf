#include "atomicFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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
    bool allowReading() const {
        const mode_t mask = umask(0);
        umask(mask);
        return fchmod(descriptor_, 0666 & ~mask) == 0;
    }

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

}  // namespace

void replaceFile(const std::string& path, const std::string& content) {
    TemporaryFile file(patternBeside(path));
    if (file.opened() && file.write(content) && file.allowReading() && file.renameTo(path)) return;
    const int error = errno;
    throw Failure("cannot write " + path + ": " + std::strerror(error));
}
