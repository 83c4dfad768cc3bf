#include "recording/line.h"

#include <cerrno>
#include <csignal>
#include <ctime>

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

int writeAll(int descriptor, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) return errno;
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    return 0;
}

}  // namespace

int appendLine(int descriptor, const std::string& line) {
    const NoSignals noSignals;
    return writeAll(descriptor, line + "\n");
}

}  // namespace recording
