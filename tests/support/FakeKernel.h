// FakeKernel.h - /proc and /sys/fs/cgroup made by hand, with the clock that goes with them.
//
// The files lie in a directory; programs that link FakeKernel.cpp wrap the C library's functions (fake_kernel in
// pmenv/CMakeLists.txt), so that paths below /proc and /sys lead there while a FakeKernel lives. A file that is deleted
// cannot be read through a descriptor any more, as it is with the kernel's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "support/TempDir.h"

class FakeKernel {
public:
    /// No real process has this id, so that what is not faked finds nothing.
    static constexpr int kPid = 4'100'000;

    FakeKernel();
    ~FakeKernel();
    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;

    /// Creates or replaces a file, with the directories above it: write("/proc/stat", "cpu 1 2 3 4").
    void write(const std::string& path, const std::string& text);
    void link(const std::string& path, const std::string& target);
    /// Removes a file or a whole directory.
    void remove(const std::string& path);
    /// Opening it, or what lies below it, fails with EACCES.
    void hide(const std::string& path) { hidden_.insert(path); }
    void show(const std::string& path) { hidden_.erase(path); }

    /// A thread: its stat and schedstat; a process is its first thread and has files of its own as well.
    struct Thread {
        int pid = kPid;
        int tid = kPid;
        std::string name = "PMLoadEngineMai";
        char state = 'S';
        double ran = 0;     ///< seconds
        double waited = 0;  ///< seconds
        std::uint64_t turns = 1;
        int parent = 1;
        std::uint64_t startTicks = 5000;
        std::uint64_t majorFaults = 0;
        std::uint64_t blockedTicks = 0;
        int exitStatus = 0;
    };
    void run(const Thread& thread);
    void end(int pid) { remove("/proc/" + std::to_string(pid)); }

    double now = 1000;     ///< what the clock says
    double cpu = 0;        ///< processor time that the program has used ...
    double cpuOfRead = 0;  ///< ... and each file that is opened and each read adds

    std::optional<long> processors;  ///< how many sysconf() tells; those of this machine where that is empty

    /// Runs before each file or directory is opened, and before each read through a descriptor that is kept ("read").
    std::function<void(const std::string& path)> before;

    // The fake side of the C library.
    static FakeKernel* current();
    std::string answered(const char* path);
    bool isHidden(const std::string& path) const;
    void reads(const std::string& path);

private:
    TempDir root_;
    std::set<std::string> hidden_;
};

/// The process that tests look at.
constexpr int kPid = FakeKernel::kPid;
const std::string kProcess = "/proc/" + std::to_string(kPid);
