#include "MachineStats.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <numeric>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "Realtime.h"
#include "krenvLog.h"

namespace {

constexpr char kSourceFile[] = "../src/MachineStats";

// --- reading /proc --------------------------------------------------------------------------------------------------

// A file of /proc that is read once, from its start. It brings the stream's buffer: making one, the stream would ask the
// kernel how large it should be, and the figures looked for are in the first bytes.
class File {
public:
    File() = default;
    File(const char* path, const char* mode) { open(path, mode); }
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool open(const char* path, const char* mode) {
        stream_ = std::fopen(path, mode);
        if (stream_ == nullptr) return false;
        // Commands that another thread starts meanwhile do not inherit the file.
        fcntl(fileno(stream_), F_SETFD, FD_CLOEXEC);
        std::setvbuf(stream_, buffer_, _IOFBF, sizeof buffer_);
        return true;
    }
    void close() {
        if (stream_ != nullptr) std::fclose(stream_);
        stream_ = nullptr;
    }
    // Gives the stream up without closing it.
    void leaveOpen() {
        std::setvbuf(stream_, nullptr, _IONBF, 0);
        stream_ = nullptr;
    }
    bool isOpen() const { return stream_ != nullptr; }
    std::FILE* get() const { return stream_; }

private:
    std::FILE* stream_ = nullptr;
    char buffer_[1024];
};

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// A busy machine may refuse for a moment, so a second attempt follows after 200 microseconds.
bool openRetrying(const char* path, File* file) {
    if (file->open(path, "r")) return true;
    usleep(200);
    return file->open(path, "r");
}

// The records hold 32-bit numbers. A scan into a 32-bit long stops at its limits, and so do these where it is longer.
std::int32_t toInt32(long value) { return static_cast<std::int32_t>(std::clamp<long>(value, INT32_MIN, INT32_MAX)); }
std::uint32_t toUint32(unsigned long value) {
    return static_cast<std::uint32_t>(std::min<unsigned long>(value, UINT32_MAX));
}

// Bytes of so many pages, as a 32-bit number that wraps.
std::int32_t bytesOfPages(long pages, long pageSize) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(toInt32(pages)) * static_cast<std::uint32_t>(pageSize));
}

// --- samples of one process -----------------------------------------------------------------------------------------

// /proc/PID/stat, "77 (sh) S 1 77 77 0 -1 4194560 1000 0 0 0 12 34 0 0 20 0 1 0 5000 2617344 400 ...": fills what
// is there. A name with a blank shifts the fields behind it: where a number is expected and a word stands, the scan ends
// and the rest is 0. False when the text ends before the first one.
bool scanProcess(std::FILE* file, pstat* out) {
    unsigned long user = 0;
    unsigned long system = 0;
    long childUser = 0;
    long childSystem = 0;
    unsigned long vsize = 0;
    long rssPages = 0;
    const int scanned =
        std::fscanf(file,
                    "%*d %*s %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu%lu %ld %ld %*d %*d %*d %*d "
                    "%*u %lu %ld",
                    &user, &system, &childUser, &childSystem, &vsize, &rssPages);
    if (scanned == EOF) return false;
    out->user_ticks = toUint32(user);
    out->system_ticks = toUint32(system);
    out->child_user_ticks = toInt32(childUser);
    out->child_system_ticks = toInt32(childSystem);
    out->vsize_bytes = toUint32(vsize);
    out->rss_bytes = bytesOfPages(rssPages, getpagesize());
    return true;
}

// /proc/stat, "cpu  100 0 50 800 10 0 0 0 0 0": adds up the columns. False when the text ends before the first one.
bool scanTotalTicks(std::FILE* file, pstat* out) {
    unsigned long long ticks[10] = {};
    const int scanned =
        std::fscanf(file, "%*s %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu", &ticks[0], &ticks[1], &ticks[2],
                    &ticks[3], &ticks[4], &ticks[5], &ticks[6], &ticks[7], &ticks[8], &ticks[9]);
    if (scanned == EOF) return false;
    out->cpu_total_ticks += std::accumulate(std::begin(ticks), std::end(ticks), 0ULL);
    return true;
}

