// Does one operation so many times, for costs_test.sh to count what it takes: `costs_driver OPERATION CALLS`.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "Logging.h"
#include "MachineStats.h"
#include "TempDir.h"
#include "krenv.h"
#include "krresolve.h"
#include "krs.h"

namespace {

const TempDir& directory() {
    static const TempDir directory;
    return directory;
}

KREnvContainerClass& container() {
    static KREnvContainerClass container;
    return container;
}

// --- operations -----------------------------------------------------------------------------------------------------
// Each begins with what is set up once.

void readPlain(int calls) {
    KRELoadIniFile(directory().writeFile("pressmark.ini", "RESULTS_DIR = /opt/pressmark/results\n").c_str());
    for (int i = 0; i < calls; ++i) container().KREGetEnv("RESULTS_DIR");
}

void readReferences(int calls) {
    clearenv();
    setenv("COSTS_USER", "guest", 1);
    const char* const settings =
        "REPORT = #(DIR)/$(COSTS_USER)/report.html\nDIR = /opt/pressmark/#(RUN)\nRUN = nightly\n";
    KRELoadIniFile(directory().writeFile("pressmark.ini", settings).c_str());
    for (int i = 0; i < calls; ++i) container().KREGetEnv("REPORT");
}

void loadThousandKeys(int calls) {
    std::string text;
    for (int i = 1000; i < 2000; ++i) text += "KEY_NUMBER_" + std::to_string(i) + " = /opt/pressmark/data/value.dat\n";
    const std::string file = directory().writeFile("settings.ini", text);
    for (int i = 0; i < calls; ++i) {
        const int table = KRSCreateTable();
        KRSLoad(file.c_str(), table, KRSLoadFilter);
        KRSDestroyTable(table);
    }
}

void splitPath(int calls) {
    const std::string path = directory().writeFile("report.html");
    for (int i = 0; i < calls; ++i) container().KRPSplitPath(path.c_str(), nullptr, nullptr, nullptr);
}

void makePath(int calls) {
    for (int i = 0; i < calls; ++i) container().KRPMakePath("/opt/pressmark/results", "report", "html");
}

void searchTenDirectories(int calls) {
    std::string list;
    for (int i = 0; i < 10; ++i) list += directory().makeDirectory(std::to_string(i)) + ":";
    for (int i = 0; i < calls; ++i) container().KRPFindfile("x.cfg", list.c_str(), static_cast<const char*>(nullptr));
}

struct GoOn : CFindFileFunctor {
    bool operator()(const char* /*path*/) override { return true; }
};

void walkTenFiles(int calls) {
    directory().makeDirectory("tree/below");
    for (int i = 0; i < 10; ++i) directory().writeFile("tree/below/" + std::to_string(i));
    GoOn goOn;
    for (int i = 0; i < calls; ++i) FindFile((directory() / "tree").c_str(), "", true, &goOn);
}

void sampleProcess(int calls) {
    pstat sample{};
    for (int i = 0; i < calls; ++i) {
        get_usage(getpid(), &sample);
        getProcessRSS(getpid(), false);
    }
}

void logNothing(int calls) {
    for (int i = 0; i < calls; ++i) {
        PM_LOG_RECORD(nLogging::Level::TraceDebugInfo, "PMEnvironment", "../src/krenvf", __LINE__) << "record " << i;
    }
}

const struct {
    const char* name;
    void (*run)(int calls);
} kOperations[] = {
    {"read_plain", readPlain},
    {"read_three_references", readReferences},
    {"load_1000_keys", loadThousandKeys},
    {"split_path", splitPath},
    {"make_path", makePath},
    {"search_10_directories", searchTenDirectories},
    {"walk_10_files", walkTenFiles},
    {"sample_process", sampleProcess},
    {"log_nothing", logNothing},
};

}  // namespace

int main(int argc, char** argv) {
    for (const auto& [name, run] : kOperations) {
        if (argc != 3 || std::strcmp(argv[1], name) != 0) continue;
        run(std::atoi(argv[2]));
        return 0;
    }
    std::fputs("usage: costs_driver OPERATION CALLS\n", stderr);
    return 2;
}
