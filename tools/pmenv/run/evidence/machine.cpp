#include "evidence/machine.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

namespace {

// Empty when the counter has gone back.
std::optional<std::uint64_t> growth(std::uint64_t before, std::uint64_t now) {
    return now < before ? std::nullopt : std::optional(now - before);
}

std::optional<double> tickSeconds(std::uint64_t before, std::uint64_t now) {
    const auto ticks = growth(before, now);
    return ticks ? std::optional(kernel::secondsOfTicks(*ticks)) : std::nullopt;
}

// The change of microseconds that a file of /proc/pressure tells.
std::optional<double> pressureChange(const char* path, std::optional<std::uint64_t>& last) {
    const auto text = kernel::readFile(path);
    const auto now = text ? kernel::parsePressure(*text) : std::nullopt;
    const auto before = std::exchange(last, now);
    const auto microseconds = now && before ? growth(*before, *now) : std::nullopt;
    return microseconds ? std::optional(static_cast<double>(*microseconds) * 1e-6) : std::nullopt;
}

}  // namespace

Machine::Machine() {
    const auto text = kernel::readFile("/proc/sys/kernel/task_delayacct");
    delayAccounting_ = text && *text == "1\n";
}

MachineEvidence Machine::sample(bool slow) {
    MachineEvidence machine;
    machine.processors = std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    sampleProcessors(machine);
    if (!slow) return machine;
    sampleMemory(machine);
    sampleNetwork(machine);
    machine.cpuPressure = pressureChange("/proc/pressure/cpu", pressure_[0]);
    machine.ioPressure = pressureChange("/proc/pressure/io", pressure_[1]);
    machine.memoryPressure = pressureChange("/proc/pressure/memory", pressure_[2]);
    return machine;
}

void Machine::sampleProcessors(MachineEvidence& machine) {
    const auto text = stat_.read();
    const auto now = text ? kernel::parseMachineTicks(*text) : std::nullopt;
    const auto before = std::exchange(ticks_, now);
    if (!now || !before) return;
    const auto busy = tickSeconds(before->busy, now->busy), idle = tickSeconds(before->idle, now->idle);
    if (busy && idle) {  // the share of one without the other would be wrong
        machine.busy = busy;
        machine.idle = idle;
    }
    if (now->stolen && before->stolen) machine.stolen = tickSeconds(*before->stolen, *now->stolen);
}

void Machine::sampleMemory(MachineEvidence& machine) const {
    const auto text = kernel::readFile("/proc/meminfo");
    if (!text) return;
    const kernel::MemoryBytes memory = kernel::parseMemInfo(*text);
    if (memory.total && memory.available && *memory.total > 0) {
        machine.memoryAvailableShare = static_cast<double>(*memory.available) / static_cast<double>(*memory.total);
    }
    machine.swapUsedBytes = memory.swapUsed;
}

void Machine::sampleNetwork(MachineEvidence& machine) {
    if (const auto text = kernel::readFile("/proc/net/softnet_stat")) {
        const auto now = kernel::parseDroppedPackets(*text);
        const auto before = std::exchange(dropped_, now);
        if (now && before) machine.droppedPackets = growth(*before, *now);
    }
    if (const auto text = kernel::readFile("/proc/net/snmp")) {
        const auto now = kernel::parseTcpSegments(*text);
        const auto before = std::exchange(segments_, now);
        if (!now || !before) return;
        machine.segmentsSent = growth(before->sent, now->sent);
        machine.segmentsSentAgain = growth(before->sentAgain, now->sentAgain);
    }
}
