#include "processes.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "record.h"

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t interrupted = 0;

void throwIfInterrupted() {
    if (interrupted != 0) throw Interrupted();
}

std::runtime_error systemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

}  // namespace

void catchInterruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };  // without SA_RESTART: the call that waits ends with EINTR
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
}

void waitUntil(std::int64_t ns) {
    const timespec time = {static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)};
    do {
        throwIfInterrupted();
    } while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR);
}

// --- processes ------------------------------------------------------------------------------------------------------

namespace {

void redirect(int descriptor, const std::string& path) {
    if (path.empty()) return;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
}

[[noreturn]] void execute(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
    _exit(127);
}

int statusOf(int waited) { return WIFEXITED(waited) ? WEXITSTATUS(waited) : -WTERMSIG(waited); }

}  // namespace

pid_t Process::start(const std::function<void()>& work) {
    const pid_t driver = getpid();
    const pid_t pid = fork();
    if (pid < 0) throw systemError("fork");
    if (pid > 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != driver) _exit(125);  // it was gone before the line above
    setpgid(0, 0);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
    try {
        work();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());  // and not up the stack, where the driver's scopes would clean up
    }
    _exit(125);
}

Process::Process(const std::vector<std::string>& arguments, const Groups& groups, const Output& output) {
    pid_ = start([&] {
        for (const std::string& members : groups) writeText(members, "0");
        redirect(STDOUT_FILENO, output.out);
        redirect(STDERR_FILENO, output.errors);
        execute(arguments);
    });
}

Process::Process(const std::function<void()>& work) { pid_ = start(work); }

Process::~Process() {
    if (pid_ == 0) return;
    signal(SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void Process::signal(int number) const {
    // Its descendants share its group of processes; a child that has not come so far yet is signalled alone.
    if (kill(-pid_, number) != 0) kill(pid_, number);
}

bool Process::hasEnded() const {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid_;
}

int Process::wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0) {
        if (errno != EINTR) throw systemError("waitpid");
        throwIfInterrupted();
    }
    signal(SIGKILL);  // what it left behind
    pid_ = 0;
    return statusOf(status);
}

// --- control groups -------------------------------------------------------------------------------------------------

namespace {

bool hasWord(const std::string& list, const std::string& word) {
    return ("," + list + ",").find("," + word + ",") != std::string::npos;
}

// "cgroup /sys/fs/cgroup/cpu,cpuacct cgroup rw,nosuid,cpu,cpuacct 0 0": where a controller is mounted.
std::string mountOf(const std::string& controller) {
    std::ifstream mounts("/proc/mounts");
    std::string device, path, type, options, rest;
    while (mounts >> device >> path >> type >> options && std::getline(mounts, rest)) {
        if (type == "cgroup" && hasWord(options, controller)) return path;
    }
    throw NotHere("there is no control group (version 1) with the controller " + controller);
}

// "4:memory:/user/one": the driver's own group.
std::string ownGroup(const std::string& controller) {
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        const std::size_t first = line.find(':');
        const std::size_t second = line.find(':', first + 1);
        if (hasWord(line.substr(first + 1, second - first - 1), controller)) return line.substr(second + 1);
    }
    return "/";
}

}  // namespace

ControlGroup::ControlGroup(const std::string& controller) {
    static int count = 0;
    const std::string name = "krenv-truth-" + std::to_string(getpid()) + "-" + std::to_string(++count);
    const std::string path = mountOf(controller) + ownGroup(controller) + "/" + name;
    std::error_code error;
    if (!fs::create_directory(path, error))
        throw NotHere("no control group can be made: " + path + ": " + error.message());
    path_ = path;
}

ControlGroup::~ControlGroup() {
    if (path_.empty()) return;
    // A process that was killed leaves its group a moment after it was waited for.
    for (int i = 0; i < 200 && rmdir(path_.c_str()) != 0 && errno == EBUSY; ++i) usleep(10'000);
}

void ControlGroup::set(const std::string& file, const std::string& value) const {
    try {
        writeText(path_ + "/" + file, value);
    } catch (const std::runtime_error& error) {
        throw NotHere(error.what());
    }
}

// --- files ----------------------------------------------------------------------------------------------------------

Scratch::Scratch(const std::string& parent) : path_(parent + "/krenv-truth-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw systemError(path_);
}

Scratch::~Scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string readText(const std::string& path) {
    const std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeText(const std::string& path, const std::string& text) {
    // In one call, as the files of control groups want it.
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool written = file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int error = errno;
    if (file >= 0) close(file);
    errno = error;
    if (!written) throw systemError(path);
}
