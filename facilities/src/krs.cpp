#include "krs.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Immortal.h"

namespace {

// --- failures -------------------------------------------------------------------------------------------------------

// The calling thread's last failure. A thread's end releases its text, the process's end does not: thread_local objects
// are destroyed before static ones, whose destructors may still load files.
std::string& lastLoadError() {
    static const pthread_key_t atThreadEnd = [] {
        pthread_key_t made{};
        pthread_key_create(&made, [](void* text) { std::string().swap(*static_cast<std::string*>(text)); });
        return made;
    }();
    thread_local Immortal<std::string> text;
    pthread_setspecific(atThreadEnd, &*text);
    return *text;
}

// Thrown inside a load, turned into KRSLoadError's text at its border.
struct LoadFailure {
    std::string reason;  // everything behind the path
};

[[noreturn]] void failWithErrno(const char* what, int error) {
    throw LoadFailure{": " + std::string(what) + ": " + std::generic_category().message(error)};
}

// Thrown for a line that the grammar refuses.
struct LineFailure {
    int line;
    std::size_t column;
    const char* reason;

    std::string text() const { return ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + reason; }
};

// --- reading --------------------------------------------------------------------------------------------------------

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

// A whole file; `bytes` has room for one character more, so that the last line can be ended in place.
struct FileText {
    std::unique_ptr<char[]> bytes;
    std::size_t length = 0;
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

// --- texts ----------------------------------------------------------------------------------------------------------

// A small file can ask for any amount of memory, with one long section name above many keys or one long value referred
// to many times.
constexpr std::size_t kMaxTableBytes = 512U << 20;

// Memory for texts, taken in large pieces and given back all at once.
class Arena {
public:
    // Copies `first` and `second`, joined and ended by NUL.
    char* store(std::string_view first, std::string_view second = {}) {
        const std::size_t needed = first.size() + second.size() + 1;
        if (needed > left_) addChunk(needed);
        char* const text = next_;
        std::copy(second.begin(), second.end(), std::copy(first.begin(), first.end(), text));
        text[needed - 1] = '\0';
        next_ += needed;
        left_ -= needed;
        return text;
    }

    void adopt(std::unique_ptr<char[]> chunk, std::size_t size) {
        checkRoom(size);
        chunks_.push_back(std::move(chunk));
        bytes_ += size;
    }

    // Takes over the other's texts, all or none, which stay where they are.
    void adopt(Arena&& other) {
        checkRoom(other.bytes_);
        chunks_.insert(chunks_.end(), std::make_move_iterator(other.chunks_.begin()),
                       std::make_move_iterator(other.chunks_.end()));
        bytes_ += other.bytes_;
    }

private:
    static constexpr std::size_t kChunkBytes = 64 * 1024;

    void checkRoom(std::size_t more) const {
        if (more <= kMaxTableBytes - bytes_) return;
        throw LoadFailure{
            ": the table's texts need more than 512 MiB; look for a very long section name or value in use"};
    }

    void addChunk(std::size_t needed) {
        const std::size_t size = std::max(needed, kChunkBytes);
        checkRoom(size);  // before memory is taken
        adopt(std::unique_ptr<char[]>(new char[size]), size);
        next_ = chunks_.back().get();
        left_ = size;
    }

    std::vector<std::unique_ptr<char[]>> chunks_;
    std::size_t bytes_ = 0;  // in all chunks
    char* next_ = nullptr;
    std::size_t left_ = 0;
};

// --- hashing --------------------------------------------------------------------------------------------------------

struct HashKey {
    std::uint32_t low = 0;
    std::uint32_t high = 0;
};

// Drawn once per process. Where the kernel has no random bytes yet, the fixed key still hashes correctly.
const HashKey& hashKey() {
    static const HashKey key = [] {
        HashKey drawn;
        const ssize_t count = getrandom(&drawn, sizeof drawn, GRND_NONBLOCK);
        return count == sizeof drawn ? drawn : HashKey{};
    }();
    return key;
}

std::uint32_t rotateLeft(std::uint32_t value, unsigned count) { return (value << count) | (value >> (32 - count)); }

// HalfSipHash with one round a word and three at the end: a keyed hash made of 32-bit operations. Without the key
// nobody can write a settings file whose keys collide.
class KeyHash {
public:
    explicit KeyHash(const HashKey& key)
        : v0_(key.low), v1_(key.high), v2_(0x6c796765U ^ key.low), v3_(0x74656462U ^ key.high) {}

