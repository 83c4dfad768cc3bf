#include "Logging.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <locale>
#include <regex>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/Subprocess.h"
#include "support/TempDir.h"

using nLogging::Level;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// Standard error for the length of a scope: a socket that keeps each write apart.
class StderrWrites {
public:
    StderrWrites() : before_(dup(STDERR_FILENO)) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) throw std::runtime_error("no socket pair");
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        reading_ = ends[0];
    }
    ~StderrWrites() {
        dup2(before_, STDERR_FILENO);
        close(before_);
        close(reading_);
    }
    StderrWrites(const StderrWrites&) = delete;
    StderrWrites& operator=(const StderrWrites&) = delete;

    /// The writes since the last call, one element for each.
    std::vector<std::string> take() {
        std::vector<std::string> writes;
        std::string buffer(100'000, '\0');
        for (;;) {
            const ssize_t count = recv(reading_, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (count <= 0) return writes;
            writes.emplace_back(buffer, 0, static_cast<std::size_t>(count));
        }
    }

private:
    int before_;
    int reading_ = -1;
};

// A sink that gathers, for tests that must not change the levels.
class Gathered {
public:
    Gathered() {
        nLogging::gSetSink([this](const nLogging::Record& record) { texts.push_back(record.text); });
    }
    ~Gathered() { nLogging::gSetSink({}); }
    Gathered(const Gathered&) = delete;
    Gathered& operator=(const Gathered&) = delete;

    std::vector<std::string> texts;
};

template <class... Pieces>
std::string textOf(const Pieces&... pieces) {
    Gathered gathered;
    {
        nLogging::RecordWriter writer(Level::Error, "C", "f", 1);
        (writer << ... << pieces);
    }
    return gathered.texts.at(0);
}

ProgramResult runHost(const std::map<std::string, const char*>& changes, const std::string& what = "") {
    std::map<std::string, const char*> environment = {{"PM_LOG", nullptr}, {"PM_LOG_FILE", nullptr}};
    for (const auto& [name, value] : changes) environment[name] = value;
    return runProgram({LOGGING_HOST, what}, environment);
}

std::size_t linesIn(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

constexpr char kLevelsAtStart[] = "Error\nWarning\nExecution\n";
constexpr char kKnownLevels[] =
    "(known: all, none, Error, Warning, Trace, TraceDebugInfo, Execution, Incomplete, "
    "ErrorPerformance, WarningPerformance)\n";

}  // namespace

TEST(LogLevelName, NamesEachLevel) {
    const char* const names[] = {"Error",
                                 "Warning",
                                 "Trace",
                                 "TraceDebugInfo",
                                 "Execution",
                                 "Incomplete",
                                 "ErrorPerformance",
                                 "WarningPerformance"};
    for (int i = 0; i < 8; ++i) EXPECT_STREQ(names[i], nLogging::gLevelName(static_cast<Level>(i)));
    EXPECT_STREQ("?", nLogging::gLevelName(static_cast<Level>(8)));
    EXPECT_STREQ("?", nLogging::gLevelName(static_cast<Level>(-1)));
}

TEST(LogEnable, ChangesOneLevel) {
    const LogCapture levelsRestored;
    nLogging::gEnable(Level::Trace, false);
    EXPECT_FALSE(nLogging::gIsEnabled(Level::Trace));
    EXPECT_TRUE(nLogging::gIsEnabled(Level::TraceDebugInfo));
    nLogging::gEnable(Level::Trace, true);
    EXPECT_TRUE(nLogging::gIsEnabled(Level::Trace));
}

TEST(LogEnable, IgnoresWhatIsNoLevel) {
    nLogging::gEnable(static_cast<Level>(8), true);
    EXPECT_FALSE(nLogging::gIsEnabled(static_cast<Level>(8)));
    nLogging::gEnable(static_cast<Level>(-1), true);
    EXPECT_FALSE(nLogging::gIsEnabled(static_cast<Level>(-1)));
}

TEST(LogRecord, CarriesEverything) {
    const auto before = std::chrono::system_clock::now();
    std::vector<nLogging::Record> records;
    nLogging::gSetSink([&](const nLogging::Record& record) { records.push_back(record); });
    PM_LOG_RECORD(Level::Warning, "Category", "../src/file", 61) << "text " << 7 << '\t' << std::string("x");
    nLogging::gSetSink({});

    ASSERT_EQ(1U, records.size());
    EXPECT_GE(records[0].time, before);
    EXPECT_LE(records[0].time, std::chrono::system_clock::now());
    EXPECT_EQ(Level::Warning, records[0].level);
    EXPECT_STREQ("Category", records[0].category);
    EXPECT_STREQ("../src/file", records[0].file);
    EXPECT_EQ(61, records[0].line);
    EXPECT_EQ(std::this_thread::get_id(), records[0].thread);
    EXPECT_EQ("text 7\tx", records[0].text);
}

TEST(LogRecord, MayBeEmpty) {
    Gathered gathered;
    PM_LOG_RECORD(Level::Error, "C", "f", 1);
    EXPECT_THAT(gathered.texts, ElementsAre(""));
}

TEST(LogRecord, IsComposedOnlyWhenEnabled) {
    LogCapture log;
    nLogging::gEnable(Level::Trace, false);
    int evaluations = 0;
    const auto evaluated = [&] { return ++evaluations; };
    PM_LOG_RECORD(Level::Trace, "C", "f", evaluated()) << evaluated() << evaluated();
    EXPECT_EQ(0, evaluations);
    EXPECT_THAT(log.entries(), IsEmpty());
    nLogging::gEnable(Level::Trace, true);
    PM_LOG_RECORD(Level::Trace, "C", "f", evaluated()) << evaluated() << evaluated();
    EXPECT_EQ(3, evaluations);
    EXPECT_EQ(1U, log.entries().size());
}

TEST(LogRecord, IsOneStatement) {
    Gathered gathered;
    bool otherwise = false;
    if (gathered.texts.empty())
        PM_LOG_RECORD(Level::Error, "C", "f", 1) << "then";
    else
        otherwise = true;
    EXPECT_FALSE(otherwise);
    EXPECT_THAT(gathered.texts, ElementsAre("then"));
}

TEST(LogRecord, ShowsNullCString) {
    EXPECT_EQ("a <NullChar*> b", textOf("a ", static_cast<const char*>(nullptr), " b"));
    EXPECT_EQ("a <NullChar*> b", textOf("a ", static_cast<char*>(nullptr), " b"));
    char array[] = "array";
    EXPECT_EQ("array", textOf(array));
}

TEST(LogRecord, TakesNullCategoryAndFileAsEmpty) {
    LogCapture log;
    { nLogging::RecordWriter(Level::Error, nullptr, nullptr, 1) << "text"; }
    ASSERT_EQ(1U, log.entries().size());
    EXPECT_EQ("", log.entries()[0].category);
    EXPECT_EQ("", log.entries()[0].file);
}

TEST(LogRecord, KeepsErrno) {
    LogCapture log;
    nLogging::gSetSink([](const nLogging::Record&) { errno = EIO; });
    errno = ENOENT;
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "text";
    EXPECT_EQ(ENOENT, errno);
}

// A load engine that cancelled a thread of its own ended as a whole when that thread was writing a record.
TEST(LogRecord, IsDeliveredByAThreadThatIsCancelled) {
    StderrWrites standardError;
    int stateBehind = PTHREAD_CANCEL_DISABLE;
    std::thread([&stateBehind] {
        pthread_cancel(pthread_self());
        PM_LOG_RECORD(Level::Error, "C", "f", 1) << "the last words";
        // Ends by itself: the address sanitizer does not follow a stack that is given up.
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &stateBehind);
    }).join();
    EXPECT_EQ(PTHREAD_CANCEL_ENABLE, stateBehind) << "as it was before the record";
    EXPECT_THAT(standardError.take(), ElementsAre(HasSubstr("the last words")));
}

