#include "support/Faults.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <set>
#include <string_view>

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

// The sets that remember blocks and directories allocate with this, not with operator new.
template <class T>
struct WithMalloc {
    using value_type = T;
    WithMalloc() = default;
    template <class U>
    WithMalloc(const WithMalloc<U>&) {}
    T* allocate(std::size_t count) { return static_cast<T*>(std::malloc(count * sizeof(T))); }
    void deallocate(T* address, std::size_t) { std::free(address); }
    friend bool operator==(const WithMalloc&, const WithMalloc&) { return true; }
    friend bool operator!=(const WithMalloc&, const WithMalloc&) { return false; }
};
template <class T>
using Watched = std::set<T, std::less<T>, WithMalloc<T>>;

namespace {

// --- the current fault ----------------------------------------------------------------------------------------------

const Fault* g_fault = nullptr;
int g_nth = 0;
bool g_lasting = false;
int g_calls = 0;  // of the fault's function
bool g_underTest = false;
int g_pauses = 0;

// Never destroyed, because blocks are freed until the very end.
template <class T>
T& immortal() {
    static T& object = *new (std::malloc(sizeof(T))) T;
    return object;
}

Watched<void*>& blocks() { return immortal<Watched<void*>>(); }
Watched<DIR*>& directories() { return immortal<Watched<DIR*>>(); }

bool isWatching() { return g_underTest && g_pauses == 0; }

// Set while calls are counted by name.
std::map<std::string, int>* g_counts = nullptr;

void count(const char* function) {
    const Undisturbed own;
    if (g_counts != nullptr) ++(*g_counts)[function];
}

// Returns the fault when this call of the function has to fail.
const Fault* strike(const char* function) {
    if (!isWatching()) return nullptr;
    if (g_fault == nullptr) count(function);
    if (g_fault == nullptr || std::strcmp(g_fault->function, function) != 0) return nullptr;
    ++g_calls;
    if (g_calls < g_nth || (g_calls > g_nth && !g_lasting)) return nullptr;
    errno = g_fault->error;
    return g_fault;
}

bool isManner(const Fault* fault, const char* manner) { return std::strcmp(fault->manner, manner) == 0; }

// Does what the C library does to a stream whose descriptor fails.
void markBroken(std::FILE* stream) { stream->_flags |= _IO_ERR_SEEN; }

// "/proc/77/stat" -> the file of that name in the directory that stands in for /proc.
std::string seenPath(const char* path) {
    constexpr std::string_view proc = "/proc/";
    const std::string_view text = path;
    const std::string& instead = FaultBorder::instance().proc;
    if (instead.empty() || text.substr(0, proc.size()) != proc) return path;
    return instead + "/" + std::string(text.substr(proc.size()));
}

void* allocate(std::size_t size) {
    if (strike("new") != nullptr) throw std::bad_alloc();
    void* const address = std::malloc(size);
    if (address == nullptr) throw std::bad_alloc();
    if (isWatching()) blocks().insert(address);
    return address;
}

void release(void* address) {
    blocks().erase(address);
    std::free(address);
}

}  // namespace

