#include "krs.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/InChild.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A table and a place for the files that are loaded into it.
struct SettingsTest : testing::Test {
    ~SettingsTest() override { KRSDestroyTable(table); }

    int load(const std::string& text, KRSFilter filter = nullptr) {
        return KRSLoad(dir.writeFile("a.ini", text).c_str(), table, filter);
    }
    std::string value(const std::string& key) const {
        const char* const found = KRSGetValue(table, key.c_str());
        return found != nullptr ? found : "(none)";
    }
    // "LINE KEY=VALUE" for each entry, with a minus in front of one that is no longer in force.
    std::vector<std::string> entries() const {
        std::vector<std::string> texts;
        KRSEntry entry{};
        for (std::size_t i = 0; KRSGetEntry(table, i, &entry); ++i) {
            texts.push_back((entry.inForce ? "" : "-") + std::to_string(entry.line) + " " + entry.key + "=" +
                            entry.value);
        }
        return texts;
    }

    const TempDir dir;
    const int table = KRSCreateTable();
};

using KRSLoadTest = SettingsTest;
using KRSGetValueTest = SettingsTest;
using KRSFilterTest = SettingsTest;
using KRSEntryTest = SettingsTest;
using KRSLoadErrorTest = SettingsTest;
using SettingsGrammarTest = SettingsTest;

// What the filter of the running test does; a KRSFilter is a plain function.
std::function<const char*(const char*, const char*)> filterBody;
const char* filter(const char* key, const char* value) { return filterBody(key, value); }

// Answers in front of the real read, one for each call; afterwards the real one answers.
std::vector<std::function<ssize_t(void*, std::size_t)>> readAnswers;

ssize_t answerRead(void* buffer, std::size_t size) {
    const auto answer = readAnswers.front();
    readAnswers.erase(readAnswers.begin());
    return answer(buffer, size);
}

ssize_t failRead(int error) {
    errno = error;
    return -1;
}

}  // namespace

// Seen from outside, because the sanitizers' own libraries read too.
extern "C" ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
extern "C" KRF_EXPORT ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    return readAnswers.empty() ? __real_read(descriptor, buffer, size) : answerRead(buffer, size);
}

// --- grammar --------------------------------------------------------------------------------------------------------

TEST_F(SettingsGrammarTest, Accepts) {
    const struct {
        const char* text;
        const char* key;
        const char* value;
    } rows[] = {
        {"A=1", "A", "1"},
        {"A=1\n", "A", "1"},
        {"A=1\r\n", "A", "1"},
        {"A=1\r", "A", "1"},
        {"\357\273\277A=1\n", "A", "1"},
        {"A=1\n\n \t\n;=\n#=\n  ;\nB=2", "B", "2"},
        {" \tA b\t = \tc d\t \n", "A b", "c d"},
        {"A==b=c", "A", "=b=c"},
        {"A=", "A", ""},
        {"A= \t", "A", ""},
        {"A=\"  x \"", "A", "  x "},
        {"A=\"\"", "A", ""},
        {"A=\"\"x\"\"", "A", "\"x\""},
        {"A=\"", "A", "\""},
        {"A=\"x", "A", "\"x"},
        {"A=x\"", "A", "x\""},
        {"A= \"x\" \t\r\n", "A", "x"},
        {"A=x ; y # z", "A", "x ; y # z"},
        {"A=#(B)", "A", "#(B)"},
        {"A=1\nA=2\n", "A", "2"},
        {"[S]\nA=1", "S.A", "1"},
        {"[S]\r\nA=1", "S.A", "1"},
        {" [ S x ] \nA=1", "S x.A", "1"},
        {"[S] ; comment\nA=1", "S.A", "1"},
        {"[S]\n[]\nA=1", "A", "1"},
        {"A=1\n[S]\nA=2", "A", "1"},
        {"A=1\n[S]\nA=2", "S.A", "2"},
        {"[S]\nA=1\n[T]\nB=2\n[S]\nA=3", "S.A", "3"},
        {"\xff\x01=\x80", "\xff\x01", "\x80"},
    };
    for (const auto& row : rows) {
        const int fresh = KRSCreateTable();
        EXPECT_NE(0, KRSLoad(dir.writeFile("a.ini", row.text).c_str(), fresh, nullptr)) << KRSLoadError();
        EXPECT_STREQ(row.value, KRSGetValue(fresh, row.key)) << row.text;
        KRSDestroyTable(fresh);
    }
}

