#include "check/namelessFile.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "failure.h"

NamelessFile::NamelessFile(const std::string& text)
    : descriptor_(memfd_create("pmenv-check", MFD_CLOEXEC)), complete_(append(text.data(), text.size())) {}

NamelessFile::~NamelessFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

std::string NamelessFile::path() const {
    if (complete_) return "/proc/self/fd/" + std::to_string(descriptor_);
    throw Failure("cannot hold the settings in memory to check them");
}

bool NamelessFile::append(const char* text, std::size_t length) {
    if (descriptor_ < 0) return false;
    for (std::size_t done = 0; done < length;) {
        const ssize_t count = write(descriptor_, text + done, length - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

bool NamelessFile::copyFrom(int descriptor, std::size_t most) {
    std::vector<char> buffer(64 * 1024);
    for (std::size_t done = 0; done < most;) {
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return count == 0;
        complete_ = complete_ && append(buffer.data(), static_cast<std::size_t>(count));
        done += static_cast<std::size_t>(count);
    }
    return true;
}
