// Makes from the input everything that the statistics read from /proc: the stat and statm of a process, the stat of the
// machine, and the entries of /proc with the command names in their stat files.
//
// The input consists of parts that end with NUL: the machine's stat, then for each process its directory's name, stat
// and statm.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include <dirent.h>

#include "MachineStats.h"
#include "fuzzing.h"

namespace {

std::map<std::string, std::string> files;
std::vector<std::string> directories;
std::size_t nextDirectory = 0;
dirent entry;

char directoryMark;  // opendir returns its address; its value is not used

std::FILE* openFuzzed(const char* path) {
    const auto found = files.find(path);
    if (found == files.end()) return nullptr;
    // fmemopen refuses an empty text.
    return found->second.empty() ? std::fopen("/dev/null", "r")
                                 : fmemopen(found->second.data(), found->second.size(), "r");
}

bool isFuzzed(DIR* directory) { return directory == reinterpret_cast<DIR*>(&directoryMark); }

dirent* nextEntry() {
    if (nextDirectory == directories.size()) return nullptr;
    const std::string& name = directories[nextDirectory++];
    std::memset(&entry, 0, sizeof entry);
    entry.d_type = name.empty() || name[0] != 'f' ? DT_DIR : DT_REG;
    std::strncpy(entry.d_name, name.c_str(), sizeof entry.d_name - 1);
    return &entry;
}

}  // namespace

#define SEEN_FROM_THE_LIBRARY extern "C" __attribute__((used, visibility("default")))

SEEN_FROM_THE_LIBRARY std::FILE* __real_fopen64(const char* path, const char* mode);
SEEN_FROM_THE_LIBRARY std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    return std::strncmp(path, "/proc/", 6) == 0 ? openFuzzed(path) : __real_fopen64(path, mode);
}
// The fuzzer lists its seeds through these functions as well.
SEEN_FROM_THE_LIBRARY DIR* __real_opendir(const char* path);
SEEN_FROM_THE_LIBRARY DIR* __wrap_opendir(const char* path) {
    if (std::strcmp(path, "/proc/") != 0) return __real_opendir(path);
    nextDirectory = 0;
    return reinterpret_cast<DIR*>(&directoryMark);
}
SEEN_FROM_THE_LIBRARY dirent* __real_readdir64(DIR* directory);
SEEN_FROM_THE_LIBRARY dirent* __wrap_readdir64(DIR* directory) {
    return isFuzzed(directory) ? nextEntry() : __real_readdir64(directory);
}
SEEN_FROM_THE_LIBRARY int __real_closedir(DIR* directory);
SEEN_FROM_THE_LIBRARY int __wrap_closedir(DIR* directory) {
    return isFuzzed(directory) ? 0 : __real_closedir(directory);
}
SEEN_FROM_THE_LIBRARY int __wrap_usleep(unsigned) { return 0; }
SEEN_FROM_THE_LIBRARY void __wrap_perror(const char*) {}

namespace {

void makeFiles(std::string_view input) {
    files.clear();
    directories.clear();
    files["/proc/stat"] = takeUntil(&input, '\0');
    while (!input.empty() && directories.size() < 8) {
        // No longer than an entry can hold.
        directories.emplace_back(takeUntil(&input, '\0').substr(0, sizeof entry.d_name - 1));
        const std::string path = "/proc/" + directories.back();
        files[path + "/stat"] = takeUntil(&input, '\0');
        files[path + "/statm"] = takeUntil(&input, '\0');
    }
}

// "77 (sh) S ...": the first word after the parenthesis without its last character, the closing parenthesis.
std::string commandName(const std::string& stat) {
    unsigned id = 0;
    char word[256];
    if (std::sscanf(stat.c_str(), "%u (%255s", &id, word) != 2) return {};
    return {word, std::strlen(word) - 1};
}

bool isEngine(const std::string& directory) {
    if (directory.find_first_not_of("0123456789") != std::string::npos) return false;
    return commandName(files["/proc/" + directory + "/stat"]).find("PMLoadEngineMai") != std::string::npos;
}

void checkDiscovery() {
    std::vector<int> expected;
    for (const std::string& directory : directories) {
        const long pid = std::strtol(directory.c_str(), nullptr, 10);
        if (isEngine(directory) && pid != 1) expected.push_back(static_cast<int>(pid));
    }
    std::vector<int> pids;
    require(getSlavesList(pids, 1) == 1, "the scan is complete");
    require(pids == expected, "exactly the engines are found");
}

void checkSamples(int pid) {
    pstat sample{};
    const int result = get_usage(pid, &sample);
    require(result == 0 || result == -1, "a sample succeeds or fails");
    calc_cpu(&sample, &sample);
    getProcessRSS(pid, false);
    CPUUsage usage(pid);
    usage.GetUsage();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hushLog();
    makeFiles(textOf(data, size));
    checkDiscovery();
    for (const std::string& directory : directories) checkSamples(std::atoi(directory.c_str()));
    MachineStats collector;
    KREnvMachineStats stats{};
    require(collector.CollectMachineStats(stats, false), "collecting succeeds");
    return 0;
}
