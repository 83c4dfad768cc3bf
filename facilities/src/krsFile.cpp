#include "krsFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace krs {

// --- reading --------------------------------------------------------------------------------------------------------

namespace {

[[noreturn]] void failWithErrno(const char* what, int error) {
    throw LoadFailure{": " + std::string(what) + ": " + std::generic_category().message(error)};
}

class UniqueFd {
public:
    explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
    ~UniqueFd() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// Far more than a settings file has; what lies beyond is no settings file, or one made to use memory up.
constexpr std::size_t kMaxFileBytes = 256U << 20;

[[noreturn]] void failForSize() { throw LoadFailure{": the file is larger than 256 MiB, split it"}; }

// The length that the file claims; files of /proc claim 0 and have more.
std::size_t checkRegularFile(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) failWithErrno("cannot examine the file", errno);
    if (S_ISDIR(status.st_mode)) throw LoadFailure{": this is a directory, a settings file is expected"};
    if (!S_ISREG(status.st_mode)) throw LoadFailure{": this is not a regular file, a settings file is expected"};
    if (status.st_size > static_cast<off_t>(kMaxFileBytes)) failForSize();
    return static_cast<std::size_t>(status.st_size);
}

// Doubles the room for a file that turns out longer than it claimed.
void grow(FileText* text, std::size_t* capacity) {
    if (*capacity > kMaxFileBytes) failForSize();
    std::unique_ptr<char[]> larger(new char[*capacity * 2 + 1]);
    std::memcpy(larger.get(), text->bytes.get(), text->length);
    text->bytes = std::move(larger);
    *capacity *= 2;
}

}  // namespace

FileText readFile(const char* path) {
    // Not blocking, because a pipe of that name would otherwise wait for a writer for ever.
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.get() < 0) failWithErrno("cannot open the file", errno);

    std::size_t capacity = std::max<std::size_t>(checkRegularFile(file.get()) + 1, 4096);
    FileText text;
    text.bytes.reset(new char[capacity + 1]);
    for (;;) {
        if (text.length == capacity) grow(&text, &capacity);
        const ssize_t count = read(file.get(), text.bytes.get() + text.length, capacity - text.length);
        if (count == 0) return text;
        if (count > 0) {
            text.length += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            failWithErrno("cannot read the file", errno);
        }
    }
}

// --- parsing --------------------------------------------------------------------------------------------------------

namespace {

bool isBlank(char character) { return character == ' ' || character == '\t'; }

struct Line {
    char* begin;
    char* end;
    int number;

    std::size_t columnOf(const char* at) const { return static_cast<std::size_t>(at - begin) + 1; }
};

char* skipBlanks(char* begin, char* end) {
    while (begin != end && isBlank(*begin)) ++begin;
    return begin;
}

char* cutBlanks(char* begin, char* end) {
    while (end != begin && isBlank(end[-1])) --end;
    return end;
}

// Ends the text in place; the file's text has one character of room behind its last line.
char* ended(char* begin, char* end) {
    *end = '\0';
    return begin;
}

// The first `wanted` between the two, `end` when there is none.
char* find(char* begin, char* end, char wanted) {
    void* const found = std::memchr(begin, wanted, static_cast<std::size_t>(end - begin));
    return found != nullptr ? static_cast<char*>(found) : end;
}

// Parses a whole file. Keys and values are ended where they stand in the file's text; only keys of a section are
// composed.
//
// A line that the grammar refuses is an answer and no exception: of a file that is none, every line is refused.
class Parser {
public:
    explicit Parser(FileText text) : at_(text.bytes.get()), end_(at_ + text.length) {
        arena_.adopt(std::move(text.bytes), text.length);
        skipByteOrderMark();
        nul_ = find(at_, end_, '\0');
        entries_.reserve(text.length / kUsualLine);
    }

    void parse() {
        while (at_ != end_) {
            const Line line = nextLine();
            if (!parseLine(line)) throw LineFailure{line.number, line.columnOf(refusedAt_), reason_};
        }
    }

