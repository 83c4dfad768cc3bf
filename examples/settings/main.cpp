// Uses the settings tables without the environment library: lists the settings of a file as they are stored.
#include <cstddef>
#include <cstdio>

#include "krs.h"

int main(int argc, char** argv) {
    const char* const path = argc > 1 ? argv[1] : "pressmark.ini";
    const int table = KRSCreateTable();
    if (KRSLoad(path, table, nullptr) == 0) {
        std::fprintf(stderr, "settings: %s\n", KRSLoadError());
        return 1;
    }
    KRSEntry entry{};
    for (std::size_t index = 0; KRSGetEntry(table, index, &entry); ++index) {
        if (entry.inForce) std::printf("%4d  %s = %s\n", entry.line, entry.key, entry.value);
    }
    KRSDestroyTable(table);
    return 0;
}