// A host with a global locale saw "1,234" where programs look for 1234.
TEST(LogRecord, WritesNumbersAlikeInEveryLocale) {
    struct Grouped : std::numpunct<char> {
        char do_thousands_sep() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
        char do_decimal_point() const override { return ';'; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouped));
    const std::string text = textOf(1234567, " ", 0.5);
    StderrWrites standardError;
    PM_LOG_RECORD(Level::Error, "C", "f", 12345);
    std::locale::global(before);
    EXPECT_EQ("1234567 0.5", text);
    EXPECT_THAT(standardError.take(), ElementsAre(HasSubstr(" f:12345 [")));
}

TEST(LogSink, EmptyOneBringsTheDefaultBack) {
    StderrWrites standardError;
    { const Gathered gathered; }
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "text";
    EXPECT_EQ(1U, standardError.take().size());
}

TEST(LogSink, DropsWhatItThrows) {
    Gathered gathered;
    nLogging::gSetSink([](const nLogging::Record&) { throw std::runtime_error("sink"); });
    EXPECT_NO_THROW(PM_LOG_RECORD(Level::Error, "C", "f", 1) << "text");
    nLogging::gSetSink([&](const nLogging::Record& record) { gathered.texts.push_back(record.text); });
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "after";
    EXPECT_THAT(gathered.texts, ElementsAre("after"));
}

