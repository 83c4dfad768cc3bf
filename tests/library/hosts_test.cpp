// The library in hosts that behave badly: each in a process of its own, which takes a tour through the library.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <locale>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "MachineStats.h"
#include "krenv.h"
#include "krs.h"
#include "support/InChild.h"
#include "support/OpenDescriptors.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"

// --- the C library's border -----------------------------------------------------------------------------------------

namespace {

// Set where the system does not let a process have its own view of the file system.
bool g_withoutProc = false;
bool g_withoutShell = false;

template <class Real>
std::FILE* openUnlessHidden(Real real, const char* path, const char* mode) {
    if (!g_withoutProc || std::strncmp(path, "/proc/", 6) != 0) return real(path, mode);
    errno = ENOENT;
    return nullptr;
}

}  // namespace

extern "C" {
std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) { return openUnlessHidden(__real_fopen, path, mode); }
std::FILE* __real_fopen64(const char* path, const char* mode);
std::FILE* __wrap_fopen64(const char* path, const char* mode) { return openUnlessHidden(__real_fopen64, path, mode); }
// popen finds out that there is no shell; system reports it as a command that was not found.
std::FILE* __real_popen(const char* command, const char* mode);
std::FILE* __wrap_popen(const char* command, const char* mode) {
    if (g_withoutShell) return nullptr;
    const bool readsProc = std::strstr(command, "/proc/") != nullptr;
    return __real_popen(g_withoutProc && readsProc ? "true" : command, mode);
}
int __real_system(const char* command);
int __wrap_system(const char* command) { return g_withoutShell ? 127 << 8 : __real_system(command); }
}