const std::vector<Fault>& allFaults() {
    static const std::vector<Fault> faults = {
        {"new", "ENOMEM", ENOMEM, true},
        {"fopen", "EMFILE", EMFILE, true},
        {"fclose", "EIO", EIO, true},
        {"fgets", "EIO", EIO, true},
        {"fgets", "EINTR", EINTR, false},
        {"fscanf", "EIO", EIO, true},
        {"fscanf", "no match", 0, true},
        {"open", "EMFILE", EMFILE, true},
        {"fstat", "EIO", EIO, true},
        {"read", "EIO", EIO, true},
        {"read", "EINTR", EINTR, false},
        {"read", "short", 0, true},
        {"write", "ENOSPC", ENOSPC, true},
        {"write", "EINTR", EINTR, false},
        {"write", "short", 0, true},
        {"close", "EIO", EIO, true},
        {"lseek", "EINVAL", EINVAL, true},
        {"fcntl", "EBADF", EBADF, true},
        {"stat", "EACCES", EACCES, true},
        {"opendir", "EMFILE", EMFILE, true},
        {"readdir", "EIO", EIO, true},
        {"closedir", "EBADF", EBADF, true},
        {"mkdir", "EACCES", EACCES, true},
        {"chdir", "EACCES", EACCES, true},
        {"getcwd", "ENOENT", ENOENT, true},
        {"realpath", "EACCES", EACCES, true},
        {"readlink", "EACCES", EACCES, true},
        {"tempnam", "ENOMEM", ENOMEM, true},
        {"getenv", "unset", 0, true},
        {"system", "EAGAIN", EAGAIN, true},
        {"popen", "EAGAIN", EAGAIN, true},
        {"pclose", "ECHILD", ECHILD, true},
        {"gethostname", "ENAMETOOLONG", ENAMETOOLONG, true},
        {"gethostbyname", "TRY_AGAIN", EAGAIN, true},
        {"getifaddrs", "ENOMEM", ENOMEM, true},
        {"inet_ntop", "ENOSPC", ENOSPC, true},
        {"uname", "EFAULT", EFAULT, true},
        {"sysinfo", "EFAULT", EFAULT, true},
        {"usleep", "EINTR", EINTR, true},
        {"clock_gettime", "EINVAL", EINVAL, true},
        {"gmtime_r", "EOVERFLOW", EOVERFLOW, true},
        {"strerror_r", "unknown", 0, true},
        {"getrandom", "EAGAIN", EAGAIN, true},
        {"pthread_key_create", "EAGAIN", EAGAIN, true},
        {"pthread_setspecific", "ENOMEM", ENOMEM, true},
    };
    return faults;
}

Injection::Injection(const Fault& fault, int nth, bool lasting) {
    g_fault = &fault;
    g_nth = nth;
    g_lasting = lasting;
    g_calls = 0;
}
Injection::~Injection() { g_fault = nullptr; }
bool Injection::reached() const { return g_calls >= g_nth; }

UnderTest::UnderTest() { g_underTest = true; }
UnderTest::~UnderTest() { g_underTest = false; }
const std::map<std::string, int>& UnderTest::calls() {
    static std::map<std::string, int> counts;
    g_counts = &counts;
    return counts;
}
std::size_t UnderTest::liveBlocks() { return blocks().size(); }

Undisturbed::Undisturbed() { ++g_pauses; }
Undisturbed::~Undisturbed() { --g_pauses; }

FaultBorder& FaultBorder::instance() {
    static FaultBorder border;
    return border;
}

extern "C" int __real_closedir(DIR* directory);

std::size_t closeDirectoriesLeftOpen() {
    const std::size_t count = directories().size();
    for (DIR* const directory : directories()) __real_closedir(directory);
    directories().clear();
    return count;
}

// --- operator new ---------------------------------------------------------------------------------------------------

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* address) noexcept { release(address); }
void operator delete(void* address, std::size_t) noexcept { release(address); }
void operator delete[](void* address) noexcept { release(address); }
void operator delete[](void* address, std::size_t) noexcept { release(address); }

// --- the functions that replace those of the C library --------------------------------------------------------------

