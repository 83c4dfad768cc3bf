// FakeProc.h - a fake /proc, with a clock, the machine's memory and a process id to match.
//
// Programs that link FakeProc.cpp wrap the C library's functions (see krenv_proc_test in CMakeLists.txt). Calls go to
// the real functions unless a FakeProc exists and the call concerns /proc.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <dirent.h>

class FakeProc {
public:
    FakeProc();
    ~FakeProc();
    FakeProc(const FakeProc&) = delete;
    FakeProc& operator=(const FakeProc&) = delete;

    /// Creates or replaces a file.
    void write(const std::string& path, const std::string& text);
    void remove(const std::string& path);
    /// Makes the file open but fail to be read, as when its process has just ended.
    void breakReads(const std::string& path);
    /// Makes the next `times` attempts to open the file fail.
    void refuse(const std::string& path, int times);

    /// Adds an entry to the listing of the directory /proc/, or removes it.
    void list(const std::string& name, unsigned char type = DT_DIR);
    void unlist(const std::string& name);

    /// Adds a process: its directory, and its stat and statm files. Calling it again for a `pid` changes the figures.
    void run(int pid, const std::string& name = "PMLoadEngineMai", unsigned userTicks = 0, unsigned systemTicks = 0,
             long pages = 0);
    void end(int pid);

    /// Sets the first line of /proc/stat: user, nice, system and idle ticks, and 0 for the rest.
    void machineTicks(unsigned long long user, unsigned long long nice, unsigned long long system,
                      unsigned long long idle);

    /// The fields of `struct sysinfo` that are used, in units of mem_unit bytes.
    struct Memory {
        unsigned long totalram = 0;
        unsigned long freeram = 0;
        unsigned long totalswap = 0;
        unsigned mem_unit = 1;
    };

    std::uint64_t now = 5'000'000;  ///< the raw clock's time
    int ownPid = 4242;              ///< the result of getpid
    bool directoryOpens = true;     ///< whether opendir("/proc/") succeeds
    bool sysinfoWorks = true;       ///< whether sysinfo succeeds
    Memory memory;                  ///< the result of sysinfo

    /// Every call that the fake answered, in order: "fopen /proc/77/stat r", "usleep 200", "opendir /proc/", "readdir",
    /// "closedir", "clock", "sysinfo", "getpid".
    std::vector<std::string> calls;
    /// The calls that begin with `word`.
    std::vector<std::string> callsOf(const std::string& word) const;
    /// Runs before each call is answered; may change the files or throw.
    std::function<void(const std::string& call)> before;

    /// The files that have not been closed.
    const std::set<std::FILE*>& leftOpen() const { return open_; }
    void closeLeftOpen();

    // Called by the functions that replace those of the C library.
    static FakeProc* current();
    void called(const std::string& call);
    std::FILE* open(const std::string& path, const std::string& mode);
    void close(std::FILE* file) { open_.erase(file); }
    DIR* openDirectory();
    bool ownsDirectory(DIR* directory) const { return positions_.count(directory) != 0; }
    dirent* nextEntry(DIR* directory);
    void closeDirectory(DIR* directory);

private:
    struct Entry {
        std::string name;
        unsigned char type;
    };

    std::map<std::string, std::string> files_;
    std::set<std::string> broken_;
    std::map<std::string, int> refusals_;
    std::set<std::FILE*> open_;
    std::vector<Entry> entries_;
    std::map<DIR*, std::size_t> positions_;
    dirent entry_ = {};
};