// A sink that logged for each record called itself until the stack was used up.
TEST(LogSink, MayLogItself) {
    StderrWrites standardError;
    Gathered gathered;
    nLogging::gSetSink([&](const nLogging::Record& record) {
        gathered.texts.push_back(record.text);
        PM_LOG_RECORD(Level::Error, "C", "f", 1) << "from the sink";
    });
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "one";
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "two";
    EXPECT_THAT(gathered.texts, ElementsAre("one", "two"));
    EXPECT_THAT(standardError.take(), ElementsAre(HasSubstr("from the sink"), HasSubstr("from the sink")));
}

TEST(LogSink, MayReplaceItself) {
    Gathered gathered;
    nLogging::gSetSink([&gathered](const nLogging::Record& first) {
        auto& texts = gathered.texts;
        nLogging::gSetSink([&texts](const nLogging::Record& later) { texts.push_back("second " + later.text); });
        texts.push_back("first " + first.text);  // the replaced sink still runs with its captures
    });
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "a";
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "b";
    EXPECT_THAT(gathered.texts, ElementsAre("first a", "second b"));
}

TEST(LogSink, MayChangeWhileOthersLog) {
    const LogCapture restored;
    std::atomic<int> delivered{0};
    const auto count = [&delivered](const nLogging::Record&) { ++delivered; };
    nLogging::gSetSink(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 500; ++k) PM_LOG_RECORD(Level::Error, "C", "f", k) << "text " << k;
        });
    }
    for (int k = 0; k < 500; ++k) {
        nLogging::gSetSink(count);
        nLogging::gEnable(Level::Incomplete, k % 2 == 0);
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(2000, delivered);
}

TEST(DefaultSink, WritesOneLineInOneWrite) {
    StderrWrites standardError;
    PM_LOG_RECORD(Level::Error, "Category", "../src/file", 61) << "some text";
    const std::vector<std::string> writes = standardError.take();
    ASSERT_EQ(1U, writes.size());
    const std::regex line(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z Error Category \.\./src/file:61 \[[^ ]+\] some text\n)");
    EXPECT_TRUE(std::regex_match(writes[0], line)) << writes[0];
}

// The time of the record, in UTC whatever the time zone.
TEST(DefaultSink, ALineBeginsWithTheTimeOfItsRecord) {
    const ScopedEnv elsewhere("TZ", "XXX-9");
    tzset();
    using std::chrono::system_clock;
    StderrWrites standardError;
    const auto before = system_clock::now();
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << "text";
    const auto after = system_clock::now();
    const std::string line = standardError.take().at(0);
    std::tm parts{};
    const char* const fraction = strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    ASSERT_NE(nullptr, fraction) << line;
    const auto time = system_clock::from_time_t(timegm(&parts)) + std::chrono::microseconds(std::stoi(fraction + 1));
    EXPECT_GE(time, std::chrono::time_point_cast<std::chrono::microseconds>(before)) << line;
    EXPECT_LE(time, after) << line;
}

TEST(DefaultSink, EscapesControlCharacters) {
    const struct {
        std::string text;
        const char* shown;
    } rows[] = {
        {"", "] \n"},
        {"a\nb", "] a\\nb\n"},
        {"\r\n\t", "] \\r\\n\\t\n"},
        {std::string("\0x", 2), "] \\x00x\n"},
        {"\x1b[31m\x7f", "] \\x1b[31m\\x7f\n"},
        {"\x1f and a blank", "] \\x1f and a blank\n"},
        {"a\\nb", "] a\\\\nb\n"},
        {"\xc3\xa4", "] \xc3\xa4\n"},
    };
    for (const auto& row : rows) {
        StderrWrites standardError;
        PM_LOG_RECORD(Level::Error, "C", "f", 1) << row.text;
        EXPECT_THAT(standardError.take(), ElementsAre(testing::EndsWith(row.shown)));
    }
}