// The gate of all samplers. The clock never goes back, and the difference is right even if its count wraps.
bool enoughTicksSince(std::uint64_t sampleTime) { return nRealtime::gCurrentRaw_compiler() - sampleTime > 1'000'000; }

}  // namespace

int get_usage(int pid, pstat* out) {
    if (out == nullptr) {
        KR_LOG(Error);
        return -1;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    File process(path, "r");
    if (!process.isOpen()) {
        std::perror("FOPEN ERROR ");
        return -1;
    }
    File machine;
    if (!openRetrying("/proc/stat", &machine)) {
        // Left open on purpose: hosts recognise a /proc that fails them by the descriptors that pile up.
        process.leaveOpen();
        return -1;
    }
    *out = pstat{};
    if (!scanProcess(process.get(), out)) return -1;
    process.close();
    return scanTotalTicks(machine.get(), out) ? 0 : -1;
}

long double calc_cpu(const pstat* cur, const pstat* prev) {
    if (cur == nullptr || prev == nullptr) {
        KR_LOG(Error);
        return -1.0L;
    }
    // 32 bits on every machine: the kernel's counters wrap, and the difference is right across one turn.
    const std::uint32_t used = cur->user_ticks + cur->system_ticks - prev->user_ticks - prev->system_ticks;
    const std::uint32_t total =
        static_cast<std::uint32_t>(cur->cpu_total_ticks) - static_cast<std::uint32_t>(prev->cpu_total_ticks);
    return static_cast<long double>(used) / static_cast<long double>(total) * 100.0L;
}

int getProcessRSS(int pid, bool /*flag*/) {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/statm", pid);
    File file;
    if (!openRetrying(path, &file)) {
        KR_LOG(Warning) << "getProcessRSS() - fopen failed for file " << path;
        return 0;
    }
    long pages = 0;
    const int scanned = std::fscanf(file.get(), "%*s%ld", &pages);
    file.close();  // before the record, so that a sink that counts descriptors does not see it
    if (scanned != 1) {
        KR_LOG(Warning) << "getProcessRSS() - fscanf failed for file " << path;
        return 0;
    }
    return bytesOfPages(pages, sysconf(_SC_PAGESIZE));
}

// --- finding the load engines ---------------------------------------------------------------------------------------

namespace {

// The name of a load engine's process: as much of its executable's name as the kernel keeps.
constexpr char kEngineName[] = "PMLoadEngineMai";

// The kernel prints up to 63 characters, of a kernel thread's name for example, and the closing parenthesis. It escapes
// none of them here: a newline stands raw and ends the word as a blank does.
constexpr std::size_t kWordSize = 256;

// /proc/PID/stat, "77 (sh) S 1 77 ...": puts the name, or what stands before its first blank less one character, into
// `*word`. The name of a process that ended meanwhile, or of something else than a process, is empty.
void scanCommandName(std::FILE* file, char (*word)[kWordSize]) {
    static_assert(kWordSize == 256, "the width in the format is the size of the word less one");
    unsigned id = 0;
    (*word)[0] = '\0';
    const int scanned = std::fscanf(file, "%u (%255s)", &id, *word);
    static_cast<void>(scanned);
    const std::size_t length = std::strlen(*word);
    if (length > 0) (*word)[length - 1] = '\0';  // the closing parenthesis
}

// True when the process with this directory below /proc is a load engine.
bool isLoadEngine(const char* directory) {
    char path[sizeof(dirent::d_name) + sizeof "/proc//stat"];
    std::snprintf(path, sizeof path, "/proc/%s/stat", directory);
    const File file(path, "rt");
    if (!file.isOpen()) return false;
    char name[kWordSize];
    scanCommandName(file.get(), &name);
    return std::strstr(name, kEngineName) != nullptr;
}

}  // namespace

int getSlavesList(std::vector<int>& pids, int excludedPid) {
    const Directory directory(opendir("/proc/"));
    if (directory == nullptr) {
        std::perror("Couldn't open the /proc/ directory");
        return 0;
    }
    while (const dirent* const entry = readdir(directory.get())) {
        if (entry->d_type != DT_DIR || !IsNumeric(entry->d_name) || !isLoadEngine(entry->d_name)) continue;
        const int pid = toInt32(std::strtol(entry->d_name, nullptr, 10));
        if (pid != excludedPid) pids.push_back(pid);
    }
    return 1;
}

bool IsNumeric(const char* s) {
    if (s == nullptr) {
        KR_LOG(Error);
        return false;
    }
    while (*s >= '0' && *s <= '9') ++s;
    return *s == '\0';
}

int GetProcessID() { return getpid(); }

// --- the sampler of one process -------------------------------------------------------------------------------------

CPUUsage::CPUUsage(int sampledPid) : pid(sampledPid), lastUsage(-1.0), lastSampleTime(0) {}

CPUUsage::~CPUUsage() = default;

bool CPUUsage::EnoughTimePassed() { return enoughTicksSince(lastSampleTime); }

double CPUUsage::GetUsage() {
    if (!EnoughTimePassed()) return lastUsage;
    if (get_usage(pid, &current) == -1) {
        KR_LOG(Warning) << "error running get_usage. returning last value";
        return lastUsage;
    }
    lastUsage = lastSampleTime == 0 ? 0.0 : static_cast<double>(calc_cpu(&current, &previous));
    lastSampleTime = nRealtime::gCurrentRaw_compiler();
    // Only what calc_cpu reads of a previous sample.
    previous.user_ticks = current.user_ticks;
    previous.system_ticks = current.system_ticks;
    previous.cpu_total_ticks = current.cpu_total_ticks;
    return lastUsage;
}

// --- the collector --------------------------------------------------------------------------------------------------

namespace {

// What GetCPULoad answers when it has no load to tell.
constexpr long double kNoLoad = -1.0L;

// The columns of the first line of /proc/stat that the load is made of.
enum Column { kUser, kNice, kSystem, kIdle, kColumns };

long double busyTicks(const long double (&sample)[kColumns]) { return sample[kUser] + sample[kNice] + sample[kSystem]; }

long double allTicks(const long double (&sample)[kColumns]) { return busyTicks(sample) + sample[kIdle]; }

// Rounded through memory, since a value that stays in a register of the x87 keeps the bits that should go.
long double roundedToFloat(long double value) {
    const volatile float rounded = static_cast<float>(value);
    return rounded;
}

// Deletes the samplers of processes that are not among `pids`.
void dropSamplers(std::map<int, CPUUsage*>& samplers, const std::vector<int>& pids) {
    std::vector<int> removed;
    for (auto& [pid, sampler] : samplers) {
        if (std::find(pids.begin(), pids.end(), pid) != pids.end()) continue;
        KR_LOG(Trace) << "Removed slave process. id: " << pid;
        delete sampler;
        sampler = nullptr;  // the entry outlives this call when there is no memory for the list
        removed.push_back(pid);
    }
    for (const int pid : removed) samplers.erase(pid);
}

// Runs `step` and returns its answer; `ifThrown` when it throws, after an Error record: `failed` with the exception's
// text, or `crashed` when it has none.
template <class Step>
bool guarded(const char* failed, const char* crashed, bool ifThrown, Step step) {
    try {
        return step();
    } catch (const std::exception& error) {
        KR_LOG(Error) << failed << error.what();
    } catch (...) {
        // What is no exception of this language is a thread being cancelled, which ends the program when it is held up.
        if (std::current_exception() == nullptr) throw;
        KR_LOG(Error) << crashed;
    }
    return ifThrown;
}

}  // namespace

MachineStats::MachineStats() : lastLoadTime(0), ownPid(GetProcessID()) {
    if (GetCPULoad() == kNoLoad) {
        KR_LOG(Error) << "failed to get global CPU usage on start-up!";
    }
}

MachineStats::~MachineStats() {
    for (const auto& [pid, sampler] : usageByPid) delete sampler;
}

bool MachineStats::CollectMachineStats(KREnvMachineStats& stats, bool flag) {
    KR_LOG(Trace) << "CollectMachineStats() - collecting slaves data";
    const auto collectEngines = [&] { return CollectSlavesInfo(stats.slaves, flag); };
    guarded("CollectMachineStats() - failed to collect slaves data. error: ",
            "CollectMachineStats() - crashed while collecting slaves data", false, collectEngines);

    KR_LOG(Trace) << "CollectMachineStats() - collecting general data";
    const auto collectMachine = [&] {
        return getBasicMachineStats(stats.reservedValue, stats.physicalMemoryBytes, stats.totalMemoryBytes,
                                    stats.totalSwapBytes, stats.freeMemoryBytes, stats.cpuLoadPercent, stats.processId);
    };
    // True also when this throws: the engines' figures are there and worth showing.
    return guarded("CollectMachineStats() - failed to collect basic machine data. error: ",
                   "CollectMachineStats() - crashed while collecting basic machine data", true, collectMachine);
}

bool MachineStats::CollectSlavesInfo(std::vector<KREnvSlaveStats>& slaves, bool flag) {
    const auto collect = [&] {
        slaves.clear();
        std::vector<int> pids;
        getSlavesList(pids, ownPid);
        dropSamplers(usageByPid, pids);
        for (const int pid : pids) {
            unsigned long long memory = 0;
            double cpu = 0.0;
            if (!GetSpecificProcessInfo(pid, memory, cpu, flag)) {
                KR_LOG(Warning) << "Failed to get process info for process id: " << pid;
                return false;
            }
            slaves.push_back({static_cast<std::uint32_t>(memory), cpu, pid});
        }
        return true;
    };
    return guarded("CollectSlavesInfo() - failed with error: ",
                   "CollectSlavesInfo() - crashed while collecting slaves data", false, collect);
}

bool MachineStats::GetSpecificProcessInfo(int pid, unsigned long long& memoryBytes, double& cpuPercent, bool flag) {
    const auto known = usageByPid.find(pid);
    if (known != usageByPid.end() && known->second != nullptr) {
        cpuPercent = known->second->GetUsage();
    } else {
        auto sampler = std::make_unique<CPUUsage>(pid);
        usageByPid[pid] = sampler.get();
        static_cast<void>(sampler.release());
        cpuPercent = 0.0;
    }
    memoryBytes = static_cast<std::uint32_t>(getProcessRSS(pid, flag));
    return true;
}

bool MachineStats::getBasicMachineStats(unsigned long long& /*reservedValue*/, unsigned long long& physicalMemoryBytes,
                                        unsigned long long& totalMemoryBytes, unsigned long long& totalSwapBytes,
                                        unsigned long long& freeMemoryBytes, long double& cpuLoadPercent,
                                        int& processId) {
    processId = GetProcessID();
    const long double load = GetCPULoad();
    if (load != kNoLoad) cpuLoadPercent = load * 100.0F;
    if (cpuLoadPercent <= 0.0L) cpuLoadPercent = 0.0L;  // leaves a NaN

    struct sysinfo info = {};  // all 0 also when the call fails
    sysinfo(&info);
    const unsigned long long unit = info.mem_unit;
    physicalMemoryBytes = info.totalram * unit;
    totalMemoryBytes = (static_cast<unsigned long long>(info.totalram) + info.totalswap) * unit;
    totalSwapBytes = info.totalswap * unit;
    freeMemoryBytes = info.freeram * unit;
    return true;
}

long double MachineStats::GetCPULoad() {
    static long double a[kColumns];  // the previous sample of any collector
    static long double b[kColumns];  // the latest; what a scan does not find keeps its value

    if (lastLoadTime != 0 && !EnoughTimePassed()) return kNoLoad;
    // Before the file is opened, so that a /proc that fails is left alone for a while too.
    lastLoadTime = nRealtime::gCurrentRaw_compiler();
    File file;
    if (!openRetrying("/proc/stat", &file)) return kNoLoad;
    const int scanned = std::fscanf(file.get(), "%*s %Lf %Lf %Lf %Lf", &b[kUser], &b[kNice], &b[kSystem], &b[kIdle]);
    static_cast<void>(scanned);

    const long double load = (busyTicks(b) - busyTicks(a)) / (allTicks(b) - allTicks(a));
    std::copy(std::begin(b), std::end(b), std::begin(a));
    return roundedToFloat(load);
}

bool MachineStats::EnoughTimePassed() { return enoughTicksSince(lastLoadTime); }

bool MachineStats::GetProcessMemCPU(float& first, unsigned long& second, unsigned long& third) {
    first = 0.0F;
    second = 0;
    third = 0;
    return false;
}

int MachineStats::GetConsolesCount() { return -1; }
