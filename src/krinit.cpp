#include "krenv.h"

#include <climits>
#include <exception>
#include <string>

#include "CommandLineArguments.h"
#include "ExecutableDirectory.h"
#include "Lifetime.h"
#include "MachineStats.h"
#include "krenvLoad.h"
#include "krenvLog.h"
#include "krenvState.h"
#include "krs.h"

namespace {

constexpr char kSourceFile[] = "../src/krenvf";  // operators' log filters know the position, wherever the code stands

// A fact that the report can do without: the text behind its label, empty when the host cannot tell.
template <class Fact>
std::string factOrNothing(const char* label, Fact fact) {
    try {
        return fact();
    } catch (const std::exception& error) {
        KR_LOG(Warning) << "the start-up report has no text for '" << label << "': " << error.what();
        return {};
    }
}

void writeBanner() { KR_LOG(Execution) << "/" << std::string(72, '*') << "/"; }

// Eleven records about the host and the release, so that every log tells what it was written on. A text is written
// before the next one takes its place in `settings`: objects of their own would need 39 KB of stack each.
void writeStartUpReport(KREnvContainerClass& settings) {
    MachineStats collector;
    KREnvMachineStats stats{};
    collector.CollectMachineStats(stats, false);

    writeBanner();
    KR_LOG(Execution) << "Machine Name " << KRPGetMachineName();
    KR_LOG(Execution) << "Machine IP: " << KRPGetIPAddress();
    KR_LOG(Execution) << "Operating System:  " << KRPGetOSInfo();
    KR_LOG(Execution) << "CPU: " << factOrNothing("CPU: ", [] { return std::string(KRPGetCPUInfo()); });
    KR_LOG(Execution) << "Memory size: " << stats.physicalMemoryBytes;
    KR_LOG(Execution) << "Bits: " << factOrNothing("Bits: ", [] {
        return std::string(KRPIs64BitEnv() ? "64 bit OS" : "32 bit OS");
    });
    KR_LOG(Execution) << "Pressmark Release " << settings.KREGetEnv("KR_VERSION") << "."
                      << settings.KREGetEnv("KR_BUILD");
    writeBanner();
    KR_LOG(Execution) << "KR_VERSION\t" << settings.KREGetEnv("KR_VERSION") << "\tKR_BUILD\t"
                      << settings.KREGetEnv("KR_BUILD") << "\t";
    writeBanner();
}

}  // namespace

int KREInit(const char* directory) {
    KR_LOG(Trace) << "KREInit";
    if (directory == nullptr) KR_LOG(Error);
    n_debug::nExecutableDirectory::gInitialize(std::string(directory));  // throws std::logic_error for null

    KREnvContainerClass container;
    const char* const found =
        container.KRPFindfileNoKREnv("pressmark.ini", directory, "$KR_BIN", "HOME", static_cast<const char*>(nullptr));
    if (found == nullptr) {
        KR_LOG(Error) << "PMEnvironment: pressmark.ini not found";
        return 0;
    }
    if (KRELoadIniFile(found) == 0) return 0;
    writeStartUpReport(container);
    return 1;
}

int KRELoadIniFile(const char* path, KRSLoadObserver* observer) {
    if (path == nullptr) {
        KR_LOG(Error);
        return 0;
    }
    // Stored before loading, so that #{NAME} finds what stands above it. An earlier table stays: its texts are in use.
    const int created = KRSCreateTable();
    IniTable = created;
    if (loadExpanding(path, created, observer) != 0) return 1;

    KR_LOG(Error) << "Failed to load. The file contains a syntax error " << path;
    // IniTable keeps the handle: a released table simply has no values, which shows a host that went on regardless.
    KRSDestroyTable(created);
    return 0;
}

namespace {

// Initialises the library from the directory of the running program, as the host's main scope opens.
struct LoadTimeInitialiser {
    LoadTimeInitialiser() {
        KREnvContainerClass container;
        char program[PATH_MAX] = "";
        // Whatever realpath leaves is used: a program in a directory that is gone still gets its log record and starts.
        static_cast<void>(KRPAbsPath(nCommandLineArguments::gGet(0).c_str(), program, sizeof program));
        if (KREInit(container.KRPGetPathDirectory(program)) == 0) KR_LOG(Error) << "failed KREInit()";
    }
};

nLifetime::StaticObject<LoadTimeInitialiser> loadTimeInitialiser;

}  // namespace
