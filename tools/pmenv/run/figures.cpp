#include "figures.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <unistd.h>

#include "failure.h"
#include "kernel/files.h"

namespace {

int countProcessors() { return std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN))); }

std::string hostName() {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

// The text of a file that every machine has.
std::string machineFile(const std::string& path, Figures& figures) {
    const auto text = kernel::readFile(path);
    if (!text) figures.warnings.push_back("cannot read " + path + ": " + std::strerror(errno));
    return std::string(text.value_or(""));
}

// --- engines --------------------------------------------------------------------------------------------------------

// A process that has ended and waits for its parent to notice does not run any more.
bool runs(const kernel::TaskStat& stat) { return stat.state != 'Z' && stat.state != 'X' && stat.state != 'x'; }

// Between finding and reading, a process may end and another one get its id.
bool isEngine(const kernel::TaskStat& stat) { return runs(stat) && stat.name.find(kEngineName) != std::string::npos; }

// Empty when it has ended, or `why` tells what went wrong.
std::optional<EngineLook> lookAt(int processId, std::string* why) {
    const std::string directory = "/proc/" + std::to_string(processId);
    EngineLook look;
    look.begun = kernel::clockSeconds();
    const auto text = kernel::readFile(directory + "/stat");
    const int error = errno;
    look.ended = kernel::clockSeconds();
    auto stat = text ? kernel::parseTaskStat(*text) : std::nullopt;
    if (!text && !kernel::hasEnded(error)) *why = std::strerror(error);
    if (text && !stat) *why = "it is not as proc(5) describes it";
    if (!why->empty()) *why = "cannot read " + directory + "/stat: " + *why;
    if (!stat || !isEngine(*stat)) return std::nullopt;
    look.stat = std::move(*stat);
    look.residentBytes = residentBytes(processId);
    return look;
}

}  // namespace

std::optional<std::uint64_t> residentBytes(int processId) {
    const auto text = kernel::readFile("/proc/" + std::to_string(processId) + "/statm");
    if (!text) return std::nullopt;
    return kernel::parseResidentBytes(*text, static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
}

Figures figuresOfHost() {
    Figures figures{};
    figures.time = std::chrono::system_clock::now();
    figures.host = hostName();
    figures.processors = countProcessors();
    return figures;
}

// --- percentages ----------------------------------------------------------------------------------------------------

std::optional<CpuParts> cpuParts(const Figures& figures) {
    if (!figures.cpuPercent) return std::nullopt;
    double engines = 0;
    for (const EngineFigures& engine : figures.engines) {
        if (!engine.cpuPercent) return std::nullopt;
        engines += *engine.cpuPercent / figures.processors;
    }
    // They are not read at the same moment, so the engines may seem to use a little more than all.
    engines = std::min(engines, *figures.cpuPercent);
    return CpuParts{engines, *figures.cpuPercent - engines};
}

std::optional<double> busyPercent(const kernel::MachineTicks& before, const kernel::MachineTicks& now) {
    const std::uint64_t stolenBefore = before.stolen.value_or(0);
    const std::uint64_t stolenNow = now.stolen.value_or(0);
    if (now.busy < before.busy || now.idle < before.idle || stolenNow < stolenBefore) return std::nullopt;
    const std::uint64_t busy = now.busy - before.busy;
    const std::uint64_t all = busy + (now.idle - before.idle) + (stolenNow - stolenBefore);
    if (all == 0) return std::nullopt;
    return 100 * static_cast<double>(busy) / static_cast<double>(all);
}

std::optional<double> enginePercent(const EngineLook& before, const EngineLook& now, int processors) {
    constexpr double kRounding = 2;  // ticks, one at each end
    static const double ticksPerSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
    if (now.stat.ticks < before.stat.ticks || now.ended <= before.begun) return std::nullopt;
    const auto used = static_cast<double>(now.stat.ticks - before.stat.ticks);
    const double passed = (now.ended - before.begun) * ticksPerSecond;
    if (used > passed * processors + kRounding) return std::nullopt;
    return 100 * used / passed;
}

EngineFigures engineFigures(const EngineLook* before, const EngineLook& now, int processors,
                            std::vector<std::string>* warnings) {
    EngineFigures engine{now.stat.id,       now.stat.name,       std::nullopt,
                         now.residentBytes, now.stat.startTicks, std::nullopt};
    if (before == nullptr || before->stat.startTicks != now.stat.startTicks) return engine;
    engine.cpuPercent = enginePercent(*before, now, processors);
    if (!engine.cpuPercent) {
        warnings->push_back("the processor time of load engine " + std::to_string(engine.processId) +
                            " is not known: its count went back, or rose by more than the machine has");
    }
    return engine;
}

// --- samples --------------------------------------------------------------------------------------------------------

double Sampler::seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

Figures Sampler::take() {
    Figures figures = figuresOfHost();
    figures.seconds = seconds();
    addProcessors(figures);
    addEngines(figures);
    addMemory(figures);
    return figures;
}

void Sampler::addProcessors(Figures& figures) {
    const auto ticks = kernel::parseMachineTicks(machineFile("/proc/stat", figures));
    if (ticks_ && ticks) figures.cpuPercent = busyPercent(*ticks_, *ticks);
    ticks_ = ticks;
}

void Sampler::addEngines(Figures& figures) {
    std::vector<int> processIds;
    if (getSlavesList(processIds, GetProcessID()) == 0) throw Failure("cannot look for load engines in /proc");
    std::map<int, EngineLook> looks;
    for (const int processId : processIds) {
        std::string why;
        auto look = lookAt(processId, &why);
        if (!why.empty()) figures.warnings.push_back(why);
        if (!look) continue;
        const auto before = engines_.find(processId);
        figures.engines.push_back(engineFigures(before != engines_.end() ? &before->second : nullptr, *look,
                                                figures.processors, &figures.warnings));
        looks[processId] = std::move(*look);
    }
    engines_ = std::move(looks);
}

void Sampler::addMemory(Figures& figures) {
    KREnvMachineStats stats{};
    collector_.getBasicMachineStats(stats.reservedValue, stats.physicalMemoryBytes, stats.totalMemoryBytes,
                                    stats.totalSwapBytes, stats.freeMemoryBytes, stats.cpuLoadPercent, stats.processId);
    const kernel::MemoryBytes memory = kernel::parseMemInfo(machineFile("/proc/meminfo", figures));
    figures.memoryBytes = stats.physicalMemoryBytes;
    figures.freeBytes = stats.freeMemoryBytes;
    figures.availableBytes = memory.available;
    figures.swapBytes = stats.totalSwapBytes;
    figures.swapUsedBytes = memory.swapUsed;
}
