// Alone in its file, so that a program can put its own clock in front of it when it links.
#include "Realtime.h"

#include <ctime>

namespace nRealtime {

std::uint64_t gCurrentRaw_compiler() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto microseconds =
        static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
    return microseconds != 0 ? microseconds : 1;
}

}  // namespace nRealtime