TEST_F(SettingsGrammarTest, Refuses) {
    const struct {
        std::string text;
        const char* error;
    } rows[] = {
        {"A", ":1:1: missing '=', expected KEY = value"},
        {"A=1\n \tB\n", ":2:3: missing '=', expected KEY = value"},
        {"=1", ":1:1: missing key before '=', expected KEY = value"},
        {"\n\t = 1", ":2:3: missing key before '=', expected KEY = value"},
        {"[", ":1:1: missing ']' after the section name, expected [name]"},
        {"A=1\r\n [S\r\n]", ":2:2: missing ']' after the section name, expected [name]"},
        {"[S] A=1", ":1:5: unexpected text after ']', expected [name] alone"},
        {std::string("A=1\n\0", 5), ":2:1: NUL byte; a settings file is plain text"},
        {std::string("A=1\n;c\0\n", 8), ":2:3: NUL byte; a settings file is plain text"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(0, load(row.text)) << row.text;
        EXPECT_EQ((dir / "a.ini") + row.error, KRSLoadError());
        EXPECT_THAT(entries(), IsEmpty());
    }
}

// --- tables ---------------------------------------------------------------------------------------------------------

TEST(KRSCreateTable, NeverGivesAHandleTwice) {
    int last = 0;
    for (int i = 0; i < 1000; ++i) {
        const int table = KRSCreateTable();
        EXPECT_GT(table, last);
        last = table;
        KRSDestroyTable(table);
    }
}

#ifndef KRENV_SANITIZED  // sanitizers end a program that runs out of memory
TEST(KRSCreateTable, IsZeroWhereMemoryRunsOutAndALoadSaysSo) {
    const TempDir dir;
    const std::string path = dir.writeFile("a.ini", "A=1\n");
    EXPECT_EQ("no table; load 0: out of memory", inChild([&] {
                  auto reserve = std::make_unique<char[]>(100'000);
                  int table = KRSCreateTable(), more = table;
                  const rlimit asItIs{0, 0};
                  setrlimit(RLIMIT_AS, &asItIs);
                  for (int i = 0; i < 1'000'000 && more != 0; ++i) more = KRSCreateTable();
                  const int loaded = KRSLoad(path.c_str(), table, nullptr);
                  reserve.reset();
                  return (more == 0 ? "no table; load " : "a table; load ") + std::to_string(loaded) + ": " +
                         KRSLoadError();
              }));
}
#endif

TEST(KRSCreateTable, ManyTablesStayApart) {
    const TempDir dir;
    std::vector<int> tables;
    for (int i = 0; i < 300; ++i) {
        tables.push_back(KRSCreateTable());
        const std::string path = dir.writeFile("a.ini", "NUMBER=" + std::to_string(i));
        ASSERT_NE(0, KRSLoad(path.c_str(), tables.back(), nullptr));
    }
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(std::to_string(i), KRSGetValue(tables[static_cast<std::size_t>(i)], "NUMBER"));
    }
    for (const int table : tables) KRSDestroyTable(table);
    for (const int table : tables) EXPECT_EQ(nullptr, KRSGetValue(table, "NUMBER"));
}

TEST(KRSCreateTable, ServesSeveralThreads) {
    const TempDir dir;
    const std::string path = dir.writeFile("a.ini", "A=1\n");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 100; ++k) {
                const int table = KRSCreateTable();
                EXPECT_NE(0, KRSLoad(path.c_str(), table, nullptr));
                EXPECT_STREQ("1", KRSGetValue(table, "A"));
                KRSDestroyTable(table);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(KRSGetValueTest, ServesSeveralThreads) {
    ASSERT_NE(0, load("A=1\nB=2\n"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 1000; ++k) EXPECT_STREQ("2", KRSGetValue(table, "B"));
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(KRSHandle, WithoutTableHasNothing) {
    const int destroyed = KRSCreateTable();
    KRSDestroyTable(destroyed);
    const int unknown = KRSCreateTable() + 1;
    for (const int handle : {0, -1, INT_MIN, INT_MAX, 1 << 30, destroyed, unknown}) {
        KRSEntry entry{"key", "value", 7, true};
        EXPECT_EQ(nullptr, KRSGetValue(handle, "A")) << handle;
        EXPECT_EQ(0U, KRSEntryCount(handle)) << handle;
        EXPECT_FALSE(KRSGetEntry(handle, 0, &entry)) << handle;
        EXPECT_EQ(7, entry.line);
        KRSDestroyTable(handle);
        EXPECT_EQ(0, KRSLoad("/dev/null", handle, nullptr));
        EXPECT_EQ("/dev/null: there is no settings table with handle " + std::to_string(handle),
                  std::string(KRSLoadError()));
    }
    KRSDestroyTable(unknown - 1);
}

TEST_F(KRSGetValueTest, MatchesKeysByteByByte) {
    ASSERT_NE(0, load("Key=1\n[S]\nKey=2\n"));
    EXPECT_EQ("1", value("Key"));
    EXPECT_EQ("2", value("S.Key"));
    for (const char* const key : {"key", "KEY", "Ke", "Key ", "Key1", "", "S", "s.Key", ".Key", "S."}) {
        EXPECT_EQ("(none)", value(key)) << key;
    }
    EXPECT_EQ(nullptr, KRSGetValue(table, nullptr));
}

TEST_F(KRSGetValueTest, EmptyTableHasNothing) { EXPECT_EQ("(none)", value("A")); }

TEST_F(KRSGetValueTest, TextsStayWhileTheTableLives) {
    ASSERT_NE(0, load("A=first\n"));
    const char* const first = KRSGetValue(table, "A");
    for (int i = 0; i < 100; ++i) {
        std::string text = "A=later\n";
        for (int k = 0; k < 50; ++k) text += "K" + std::to_string(i * 50 + k) + "=v\n";
        ASSERT_NE(0, load(text));
    }
    EXPECT_STREQ("first", first);
    EXPECT_EQ("later", value("A"));
    EXPECT_EQ(5101U, KRSEntryCount(table));
}

// --- loading --------------------------------------------------------------------------------------------------------

TEST_F(KRSLoadTest, AddsToWhatTheTableHolds) {
    ASSERT_NE(0, load("[S]\nA=1\nB=2\n"));
    ASSERT_NE(0, load("A=3\n[S]\nB=4\n"));
    EXPECT_THAT(entries(), ElementsAre("2 S.A=1", "-3 S.B=2", "1 A=3", "3 S.B=4"));
}

TEST_F(KRSLoadTest, FailureLeavesTableAsItWas) {
    ASSERT_NE(0, load("A=1\n"));
    EXPECT_EQ(0, load("A=2\nB=3\nC\n"));
    EXPECT_THAT(entries(), ElementsAre("1 A=1"));
    EXPECT_EQ("1", value("A"));
}

TEST_F(KRSLoadTest, LogsNothing) {
    const LogCapture log;
    load("A=1\n");
    load("A\n");
    KRSLoad("/no/such/file", table, nullptr);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(KRSLoadTest, ClosesTheFile) {
    const int before = dup(STDOUT_FILENO);
    close(before);
    load("A=1\n");
    load("A\n");
    const int after = dup(STDOUT_FILENO);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_F(KRSLoadTest, ReadsOnAfterInterruptsAndShortReads) {
    readAnswers = {
        [](void*, std::size_t) { return failRead(EINTR); },
        [](void* buffer, std::size_t) {
            std::memcpy(buffer, "A=", 2);
            return ssize_t{2};
        },
        [](void*, std::size_t) { return failRead(EINTR); },
        [](void* buffer, std::size_t) {
            std::memcpy(buffer, "1\nB=2", 5);
            return ssize_t{5};
        },
        [](void*, std::size_t) { return ssize_t{0}; },
    };
    EXPECT_NE(0, load("x")) << KRSLoadError();
    EXPECT_THAT(entries(), ElementsAre("1 A=1", "2 B=2"));
}

TEST_F(KRSLoadTest, FileMayGrowWhileItIsRead) {
    const auto fill = [](void* buffer, std::size_t size) {
        std::memset(buffer, '\n', size);
        return static_cast<ssize_t>(size);
    };
    const auto lastLine = [](void* buffer, std::size_t) {
        std::memcpy(buffer, "A=1", 3);
        return ssize_t{3};
    };
    readAnswers = {fill, fill, fill, lastLine};
    EXPECT_NE(0, load("")) << KRSLoadError();
    EXPECT_EQ("1", value("A"));
    EXPECT_EQ(1U, KRSEntryCount(table));
}

TEST_F(KRSLoadTest, FileMayBecomeUnreadableHalfWay) {
    readAnswers = {
        [](void* buffer, std::size_t) {
            std::memcpy(buffer, "A=1\n", 4);
            return ssize_t{4};
        },
        [](void*, std::size_t) { return failRead(EIO); },
    };
    EXPECT_EQ(0, load("A=1\nB=2\n"));
    EXPECT_EQ((dir / "a.ini") + ": cannot read the file: Input/output error", KRSLoadError());
    EXPECT_THAT(entries(), IsEmpty());
}

// --- the error's text -----------------------------------------------------------------------------------------------

TEST(KRSLoadError, IsEmptyUntilALoadFails) {
    std::string error = "not asked";
    std::thread([&] { error = KRSLoadError(); }).join();
    EXPECT_EQ("", error);
}

TEST_F(KRSLoadErrorTest, TellsOfMissingPath) {
    for (const char* const path : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(0, KRSLoad(path, table, nullptr));
        EXPECT_STREQ("no path given", KRSLoadError());
    }
}

TEST_F(KRSLoadErrorTest, StaysAfterALoadThatSucceeds) {
    load("A");
    const std::string error = KRSLoadError();
    ASSERT_NE(0, load("A=1"));
    EXPECT_EQ(error, KRSLoadError());
}

TEST_F(KRSLoadErrorTest, BelongsToTheThread) {
    load("A");
    const std::string error = KRSLoadError();
    std::thread([&] {
        EXPECT_EQ(0, KRSLoad("/no/such/file", table, nullptr));
        EXPECT_STREQ("/no/such/file: cannot open the file: No such file or directory", KRSLoadError());
    }).join();
    EXPECT_EQ(error, KRSLoadError());
}

// --- filters --------------------------------------------------------------------------------------------------------

TEST_F(KRSFilterTest, GetsKeyAsStoredAndValueInFileOrder) {
    std::vector<std::string> calls;
    filterBody = [&](const char* key, const char* value) {
        calls.push_back(std::string(key) + "=" + value);
        return value;
    };
    ASSERT_NE(0, load("A=1\n[S]\nB=\" 2 \"\nA=\nB=3\n", filter));
    EXPECT_THAT(calls, ElementsAre("A=1", "S.B= 2 ", "S.A=", "S.B=3"));
    EXPECT_THAT(entries(), ElementsAre("1 A=1", "-3 S.B= 2 ", "4 S.A=", "5 S.B=3"));
}

TEST_F(KRSFilterTest, ResultIsCopiedBeforeTheNextCall) {
    std::string result;
    filterBody = [&](const char*, const char* value) {
        result = std::string("<") + value + ">";
        return result.c_str();
    };
    ASSERT_NE(0, load("A=1\nB=2\n", filter));
    EXPECT_EQ("<1>", value("A"));
    EXPECT_EQ("<2>", value("B"));
}

TEST_F(KRSFilterTest, TheFirstTextThatItChangesMayBecomeEmpty) {
    filterBody = [](const char*, const char*) { return ""; };
    ASSERT_NE(0, load("A=1\nB=2", filter));
    EXPECT_EQ("", value("A"));
    EXPECT_EQ("", value("B"));
}

TEST_F(KRSFilterTest, IsNotCalledForAFileWithErrors) {
    int calls = 0;
    filterBody = [&](const char*, const char* value) {
        ++calls;
        return value;
    };
    EXPECT_EQ(0, load("A=1\nB\n", filter));
    EXPECT_EQ(0, calls);
}

TEST_F(KRSFilterTest, SeesWhatStandsAbove) {
    std::vector<std::string> seen;
    filterBody = [&](const char*, const char* text) {
        seen.push_back(value("A") + " " + value("B"));
        return text;
    };
    ASSERT_NE(0, load("B=0\nA=1\nB=2\nA=3\n", filter));
    EXPECT_THAT(seen, ElementsAre("(none) (none)", "(none) 0", "1 0", "1 2"));
}

TEST_F(KRSFilterTest, MayAnswerATextOfTheTable) {
    filterBody = [&](const char*, const char* text) { return *text == '@' ? KRSGetValue(table, text + 1) : text; };
    ASSERT_NE(0, load("A=1\nB=@A\nA=2\nC=@B\nD=@missing\n", filter));
    EXPECT_THAT(entries(), ElementsAre("-1 A=1", "2 B=1", "3 A=2", "4 C=1"));
}

TEST_F(KRSFilterTest, NullLeavesTheEntryOutAndTheEarlierValueInForce) {
    filterBody = [](const char*, const char* value) { return std::strcmp(value, "drop") == 0 ? nullptr : value; };
    ASSERT_NE(0, load("A=1\nB=drop\nA=drop\nC=3\n", filter));
    EXPECT_THAT(entries(), ElementsAre("1 A=1", "4 C=3"));
    EXPECT_EQ("1", value("A"));
    EXPECT_EQ("(none)", value("B"));
}

TEST_F(KRSFilterTest, ExceptionPassesAndEntriesAboveStay) {
    filterBody = [](const char*, const char* value) {
        if (std::strcmp(value, "throw") == 0) throw std::runtime_error("filter");
        return value;
    };
    EXPECT_THROW(load("A=1\nB=throw\nC=3\n", filter), std::runtime_error);
    EXPECT_THAT(entries(), ElementsAre("1 A=1"));
    ASSERT_NE(0, load("B=2\n", filter));
    EXPECT_THAT(entries(), ElementsAre("1 A=1", "1 B=2"));
}

TEST_F(KRSFilterTest, LackOfMemoryIsAFailedLoad) {
    filterBody = [](const char* key, const char* value) -> const char* {
        if (*key == 'B') throw std::bad_alloc();
        if (*key == 'L') throw std::length_error("filter");
        return value;
    };
    EXPECT_EQ(0, load("A=1\nB=2\n", filter));
    EXPECT_EQ((dir / "a.ini") + ": not enough memory", KRSLoadError());
    EXPECT_EQ(0, load("L=1\n", filter));
    EXPECT_EQ((dir / "a.ini") + ": not enough address space", KRSLoadError());
    EXPECT_THAT(entries(), ElementsAre("1 A=1"));
}

TEST_F(KRSFilterTest, MayLoadIntoTheSameTable) {
    const std::string inner = dir.writeFile("inner.ini", "I=1\nJ=2\nA=inner\n");
    filterBody = [&](const char* key, const char* value) {
        if (*key == 'X') {
            EXPECT_NE(0, KRSLoad(inner.c_str(), table, nullptr));
        }
        return value;
    };
    ASSERT_NE(0, load("A=1\nX=2\nB=3\n", filter));
    EXPECT_THAT(entries(), ElementsAre("-1 A=1", "1 I=1", "2 J=2", "3 A=inner", "2 X=2", "3 B=3"));
    EXPECT_EQ("inner", value("A"));
    EXPECT_EQ("3", value("B"));
}

TEST_F(KRSFilterTest, MayDestroyTheTable) {
    std::vector<std::string> seen;
    filterBody = [&](const char* key, const char* text) {
        if (*key == 'C') KRSDestroyTable(table);
        seen.push_back(value("A"));
        return text;
    };
    load("A=1\nB=2\nC=3\nD=4\n", filter);
    EXPECT_THAT(seen, ElementsAre("(none)", "1", "(none)", "(none)"));
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(KRSFilterTest, MayDestroyTheTableAndThrow) {
    filterBody = [&](const char*, const char*) -> const char* {
        KRSDestroyTable(table);
        throw std::runtime_error("filter");
    };
    EXPECT_THROW(load("A=1\n", filter), std::runtime_error);
    EXPECT_EQ("(none)", value("A"));
}

// --- entries --------------------------------------------------------------------------------------------------------

TEST_F(KRSEntryTest, AreInFileOrderWithTheirLines) {
    ASSERT_NE(0, load("; c\nB=1\n\n[S]\nA=2\n[]\nB=3\n"));
    EXPECT_EQ(3U, KRSEntryCount(table));
    EXPECT_THAT(entries(), ElementsAre("-2 B=1", "5 S.A=2", "7 B=3"));
}

TEST_F(KRSEntryTest, PastTheEndIsUntouched) {
    ASSERT_NE(0, load("A=1\n"));
    KRSEntry entry{"key", "value", 7, true};
    EXPECT_FALSE(KRSGetEntry(table, 1, &entry));
    EXPECT_FALSE(KRSGetEntry(table, static_cast<std::size_t>(-1), &entry));
    EXPECT_EQ(7, entry.line);
    EXPECT_FALSE(KRSGetEntry(table, 0, nullptr));
}

// --- lines ----------------------------------------------------------------------------------------------------------

namespace {

// "LINE:KEYCOLUMN KEY=VALUECOLUMN VALUE" for an entry, "LINE:COLUMN ERROR" for a refused line, else "LINE TEXT".
std::string described(const KRSLine& line) {
    const std::string number = std::to_string(line.number);
    if (line.error != nullptr) return number + ":" + std::to_string(line.errorColumn) + " " + line.error;
    if (line.key == nullptr) return number + " " + std::string(line.text);
    return number + ":" + std::to_string(line.keyColumn) + " " + line.key + "=" + std::to_string(line.valueColumn) +
           " " + line.value;
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    EXPECT_NE(0, KRSReadLines(path.c_str(), [&](const KRSLine& line) { lines.push_back(described(line)); }))
        << KRSLoadError();
    return lines;
}

}  // namespace

TEST(KRSReadLines, TellsWhereKeysAndValuesStand) {
    const TempDir dir;
    EXPECT_THAT(linesOf(dir.writeFile("a.ini", "\357\273\277A=1\r\n\n; c\n [S]\n\tB =\t\" x \" \nC=\nD=\"\"")),
                ElementsAre("1:1 A=3 1", "2 ", "3 ; c", "4  [S]", "5:2 S.B=7  x ", "6:1 S.C=3 ", "7:1 S.D=4 "));
    EXPECT_THAT(linesOf(dir.writeFile("a.ini", "")), IsEmpty());
}

TEST(KRSReadLines, GivesTheLineAsItStands) {
    const TempDir dir;
    std::vector<std::string> texts;
    const std::string path = dir.writeFile("a.ini", std::string(" A = \"x\" \r\n[S]\nB\0C\n=\n", 20));
    KRSReadLines(path.c_str(), [&](const KRSLine& line) { texts.emplace_back(line.text); });
    EXPECT_THAT(texts, ElementsAre(" A = \"x\" ", "[S]", std::string("B\0C", 3), "="));
}

TEST(KRSReadLines, GoesOnBehindLinesThatAreRefused) {
    const TempDir dir;
    EXPECT_THAT(linesOf(dir.writeFile("a.ini", "[S]\nA\n[T\n[U] x\n =1\nB=2\n")),
                ElementsAre("1 [S]", "2:1 missing '=', expected KEY = value",
                            "3:1 missing ']' after the section name, expected [name]",
                            "4:5 unexpected text after ']', expected [name] alone",
                            "5:2 missing key before '=', expected KEY = value", "6:1 S.B=3 2"));
}

TEST(KRSReadLines, FailsWhereTheFileCannotBeRead) {
    const auto never = [](const KRSLine&) { ADD_FAILURE(); };
    EXPECT_EQ(0, KRSReadLines("/no/such/file", never));
    EXPECT_STREQ("/no/such/file: cannot open the file: No such file or directory", KRSLoadError());
    EXPECT_EQ(0, KRSReadLines(nullptr, never));
    EXPECT_STREQ("no path given", KRSLoadError());
}

TEST(KRSReadLines, WhatTheVisitorThrowsPassesThrough) {
    const TempDir dir;
    const std::string path = dir.writeFile("a.ini", "A=1\n");
    EXPECT_THROW(KRSReadLines(path.c_str(), [](const KRSLine&) { throw std::runtime_error("visitor"); }),
                 std::runtime_error);
    EXPECT_EQ(0, KRSReadLines(path.c_str(), [](const KRSLine&) { throw std::bad_alloc(); }));
    EXPECT_EQ(path + ": not enough memory", KRSLoadError());
}