// The 32-bit names: 64-bit file offsets and times have symbols of their own.
extern "C" {

// Files.
std::FILE* __real_fopen64(const char* path, const char* mode);
std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    if (strike("fopen") != nullptr) return nullptr;
    const Undisturbed own;
    return __real_fopen64(seenPath(path).c_str(), mode);
}
int __real_fclose(std::FILE* stream);
int __wrap_fclose(std::FILE* stream) {
    const bool fails = strike("fclose") != nullptr;
    const int closed = __real_fclose(stream);
    return fails ? EOF : closed;
}
char* __real_fgets(char* text, int size, std::FILE* stream);
char* __wrap_fgets(char* text, int size, std::FILE* stream) {
    if (strike("fgets") == nullptr) return __real_fgets(text, size, stream);
    markBroken(stream);
    return nullptr;
}
int __wrap___isoc99_fscanf(std::FILE* stream, const char* format, ...) {
    if (const Fault* const fault = strike("fscanf")) {
        if (isManner(fault, "no match")) return 0;
        markBroken(stream);
        return EOF;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int scanned = std::vfscanf(stream, format, arguments);
    va_end(arguments);
    return scanned;
}
int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, mode_t mode) {
    return strike("open") != nullptr ? -1 : __real_open64(path, flags, mode);
}
int __real___fstat64_time64(int descriptor, struct stat* status);
int __wrap___fstat64_time64(int descriptor, struct stat* status) {
    return strike("fstat") != nullptr ? -1 : __real___fstat64_time64(descriptor, status);
}
ssize_t __real_read(int descriptor, void* bytes, std::size_t size);
ssize_t __wrap_read(int descriptor, void* bytes, std::size_t size) {
    const Fault* const fault = strike("read");
    if (fault == nullptr) return __real_read(descriptor, bytes, size);
    return isManner(fault, "short") ? __real_read(descriptor, bytes, 1) : -1;
}
// Only log records go to standard error; they are dropped.
ssize_t __real_write(int descriptor, const void* bytes, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size) {
    const Fault* const fault = strike("write");
    if (fault != nullptr) return isManner(fault, "short") ? 1 : -1;
    if (descriptor == STDERR_FILENO) return static_cast<ssize_t>(size);
    return __real_write(descriptor, bytes, size);
}
void __wrap_perror(const char* /*text*/) {}
int __real_close(int descriptor);
int __wrap_close(int descriptor) {
    const bool fails = strike("close") != nullptr;
    const int closed = __real_close(descriptor);
    return fails ? -1 : closed;
}
off_t __real_lseek64(int descriptor, off_t offset, int whence);
off_t __wrap_lseek64(int descriptor, off_t offset, int whence) {
    return strike("lseek") != nullptr ? -1 : __real_lseek64(descriptor, offset, whence);
}
int __real___fcntl_time64(int descriptor, int command, ...);
int __wrap___fcntl_time64(int descriptor, int command, int argument) {
    return strike("fcntl") != nullptr ? -1 : __real___fcntl_time64(descriptor, command, argument);
}
int __real___stat64_time64(const char* path, struct stat* status);
int __wrap___stat64_time64(const char* path, struct stat* status) {
    return strike("stat") != nullptr ? -1 : __real___stat64_time64(path, status);
}

// Directories.
DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path) {
    if (strike("opendir") != nullptr) return nullptr;
    const Undisturbed own;
    DIR* const directory = __real_opendir(seenPath(path).c_str());
    if (directory != nullptr) directories().insert(directory);
    return directory;
}
dirent* __real_readdir64(DIR* directory);
dirent* __wrap_readdir64(DIR* directory) {
    return strike("readdir") != nullptr ? nullptr : __real_readdir64(directory);
}
int __wrap_closedir(DIR* directory) {
    const bool fails = strike("closedir") != nullptr;
    directories().erase(directory);
    const int closed = __real_closedir(directory);
    return fails ? -1 : closed;
}
int __real_mkdir(const char* path, mode_t mode);
int __wrap_mkdir(const char* path, mode_t mode) { return strike("mkdir") != nullptr ? -1 : __real_mkdir(path, mode); }
int __real_chdir(const char* path);
int __wrap_chdir(const char* path) { return strike("chdir") != nullptr ? -1 : __real_chdir(path); }
char* __real_getcwd(char* path, std::size_t size);
char* __wrap_getcwd(char* path, std::size_t size) {
    return strike("getcwd") != nullptr ? nullptr : __real_getcwd(path, size);
}
char* __real_realpath(const char* path, char* resolved);
char* __wrap_realpath(const char* path, char* resolved) {
    return strike("realpath") != nullptr ? nullptr : __real_realpath(path, resolved);
}
ssize_t __real_readlink(const char* path, char* target, std::size_t size);
ssize_t __wrap_readlink(const char* path, char* target, std::size_t size) {
    return strike("readlink") != nullptr ? -1 : __real_readlink(path, target, size);
}
char* __real_tempnam(const char* directory, const char* prefix);
char* __wrap_tempnam(const char* directory, const char* prefix) {
    return strike("tempnam") != nullptr ? nullptr : __real_tempnam(directory, prefix);
}

// The process and its commands.
char* __real_getenv(const char* name);
char* __wrap_getenv(const char* name) { return strike("getenv") != nullptr ? nullptr : __real_getenv(name); }
int __wrap_system(const char* command) {
    if (strike("system") != nullptr) return -1;
    const Undisturbed own;
    FaultBorder::instance().commands.emplace_back(command);
    return 0;
}
std::FILE* __wrap_popen(const char* command, const char* mode) {
    if (strike("popen") != nullptr) return nullptr;
    const Undisturbed own;
    return __real_fopen64(FaultBorder::instance().output[command].c_str(), mode);
}
int __wrap_pclose(std::FILE* pipe) {
    const bool fails = strike("pclose") != nullptr;
    const int closed = __real_fclose(pipe);
    return fails ? -1 : closed;
}

