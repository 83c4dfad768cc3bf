// Makes from the input what the kernel tells about a machine with a load engine, and how that changes from interval to
// interval; watches it as `pmenv judge` does, and judges it. Whatever the files hold, times are not negative, the parts of
// an interval are not longer than it, and a run whose engine's accounts were never readable is not clean.
//
// The input consists of parts that end with NUL. The first character of a part tells what it is: a file, whose text is the
// rest (see kFiles); '-' and a file's character, for a file that vanishes; or '.', '+' and '!' for an interval of a quarter
// of a second, a second and an hour.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <sstream>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "evidence/evidenceSampler.h"
#include "fuzzing.h"
#include "judgement/findings.h"
#include "judgement/judgement.h"
#include "kernel/files.h"
#include "kernel/groupFiles.h"
#include "kernel/machineFiles.h"
#include "kernel/networkFiles.h"
#include "kernel/taskFiles.h"

namespace {

const std::map<char, std::string> kFiles = {
    {'s', "/proc/stat"},
    {'m', "/proc/meminfo"},
    {'y', "/proc/pressure/cpu"},
    {'n', "/proc/net/snmp"},
    {'d', "/proc/net/softnet_stat"},
    {'D', "/proc/sys/kernel/task_delayacct"},
    {'r', "/proc/sys/net/ipv4/ip_local_port_range"},
    {'M', "/proc/self/mountinfo"},
    {'p', "/proc/4100077/stat"},
    {'t', "/proc/4100077/task/4100077/stat"},
    {'a', "/proc/4100077/task/4100077/schedstat"},
    {'T', "/proc/4100077/task/4100078/stat"},
    {'A', "/proc/4100077/task/4100078/schedstat"},
    {'o', "/proc/4100099/stat"},
    {'g', "/proc/4100077/cgroup"},
    {'L', "/proc/4100077/limits"},
    {'R', "/proc/sys/net/ipv4/ip_local_reserved_ports"},
    {'S', "/proc/4100077/net/sockstat"},
    {'6', "/proc/4100077/net/sockstat6"},
    {'P', "/proc/4100077/net/tcp"},
    {'c', "/sys/fs/cgroup/load/cpu.stat"},
    {'C', "/sys/fs/cgroup/cpu.stat"},
    {'x', "/sys/fs/cgroup/load/cpu.max"},
    {'e', "/sys/fs/cgroup/load/memory.events"},
    {'u', "/sys/fs/cgroup/load/memory.current"},
    {'l', "/sys/fs/cgroup/load/memory.max"},
};

// --- the kernel that is made up -------------------------------------------------------------------------------------

constexpr int kFirstDescriptor = 1'000'000;  // no real one is so large

std::map<std::string, std::string> files;
std::vector<std::string> opened;  // by descriptor
double now = 0;

struct Listing {
    std::vector<std::string> names;
    std::size_t next = 0;
};
Listing listing;  // no two directories are read at the same time
dirent64 entry;

bool isMadeUp(const char* path) { return std::strncmp(path, "/proc", 5) == 0 || std::strncmp(path, "/sys/", 5) == 0; }

// The entries of a directory are where its files are.
std::vector<std::string> entriesOf(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& [path, text] : files) {
        if (path.compare(0, directory.size() + 1, directory + "/") != 0) continue;
        const std::string name =
            path.substr(directory.size() + 1, path.find('/', directory.size() + 1) - directory.size() - 1);
        if (names.empty() || names.back() != name) names.push_back(name);
    }
    return names;
}

}  // namespace

#define SEEN_FROM_PMENV extern "C" __attribute__((used, visibility("default")))

// The fuzzer reads its seeds through these functions as well.
SEEN_FROM_PMENV int __real_open64(const char* path, int flags, ...);
SEEN_FROM_PMENV int __wrap_open64(const char* path, int flags, ...) {
    if (!isMadeUp(path)) return __real_open64(path, flags, 0600);
    if (files.count(path) == 0) {
        errno = ENOENT;
        return -1;
    }
    opened.emplace_back(path);
    return kFirstDescriptor + static_cast<int>(opened.size()) - 1;
}

SEEN_FROM_PMENV ssize_t __real_pread64(int descriptor, void* buffer, std::size_t count, off64_t offset);
SEEN_FROM_PMENV ssize_t __wrap_pread64(int descriptor, void* buffer, std::size_t count, off64_t offset) {
    if (descriptor < kFirstDescriptor) return __real_pread64(descriptor, buffer, count, offset);
    const auto file = files.find(opened.at(static_cast<std::size_t>(descriptor - kFirstDescriptor)));
    if (file == files.end()) {
        errno = ESRCH;
        return -1;
    }
    const auto begin = std::min(static_cast<std::size_t>(offset), file->second.size());
    return static_cast<ssize_t>(file->second.copy(static_cast<char*>(buffer), count, begin));
}