    std::uint32_t operator()(std::string_view key) {
        std::size_t left = key.size();
        const char* at = key.data();
        for (; left >= 4; left -= 4, at += 4) {
            std::uint32_t word;
            std::memcpy(&word, at, 4);
            mix(word);
        }
        std::uint32_t tail = 0;
        std::memcpy(&tail, at, left);
        mix(tail | static_cast<std::uint32_t>(key.size()) << 24);
        v2_ ^= 0xff;
        for (int i = 0; i < 3; ++i) round();
        return v1_ ^ v3_;
    }

private:
    void mix(std::uint32_t word) {
        v3_ ^= word;
        round();
        v0_ ^= word;
    }

    void round() {
        v0_ += v1_;
        v1_ = rotateLeft(v1_, 5) ^ v0_;
        v0_ = rotateLeft(v0_, 16);
        v2_ += v3_;
        v3_ = rotateLeft(v3_, 8) ^ v2_;
        v0_ += v3_;
        v3_ = rotateLeft(v3_, 7) ^ v0_;
        v2_ += v1_;
        v1_ = rotateLeft(v1_, 13) ^ v2_;
        v2_ = rotateLeft(v2_, 16);
    }

    std::uint32_t v0_, v1_, v2_, v3_;
};

std::uint32_t hashOf(std::string_view key) { return KeyHash(hashKey())(key); }

// --- parsing --------------------------------------------------------------------------------------------------------

bool isBlank(char character) { return character == ' ' || character == '\t'; }

// A line of the file, with the place to blame.
struct Line {
    char* begin;
    char* end;
    int number;

    [[noreturn]] void fail(const char* at, const char* reason) const {
        throw LineFailure{number, columnOf(at), reason};
    }
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

struct ParsedEntry {
    const char* key;
    const char* value;
    int line;
    std::uint32_t hash;  // of the key
};

// Parses a whole file. Keys and values are ended where they stand in the file's text; only keys of a section are
// composed.
class Parser {
public:
    explicit Parser(FileText text) : at_(text.bytes.get()), end_(at_ + text.length) {
        arena_.adopt(std::move(text.bytes), text.length);
        skipByteOrderMark();
        nul_ = find(at_, end_, '\0');
        entries_.reserve(text.length / kUsualLine);
    }

    void parse() {
        while (at_ != end_) parseLine(nextLine());
    }

    // Goes on behind lines that the grammar refuses.
    void visit(const KRSLineVisitor& visitor) {
        std::string original;
        while (at_ != end_) {
            const Line line = nextLine();
            original.assign(line.begin, line.end);  // parsing ends keys and values in place
            KRSLine visited{line.number, original, nullptr, nullptr, 0, 0, nullptr, 0};
            try {
                const std::size_t before = entries_.size();
                parseLine(line);
                if (entries_.size() > before) describeEntry(line, &visited);
            } catch (const LineFailure& failure) {
                visited.error = failure.reason;
                visited.errorColumn = failure.column;
            }
            visitor(visited);
        }
    }

    const std::vector<ParsedEntry>& entries() const { return entries_; }
    Arena takeTexts() { return std::move(arena_); }

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

    void parseLine(const Line& line) {
        if (nul_ < line.end) line.fail(nul_, "NUL byte; a settings file is plain text");
        char* const first = skipBlanks(line.begin, line.end);
        if (first == line.end || *first == ';' || *first == '#') return;
        if (*first == '[') {
            parseSection(line, first);
        } else {
            parseEntry(line, first);
        }
    }

    // [name]
    void parseSection(const Line& line, char* bracket) {
        char* const closing = std::find(bracket, line.end, ']');
        if (closing == line.end) line.fail(bracket, "missing ']' after the section name, expected [name]");
        char* const behind = skipBlanks(closing + 1, line.end);
        if (behind != line.end && *behind != ';' && *behind != '#') {
            line.fail(behind, "unexpected text after ']', expected [name] alone");
        }
        char* const begin = skipBlanks(bracket + 1, closing);
        section_.assign(begin, cutBlanks(begin, closing));
        if (!section_.empty()) section_ += '.';
    }

    // KEY = value
    void parseEntry(const Line& line, char* key) {
        char* const equals = find(key, line.end, '=');
        if (equals == line.end) line.fail(key, "missing '=', expected KEY = value");
        if (equals == key) line.fail(equals, "missing key before '=', expected KEY = value");

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
    }