// The host.
int __wrap_gethostname(char* name, std::size_t size) {
    std::strncpy(name, "host", size);
    return strike("gethostname") != nullptr ? -1 : 0;
}
hostent* __wrap_gethostbyname(const char* name) {
    static char official[64];
    static hostent host{};
    if (strike("gethostbyname") != nullptr) return nullptr;
    std::snprintf(official, sizeof official, "%s.example.com", name);
    host.h_name = official;
    return &host;
}
// Two interfaces and one without an address, in a block that the caller has to free.
int __wrap_getifaddrs(ifaddrs** list) {
    static char names[][5] = {"eth0", "eth1", "eth2"};
    static sockaddr_in address{AF_INET, 0, {0x0302010A}, {}};
    if (strike("getifaddrs") != nullptr) return -1;
    *list = static_cast<ifaddrs*>(std::calloc(3, sizeof(ifaddrs)));
    blocks().insert(*list);
    for (int i = 0; i < 3; ++i) {
        (*list)[i].ifa_name = names[i];
        if (i < 2) {
            (*list)[i].ifa_addr = reinterpret_cast<sockaddr*>(&address);
            (*list)[i].ifa_next = *list + i + 1;
        }
    }
    return 0;
}
void __wrap_freeifaddrs(ifaddrs* list) { release(list); }
const char* __real_inet_ntop(int family, const void* address, char* text, socklen_t size);
const char* __wrap_inet_ntop(int family, const void* address, char* text, socklen_t size) {
    return strike("inet_ntop") != nullptr ? nullptr : __real_inet_ntop(family, address, text, size);
}
int __wrap_uname(utsname* names) {
    if (strike("uname") != nullptr) return -1;
    std::strcpy(names->sysname, "Linux");
    std::strcpy(names->release, "6.1");
    return 0;
}
int __wrap_sysinfo(struct sysinfo* info) {
    if (strike("sysinfo") != nullptr) return -1;
    info->totalram = 1000;
    info->mem_unit = 4096;
    return 0;
}
int __wrap_usleep(useconds_t /*microseconds*/) { return strike("usleep") != nullptr ? -1 : 0; }
// Two seconds pass at each call of the clock, so that every sampler samples.
int __wrap___clock_gettime64(clockid_t /*clock*/, timespec* now) {
    static time_t seconds = 1000;
    if (strike("clock_gettime") != nullptr) return -1;
    now->tv_sec = seconds += 2;
    now->tv_nsec = 0;
    return 0;
}
tm* __real___gmtime64_r(const time_t* seconds, tm* utc);
tm* __wrap___gmtime64_r(const time_t* seconds, tm* utc) {
    return strike("gmtime_r") != nullptr ? nullptr : __real___gmtime64_r(seconds, utc);
}
char* __real_strerror_r(int error, char* text, std::size_t size);
char* __wrap_strerror_r(int error, char* text, std::size_t size) {
    return __real_strerror_r(strike("strerror_r") != nullptr ? 98765 : error, text, size);
}
int __real_pthread_key_create(pthread_key_t* key, void (*release)(void*));
int __wrap_pthread_key_create(pthread_key_t* key, void (*release)(void*)) {
    const Fault* const fault = strike("pthread_key_create");
    return fault != nullptr ? fault->error : __real_pthread_key_create(key, release);
}

int __real_pthread_setspecific(pthread_key_t key, const void* value);
int __wrap_pthread_setspecific(pthread_key_t key, const void* value) {
    const Fault* const fault = strike("pthread_setspecific");
    return fault != nullptr ? fault->error : __real_pthread_setspecific(key, value);
}

ssize_t __real_getrandom(void* bytes, std::size_t size, unsigned flags);
ssize_t __wrap_getrandom(void* bytes, std::size_t size, unsigned flags) {
    return strike("getrandom") != nullptr ? -1 : __real_getrandom(bytes, size, flags);
}

}  // extern "C"
