#include "support/FakeProc.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "support/Allocations.h"

namespace {

FakeProc* g_current = nullptr;

}  // namespace

extern "C" {

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __real_fopen64(const char* path, const char* mode);
int __real_fclose(std::FILE* file);
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
dirent* __real_readdir64(DIR* directory);
int __real_closedir(DIR* directory);
int __real_usleep(useconds_t microseconds);
int __real_sysinfo(struct sysinfo* info);
pid_t __real_getpid();
std::uint64_t __real__ZN9nRealtime20gCurrentRaw_compilerEv();

}  // extern "C"

// --- files ----------------------------------------------------------------------------------------------------------

FakeProc::FakeProc() {
    g_current = this;
    machineTicks(0, 0, 0, 0);
}

FakeProc::~FakeProc() { g_current = nullptr; }

FakeProc* FakeProc::current() { return g_current; }

void FakeProc::write(const std::string& path, const std::string& text) {
    files_[path] = text;
    broken_.erase(path);
}

void FakeProc::remove(const std::string& path) { files_.erase(path); }

void FakeProc::breakReads(const std::string& path) { broken_.insert(path); }

void FakeProc::refuse(const std::string& path, int times) { refusals_[path] = times; }

void FakeProc::list(const std::string& name, unsigned char type) { entries_.push_back({name, type}); }

void FakeProc::unlist(const std::string& name) {
    const auto entry =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry& each) { return each.name == name; });
    if (entry == entries_.end()) return;
    const auto index = static_cast<std::size_t>(entry - entries_.begin());
    entries_.erase(entry);
    for (auto& [directory, position] : positions_) {
        if (position > index) --position;  // so that a scan that is past the entry misses none of the others
    }
}

void FakeProc::run(int pid, const std::string& name, unsigned userTicks, unsigned systemTicks, long pages) {
    const std::string id = std::to_string(pid);
    if (files_.count("/proc/" + id + "/stat") == 0) list(id);
    write("/proc/" + id + "/stat", id + " (" + name + ") S 1 77 77 0 -1 4194560 1000 0 0 0 " +
                                       std::to_string(userTicks) + " " + std::to_string(systemTicks) +
                                       " 0 0 20 0 1 0 5000 2617344 " + std::to_string(pages) +
                                       " 4294967295 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0\n");
    write("/proc/" + id + "/statm", "639 " + std::to_string(pages) + " 300 2 0 100 0\n");
}

void FakeProc::end(int pid) {
    const std::string id = std::to_string(pid);
    unlist(id);
    remove("/proc/" + id + "/stat");
    remove("/proc/" + id + "/statm");
}

void FakeProc::machineTicks(unsigned long long user, unsigned long long nice, unsigned long long system,
                            unsigned long long idle) {
    write("/proc/stat", "cpu  " + std::to_string(user) + " " + std::to_string(nice) + " " + std::to_string(system) +
                            " " + std::to_string(idle) + " 0 0 0 0 0 0\ncpu0 1 1 1 1 0 0 0 0 0 0\n");
}

void FakeProc::closeLeftOpen() {
    for (std::FILE* const file : open_) __real_fclose(file);
    open_.clear();
}

std::vector<std::string> FakeProc::callsOf(const std::string& word) const {
    std::vector<std::string> found;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
                 [&](const std::string& call) { return call.compare(0, word.size(), word) == 0; });
    return found;
}

// --- the fake side of the C library ---------------------------------------------------------------------------------

void FakeProc::called(const std::string& call) {
    calls.push_back(call);
    if (before) before(call);
}

namespace {

// Uses a real descriptor, so that a file that is left open can be counted.
std::FILE* openText(const std::string& text) {
    const int descriptor = memfd_create("fake", 0);
    if (descriptor < 0 || pwrite(descriptor, text.data(), text.size(), 0) < 0) return nullptr;
    return fdopen(descriptor, "r");
}

// Reading this file fails, because nothing is mapped where it begins.
std::FILE* openUnreadable() { return __real_fopen("/proc/self/mem", "r"); }

}  // namespace

