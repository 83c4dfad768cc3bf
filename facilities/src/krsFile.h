// krsFile.h - settings files: reading one, and parsing what it holds. Knows nothing of tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "krs.h"
#include "krsTexts.h"

namespace krs {

/// A whole file; `bytes` has room for one character more, so that the last line can be ended in place.
struct FileText {
    std::unique_ptr<char[]> bytes;
    std::size_t length = 0;
};

/// Reads the settings file `path`; throws LoadFailure where it cannot be read or is none.
FileText readFile(const char* path);

/// Thrown for a line that the grammar refuses.
struct LineFailure {
    int line;
    std::size_t column;
    const char* reason;

    std::string text() const { return ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + reason; }
};

/// An entry as it stands in the file.
struct ParsedEntry {
    const char* key;
    const char* value;
    int line;
    std::uint32_t hash;  // of the key
};

/// What a file holds: its entries in file order, and the memory in which their texts lie.
struct ParsedFile {
    std::vector<ParsedEntry> entries;
    Arena texts;
};

/// Parses a whole file; throws LineFailure for the first line that the grammar refuses.
ParsedFile parse(FileText text);

/// Hands every line to `visitor`, also those behind one that the grammar refuses.
void visitLines(FileText text, const KRSLineVisitor& visitor);

}  // namespace krs
