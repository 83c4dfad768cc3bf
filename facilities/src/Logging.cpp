#include "Logging.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <locale>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "Immortal.h"

namespace nLogging {

namespace {

constexpr std::array<const char*, 8> kLevelNames = {
    "Error", "Warning", "Trace", "TraceDebugInfo", "Execution", "Incomplete", "ErrorPerformance", "WarningPerformance"};
constexpr unsigned kAllLevels = (1U << kLevelNames.size()) - 1;

constexpr unsigned bitOf(Level level) {
    const auto index = static_cast<unsigned>(level);
    return index < kLevelNames.size() ? 1U << index : 0;
}

constexpr unsigned kLevelsAtStart = bitOf(Level::Error) | bitOf(Level::Warning) | bitOf(Level::Execution);

// --- the process environment ----------------------------------------------------------------------------------------

// The variable's text; null where it is not set or empty, which count as one.
const char* environmentText(const char* name) {
    const char* const text = std::getenv(name);
    return text != nullptr && *text != '\0' ? text : nullptr;
}

// The bits that one word of PM_LOG stands for; nothing for a word that is not known.
std::optional<unsigned> levelsNamed(std::string_view word) {
    if (word == "all") return kAllLevels;
    if (word == "none") return 0;
    for (std::size_t i = 0; i < kLevelNames.size(); ++i) {
        if (word == kLevelNames[i]) return 1U << i;
    }
    return std::nullopt;
}

// Calls `use` with each word between the commas of `list`, blanks around it cut.
template <class Use>
void forEachWord(std::string_view list, Use use) {
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        std::string_view word = list.substr(0, comma);
        while (!word.empty() && word.front() == ' ') word.remove_prefix(1);
        while (!word.empty() && word.back() == ' ') word.remove_suffix(1);
        if (!word.empty()) use(word);
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    }
}

// "Error,Trace" -> those two bits. Nothing when no word is known; unknown words are gathered in `*unknown` for a
// warning.
std::optional<unsigned> parseLevels(const char* list, std::string* unknown) {
    std::optional<unsigned> levels;
    forEachWord(list, [&](std::string_view word) {
        if (const auto named = levelsNamed(word)) {
            levels = levels.value_or(0) | *named;
        } else {
            *unknown += (unknown->empty() ? "" : ", ") + std::string(word);
        }
    });
    return levels;
}

// --- the default sink -----------------------------------------------------------------------------------------------

// Control characters as \n, \t, ... or \x1b, the backslash as \\, so that the text is one line and can be read back.
std::string escaped(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\t') {
            line += "\\t";
        } else if (character == '\r') {
            line += "\\r";
        } else if (character == '\\') {
            line += "\\\\";
        } else if (byte < 0x20 || byte == 0x7f) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(byte));
            line += hex;
        } else {
            line += character;
        }
    }
    return line;
}

// 2026-11-21T01:39:25.123456Z
std::string timeText(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    const std::time_t seconds = system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    const auto micros = duration_cast<microseconds>(time.time_since_epoch()).count() % 1'000'000;
    char day[32];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%06dZ", day, static_cast<int>(micros));
    return text;
}

// 2026-11-21T01:39:25.123456Z Error PMEnvironment ../src/krenvf:61 [140061] text
std::string lineOf(const Record& record) {
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << timeText(record.time) << ' ' << gLevelName(record.level) << ' ' << record.category << ' ' << record.file
         << ':' << record.line << " [" << record.thread << "] " << escaped(record.text) << '\n';
    return line.str();
}

// One write, so that records of several threads and processes do not mix. What a full disk or a closed descriptor
// does not take is lost: there is nowhere to report it.
void writeLine(int descriptor, const std::string& line) {
    while (write(descriptor, line.data(), line.size()) < 0 && errno == EINTR) {
    }
}

// --- state ----------------------------------------------------------------------------------------------------------

