#include "disturbance.h"

#include <csignal>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "network.h"

namespace {

std::string whole(double number) { return std::to_string(static_cast<long long>(number)); }

double periodUs(const Words& words) { return 1000 * words.number("period", 100); }

// A word, the file of a control group that it stands for, and what that holds while the limit is in force and after.
struct Limit {
    const char* word;
    const char* controller;
    const char* file;
    std::string (*inForce)(const Words& words, const std::string& disk);
    std::string (*lifted)(const std::string& disk);
};

std::string bytesPerSecond(const Words& words, const std::string& disk) {
    return disk + " " + whole(words.number("disk") * 1024);
}
std::string anyBytesPerSecond(const std::string& disk) { return disk + " 0"; }
std::string unlimited(const std::string&) { return "-1"; }

const Limit kLimits[] = {
    {"quota", "cpu", "cpu.cfs_period_us", [](const Words& words, const std::string&) { return whole(periodUs(words)); },
     [](const std::string&) { return std::string("100000"); }},
    {"quota", "cpu", "cpu.cfs_quota_us",
     [](const Words& words, const std::string&) { return whole(periodUs(words) * words.number("quota") / 100); },
     unlimited},
    {"memory", "memory", "memory.limit_in_bytes",
     [](const Words& words, const std::string&) { return whole(words.number("memory") * 1024 * 1024); }, unlimited},
    {"disk", "blkio", "blkio.throttle.read_bps_device", bytesPerSecond, anyBytesPerSecond},
    {"disk", "blkio", "blkio.throttle.write_bps_device", bytesPerSecond, anyBytesPerSecond},
    {"freeze", "freezer", "freezer.state", [](const Words&, const std::string&) { return std::string("FROZEN"); },
     [](const std::string&) { return std::string("THAWED"); }},
};

// "254:0", the whole disk that a file lies on: a partition cannot be limited.
std::string diskOf(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) throw std::runtime_error(file + ": no such file");
    const std::string number = std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
    const std::string directory = "/sys/dev/block/" + number;
    if (stat((directory + "/partition").c_str(), &status) != 0) return number;
    const std::string disk = readText(directory + "/../dev");
    return disk.substr(0, disk.find('\n'));
}

[[noreturn]] void hog(const Words& words) {
    prctl(PR_SET_NAME, "hog");
    setpriority(PRIO_PROCESS, 0, words.count("nice"));
    if (words.has("hog-cpu")) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<std::size_t>(words.count("hog-cpu")), &set);
        sched_setaffinity(0, sizeof set, &set);
    }
    for (volatile unsigned turns = 0;;) turns = turns + 1;
}

}  // namespace

OwnNetwork::OwnNetwork(int ports) : former_(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)) {
    try {
        enterNetworkOf(ports);
    } catch (const std::runtime_error& error) {
        leave();
        throw NotHere(error.what());
    }
}

void OwnNetwork::leave() const {
    setns(former_, CLONE_NEWNET);
    close(former_);
}

Surroundings::Surroundings(const Words& words, const std::string& file) : disk_(diskOf(file)) {
    for (const Limit& limit : kLimits) {
        const bool wanted = words.has(limit.word) && groups_.count(limit.controller) == 0;
        if (wanted) groups_.emplace(limit.controller, ControlGroup(limit.controller));
    }
    if (words.has("ports")) network_.emplace(words.count("ports"));
}

Groups Surroundings::groups() const {
    Groups members;
    for (const auto& [controller, group] : groups_) members.push_back(group.members());
    return members;
}

void Surroundings::set(const Words& words, bool inForce) const {
    for (const Limit& limit : kLimits) {
        if (!words.has(limit.word)) continue;
        const std::string value = inForce ? limit.inForce(words, disk_) : limit.lifted(disk_);
        groups_.at(limit.controller).set(limit.file, value);
    }
}

Disturbance::Disturbance(const Words& words, const Surroundings& surroundings, const std::deque<Process>& engines)
    : words_(words), surroundings_(surroundings), engines_(engines) {
    for (int i = 0; i < words.count("hogs"); ++i) hogs_.emplace_back([&words] { hog(words); });
    if (words.has("stop")) signalEngines(SIGSTOP);
    surroundings_.limit(words);
}

Disturbance::~Disturbance() {
    if (words_.has("stop")) signalEngines(SIGCONT);
    surroundings_.lift(words_);
}

void Disturbance::signalEngines(int number) const {
    for (const Process& engine : engines_) engine.signal(number);
}
