// How much stack each operation needs, for programs whose threads have small ones. The table in docs/user-guide.md has
// these figures, rounded up.
#include <algorithm>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include "EnvSettings.h"
#include "Lifetime.h"
#include "Logging.h"
#include "MachineStats.h"
#include "krenv.h"
#include "krs.h"
#include "support/InChild.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"

namespace {

constexpr std::size_t kStack = std::size_t{1} << 20;
constexpr unsigned char kUntouched = 0xa5;

// How much of its stack a thread has touched when it has done `work`.
std::size_t touchedBy(const std::function<void()>& work) {
    void* const stack = mmap(nullptr, kStack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (stack == MAP_FAILED) throw std::runtime_error("no memory for a stack");
    std::memset(stack, kUntouched, kStack);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, kStack);
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_t thread;
    if (pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)) != 0)
        throw std::runtime_error("no thread");
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const auto* const bytes = static_cast<const unsigned char*>(stack);
    const auto deepest = std::find_if(bytes, bytes + kStack, [](unsigned char byte) { return byte != kUntouched; });
    const auto touched = static_cast<std::size_t>(bytes + kStack - deepest);
    munmap(stack, kStack);
    return touched;
}

// What `work` needs in a process that has done nothing yet, less what a thread that does nothing needs.
std::size_t neededBy(const std::function<void()>& work) {
    return std::stoul(inChild([&] {
        const std::size_t idle = touchedBy([] {});
        return std::to_string(touchedBy(work) - idle);
    }));
}

struct CountingFunctor : CFindFileFunctor {
    bool operator()(const char* /*path*/) override { return true; }
};

// The object and the records that operations fill are the caller's and not counted.
KREnvContainerClass env;
KREnvMachineStats stats{};
char out[4096];
constexpr const char* kEnd = nullptr;

struct Operation {
    const char* name;
    std::size_t most;  // KiB, as the user guide says
    std::function<void()> work;
};

class Stacks : public testing::Test {
protected:
    void SetUp() override {
        nLogging::gSetSink([](const nLogging::Record&) {});
        std::string deep = "tree";
        for (int i = 0; i < 100; ++i) deep += "/d";
        dir.makeDirectory(deep);
        dir.writeFile("pressmark.ini", "A = #(B)\nB = #(C)\nC = $(HOME)\nKR_BIN = .\nLIST = .\n");
        ASSERT_EQ(1, KRELoadIniFile("pressmark.ini"));
    }
    void TearDown() override { nLogging::gSetSink({}); }

    const TempDir dir;
    const ScopedCwd cwd{dir.path()};
};

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = {
        {"KREGetEnv", 4, [] { env.KREGetEnv("A"); }},
        {"KREGetEnvValue", 4, [] { env.KREGetEnvValue("A"); }},
        {"KREEnvDefined", 4, [] { env.KREEnvDefined("A", "home", true); }},
        {"KRESetEnvValue", 4, [] { env.KRESetEnvValue("NAME", "value"); }},
        {"KRPSplitPath", 8, [] { env.KRPSplitPath("a/b.c", nullptr, nullptr, nullptr); }},
        {"KRPMakePath", 8, [] { env.KRPMakePath("a", "b", "c"); }},
        {"KRPConcatDirAndName", 12, [] { env.KRPConcatDirAndName("a", "b/c.d"); }},
        {"KRPReplacePathExt", 12, [] { env.KRPReplacePathExt("a/b.c", "d"); }},
        {"KRPReplacePathName", 12, [] { env.KRPReplacePathName("a/b.c", "d"); }},
        {"KRPAdjustPathLen", 8, [] { env.KRPAdjustPathLen("a/long/path/to/b.c", out, 12); }},
        {"KRPGetCwd", 4, [] { env.KRPGetCwd(); }},
        {"KRPAbsPath", 4, [] { KRPAbsPath("pressmark.ini", out, sizeof out); }},
        {"KRPResolvePathVar", 4, [] { env.KRPResolvePathVar("#LIST"); }},
        {"searchInPath", 12, [] { env.searchInPath("pressmark.ini", "a:."); }},
        {"KRPFindfile", 12, [] { env.KRPFindfile("pressmark.ini", "a", "#LIST", kEnd); }},
        {"KRPFindfileNoKREnv", 12, [] { env.KRPFindfileNoKREnv("pressmark.ini", "a", ".", kEnd); }},
        {"KRPResolveFilePath", 12, [] { env.KRPResolveFilePath("x", "#LIST"); }},
        {"KRPGetFullName", 12, [] { env.KRPGetFullName("./x", out, sizeof out); }},
        {"KRPGetTempName", 8, [] { env.KRPGetTempName("/tmp"); }},
        {"KRPCreateDirectory", 44, [] { KRPCreateDirectory("made"); }},
        {"KRPRemoveAllDirectories", 4, [] { KRPRemoveAllDirectories("made"); }},
        {"KRPCopyFile", 44, [] { KRPCopyFile("pressmark.ini", "copy"); }},
        {"exec", 4, [] { exec("true"); }},
        {"KRPGetMachineName", 24, [] { KRPGetMachineName(); }},
        {"KRPGetCPUInfo", 4, [] { KRPGetCPUInfo(); }},
        {"KRPGetIPAddress", 8, [] { KRPGetIPAddress(); }},
        {"KRPGetOSInfo", 4, [] { KRPGetOSInfo(); }},
        {"FindFile, 100 levels", 12,
         [] {
             CountingFunctor functor;
             FindFile("tree", "", true, &functor);
         }},
        {"gFileInitTable", 4,
         [] {
             int handle = 0;
             nEnvSettings::gFileInitTable(env, "pressmark.ini", handle);
         }},
        {"gGetPropertyStream", 44, [] { nEnvSettings::gGetPropertyStream(nEnvSettings::gPressmarkIniTable(), "A"); }},
        {"KRSLoad", 4, [] { KRSLoad("pressmark.ini", KRSCreateTable(), nullptr); }},
        {"KRELoadIniFile", 4, [] { KRELoadIniFile("pressmark.ini"); }},
        {"KREInit", 64, [] { KREInit("."); }},
        {"MainScope", 112,
         [] {
             const char* const arguments[] = {"./program"};
             const nLifetime::MainScope scope(1, arguments);
         }},
        {"CollectMachineStats", 20, [] { MachineStats().CollectMachineStats(stats, false); }},
        {"a log record", 4, [] { PM_LOG_RECORD(nLogging::Level::Error, "Stacks", "stacks_test", 1) << "text"; }},
    };
    return all;
}

}  // namespace

TEST_F(Stacks, OperationsNeedWhatTheGuideSays) {
    for (const Operation& operation : operations()) {
        const std::size_t needed = neededBy(operation.work);
        std::cout << std::setw(8) << needed << "  " << operation.name << '\n';
        EXPECT_LE(needed, operation.most * 1024) << operation.name;
    }
}