// A log call leaves errno as it was, so that code may log first and look at it afterwards.
class ErrnoKeeper {
public:
    explicit ErrnoKeeper(int error = errno) : error_(error) {}
    ~ErrnoKeeper() { errno = error_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int error_;
};

// A thread that is cancelled while it logs ends behind the record: the end would otherwise begin in a destructor, which
// ends the whole program.
class CancellationKeeper {
public:
    CancellationKeeper() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
    ~CancellationKeeper() { pthread_setcancelstate(state_, nullptr); }
    CancellationKeeper(const CancellationKeeper&) = delete;
    CancellationKeeper& operator=(const CancellationKeeper&) = delete;

private:
    int state_ = PTHREAD_CANCEL_ENABLE;
};

// True while a sink runs on this thread. What the sink logs itself would otherwise come back to it for ever.
thread_local bool inSink = false;

void callSink(const Sink& sink, const Record& record) {
    struct Mark {
        Mark() { inSink = true; }
        ~Mark() { inSink = false; }
    } const mark;
    sink(record);
}

// The enabled levels. Apart from the rest of the state and set up at compile time, because every log call asks here.
constexpr unsigned kNotReadYet = 1U << 31;
std::atomic<unsigned> enabledLevels{kNotReadYet};

class State {
public:
    State() {
        const ErrnoKeeper keeper;
        const char* const list = environmentText("PM_LOG");
        enabledLevels = list != nullptr ? levelsNamed(list) : kLevelsAtStart;
        if (const char* const path = environmentText("PM_LOG_FILE")) openLogFile(path);
    }

    void enable(unsigned bit, bool on) {
        if (on) {
            enabledLevels |= bit;
        } else {
            enabledLevels &= ~bit;
        }
    }

    void setSink(Sink sink) {
        auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
        const std::lock_guard<std::mutex> lock(mutex_);
        sink_.swap(shared);
    }

    void deliver(const Record& record) {
        const auto sink = inSink ? nullptr : currentSink();
        if (sink != nullptr) {
            callSink(*sink, record);
        } else {
            writeLine(descriptor_, lineOf(record));
        }
    }

private:
    // A copy, so that the sink is called with the lock released and may log or replace itself.
    std::shared_ptr<const Sink> currentSink() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return sink_;
    }

    static unsigned levelsNamed(const char* list) {
        std::string unknown;
        const unsigned levels = parseLevels(list, &unknown).value_or(kLevelsAtStart);
        if (unknown.empty()) return levels;
        std::string known = "all, none";
        for (const char* const name : kLevelNames) known += std::string(", ") + name;
        writeLine(STDERR_FILENO, "PM_LOG: unknown level: " + escaped(unknown) + " (known: " + known + ")\n");
        return levels;
    }

    void openLogFile(const char* path) {
        // Not blocking: a pipe that nobody reads must not stop the program at its first record.
        const int opened = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
        if (opened < 0) {
            const std::string reason = std::generic_category().message(errno);
            writeLine(STDERR_FILENO, "PM_LOG_FILE: cannot append to '" + escaped(path) + "' (" + reason +
                                         "), logging to standard error\n");
            return;
        }
        descriptor_ = opened;
    }

    int descriptor_ = STDERR_FILENO;

    std::mutex mutex_;  // guards sink_
    std::shared_ptr<const Sink> sink_;
};

State& state() {
    static Immortal<State> state;
    return *state;
}

}  // namespace

void gSetSink(Sink sink) { state().setSink(std::move(sink)); }

void gEnable(Level level, bool on) { state().enable(bitOf(level), on); }

bool gIsEnabled(Level level) {
    unsigned levels = enabledLevels.load(std::memory_order_relaxed);
    if (levels == kNotReadYet) {
        state();  // reads them
        levels = enabledLevels.load(std::memory_order_relaxed);
    }
    return (levels & bitOf(level)) != 0;
}

const char* gLevelName(Level level) {
    const auto index = static_cast<std::size_t>(level);
    return index < kLevelNames.size() ? kLevelNames[index] : "?";
}

RecordWriter::RecordWriter(Level level, const char* category, const char* file, int line)
    : error_(errno),
      level_(level),
      category_(category != nullptr ? category : ""),
      file_(file != nullptr ? file : ""),
      line_(line) {
    text_.imbue(std::locale::classic());  // the host's locale must not put separators into numbers
}

RecordWriter::~RecordWriter() {
    const ErrnoKeeper error(error_);  // also what composing the text has changed, where it found no memory
    const CancellationKeeper cancellation;
    try {
        const Record record{std::chrono::system_clock::now(), level_,     category_, file_, line_,
                            std::this_thread::get_id(),       text_.str()};
        state().deliver(record);
    } catch (...) {
        // Logging must not end the program: a sink that throws, or no memory for the text, loses this record only.
    }
}

}  // namespace nLogging
