#include "events.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <string>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "failure.h"

Events::Events(const std::vector<int>& signals, bool keys) : keys_(keys) {
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int signal : signals) sigaddset(&wanted, signal);
    sigprocmask(SIG_BLOCK, &wanted, &before_);
    signals_ = signalfd(-1, &wanted, SFD_CLOEXEC);
    if (signals_ >= 0) return;
    const int error = errno;
    sigprocmask(SIG_SETMASK, &before_, nullptr);
    throw Failure(std::string("cannot wait for signals: ") + std::strerror(error));
}

// A signal that nobody has waited for any more must not end the process when the mask is restored.
Events::~Events() {
    signalfd_siginfo late;
    pollfd source{signals_, POLLIN, 0};
    while (poll(&source, 1, 0) > 0 && read(signals_, &late, sizeof late) > 0) {
    }
    close(signals_);
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

Events::Event Events::wait(double seconds) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    for (;;) {
        const double left = std::chrono::duration<double, std::milli>(end - Clock::now()).count();
        if (left <= 0) return {Kind::Timeout, 0};
        pollfd sources[] = {{signals_, POLLIN, 0}, {keys_ ? STDIN_FILENO : -1, POLLIN, 0}};
        if (poll(sources, 2, static_cast<int>(std::ceil(left))) <= 0) continue;
        signalfd_siginfo info;
        if (sources[0].revents != 0 && read(signals_, &info, sizeof info) == sizeof info) {
            return {Kind::Signal, static_cast<int>(info.ssi_signo)};
        }
        int key = 0;
        if (sources[1].revents != 0 && readKey(&key)) return {Kind::Key, key};
    }
}

// At the end of the input there are no more keys to wait for.
bool Events::readKey(int* key) {
    unsigned char character = 0;
    const ssize_t count = read(STDIN_FILENO, &character, 1);
    if (count <= 0 && !(count < 0 && errno == EINTR)) keys_ = false;
    *key = character;
    return count == 1;
}