namespace {

// --- the tour -------------------------------------------------------------------------------------------------------

// What is there for the tour: settings, a file to find and a tree to walk. One for each test.
class Place {
public:
    Place() {
        dir_.makeDirectory("tree/below");
        dir_.writeFile("pressmark.ini", "KEY = value of $(TOUR)\n");
        for (const char* const name : {"file.txt", "tree/one", "tree/below/two"}) dir_.writeFile(name, "text");
    }
    std::string operator/(const char* name) const { return dir_ / name; }
    const std::string& path() const { return dir_.path(); }

private:
    TempDir dir_;
};

struct CountingFunctor : CFindFileFunctor {
    bool operator()(const char* /*path*/) override {
        ++files;
        return true;
    }
    int files = 0;
};

const char* orNull(const char* text) { return text != nullptr ? text : "null"; }

template <class Work>
std::string thrownBy(Work work) {
    try {
        return work();
    } catch (const std::exception& error) {
        return std::string("thrown: ") + error.what();
    }
}

std::string walkOf(const std::string& directory) {
    CountingFunctor counting;
    FindFile(directory.c_str(), "", true, &counting);
    return std::to_string(counting.files);
}

std::string copied(const Place& place) {
    const bool told = KRPCopyFile((place / "file.txt").c_str(), (place / "copy").c_str());
    std::string copy = readFileText(place / "copy");
    unlink((place / "copy").c_str());
    return (told ? "true " : "false ") + copy;
}

std::string removed(const Place& place) {
    const bool made = KRPCreateDirectory((place / "made").c_str());
    KRPRemoveAllDirectories((place / "made").c_str());
    const bool gone = !KREnvContainerClass().KRPFileExist((place / "made").c_str());
    rmdir((place / "made").c_str());
    return std::string(made ? "made" : "not made") + (gone ? ", gone" : ", there");
}

// What a call finds; its text begins with what the calls before it have found.
std::string addressesAsked() {
    const std::size_t before = std::strlen(KRPGetIPAddress());
    return KRPGetIPAddress() + before;
}

std::string memoryOf(int pid) { return getProcessRSS(pid, false) > 0 ? "some" : "none"; }

std::string collected() {
    MachineStats collector;
    KREnvMachineStats stats{};
    const bool answer = collector.CollectMachineStats(stats, false);
    return std::string(answer ? "true" : "false") + (stats.physicalMemoryBytes > 0 ? ", memory" : ", no memory");
}

// One line for each stop: "name: answer".
using Tour = std::map<std::string, std::string>;

Tour takeTour(const Place& place) {
    KREnvContainerClass env;
    pstat sample{};
    std::vector<int> engines;
    const char* const end = nullptr;
    setenv("TOUR", "the tour", 1);
    return {
        {"initialisation", std::to_string(KREInit(place.path().c_str()))},
        {"setting", orNull(env.KREGetEnv("KEY"))},
        {"file", env.KRPFindfile("file.txt", "HOME", place.path().c_str(), end) != nullptr ? "found" : "null"},
        {"home", env.KRPGetUserDir() != nullptr ? "set" : "null"},
        {"program", env.KRPSearchPath("sh") != nullptr ? "found" : "null"},
        {"directory", orNull(env.KRPGetCwd())},
        {"temporary name", env.KRPGetTempName("HOME") != nullptr ? "some" : "null"},
        {"walk", walkOf(place / "tree")},
        {"copy", copied(place)},
        {"removal", removed(place)},
        {"name", *KRPGetMachineName() != '\0' ? "some" : "none"},
        {"addresses", addressesAsked()},
        {"system", KRPGetOSInfo()},
        {"command", thrownBy([] { return exec("echo text"); })},
        {"word size", thrownBy([] { return std::string(KRPIs64BitEnv() ? "64" : "32"); })},
        {"sample", std::to_string(get_usage(getpid(), &sample))},
        {"memory", memoryOf(getpid())},
        {"engines", std::to_string(getSlavesList(engines, 0))},
        {"collection", collected()},
    };
}

// The stops at which the second tour differs from the first: "name: first -> second".
std::string differences(const Tour& first, const Tour& second) {
    std::string text;
    for (const auto& [stop, answer] : first) {
        if (second.at(stop) != answer) text += stop + ": " + answer + " -> " + second.at(stop) + "\n";
    }
    return text;
}

void hushErrors() {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

// Enters the state and takes a tour in it, in a process of its own where all was well before; tells what differs.
std::string tourIn(const std::function<void(const Place&)>& enter, const std::function<void()>& leave = {}) {
    const Place place;
    return inChild([&] {
        alarm(300);
        hushErrors();
        const Tour healthy = takeTour(place);
        if (healthy.at("initialisation") != "1") return std::string("the healthy host is not");
        enter(place);
        const Tour tour = takeTour(place);
        std::string text = differences(healthy, tour);
        if (!leave) return text;
        leave();
        const std::string after = differences(healthy, takeTour(place));
        return after.empty() ? text : text + "afterwards " + after;
    });
}

// --- views of the file system ---------------------------------------------------------------------------------------

// Gives this process mounts of its own; false where the system does not let it.
bool enterOwnMounts() {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void hideProc(const Place&) {
    const bool hidden = enterOwnMounts() && mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
    g_withoutProc = !hidden;
}

void hideShell(const Place&) {
    const bool hidden = enterOwnMounts() && mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr) == 0;
    g_withoutShell = !hidden;
}

// --- signals --------------------------------------------------------------------------------------------------------

std::atomic<int> g_signals{0};

// Interrupts every slow call: a signal each half millisecond, whose handler does not ask for the call to be restarted.
void interruptForEver(const Place&) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++g_signals; };
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 500}, {0, 500}};
    setitimer(ITIMER_REAL, &often, nullptr);
}

// --- descriptors ----------------------------------------------------------------------------------------------------

void limitDescriptors(rlim_t limit) {
    rlimit limits{};
    getrlimit(RLIMIT_NOFILE, &limits);
    limits.rlim_cur = std::min(limit, limits.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limits);
}

}  // namespace

TEST(BadHosts, AHealthyHostTakesTheTourTwiceWithTheSameAnswers) {
    EXPECT_EQ("", tourIn([](const Place&) {}));
}

TEST(BadHosts, IgnoringSigchldChangesNothingButTheTellingOfACopy) {
    EXPECT_EQ("copy: true text -> false text\n", tourIn([](const Place&) { std::signal(SIGCHLD, SIG_IGN); }));
}