TEST(DefaultSink, KeepsLongTextInOneWrite) {
    StderrWrites standardError;
    PM_LOG_RECORD(Level::Error, "C", "f", 1) << std::string(60'000, 'x');
    const std::vector<std::string> writes = standardError.take();
    ASSERT_EQ(1U, writes.size());
    EXPECT_GT(writes[0].size(), 60'000U);
    EXPECT_EQ('\n', writes[0].back());
}

TEST(LogEnvironment, PmLogNamesTheEnabledLevels) {
    const struct {
        const char* value;
        const char* enabled;
    } rows[] = {
        {nullptr, kLevelsAtStart},
        {"", kLevelsAtStart},
        {" , ,", kLevelsAtStart},
        {"none", ""},
        {"Trace", "Trace\n"},
        {"Error,Trace", "Error\nTrace\n"},
        {" Trace , Error,", "Error\nTrace\n"},
        {"none,Trace", "Trace\n"},
        {"WarningPerformance,ErrorPerformance,Incomplete,TraceDebugInfo",
         "TraceDebugInfo\nIncomplete\nErrorPerformance\nWarningPerformance\n"},
        {"all", "Error\nWarning\nTrace\nTraceDebugInfo\nExecution\nIncomplete\nErrorPerformance\nWarningPerformance\n"},
    };
    for (const auto& row : rows) {
        const ProgramResult host = runHost({{"PM_LOG", row.value}});
        EXPECT_EQ(0, host.status);
        EXPECT_EQ(row.enabled, host.out) << (row.value != nullptr ? row.value : "unset");
        EXPECT_EQ(linesIn(row.enabled), linesIn(host.err)) << host.err;
    }
}

TEST(LogEnvironment, PmLogWarnsOfUnknownLevels) {
    const struct {
        const char* value;
        const char* enabled;
        const char* unknown;
    } rows[] = {
        {"error", kLevelsAtStart, "error"},
        {"Trace,Verbose,x\ny", "Trace\n", "Verbose, x\\ny"},
        {"none,debug", "", "debug"},
    };
    for (const auto& row : rows) {
        const ProgramResult host = runHost({{"PM_LOG", row.value}});
        EXPECT_EQ(row.enabled, host.out) << row.value;
        EXPECT_THAT(host.err,
                    testing::StartsWith(std::string("PM_LOG: unknown level: ") + row.unknown + " " + kKnownLevels));
    }
}

TEST(LogEnvironment, PmLogFileIsAppendedTo) {
    const TempDir dir;
    const std::string path = dir.writeFile("log", "before\n");
    for (int run = 0; run < 2; ++run) {
        const ProgramResult host = runHost({{"PM_LOG_FILE", path.c_str()}});
        EXPECT_EQ("", host.err);
    }
    const std::string log = readFileText(path);
    EXPECT_EQ(1U + 2 * 3, linesIn(log));
    EXPECT_THAT(log, testing::StartsWith("before\n"));
    EXPECT_THAT(log, HasSubstr(" Warning Host host:1 ["));
}

TEST(LogEnvironment, PmLogFileThatCannotBeOpenedFallsBack) {
    const TempDir dir;
    const ProgramResult host = runHost({{"PM_LOG_FILE", dir.path().c_str()}, {"PM_LOG", "Error"}});
    EXPECT_EQ(0, host.status);
    EXPECT_THAT(host.err, testing::StartsWith("PM_LOG_FILE: cannot append to '" + dir.path() +
                                              "' (Is a directory), logging to standard error\n"));
    EXPECT_EQ(2U, linesIn(host.err));
}

TEST(LogEnvironment, PmLogFileThatIsEmptyIsNotSet) {
    const ProgramResult host = runHost({{"PM_LOG_FILE", ""}});
    EXPECT_EQ(3U, linesIn(host.err)) << host.err;
}

// The program stopped at its first record until somebody read the pipe.
TEST(LogEnvironment, PmLogFileThatIsAPipeWithoutReaderFallsBack) {
    const TempDir dir;
    ASSERT_EQ(0, mkfifo((dir / "pipe").c_str(), 0600));
    const ProgramResult host = runHost({{"PM_LOG_FILE", (dir / "pipe").c_str()}});
    EXPECT_EQ(0, host.status);
    EXPECT_THAT(host.err, HasSubstr("' (No such device or address), logging to standard error\n"));
}

// The first call reads the process environment and opens the log's file, here one that cannot be opened.
TEST(LogProcess, TheFirstCallLeavesErrnoAlsoWhereItsLevelIsDisabled) {
    const ProgramResult host = runHost({{"PM_LOG", "Error"}, {"PM_LOG_FILE", "/no/such/directory/log"}}, "errno");
    EXPECT_THAT(host.out, testing::StartsWith("errno 13\n"));
}

TEST(LogProcess, SurvivesClosedStandardError) { EXPECT_EQ(0, runHost({}, "close-stderr").status); }

TEST(LogProcess, LogsFromDestructorsAtExit) {
    const ProgramResult host = runHost({{"PM_LOG", "Error"}}, "log-at-exit");
    EXPECT_EQ(0, host.status);
    EXPECT_THAT(host.err, testing::EndsWith("] at exit\n"));
}