    char* at_;  // the next line
    char* end_;
    int number_ = 0;  // of the line before
    Arena arena_;
    char* nul_ = nullptr;  // the first NUL byte from the present line on, end_ when there is none
    std::string section_;  // with the dot behind it
    std::vector<ParsedEntry> entries_;
};

// --- tables ---------------------------------------------------------------------------------------------------------

class Table {
public:
    const char* find(std::string_view key) const {
        if (slots_.empty()) return nullptr;
        const Slot& slot = slots_[slotOf(key, hashOf(key))];
        return slot.used() ? entries_[slot.entry].value : nullptr;
    }

    // Stores the entries one by one, so that the filter finds in the table what stands above.
    void load(Parser parser, KRSFilter filter) {
        texts_.adopt(parser.takeTexts());
        const std::vector<ParsedEntry>& entries = parser.entries();
        reserve(entries.size());
        auto ahead = entries.begin() + std::min<std::ptrdiff_t>(kPrefetched, entries.end() - entries.begin());
        for (const ParsedEntry& parsed : entries) {
            if (ahead != entries.end()) prefetch((ahead++)->hash);
            const char* value = parsed.value;
            if (filter != nullptr) {
                const char* const filtered = filter(parsed.key, parsed.value);
                if (filtered == nullptr) continue;
                if (std::strcmp(filtered, value) != 0) value = texts_.store(filtered);
            }
            store({parsed.key, value, parsed.line, true}, parsed.hash);
        }
    }

    const std::vector<KRSEntry>& entries() const { return entries_; }

    // A filter may destroy the table that it is called for; the load that runs then releases it at its end.
    class LoadScope {
    public:
        explicit LoadScope(Table* table) : table_(table) { ++table_->loads_; }
        ~LoadScope() {
            if (--table_->loads_ == 0 && table_->released_) delete table_;
        }
        LoadScope(const LoadScope&) = delete;
        LoadScope& operator=(const LoadScope&) = delete;

    private:
        Table* table_;
    };

    void release() {
        released_ = true;
        if (loads_ == 0) delete this;
    }

private:
    static constexpr std::uint32_t kUnused = UINT32_MAX;

    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t entry = kUnused;
        bool used() const { return entry != kUnused; }
    };

    // Where `key` is, or the free slot in which it belongs. There is always a free slot.
    std::size_t slotOf(std::string_view key, std::uint32_t hash) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t at = hash & mask;
        while (slots_[at].used() && !(slots_[at].hash == hash && key == entries_[slots_[at].entry].key))
            at = (at + 1) & mask;
        return at;
    }

    // A large table's slots are far apart: they are asked for some entries ahead, so that nobody waits for them.
    static constexpr std::ptrdiff_t kPrefetched = 8;
    void prefetch(std::uint32_t hash) const { __builtin_prefetch(&slots_[hash & (slots_.size() - 1)], 1); }

    void store(const KRSEntry& entry, std::uint32_t hash) {
        if ((entries_.size() + 1) * 2 > slots_.size()) rehash((entries_.size() + 1) * 2);
        Slot& slot = slots_[slotOf(entry.key, hash)];
        entries_.push_back(entry);
        if (slot.used()) entries_[slot.entry].inForce = false;
        slot = {hash, static_cast<std::uint32_t>(entries_.size() - 1)};
    }

    // At least doubles, so that many small files loaded into one table stay linear.
    void reserve(std::size_t more) {
        const std::size_t needed = entries_.size() + more;
        if (needed > entries_.capacity()) entries_.reserve(std::max(needed, entries_.capacity() * 2));
        rehash(needed * 2);
    }

    // Makes at least `wanted` slots: twice as many as entries keeps the runs of used slots short.
    void rehash(std::size_t wanted) {
        std::size_t size = std::max<std::size_t>(slots_.size(), 16);
        while (size < wanted) size *= 2;
        if (size == slots_.size()) return;
        std::vector<Slot> old(size);
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.used()) slots_[slotOf(entries_[slot.entry].key, slot.hash)] = slot;
        }
    }

    Arena texts_;
    std::vector<KRSEntry> entries_;
    std::vector<Slot> slots_;  // as many as a power of two
    int loads_ = 0;
    bool released_ = false;
};

// --- handles --------------------------------------------------------------------------------------------------------

