// processes.h - what a trial starts, and what is gone when its scope ends: processes, control groups, files.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

/// A case that this machine does not permit; the text says why.
struct NotHere : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Something else on the machine made a trial worthless; the text says what.
struct Disturbed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// SIGINT, SIGTERM or SIGHUP came. All waiting ends with it, so that every scope cleans up.
struct Interrupted : std::runtime_error {
    Interrupted() : std::runtime_error("interrupted") {}
};
void catchInterruptions();

/// Waits until this time of CLOCK_MONOTONIC.
void waitUntil(std::int64_t ns);

/// Where a process goes before it runs its program: the `cgroup.procs` files of its groups.
using Groups = std::vector<std::string>;

/// A process with its descendants. It ends with the scope, or with the driver.
class Process {
public:
    /// Runs a program with standard output, and errors too when `errors` says so, in a file. "" leaves them as they are.
    struct Output {
        std::string out;
        std::string errors;
    };
    Process(const std::vector<std::string>& arguments, const Groups& groups, const Output& output = {});
    /// Runs a function that never comes back.
    explicit Process(const std::function<void()>& work);
    ~Process();
    Process(Process&& other) noexcept : pid_(other.pid_) { other.pid_ = 0; }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    Process& operator=(Process&&) = delete;

    pid_t pid() const { return pid_; }
    /// To the process and its descendants.
    void signal(int number) const;
    bool hasEnded() const;
    /// Waits for its end. Its exit status, or minus the signal that ended it.
    int wait();

private:
    pid_t start(const std::function<void()>& work);

    pid_t pid_ = 0;
};

/// A control group of version 1 below the driver's own, for one controller. Throws NotHere where there is none to be had.
class ControlGroup {
public:
    explicit ControlGroup(const std::string& controller);
    ~ControlGroup();
    ControlGroup(ControlGroup&& other) noexcept : path_(std::move(other.path_)) { other.path_.clear(); }
    ControlGroup(const ControlGroup&) = delete;
    ControlGroup& operator=(const ControlGroup&) = delete;
    ControlGroup& operator=(ControlGroup&&) = delete;

    void set(const std::string& file, const std::string& value) const;
    std::string members() const { return path_ + "/cgroup.procs"; }

private:
    std::string path_;
};

/// A directory that is removed with what is in it.
class Scratch {
public:
    /// Below this directory.
    explicit Scratch(const std::string& parent);
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string readText(const std::string& path);
void writeText(const std::string& path, const std::string& text);
