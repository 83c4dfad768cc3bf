// Compares the settings tables with the plain parser of slowSettings.h: entries, lines and errors must be the same.
#include <map>

#include "fileInMemory.h"
#include "fuzzing.h"
#include "krs.h"
#include "slowSettings.h"

namespace {

void compareEntries(int table, const SlowFile& expected) {
    require(KRSEntryCount(table) == expected.entries.size(), "as many entries");
    std::map<std::string, std::size_t> last;
    for (std::size_t i = 0; i < expected.entries.size(); ++i) last[expected.entries[i].key] = i;
    for (std::size_t i = 0; i < expected.entries.size(); ++i) {
        KRSEntry entry{};
        require(KRSGetEntry(table, i, &entry), "there is such an entry");
        requireEqual(expected.entries[i].key, entry.key, "the key");
        requireEqual(expected.entries[i].value, entry.value, "the value");
        require(expected.entries[i].line == entry.line, "the line");
        require(entry.inForce == (last[entry.key] == i), "the last one of a key is in force");
    }
    for (const auto& [key, index] : last)
        requireEqual(expected.entries[index].value, KRSGetValue(table, key.c_str()), key);
}

// Reading line by line must give the same as the whole load, up to the first line that is refused.
void compareLines(const std::string& path, const std::string& text, const SlowFile& expected) {
    const std::vector<std::string> lines = slowLines(text);
    std::size_t line = 0;
    std::size_t entry = 0;
    bool refused = false;
    const int read = KRSReadLines(path.c_str(), [&](const KRSLine& visited) {
        require(line < lines.size(), "no more lines than there are");
        requireEqual(lines[line], visited.text, "the line");
        require(visited.number == static_cast<int>(++line), "the line's number");
        refused = refused || visited.error != nullptr;
        if (visited.key == nullptr || refused) return;
        requireEqual(expected.entries.at(entry).key, visited.key, "the line's key");
        requireEqual(visited.value, visited.text.substr(visited.valueColumn - 1, expected.entries[entry].value.size()),
                     "the value's column");
        ++entry;
    });
    require(read != 0 && line == lines.size(), "all lines are read");
    require(refused == !expected.error.empty(), "a line is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FileInMemory::fill(textOf(data, size));
    const std::string text(textOf(data, size));
    const SlowFile expected = SlowParser(text).file();
    const int table = KRSCreateTable();
    const bool loaded = KRSLoad(FileInMemory::path(), table, nullptr) != 0;
    require(loaded == expected.error.empty(), loaded ? "refused: " + expected.error : KRSLoadError());
    if (loaded) {
        compareEntries(table, expected);
    } else {
        requireEqual(FileInMemory::path() + expected.error, KRSLoadError(), "the error");
        require(KRSEntryCount(table) == 0, "a refused file leaves nothing");
    }
    compareLines(FileInMemory::path(), text, expected);
    KRSDestroyTable(table);
    return 0;
}