SEEN_FROM_PMENV DIR* __real_opendir(const char* path);
SEEN_FROM_PMENV DIR* __wrap_opendir(const char* path) {
    if (!isMadeUp(path)) return __real_opendir(path);
    std::string directory = path;
    if (directory.back() == '/') directory.pop_back();
    listing = {entriesOf(directory), 0};
    errno = ENOENT;
    return listing.names.empty() ? nullptr : reinterpret_cast<DIR*>(&listing);
}
SEEN_FROM_PMENV dirent64* __real_readdir64(DIR* directory);
SEEN_FROM_PMENV dirent64* __wrap_readdir64(DIR* directory) {
    if (directory != reinterpret_cast<DIR*>(&listing)) return __real_readdir64(directory);
    if (listing.next == listing.names.size()) return nullptr;
    std::strncpy(entry.d_name, listing.names[listing.next++].c_str(), sizeof entry.d_name - 1);
    return &entry;
}
SEEN_FROM_PMENV int __real_closedir(DIR* directory);
SEEN_FROM_PMENV int __wrap_closedir(DIR* directory) {
    return directory == reinterpret_cast<DIR*>(&listing) ? 0 : __real_closedir(directory);
}

SEEN_FROM_PMENV ssize_t __wrap_readlink(const char*, char* target, std::size_t size) {
    constexpr std::string_view kEverywhere = "net:[1]";
    return static_cast<ssize_t>(kEverywhere.copy(target, size));
}

double madeUpClock() __asm__("__wrap__ZN6kernel12clockSecondsEv");
__attribute__((used, visibility("default"))) double madeUpClock() { return now; }
double madeUpCpu() __asm__("__wrap__ZN6kernel13ownCpuSecondsEv");
__attribute__((used, visibility("default"))) double madeUpCpu() { return 0; }

namespace {

// --- the readers by themselves --------------------------------------------------------------------------------------

// The words of a text, as the plainest of readers finds them; empty where one of them is no number of 64 bits.
std::vector<std::uint64_t> numbersOf(const std::string& line) {
    std::vector<std::uint64_t> numbers;
    std::istringstream words(line);
    for (std::string word; std::getline(words, word, ' ');) {
        if (word.empty()) continue;
        if (word.find_first_not_of("0123456789") != word.npos) return {};
        errno = 0;
        numbers.push_back(std::strtoull(word.c_str(), nullptr, 10));
        if (errno != 0) return {};
    }
    return numbers;
}

void checkAccounts(std::string_view text) {
    std::string line(text.substr(0, text.find('\n')));
    if (line.find('\t') != line.npos) return;
    const std::vector<std::uint64_t> numbers = numbersOf(line);
    const auto accounts = kernel::parseSchedStat(text);
    require(accounts.has_value() == (numbers.size() == 3), "accounts are three numbers");
    if (accounts) {
        require(numbers == std::vector{accounts->ran, accounts->waited, accounts->turns}, "in their order");
    }
}

void checkTask(std::string_view text) {
    const auto stat = kernel::parseTaskStat(text);
    if (!stat) return;
    require(stat->id >= 0 && stat->parent >= 0, "ids are not negative");
    require(text.find("(" + stat->name + ")") != text.npos, "the name stands in the text");
    require(text.substr(text.rfind(')')).find(stat->state) != text.npos, "the state stands behind it");
}

void checkNetwork(std::string_view text) {
    const auto range = kernel::parsePortRange(text);
    if (range) require(range->first <= range->last && range->last <= 65535 && range->count() >= 1, "a range of ports");
    const auto most = kernel::parseMostPortsOfOneDestination(text, {1, 65535});
    const auto lines = static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
    if (most) require(most->count <= lines, "a connection is a line");
    if (most) require(most->lowest <= most->highest && most->highest <= 65535, "ports in use are ports");
    kernel::parseTcpSockets(text);
    kernel::parseDroppedPackets(text);
    kernel::parseTcpSegments(text);
}

void checkGroups(std::string_view text) {
    const auto processors = kernel::parseCpuMax(text);
    if (processors) require(std::isfinite(*processors) && *processors >= 0, "a quota is a number of processors");
    const auto mounts = kernel::parseGroupMounts(text);
    for (const char* const path : {"/", "/load", "/a/b"}) {
        const auto place = kernel::findGroup({{"", path}, {"cpu", path}}, mounts, "cpu");
        if (place) require(place->directory.compare(0, place->top.size(), place->top) == 0, "the way up ends");
    }
    kernel::parseThrottling(text);
    kernel::parseMemoryKills(text);
    kernel::parseMemberships(text);
}

void checkMachine(std::string_view text) {
    kernel::parseMachineTicks(text);
    kernel::parsePressure(text);
    const kernel::MemoryBytes memory = kernel::parseMemInfo(text);
    for (const auto& bytes : {memory.total, memory.available}) {
        if (bytes) require(*bytes % 1024 == 0, "memory is told in kilobytes");
    }
}

void checkReaders(std::string_view text) {
    checkAccounts(text);
    checkTask(text);
    checkNetwork(text);
    checkGroups(text);
    checkMachine(text);
    kernel::parseDescriptorLimit(text);
    kernel::parseSleeps(text);
    kernel::parseSingleNumber(text);
    kernel::parseResidentBytes(text, 4096);
}

void requireNothingInNothing() {
    require(!kernel::parseSchedStat("") && !kernel::parseTaskStat("") && !kernel::parsePortRange("") &&
                !kernel::parseMostPortsOfOneDestination("", {1, 65535}) && !kernel::parseTcpSockets("") &&
                !kernel::parseDroppedPackets("") && !kernel::parseTcpSegments("") && !kernel::parseCpuMax("") &&
                !kernel::parseThrottling("") && !kernel::parseMemoryKills("") && !kernel::parseMachineTicks("") &&
                !kernel::parsePressure("") && !kernel::parseMemInfo("").total && !kernel::parseDescriptorLimit("") &&
                !kernel::parseSleeps("") && !kernel::parseSingleNumber("") && !kernel::parseResidentBytes("", 4096),
            "an empty file tells nothing");
}

// --- the evidence ---------------------------------------------------------------------------------------------------

void requireShare(const std::optional<double>& share, const char* what) {
    if (share) require(std::isfinite(*share) && *share >= 0, what);
}

void checkEngine(const EngineEvidence& engine) {
    require(engine.from <= engine.to, "an interval ends after it begins");
    require(engine.ran >= 0 && engine.waited >= 0 && engine.lateTurns >= 0, "an engine's times are not negative");
    require(engine.readable || !engine.busiest, "what is not readable tells of no thread");
    requireShare(engine.descriptorShare, "descriptors");
    requireShare(engine.portShare, "ports");
    requireShare(engine.group.throttled, "throttled time");
    requireShare(engine.group.memoryShare, "memory");
    if (!engine.busiest) return;
    const Parts& parts = engine.busiest->parts;
    for (const double part :
         {parts.running, parts.waiting, parts.throttled, parts.stolen, parts.blocked, parts.stopped}) {
        require(part >= 0, "a part is not negative");
    }
    require(parts.sum() <= engine.busiest->seconds + 1e-6, "the parts are not longer than the interval");
}

void checkMachine(const MachineEvidence& machine) {
    for (const auto& figure : {machine.busy, machine.idle, machine.stolen, machine.memoryAvailableShare,
                               machine.cpuPressure, machine.ioPressure, machine.memoryPressure}) {
        requireShare(figure, "a figure of the machine");
    }
}

// Limits that add findings, so that these are made as well.
JudgeLimits limits() {
    JudgeLimits limits;
    limits.machinePercent = 50;
    limits.enginePercent = 50;
    limits.sustain = 0.5;
    limits.memoryPercent = 10;
    limits.swapMegabytes = 1;
    limits.engines = 1;
    return limits;
}

class Watch {
public:
    void interval(double seconds) {
        now += seconds;
        sampler_.look();
        const Evidence evidence = sampler_.take();
        require(evidence.from <= evidence.to, "time goes on");
        checkMachine(evidence.machine);
        for (const EngineEvidence& engine : evidence.engines) {
            checkEngine(engine);
            everReadable_ = everReadable_ || engine.readable;
        }
        judgement_.add(evidence);
    }

