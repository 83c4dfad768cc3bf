#include <algorithm>

#include <sys/utsname.h>
#include <unistd.h>

#include "kernel/files.h"
#include "kernel/machineFiles.h"
#include "recording/boot.h"
#include "recording/fields.h"
#include "recording/recording.h"

namespace {

std::string kernelText(const utsname& system) {
    return std::string(system.sysname) + " " + system.release + " " + system.machine;
}

std::optional<std::uint64_t> readMemoryBytes() {
    const auto text = kernel::readFile("/proc/meminfo");
    return text ? kernel::parseMemInfo(*text).total : std::nullopt;
}

}  // namespace

std::string recording::readBootId() {
    const auto text = kernel::readFile("/proc/sys/kernel/random/boot_id");
    return text ? std::string(text->substr(0, text->find('\n'))) : "";
}

RecordingHeader headerOfThisHost(const EngineChoice& choice, const IgnoredThreads& ignored, const JudgeLimits& limits) {
    utsname system{};
    uname(&system);
    RecordingHeader header;
    header.pmenv = PMENV_VERSION;
    header.host = system.nodename;
    header.kernel = kernelText(system);
    header.processors = std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    header.memoryBytes = readMemoryBytes();
    header.boot = recording::readBootId();
    header.choice = choice;
    header.ignored = ignored;
    header.limits = limits;
    header.start = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
    header.clock = recording::fromMillionths(recording::millionths(kernel::clockSeconds()));
    return header;
}