// The tables by handle. Segments double in size and are never moved or freed, so that a look-up takes no lock.
class Registry {
public:
    // The new table's handle, 0 when all are used up.
    int add(std::unique_ptr<Table> table) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (last_ == kLastHandle) return 0;
        const Place place = placeOf(last_ + 1);
        if (segments_[place.segment].load(std::memory_order_relaxed) == nullptr) {
            segments_[place.segment].store(new std::atomic<Table*>[kFirstSegment << place.segment](),
                                           std::memory_order_release);
        }
        segments_[place.segment].load(std::memory_order_relaxed)[place.offset].store(table.release(),
                                                                                     std::memory_order_release);
        return ++last_;
    }

    Table* find(int handle) const {
        const std::atomic<Table*>* const slot = slotOf(handle);
        return slot != nullptr ? slot->load(std::memory_order_acquire) : nullptr;
    }

    // Takes the table out, so that it is found no more; null when there is none.
    Table* remove(int handle) {
        std::atomic<Table*>* const slot = slotOf(handle);
        return slot != nullptr ? slot->exchange(nullptr, std::memory_order_acq_rel) : nullptr;
    }

private:
    static constexpr unsigned kFirstSegment = 64;
    static constexpr int kLastHandle = 1 << 30;

    struct Place {
        unsigned segment;
        std::size_t offset;
    };

    // Segment s holds 64 << s handles: 1 to 64 are in segment 0, 65 to 192 in segment 1, ...
    static Place placeOf(int handle) {
        const unsigned number = static_cast<unsigned>(handle) + kFirstSegment - 1;
        const unsigned top = 31 - static_cast<unsigned>(__builtin_clz(number));
        return {top - 6, number - (1U << top)};
    }

    std::atomic<Table*>* slotOf(int handle) const {
        if (handle < 1 || handle > kLastHandle) return nullptr;
        const Place place = placeOf(handle);
        std::atomic<Table*>* const segment = segments_[place.segment].load(std::memory_order_acquire);
        return segment != nullptr ? &segment[place.offset] : nullptr;
    }

    std::mutex mutex_;  // guards last_ and the making of segments
    int last_ = 0;
    std::array<std::atomic<std::atomic<Table*>*>, 26> segments_{};
};

Registry& registry() {
    static Immortal<Registry> registry;
    return *registry;
}

void load(const char* path, int handle, KRSFilter filter) {
    Table* const table = registry().find(handle);
    if (table == nullptr) throw LoadFailure{": there is no settings table with handle " + std::to_string(handle)};
    const Table::LoadScope scope(table);
    Parser parser(readFile(path));
    parser.parse();
    table->load(std::move(parser), filter);
}

// Runs what reads the file `path`. 1; after a failure, 0 and KRSLoadError's text, unless there is no memory for it.
template <class Reading>
int describeFailure(const char* path, Reading reading) {
    try {
        reading();
        return 1;
    } catch (const LoadFailure& failure) {
        lastLoadError() = path + failure.reason;
    } catch (const LineFailure& failure) {
        lastLoadError() = path + failure.text();
    } catch (const std::bad_alloc&) {
        lastLoadError() = path + std::string(": not enough memory");
    } catch (const std::length_error&) {
        lastLoadError() = path + std::string(": not enough address space");
    }
    return 0;
}

template <class Reading>
int noteFailure(const char* path, Reading reading) {
    if (path == nullptr || *path == '\0') {
        lastLoadError() = "no path given";
        return 0;
    }
    try {
        return describeFailure(path, reading);
    } catch (const std::bad_alloc&) {
        lastLoadError() = "out of memory";  // so short that it needs no block of its own
        return 0;
    }
}

}  // namespace

int KRSCreateTable() {
    try {
        return registry().add(std::make_unique<Table>());
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int KRSLoad(const char* path, int handle, KRSFilter filter) {
    return noteFailure(path, [=] { load(path, handle, filter); });
}

const char* KRSLoadError() { return lastLoadError().c_str(); }

const char* KRSGetValue(int handle, const char* key) {
    const Table* const table = registry().find(handle);
    return table != nullptr && key != nullptr ? table->find(key) : nullptr;
}

void KRSDestroyTable(int handle) {
    if (Table* const table = registry().remove(handle)) table->release();
}

std::size_t KRSEntryCount(int handle) {
    const Table* const table = registry().find(handle);
    return table != nullptr ? table->entries().size() : 0;
}

bool KRSGetEntry(int handle, std::size_t index, KRSEntry* entry) {
    const Table* const table = registry().find(handle);
    if (table == nullptr || entry == nullptr || index >= table->entries().size()) return false;
    *entry = table->entries()[index];
    return true;
}

int KRSReadLines(const char* path, const KRSLineVisitor& visitor) {
    return noteFailure(path, [&] { Parser(readFile(path)).visit(visitor); });
}