    void judge() const {
        const Judged judged = judgement_.judged(false);
        require(judged.outcome != Outcome::Clean || everReadable_, "what was never read is not clean");
        if (judged.share) require(*judged.share >= 0 && *judged.share <= 1, "a share");
        if (judged.believed) require(*judged.believed >= 0 && *judged.believed <= 100, "a percentile");
        for (const JudgedEngine& engine : judged.engines)
            require(engine.heldBack >= 0, "held back for no less than 0 s");
        for (const RunFinding& finding : findingsOf(judged, limits())) {
            require(finding.seconds >= 0 && !finding.text.empty(), "a finding says what");
        }
        require(!signalsOf(judged, limits()).empty(), "the signals are listed");
    }

private:
    EvidenceSampler sampler_{{{"wrk"}, 4100077}, {}, 0.010};
    Judgement judgement_{limits()};
    bool everReadable_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    requireNothingInNothing();
    files = {{"/proc/1/comm", "init\n"}};
    opened.clear();
    now = 1000;
    std::optional<Watch> watch;
    for (std::string_view input = textOf(data, size); !input.empty();) {
        std::string_view part = takeUntil(&input, '\0');
        const char kind = part.empty() ? '\0' : part[0];
        part.remove_prefix(part.empty() ? 0 : 1);
        if (std::strchr(".+!", kind) != nullptr && kind != '\0') {
            if (!watch) watch.emplace();
            watch->interval(kind == '.' ? 0.25 : kind == '+' ? 1 : 3600);
        } else if (kind == '-') {
            const auto file = kFiles.find(part.empty() ? '\0' : part[0]);
            if (file != kFiles.end()) files.erase(file->second);
        } else if (const auto file = kFiles.find(kind); file != kFiles.end()) {
            files[file->second] = part;
            checkReaders(part);
        }
    }
    if (watch) watch->judge();
    return 0;
}
