#include "Logging.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "Immortal.h"

namespace nLogging {

namespace {

constexpr std::array<const char*, 8> kLevelNames = {"Error",      "Warning",          "Trace", "TraceDebugInfo", "Execution",
                                                    "Incomplete", "ErrorPerformance", "WarningPerformance"};
constexpr unsigned kAllLevels = (1U << kLevelNames.size()) - 1;

constexpr unsigned bitOf(Level level) {
    const auto index = static_cast<unsigned>(level);
    return index < kLevelNames.size() ? 1U << index : 0;
}

constexpr unsigned kLevelsAtStart = bitOf(Level::Error) | bitOf(Level::Warning) | bitOf(Level::Execution);

// --- the process environment ----------------------------------------------------------------------------------------

// The bits that one word of PM_LOG stands for; 0 for a word that is not known.
unsigned levelsNamed(std::string_view word) {
    if (word == "all") return kAllLevels;
    for (std::size_t i = 0; i < kLevelNames.size(); ++i) {
        if (word == kLevelNames[i]) return 1U << i;
    }
    return 0;
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

// "Error,Trace" -> those two bits. Unknown words are gathered in `*unknown` for a warning.
unsigned parseLevels(const char* list, std::string* unknown) {
    unsigned levels = 0;
    forEachWord(list, [&](std::string_view word) {
        const unsigned named = levelsNamed(word);
        if (named == 0 && word != "none") *unknown += (unknown->empty() ? "" : ", ") + std::string(word);
        levels |= named;
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
    line << timeText(record.time) << ' ' << gLevelName(record.level) << ' ' << record.category << ' ' << record.file << ':'
         << record.line << " [" << record.thread << "] " << escaped(record.text) << '\n';
    return line.str();
}

// One write, so that records of several threads and processes do not mix. What a full disk or a closed descriptor
// does not take is lost: there is nowhere to report it.
void writeLine(int descriptor, const std::string& line) {
    const ssize_t written = write(descriptor, line.data(), line.size());
    static_cast<void>(written);
}

// --- state ----------------------------------------------------------------------------------------------------------

class State {
public:
    State() {
        if (const char* const list = std::getenv("PM_LOG")) enableNamed(list);
        if (const char* const path = std::getenv("PM_LOG_FILE")) openLogFile(path);
    }

    unsigned levels() const { return levels_.load(std::memory_order_relaxed); }

    void enable(unsigned bit, bool on) {
        if (on) {
            levels_ |= bit;
        } else {
            levels_ &= ~bit;
        }
    }

    void setSink(Sink sink) {
        auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
        const std::lock_guard<std::mutex> lock(mutex_);
        sink_.swap(shared);
    }

    void deliver(const Record& record) {
        if (const auto sink = currentSink()) {
            (*sink)(record);
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

    void enableNamed(const char* list) {
        std::string unknown;
        levels_ = parseLevels(list, &unknown);
        if (unknown.empty()) return;
        writeLine(STDERR_FILENO, "PM_LOG: unknown level: " + escaped(unknown) +
                                     " (known: all, none, Error, Warning, Trace, TraceDebugInfo, Execution, Incomplete, "
                                     "ErrorPerformance, WarningPerformance)\n");
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

    std::atomic<unsigned> levels_{kLevelsAtStart};
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

bool gIsEnabled(Level level) { return (state().levels() & bitOf(level)) != 0; }

const char* gLevelName(Level level) {
    const auto index = static_cast<std::size_t>(level);
    return index < kLevelNames.size() ? kLevelNames[index] : "?";
}

RecordWriter::RecordWriter(Level level, const char* category, const char* file, int line)
    : level_(level), category_(category != nullptr ? category : ""), file_(file != nullptr ? file : ""), line_(line) {}

RecordWriter::~RecordWriter() {
    try {
        const Record record{std::chrono::system_clock::now(), level_,      category_, file_, line_,
                            std::this_thread::get_id(),       text_.str()};
        state().deliver(record);
    } catch (...) {
        // Logging must not end the program: a sink that throws, or no memory for the text, loses this record only.
    }
}

}  // namespace nLogging
