#include "population.h"

#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "measure.h"

namespace {

[[noreturn]] void wakeNowAndThen() {
    for (;;) usleep(100'000);
}

[[noreturn]] void sleepAs(const char* name, int threads) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, name);
    for (int i = 1; i < threads; ++i) std::thread(wakeNowAndThen).detach();
    if (threads > 1) wakeNowAndThen();
    for (;;) pause();
}

// Ends the given children when the scope is left, in whatever way.
struct Children {
    std::vector<pid_t> pids;

    ~Children() {
        for (const pid_t pid : pids) kill(pid, SIGKILL);
        for (const pid_t pid : pids) waitpid(pid, nullptr, 0);
    }
};

// Waits until a child has its name. vfork would need an exec, and a pipe for each child would be too many pipes.
void waitForName(pid_t pid, const char* name) {
    const std::string path = "/proc/" + std::to_string(pid) + "/comm";
    for (;;) {
        char read[32] = "";
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const ssize_t length = file >= 0 ? ::read(file, read, sizeof read - 1) : -1;
        if (file >= 0) close(file);
        if (length <= 0 || std::string(name).compare(0, 15, read, static_cast<std::size_t>(length) - 1) == 0) return;
        usleep(100);
    }
}

}  // namespace

int runPopulation(const std::string& processes, const std::string& engines, const std::string& threads) {
    std::signal(SIGPIPE, SIG_IGN);  // the benchmark may be gone before the children are up
    Children children;
    for (int i = 0; i < std::atoi(processes.c_str()); ++i) {
        const bool isEngine = i < std::atoi(engines.c_str());
        const char* const name = isEngine ? "PMLoadEngineMain" : "sleeper";
        const pid_t pid = fork();
        if (pid == 0) sleepAs(name, isEngine ? std::atoi(threads.c_str()) : 1);
        if (pid < 0) return 1;
        children.pids.push_back(pid);
        waitForName(pid, name);
    }
    char byte = '+';
    if (write(STDOUT_FILENO, &byte, 1) != 1) return 1;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}

Population::Population(int processes, int engines, int threads) {
    int in[2];
    int out[2];
    check(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0, "a pipe");
    keeper_ = fork();
    if (keeper_ == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execl("/proc/self/exe", "krenv_bench", "population", std::to_string(processes).c_str(),
              std::to_string(engines).c_str(), std::to_string(threads).c_str(), nullptr);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    end_ = in[1];
    char byte = 0;
    const bool ready = read(out[0], &byte, 1) == 1;
    close(out[0]);
    check(ready, "starting " + std::to_string(processes) + " processes");
}

Population::~Population() {
    close(end_);
    waitpid(keeper_, nullptr, 0);
}