TEST(BadHosts, WithoutDescriptorsEverythingFailsAndWorksAgainAfterwards) {
    const auto exhaust = [](const Place&) { limitDescriptors(3); };
    const auto recover = [] { limitDescriptors(1024); };
    const std::string addresses = inChild([] { return addressesAsked(); });
    const std::string addressesLost = addresses.empty() ? "" : "addresses: " + addresses + " -> \n";
    EXPECT_EQ(addressesLost +
                  "command: text\n -> thrown: popen() failed!\n"
                  "copy: true text -> false \n"
                  "engines: 1 -> 0\n"
                  "initialisation: 1 -> 0\n"
                  "memory: some -> none\n"
                  "removal: made, gone -> made, there\n"
                  "sample: 0 -> -1\n"
                  "setting: value of the tour -> null\n"  // of the file that could not be read
                  "walk: 2 -> 0\n"
                  "word size: 64 -> thrown: popen() failed!\n",
              tourIn(exhaust, recover));
}

TEST(BadHosts, WithoutProcThereAreNoFiguresOfProcesses) {
    EXPECT_EQ("memory: some -> none\nsample: 0 -> -1\n", tourIn(hideProc));
}

TEST(BadHosts, WithoutProcTheLibraryStarts) {
    const Place place;
    EXPECT_EQ("1 value of ", inChild([&] {
                  hushErrors();
                  hideProc(place);
                  const int started = KREInit(place.path().c_str());
                  return std::to_string(started) + " " + KREnvContainerClass().KREGetEnv("KEY");
              }));
}

TEST(BadHosts, WithoutAShellCommandsFail) {
    EXPECT_EQ(
        "command: text\n -> thrown: popen() failed!\n"
        "copy: true text -> false \n"
        "removal: made, gone -> made, there\n"
        "word size: 64 -> thrown: popen() failed!\n",
        tourIn(hideShell));
}

TEST(BadHosts, WithoutAShellTheLibraryStarts) {
    const Place place;
    EXPECT_EQ("1", inChild([&] {
                  hushErrors();
                  hideShell(place);
                  return std::to_string(KREInit(place.path().c_str()));
              }));
}

TEST(BadHosts, WithoutPathAndHomeTheRestWorks) {
    const auto unset = [](const Place&) {
        for (const char* const name : {"PATH", "HOME", "KR_BIN", "MYDOCUMENTS", "TMPDIR"}) unsetenv(name);
    };
    EXPECT_EQ("home: set -> null\nprogram: found -> null\n", tourIn(unset));
}

// A C locale with another decimal point is not part of every system; the C++ library's can be made here.
TEST(BadHosts, TheLocaleChangesNothing) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    EXPECT_EQ("", tourIn([](const Place&) {
                  std::setlocale(LC_ALL, "C.UTF-8");
                  std::locale::global(std::locale(std::locale(), new Comma));
              }));
}

TEST(BadHosts, ARemovedWorkingDirectoryIsOnlyMissedWhereItIsAskedFor) {
    const auto enterAndRemove = [](const Place& place) {
        KRPCreateDirectory((place / "gone").c_str());
        KRPChdir((place / "gone").c_str());
        rmdir((place / "gone").c_str());
    };
    EXPECT_THAT(tourIn(enterAndRemove), testing::MatchesRegex("directory: [^ ]* -> null\n"));
}

TEST(BadHosts, SignalsInterruptNothing) {
    const auto seeWhetherTheyCame = [] {
        if (g_signals == 0) _exit(1);
    };
    for (int i = 0; i < 5; ++i) EXPECT_EQ("", tourIn(interruptForEver, seeWhetherTheyCame));
}

// The program as one that was started by another, which has used the library before it forked.
TEST(BadHosts, AForkedChildUsesTheLibraryLikeItsParent) {
    const Place place;
    EXPECT_EQ("", inChild([&] {
                  hushErrors();
                  const Tour parent = takeTour(place);
                  return inChild([&] { return differences(parent, takeTour(place)); });
              }));
}

// --- loading at run time --------------------------------------------------------------------------------------------

TEST(BadHosts, TheLibraryIsLoadedAndUnloadedAgainAndAgain) {
    const Place place;
    const ProgramResult run = runProgram({DLOPEN_HOST, KRENV_LIBRARY, place.path(), "200"}, {{"PM_LOG", "none"}});
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_EQ("loaded and unloaded 200 times\n", run.out);
}
