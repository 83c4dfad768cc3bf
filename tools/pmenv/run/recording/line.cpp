#include "recording/line.h"

#include <cerrno>
#include <csignal>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

namespace recording {

namespace {

// For the length of a scope, the signals of a write that fails are kept back, and then dropped. Ignoring them would be
// inherited by the programs that this one starts.
class NoSignals {
public:
    NoSignals() {
        sigemptyset(&signals_);
        for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&signals_, signal);
        sigprocmask(SIG_BLOCK, &signals_, &before_);
    }
    ~NoSignals() {
        constexpr timespec kAtOnce{};
        while (sigtimedwait(&signals_, nullptr, &kAtOnce) > 0) continue;
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t signals_{};
    sigset_t before_{};
};

// The beginning of a line would be damage in the middle of the file when another process appends to it afterwards.
void takeBack(int descriptor, std::size_t written) {
    const off_t end = lseek(descriptor, 0, SEEK_CUR);
    struct stat file {};
    if (written == 0 || fstat(descriptor, &file) != 0 || file.st_size != end) return;
    if (ftruncate(descriptor, end - static_cast<off_t>(written)) != 0) return;  // a cut line at the end is forgiven
}

int writeAll(int descriptor, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
        if (count > 0) done += static_cast<std::size_t>(count);
        if (count >= 0 || errno == EINTR) continue;
        const int error = errno;
        takeBack(descriptor, done);
        return error;
    }
    return 0;
}

}  // namespace

int appendLine(int descriptor, const std::string& line) {
    const NoSignals noSignals;
    return writeAll(descriptor, line + "\n");
}

}  // namespace recording