std::FILE* FakeProc::open(const std::string& path, const std::string& mode) {
    called("fopen " + path + " " + mode);
    const auto refusal = refusals_.find(path);
    if (refusal != refusals_.end() && refusal->second-- > 0) {
        errno = EMFILE;
        return nullptr;
    }
    const auto file = files_.find(path);
    if (file == files_.end()) {
        errno = ENOENT;
        return nullptr;
    }
    std::FILE* const opened = broken_.count(path) != 0 ? openUnreadable() : openText(file->second);
    if (opened == nullptr) std::abort();
    open_.insert(opened);
    return opened;
}

DIR* FakeProc::openDirectory() {
    called("opendir /proc/");
    if (!directoryOpens) {
        errno = EACCES;
        return nullptr;
    }
    DIR* const directory = __real_opendir("/");
    positions_[directory] = 0;
    return directory;
}

dirent* FakeProc::nextEntry(DIR* directory) {
    called("readdir");
    std::size_t& position = positions_[directory];
    if (position >= entries_.size()) return nullptr;
    const Entry& entry = entries_[position++];
    entry_.d_type = entry.type;
    std::snprintf(entry_.d_name, sizeof entry_.d_name, "%s", entry.name.c_str());
    return &entry_;
}

void FakeProc::closeDirectory(DIR* directory) {
    positions_.erase(directory);
    called("closedir");
}

// --- the functions that replace those of the C library --------------------------------------------------------------

namespace {

// The fake that has to answer. Its own allocations work even when a test makes the library's fail.
struct Answering : AllocationsAlwaysWork {
    FakeProc* const fake = FakeProc::current();
};

bool isBelowProc(const char* path) { return std::strncmp(path, "/proc/", 6) == 0; }

template <class Real>
std::FILE* openOr(Real real, const char* path, const char* mode) {
    const Answering answering;
    return answering.fake != nullptr && isBelowProc(path) ? answering.fake->open(path, mode) : real(path, mode);
}

template <class Real>
dirent* readOr(Real real, DIR* directory) {
    const Answering answering;
    const bool fakes = answering.fake != nullptr && answering.fake->ownsDirectory(directory);
    return fakes ? answering.fake->nextEntry(directory) : real(directory);
}

}  // namespace

extern "C" {

std::FILE* __wrap_fopen(const char* path, const char* mode) { return openOr(__real_fopen, path, mode); }
std::FILE* __wrap_fopen64(const char* path, const char* mode) { return openOr(__real_fopen64, path, mode); }

int __wrap_fclose(std::FILE* file) {
    const Answering answering;
    if (answering.fake != nullptr) answering.fake->close(file);
    return __real_fclose(file);
}

DIR* __wrap_opendir(const char* path) {
    const Answering answering;
    const bool fakes = answering.fake != nullptr && std::strcmp(path, "/proc/") == 0;
    return fakes ? answering.fake->openDirectory() : __real_opendir(path);
}
dirent* __wrap_readdir(DIR* directory) { return readOr(__real_readdir, directory); }
dirent* __wrap_readdir64(DIR* directory) { return readOr(__real_readdir64, directory); }
int __wrap_closedir(DIR* directory) {
    const Answering answering;
    if (answering.fake != nullptr && answering.fake->ownsDirectory(directory))
        answering.fake->closeDirectory(directory);
    return __real_closedir(directory);
}

int __wrap_usleep(useconds_t microseconds) {
    const Answering answering;
    if (answering.fake == nullptr) return __real_usleep(microseconds);
    answering.fake->called("usleep " + std::to_string(microseconds));
    return 0;
}

int __wrap_sysinfo(struct sysinfo* info) {
    const Answering answering;
    if (answering.fake == nullptr) return __real_sysinfo(info);
    answering.fake->called("sysinfo");
    if (!answering.fake->sysinfoWorks) return -1;
    const FakeProc::Memory& memory = answering.fake->memory;
    info->totalram = memory.totalram;
    info->freeram = memory.freeram;
    info->totalswap = memory.totalswap;
    info->mem_unit = memory.mem_unit;
    return 0;
}

pid_t __wrap_getpid() {
    const Answering answering;
    if (answering.fake == nullptr) return __real_getpid();
    answering.fake->called("getpid");
    return answering.fake->ownPid;
}

std::uint64_t __wrap__ZN9nRealtime20gCurrentRaw_compilerEv() {
    const Answering answering;
    if (answering.fake == nullptr) return __real__ZN9nRealtime20gCurrentRaw_compilerEv();
    answering.fake->called("clock");
    return answering.fake->now;
}

}  // extern "C"
