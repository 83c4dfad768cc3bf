#include "command/childProcess.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failure.h"
#include "output.h"
#include "text.h"

namespace {

constexpr int kNotExecutable = 126;  // as shells have it
constexpr int kNotFound = 127;

Failure startFailure(const std::string& name, int error) {
    const std::string what = "cannot start '" + printable(name) + "': ";
    if (error != ENOENT) return Failure(what + std::strerror(error), kNotExecutable);
    const bool searched = name.find('/') == std::string::npos;
    return Failure(what + (searched ? "no directory in PATH has it" : "there is no such file"), kNotFound);
}

// Stops this process until SIGCONT, if somebody is there to send it: the kernel ignores the request where no shell looks
// after this process group. True when it was stopped.
bool stopThisProcess() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    raise(SIGTSTP);  // also forgets a SIGCONT of before
    sigprocmask(SIG_UNBLOCK, &stop, nullptr);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGCONT) == 1;
}

}  // namespace

// --- starting -------------------------------------------------------------------------------------------------------

// A caller that ignores SIGCHLD would make the kernel throw away how the command ended.
ChildProcess::InheritedSignals::InheritedSignals() {
    sigprocmask(SIG_BLOCK, nullptr, &mask_);
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &standard, &ofChildren_);
}

void ChildProcess::InheritedSignals::restore() const {
    sigaction(SIGCHLD, &ofChildren_, nullptr);
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
}

ChildProcess::ChildProcess(const std::vector<std::string>& words)
    : events_({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGCHLD, SIGTTOU}, false),
      wantsTerminal_(getpgrp() == getpid() && isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 &&
                     terminal_.isOurs()) {
    // Processes that the command leaves behind, as daemons do, become children of this one and stay known as its descendants.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    start(words);
}

ChildProcess::~ChildProcess() { terminal_.takeBackFrom(pid_); }

void ChildProcess::start(const std::vector<std::string>& words) {
    int report[2];  // closed when the program runs; else tells why it does not
    if (pipe2(report, O_CLOEXEC) != 0) throw startFailure(words[0], errno);
    pid_ = fork();
    int error = pid_ < 0 ? errno : 0;
    if (pid_ == 0) become(words, report[1]);
    close(report[1]);
    while (pid_ > 0 && read(report[0], &error, sizeof error) < 0 && errno == EINTR) {
    }
    close(report[0]);
    if (error == 0) return;
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
    terminal_.takeBackFrom(pid_);
    throw startFailure(words[0], error);
}

// In the new process.
void ChildProcess::become(const std::vector<std::string>& words, int report) const {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    setpgid(0, 0);
    if (wantsTerminal_) terminal_.giveTo(getpid());
    inherited_.restore();
    execvp(arguments[0], arguments.data());
    const int error = errno;
    const ssize_t told = write(report, &error, sizeof error);
    _exit(told > 0 ? kNotFound : kNotExecutable);
}

// --- while it runs --------------------------------------------------------------------------------------------------

void ChildProcess::handle(int signal) {
    if (signal == SIGCHLD) {
        collect();
    } else if (signal == SIGCONT) {
        goOn();
    } else {
        stopRequested_ = stopRequested_ || signal == SIGTSTP;
        kill(-pid_, signal);
    }
}

void ChildProcess::collect() {
    int status = 0;
    for (pid_t child = 0; (child = waitpid(-1, &status, WNOHANG | WUNTRACED)) > 0;) {
        if (child != pid_) continue;  // left behind by the command
        const bool hadTerminal = terminal_.takeBackFrom(pid_);
        if (WIFSTOPPED(status)) {
            stopWith(WSTOPSIG(status), hadTerminal);
        } else {
            status_ = status;
        }
    }
}

// The command has been stopped. If it wants to use the terminal it gets it, as far as pmenv has it to give. A stop that
// concerns the whole job stops pmenv as well. One that somebody meant for the command alone does not: the watch goes on, for
// nobody would think of continuing pmenv.
void ChildProcess::stopWith(int signal, bool hadTerminal) {
    const bool asksForTerminal = signal == SIGTTIN || signal == SIGTTOU;
    wantsTerminal_ = wantsTerminal_ || asksForTerminal;
    if (asksForTerminal && terminal_.isOurs()) return goOn();
    if (hadTerminal || asksForTerminal || stopRequested_) {
        if (stopThisProcess()) return;         // the SIGCONT that ended this is handled next
        if (signal == SIGTSTP) return goOn();  // as the kernel decides where nobody could continue a process
    }
    printWarning(std::string("the command has been stopped by SIG") + sigabbrev_np(signal) +
                 "; SIGCONT makes it go on");
}

void ChildProcess::goOn() {
    stopRequested_ = false;
    if (wantsTerminal_ && terminal_.isOurs()) terminal_.giveTo(pid_);
    kill(-pid_, SIGCONT);
}
