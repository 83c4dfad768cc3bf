#include "floors.h"

#include <cstdio>
#include <cstring>

#include <sys/sysinfo.h>

#include "measure.h"

long readStart(const char* path, std::size_t size) {
    char text[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return -1;
    const ssize_t length = read(file, text, size);
    close(file);
    keep(text[0]);
    return static_cast<long>(length);
}

void readEveryProcess() {
    char path[300] = "/proc/";
    forEachEntry("/proc/", [&path](const char* name, unsigned char type) {
        if (type != DT_DIR || *name < '0' || *name > '9') return;
        std::strcpy(stpcpy(path + 6, name), "/stat");
        readStart(path);
    });
}

void readStatistics(const std::vector<int>& engines) {
    readEveryProcess();
    char path[64];
    for (const int pid : engines) {
        std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
        readStart(path);
        readStart("/proc/stat");
        std::snprintf(path, sizeof path, "/proc/%d/statm", pid);
        readStart(path);
    }
    readStart("/proc/stat");
    struct sysinfo info {};
    sysinfo(&info);
    keep(info);
}
