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

/// A line of the file, with the place to blame.
struct Line {
    char* begin;
    char* end;
    int number;

    [[noreturn]] void fail(const char* at, const char* reason) const {
        throw LineFailure{number, columnOf(at), reason};
    }
    std::size_t columnOf(const char* at) const { return static_cast<std::size_t>(at - begin) + 1; }
};

/// An entry as it stands in the file.
struct ParsedEntry {
    const char* key;
    const char* value;
    int line;
    std::uint32_t hash;  // of the key
};

/// Parses a whole file. Keys and values are ended where they stand in the file's text; only keys of a section are
/// composed.
class Parser {
public:
    explicit Parser(FileText text);

    /// Throws LineFailure for the first line that the grammar refuses.
    void parse();
    /// Goes on behind lines that the grammar refuses.
    void visit(const KRSLineVisitor& visitor);

    const std::vector<ParsedEntry>& entries() const { return entries_; }
    Arena takeTexts() { return std::move(arena_); }

private:
    Line nextLine();
    void describeEntry(const Line& line, KRSLine* visited) const;
    void skipByteOrderMark();
    void parseLine(const Line& line);
    void parseSection(const Line& line, char* bracket);
    void parseEntry(const Line& line, char* key);

    char* at_;  // the next line
    char* end_;
    int number_ = 0;  // of the line before
    Arena arena_;
    char* nul_ = nullptr;  // the first NUL byte from the present line on, end_ when there is none
    std::string section_;  // with the dot behind it
    std::vector<ParsedEntry> entries_;
};

}  // namespace krs