    // Goes on behind lines that the grammar refuses.
    void visit(const KRSLineVisitor& visitor) {
        std::string original;
        while (at_ != end_) {
            const Line line = nextLine();
            original.assign(line.begin, line.end);  // parsing ends keys and values in place
            KRSLine visited{line.number, original, nullptr, nullptr, 0, 0, nullptr, 0};
            const std::size_t before = entries_.size();
            if (!parseLine(line)) {
                visited.error = reason_;
                visited.errorColumn = line.columnOf(refusedAt_);
            } else if (entries_.size() > before) {
                describeEntry(line, &visited);
            }
            visitor(visited);
        }
    }

    ParsedFile take() { return {std::move(entries_), std::move(arena_)}; }

private:
    // Files with longer lines leave some of the room untouched, others have it grow; counting would take longer.
    static constexpr std::size_t kUsualLine = 32;

    Line nextLine() {
        char* const begin = at_;
        char* lineEnd = find(begin, end_, '\n');
        at_ = lineEnd != end_ ? lineEnd + 1 : end_;
        if (nul_ < begin) nul_ = find(begin, end_, '\0');
        if (lineEnd != begin && lineEnd[-1] == '\r') --lineEnd;
        return {begin, lineEnd, ++number_};
    }

    void describeEntry(const Line& line, KRSLine* visited) const {
        const ParsedEntry& entry = entries_.back();
        visited->key = entry.key;
        visited->value = entry.value;
        visited->keyColumn = line.columnOf(skipBlanks(line.begin, line.end));
        visited->valueColumn = line.columnOf(entry.value);
    }

    void skipByteOrderMark() {
        constexpr std::string_view mark = "\xef\xbb\xbf";
        if (std::string_view(at_, static_cast<std::size_t>(end_ - at_)).substr(0, mark.size()) == mark)
            at_ += mark.size();
    }

    // Whether the grammar takes the line.
    bool parseLine(const Line& line) {
        if (nul_ < line.end) return refuse(nul_, "NUL byte; a settings file is plain text");
        char* const first = skipBlanks(line.begin, line.end);
        if (first == line.end || *first == ';' || *first == '#') return true;
        return *first == '[' ? parseSection(line, first) : parseEntry(line, first);
    }

    bool refuse(const char* at, const char* reason) {
        refusedAt_ = at;
        reason_ = reason;
        return false;
    }

    // [name]
    bool parseSection(const Line& line, char* bracket) {
        char* const closing = std::find(bracket, line.end, ']');
        if (closing == line.end) return refuse(bracket, "missing ']' after the section name, expected [name]");
        char* const behind = skipBlanks(closing + 1, line.end);
        if (behind != line.end && *behind != ';' && *behind != '#') {
            return refuse(behind, "unexpected text after ']', expected [name] alone");
        }
        char* const begin = skipBlanks(bracket + 1, closing);
        section_.assign(begin, cutBlanks(begin, closing));
        if (!section_.empty()) section_ += '.';
        return true;
    }

    // KEY = value
    bool parseEntry(const Line& line, char* key) {
        char* const equals = find(key, line.end, '=');
        if (equals == line.end) return refuse(key, "missing '=', expected KEY = value");
        if (equals == key) return refuse(equals, "missing key before '=', expected KEY = value");

        char* const keyEnd = cutBlanks(key, equals);
        char* value = skipBlanks(equals + 1, line.end);
        char* valueEnd = cutBlanks(value, line.end);
        if (valueEnd - value >= 2 && *value == '"' && valueEnd[-1] == '"') {
            ++value;
            --valueEnd;
        }
        const std::string_view name(key, static_cast<std::size_t>(keyEnd - key));
        const char* const stored = section_.empty() ? ended(key, keyEnd) : arena_.store(section_, name);
        const std::uint32_t hash = hashOf({stored, section_.size() + name.size()});
        entries_.push_back({stored, ended(value, valueEnd), line.number, hash});
        return true;
    }

    char* at_;  // the next line
    char* end_;
    int number_ = 0;  // of the line before
    Arena arena_;
    char* nul_ = nullptr;              // the first NUL byte from the present line on, end_ when there is none
    std::string section_;              // with the dot behind it
    const char* refusedAt_ = nullptr;  // in the line that was refused last
    const char* reason_ = nullptr;
    std::vector<ParsedEntry> entries_;
};

}  // namespace

ParsedFile parse(FileText text) {
    Parser parser(std::move(text));
    parser.parse();
    return parser.take();
}

void visitLines(FileText text, const KRSLineVisitor& visitor) { Parser(std::move(text)).visit(visitor); }

}  // namespace krs
