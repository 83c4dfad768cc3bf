#include "figures.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "libraryLog.h"

namespace {

// --- /proc ----------------------------------------------------------------------------------------------------------

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// "MemAvailable:   24492268 kB"
std::optional<std::uint64_t> memInfoBytes(std::string_view text, const std::string& name) {
    const std::size_t line = text.find("\n" + name + ":");
    if (line == std::string_view::npos) return std::nullopt;
    std::string_view rest = text.substr(line + name.size() + 2);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    std::uint64_t kilobytes = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), kilobytes);
    if (error != std::errc() || kilobytes > std::numeric_limits<std::uint64_t>::max() / 1024) return std::nullopt;
    if (rest.substr(static_cast<std::size_t>(end - rest.data()), 3) != " kB") return std::nullopt;
    return kilobytes * 1024;
}

// Empty when the process has gone.
std::string commandName(int processId) {
    std::string name = readFile("/proc/" + std::to_string(processId) + "/comm");
    if (!name.empty() && name.back() == '\n') name.pop_back();
    return name;
}

int countProcessors() { return std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN))); }

// Standard error leads nowhere while it lives: the library writes there about a process that ends while it is looked
// at.
class SilentErrors {
public:
    SilentErrors() : before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (before_ >= 0 && nowhere >= 0) dup2(nowhere, STDERR_FILENO);
        if (nowhere >= 0) close(nowhere);
    }
    ~SilentErrors() {
        if (before_ < 0) return;
        dup2(before_, STDERR_FILENO);
        close(before_);
    }
    SilentErrors(const SilentErrors&) = delete;
    SilentErrors& operator=(const SilentErrors&) = delete;

private:
    int before_;
};

// --- figures --------------------------------------------------------------------------------------------------------

std::optional<double> ifMeasured(long double figure) {
    if (!std::isfinite(figure)) return std::nullopt;
    return static_cast<double>(figure);
}

}  // namespace

MemInfo parseMemInfo(std::string_view text) {
    const auto total = memInfoBytes(text, "SwapTotal");
    const auto free = memInfoBytes(text, "SwapFree");
    MemInfo info;
    info.availableBytes = memInfoBytes(text, "MemAvailable");
    if (total && free && *free <= *total) info.swapUsedBytes = *total - *free;
    return info;
}

Figures Sampler::take() {
    KREnvMachineStats stats{};
    stats.cpuLoadPercent = std::numeric_limits<long double>::quiet_NaN();  // stays when nothing could be measured
    std::vector<std::string> warnings;
    measure(&stats, &warnings);
    const MemInfo info = parseMemInfo(readFile("/proc/meminfo"));

    Figures figures{};
    figures.time = std::chrono::system_clock::now();
    figures.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    figures.processors = countProcessors();
    figures.cpuPercent = ifMeasured(stats.cpuLoadPercent);
    figures.memoryBytes = stats.physicalMemoryBytes;
    figures.freeBytes = stats.freeMemoryBytes;
    figures.availableBytes = info.availableBytes;
    figures.swapBytes = stats.totalSwapBytes;
    figures.swapUsedBytes = info.swapUsedBytes;
    figures.engines = engines(stats.slaves, figures.processors);
    // When an engine has gone meanwhile, the warnings are about its files, and that is no trouble.
    if (figures.engines.size() == stats.slaves.size()) figures.warnings = std::move(warnings);
    return figures;
}

void Sampler::measure(KREnvMachineStats* stats, std::vector<std::string>* warnings) {
    const SilentErrors silent;
    LogPause log;
    collector_.CollectMachineStats(*stats, false);
    *warnings = log.texts();
}

// The collector's first two percentages of a process are 0 and mean that nothing was measured yet; 0 bytes mean that
// its memory could not be read.
std::vector<EngineFigures> Sampler::engines(const std::vector<KREnvSlaveStats>& slaves, int processors) {
    std::map<int, int> timesSeen;
    std::vector<EngineFigures> engines;
    for (const KREnvSlaveStats& slave : slaves) {
        EngineFigures engine{slave.processId, commandName(slave.processId), std::nullopt, std::nullopt};
        if (engine.name.empty()) continue;
        timesSeen[slave.processId] = timesSeen_[slave.processId] + 1;
        if (timesSeen[slave.processId] > 2) engine.cpuPercent = ifMeasured(slave.cpuPercent * processors);
        if (slave.memoryBytes > 0) engine.residentBytes = slave.memoryBytes;
        engines.push_back(std::move(engine));
    }
    timesSeen_ = std::move(timesSeen);
    return engines;
}
