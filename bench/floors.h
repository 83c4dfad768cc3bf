// floors.h - the bare system calls that the library's jobs cannot do without.
#pragma once

#include <string>
#include <vector>

/// Opens a file, reads at most its first `size` bytes and closes it. Returns how many bytes it read, -1 on failure.
long readStart(const char* path, std::size_t size = 1024);

/// Calls `use` with the name of each entry of the directory; false when it cannot be opened.
template <class Use>
bool forEachEntry(const char* directory, Use use);

/// Opens, reads and closes the stat file of every process.
void readEveryProcess();

/// Reads what one collection reads: every process, three files for each engine, and the machine's.
void readStatistics(const std::vector<int>& engines);

// --- implementation
// ---------------------------------------------------------------------------------------------------

#include <cstdint>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

template <class Use>
bool forEachEntry(const char* directory, Use use) {
    const int listing = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (listing < 0) return false;
    struct Entry {  // the kernel's layout
        std::uint64_t inode;
        std::int64_t offset;
        unsigned short length;
        unsigned char type;
        char name[1];
    };
    alignas(Entry) char entries[32 * 1024];
    for (long size = 0; (size = syscall(SYS_getdents64, listing, entries, sizeof entries)) > 0;) {
        for (long at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const Entry*>(entries + at);
            use(static_cast<const char*>(entry->name), entry->type);
            at += entry->length;
        }
    }
    close(listing);
    return true;
}
