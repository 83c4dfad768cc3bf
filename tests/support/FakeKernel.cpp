#include "support/FakeKernel.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

FakeKernel* g_current = nullptr;

std::string ticks(double seconds) { return std::to_string(static_cast<std::uint64_t>(seconds * 100)); }
std::string inNanoseconds(double seconds) { return std::to_string(static_cast<std::uint64_t>(seconds * 1e9 + 0.5)); }

std::string statOf(const FakeKernel::Thread& thread, int id) {
    return std::to_string(id) + " (" + thread.name + ") " + thread.state + " " + std::to_string(thread.parent) +
           " 77 77 0 -1 4194560 100 0 " + std::to_string(thread.majorFaults) + " 0 " + ticks(thread.ran) +
           " 0 0 0 20 0 1 0 " + std::to_string(thread.startTicks) +
           " 2617344 300 4294967295 1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 " + std::to_string(thread.blockedTicks) +
           " 0 0 0 0 0 0 0 0 0 " + std::to_string(thread.exitStatus) + "\n";
}

}  // namespace

FakeKernel::FakeKernel() : root_(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") {
    g_current = this;
    write("/proc/stat", "cpu  0 0 0 0 0 0 0 0 0 0\n");
}

FakeKernel::~FakeKernel() { g_current = nullptr; }

FakeKernel* FakeKernel::current() { return g_current; }

void FakeKernel::write(const std::string& path, const std::string& text) {
    const std::filesystem::path whole = root_.path() + path;
    std::filesystem::create_directories(whole.parent_path());
    std::ofstream(whole, std::ios::binary) << text;
}

void FakeKernel::link(const std::string& path, const std::string& target) {
    const std::filesystem::path whole = root_.path() + path;
    std::filesystem::create_directories(whole.parent_path());
    std::filesystem::create_symlink(target, whole);
}

void FakeKernel::remove(const std::string& path) { std::filesystem::remove_all(root_.path() + path); }

bool FakeKernel::isHidden(const std::string& path) const {
    return std::any_of(hidden_.begin(), hidden_.end(), [&path](const std::string& hidden) {
        return path.compare(0, hidden.size(), hidden) == 0 &&
               (path.size() == hidden.size() || path[hidden.size()] == '/');
    });
}

void FakeKernel::reads(const std::string& path) {
    cpu += cpuOfRead;
    if (before) before(path);
}

void FakeKernel::run(const Thread& thread) {
    const std::string process = "/proc/" + std::to_string(thread.pid);
    const std::string task = process + "/task/" + std::to_string(thread.tid);
    write(task + "/stat", statOf(thread, thread.tid));
    write(task + "/schedstat",
          inNanoseconds(thread.ran) + " " + inNanoseconds(thread.waited) + " " + std::to_string(thread.turns) + "\n");
    if (thread.pid == thread.tid) write(process + "/stat", statOf(thread, thread.pid));
}

std::string FakeKernel::answered(const char* path) {
    const bool fakes = std::strncmp(path, "/proc", 5) == 0 || std::strncmp(path, "/sys/", 5) == 0;
    if (!fakes) return path;
    reads(path);
    return root_.path() + path;
}

// --- what the linker puts in the place of the C library's functions -------------------------------------------------

namespace {

template <class Real>
auto onFake(Real real, const char* path) -> decltype(real(path)) {
    FakeKernel* const fake = FakeKernel::current();
    if (fake == nullptr) return real(path);
    if (fake->isHidden(path)) {
        errno = EACCES;
        return decltype(real(path))(-1);
    }
    return real(fake->answered(path).c_str());
}

}  // namespace

extern "C" {

int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return onFake([=](const char* answered) { return __real_open64(answered, flags, mode); }, path);
}

ssize_t __real_pread64(int descriptor, void* buffer, size_t count, off64_t offset);
ssize_t __wrap_pread64(int descriptor, void* buffer, size_t count, off64_t offset) {
    FakeKernel* const fake = FakeKernel::current();
    struct stat facts {};
    if (fake != nullptr) {
        fake->reads("read");
        if (fstat(descriptor, &facts) == 0 && facts.st_nlink == 0) {
            errno = ESRCH;
            return -1;
        }
    }
    return __real_pread64(descriptor, buffer, count, offset);
}

DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path) {
    FakeKernel* const fake = FakeKernel::current();
    if (fake == nullptr) return __real_opendir(path);
    if (fake->isHidden(path)) {
        errno = EACCES;
        return nullptr;
    }
    return __real_opendir(fake->answered(path).c_str());
}

ssize_t __real_readlink(const char* path, char* target, size_t size);
ssize_t __wrap_readlink(const char* path, char* target, size_t size) {
    return onFake([=](const char* answered) { return __real_readlink(answered, target, size); }, path);
}

long __real_sysconf(int name);
long __wrap_sysconf(int name) {
    FakeKernel* const fake = FakeKernel::current();
    return fake != nullptr && name == _SC_NPROCESSORS_ONLN && fake->processors ? *fake->processors
                                                                               : __real_sysconf(name);
}

}  // extern "C"

double realClock() __asm__("__real__ZN6kernel12clockSecondsEv");
double fakeClock() __asm__("__wrap__ZN6kernel12clockSecondsEv");
double fakeClock() {
    FakeKernel* const fake = FakeKernel::current();
    return fake != nullptr ? fake->now : realClock();
}

double realCpu() __asm__("__real__ZN6kernel13ownCpuSecondsEv");
double fakeCpu() __asm__("__wrap__ZN6kernel13ownCpuSecondsEv");
double fakeCpu() {
    FakeKernel* const fake = FakeKernel::current();
    return fake != nullptr ? fake->cpu : realCpu();
}
