#include "evidence/engineWatch.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "kernel/files.h"
#include "kernel/taskFiles.h"

namespace {

// --- how a process ended --------------------------------------------------------------------------------------------

// Since Linux 6.15 the descriptor of a process tells its status even after its parent has asked for it. The headers of
// most systems are older.
struct ProcessInfo {
    std::uint64_t mask;
    std::uint64_t group;
    std::uint32_t ids[11];
    std::int32_t exitStatus;
};
static_assert(sizeof(ProcessInfo) == 64, "the kernel's record");
constexpr std::uint64_t kExitStatus = 1 << 3;

int openProcess(int pid) {
    constexpr long kPidfdOpen = 434;  // on every architecture
    return static_cast<int>(syscall(kPidfdOpen, pid, 0));
}

std::optional<int> statusAfterwards(int process) {
    ProcessInfo info{};
    info.mask = kExitStatus;
    if (ioctl(process, _IOWR(0xFF, 11, ProcessInfo), &info) != 0) return std::nullopt;
    if ((info.mask & kExitStatus) == 0) return std::nullopt;
    return info.exitStatus;
}

std::optional<kernel::TaskStat> readStat(const ProcessKey& key) {
    const auto text = kernel::readFile("/proc/" + std::to_string(key.pid) + "/stat");
    auto stat = text ? kernel::parseTaskStat(*text) : std::nullopt;
    if (stat && stat->startTicks != key.startTicks) return std::nullopt;  // another process of this id
    return stat;
}

// 0 is also what somebody sees who may not know.
std::optional<int> statusOfZombie(const kernel::TaskStat& stat) {
    if (!stat.exitStatus || *stat.exitStatus == 0 || *stat.exitStatus > 0xFFFF) return std::nullopt;
    return static_cast<int>(*stat.exitStatus);
}

// --- descriptors ----------------------------------------------------------------------------------------------------

std::optional<Usage> readDescriptors(int pid) {
    const auto text = kernel::readFile("/proc/" + std::to_string(pid) + "/limits");
    const auto open = kernel::countDescriptors(pid);
    if (!text || !open) return std::nullopt;
    const auto limit = kernel::parseDescriptorLimit(*text);
    if (!limit || *limit == 0) return std::nullopt;
    return Usage{static_cast<double>(*open), static_cast<double>(*limit)};
}

}  // namespace

EngineWatch::EngineWatch(const FoundEngine& found, const IgnoredThreads& ignored, double time)
    : found_(found), threads_(found.key.pid, ignored), process_(openProcess(found.key.pid)), last_(time) {}

EngineWatch::~EngineWatch() {
    if (process_ >= 0) close(process_);
}

void EngineWatch::readSlowSignals(const FoundEngine& found, const Groups& groups, Network& network) {
    const std::uint64_t faults = found.majorFaults - std::min(found.majorFaults, found_.majorFaults);
    majorFaults_ += faults;
    faulting_ = faults > 0;
    if (faulting_) threads_.suspectBlocked();
    found_ = found;
    threads_.list();
    GroupPlaces places = groups.find(found.key.pid);
    if (!places.cpu.empty() || !places.memory.empty()) places_ = std::move(places);  // it may have ended just now
    descriptors_ = readDescriptors(found.key.pid);
    ports_ = network.ports(found.key.pid);
}

std::optional<EngineEvidence> EngineWatch::sample(IntervalContext context, Groups& groups, double time) {
    EngineEvidence evidence;
    evidence.key = found_.key;
    evidence.name = found_.name;
    evidence.standIn = found_.standIn;
    evidence.from = last_;
    evidence.to = time;
    evidence.group = groups.of(places_);
    untoldKills_ = evidence.group.memoryKills;
    context.throttledSeconds = evidence.group.throttled.value_or(0);
    if (!threads_.sample(context, &evidence) || threads_.isZombie()) return std::nullopt;
    last_ = time;
    untoldKills_ = std::nullopt;
    evidence.majorFaults = std::exchange(majorFaults_, 0);
    evidence.faulting = faulting_;
    evidence.descriptors = descriptors_;
    if (descriptors_) evidence.descriptorShare = descriptors_->share();
    evidence.ports = ports_.ports;
    evidence.portShare = ports_.share;
    evidence.portsAtMost = ports_.atMost;
    return evidence;
}

EngineEnd EngineWatch::end(const Groups& groups, double time) const {
    EngineEnd end{found_.key,
                  found_.name,
                  time,
                  statusAfterwards(process_),
                  false,
                  found_.chosenBy == kAsDescendant,
                  groups.killsSince(places_)};
    if (untoldKills_.value_or(0) > 0) end.memoryKills = end.memoryKills.value_or(0) + *untoldKills_;
    const auto stat = readStat(found_.key);
    if (!stat) return end;
    end.zombie = true;
    if (!end.status) end.status = statusOfZombie(*stat);
    return end;
}
