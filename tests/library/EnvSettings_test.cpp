// Reading properties of settings files.
#include "EnvSettings.h"

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "krenvState.h"
#include "krs.h"
#include "support/LogCapture.h"
#include "support/LogExpectations.h"
#include "support/OnThread.h"
#include "support/Sanitized.h"
#include "support/ScopedEnv.h"
#include "support/ScopedTable.h"
#include "support/Settings.h"
#include "support/TempDir.h"

using nEnvSettings::gFileInitTable;
using nEnvSettings::gGetPropertyStream;
using nEnvSettings::gGetPropertyString;
using nEnvSettings::gPressmarkIniTable;
using nLogging::Level;
using testing::ElementsAre;
using testing::IsEmpty;

// --- the border to the settings tables ------------------------------------------------------------------------------

namespace {

int loads = 0;  // calls of KRSLoad by the library

}  // namespace

extern "C" {

// KRSLoad(const char*, int, KRSFilter)
int __real__Z7KRSLoadPKciPFS0_S0_S0_E(const char* path, int handle, KRSFilter filter);
int __wrap__Z7KRSLoadPKciPFS0_S0_S0_E(const char* path, int handle, KRSFilter filter);

int __wrap__Z7KRSLoadPKciPFS0_S0_S0_E(const char* path, int handle, KRSFilter filter) {
    ++loads;
    return __real__Z7KRSLoadPKciPFS0_S0_S0_E(path, handle, filter);
}
}

namespace {

void expectOneError(const LogCapture& log, const char* file, int line, const std::string& text) {
    const auto entries = log.entries();
    ASSERT_EQ(1u, entries.size());
    expectRecord(entries[0], Level::Error, file, text);
    EXPECT_EQ(line, entries[0].line);
}

/// Loads `fileName` by way of gFileInitTable; the table is released at the end of the scope.
class LoadedFile {
public:
    explicit LoadedFile(const char* fileName) {
        KREnvContainerClass env;
        gFileInitTable(env, fileName, handle_);
    }
    ~LoadedFile() { KRSDestroyTable(handle_); }
    LoadedFile(const LoadedFile&) = delete;
    LoadedFile& operator=(const LoadedFile&) = delete;

    int handle() const { return handle_; }
    const char* operator[](const char* key) const { return KRSGetValue(handle_, key); }

private:
    int handle_ = -1;
};

bool isUsableEmptyTable(int handle) {
    TempDir dir;
    return handle > 0 && KRSEntryCount(handle) == 0 &&
           KRSLoad(dir.writeFile("later.ini", "LATER = 1\n").c_str(), handle, nullptr) != 0 &&
           KRSGetValue(handle, "LATER") != nullptr;
}

}  // namespace

// --- gPressmarkIniTable ---------------------------------------------------------------------------------------------

TEST(GPressmarkIniTable, IsZeroAndAnErrorBeforeTheFileIsLoaded) {
    ASSERT_EQ(0, IniTable);
    const LogCapture log;
    EXPECT_EQ(0, gPressmarkIniTable());
    expectOneError(log, "../src/krenvf", 61, "");
    EXPECT_EQ(0, gPressmarkIniTable());
    EXPECT_EQ(2u, log.entries().size());
}

TEST(GPressmarkIniTable, IsTheLoadedTableAtEveryCallWithoutARecord) {
    const Settings ini("A = 1\n");
    const LogCapture log;
    const int handle = gPressmarkIniTable();
    EXPECT_EQ(IniTable, handle);
    EXPECT_EQ(handle, gPressmarkIniTable());
    EXPECT_STREQ("1", KRSGetValue(handle, "A"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GPressmarkIniTable, WritesNothingWhileErrorsAreDisabled) {
    const LogCapture log;
    nLogging::gEnable(Level::Error, false);
    EXPECT_EQ(0, gPressmarkIniTable());
    EXPECT_THAT(log.entries(), IsEmpty());
}

// --- gFileInitTable -------------------------------------------------------------------------------------------------

TEST(GFileInitTable, LoadsAFileOfTheDirectoryInTheSettingKrBin) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = 1\n[S]\nB = 2\n");
    const Settings ini("KR_BIN = " + bin.path() + "\n");
    const LogCapture log;
    const LoadedFile file("x.ini");
    EXPECT_STREQ("1", file["A"]);
    EXPECT_STREQ("2", file["S.B"]);
    EXPECT_EQ(nullptr, file["KR_BIN"]);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GFileInitTable, FileNameMayHaveDirectories) {
    const TempDir bin;
    bin.makeDirectory("sub");
    bin.writeFile("sub/x.ini", "A = 1\n");
    const Settings ini("KR_BIN = " + bin.path() + "\n");
    EXPECT_STREQ("1", LoadedFile("sub/x.ini")["A"]);
}

TEST(GFileInitTable, ProcessVariableAndRunTimeTableDoNotCount) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = 1\n");
    const ScopedEnv process("KR_BIN", bin.path().c_str());
    const Settings ini("OTHER = 1\n");
    KREnvContainerClass env;
    ASSERT_NE(nullptr, env.KRESetEnvValue("KR_BIN", bin.path().c_str()));
    const LogCapture log;
    const LoadedFile file("x.ini");
    EXPECT_EQ(nullptr, file["A"]);
    EXPECT_TRUE(isUsableEmptyTable(file.handle()));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GFileInitTable, ReferencesInKrBinAreExpanded) {
    const TempDir bin;
    bin.makeDirectory("deep");
    bin.writeFile("deep/x.ini", "A = 1\n");
    const ScopedEnv base("KRENV_TEST_BASE", bin.path().c_str());
    const Settings ini("LAST = deep\nKR_BIN = $(KRENV_TEST_BASE)/#(LAST)\n");
    EXPECT_STREQ("1", LoadedFile("x.ini")["A"]);
}

TEST(GFileInitTable, EveryOutcomeGivesAFreshTable) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = 1\n");
    std::set<int> handles;
    {
        const LogCapture quiet;
        KREnvContainerClass env;
        for (const std::string& text :
             {"KR_BIN = " + bin.path(), std::string("OTHER = 1"), std::string("KR_BIN = #(KR_BIN)")}) {
            const Settings ini(text + "\n");
            for (const char* const name : {"x.ini", "missing.ini", ""}) {
                int handle = 0;
                gFileInitTable(env, name, handle);
                handles.insert(handle);
            }
        }
        int handle = 12345;
        gFileInitTable(env, "x.ini", handle);  // no settings at all
        handles.insert(handle);
    }
    EXPECT_EQ(10u, handles.size());
    EXPECT_EQ(0u, handles.count(0) + handles.count(12345));
    for (const int handle : handles) KRSDestroyTable(handle);
}

TEST(GFileInitTable, WithoutKrBinTheTableIsEmptyAndNothingIsLogged) {
    const LogCapture log;
    for (const char* const text : {"OTHER = 1\n", "KR_BIN = #(KR_BIN)\n"}) {
        const Settings ini(text);
        const LoadedFile file("x.ini");
        EXPECT_TRUE(isUsableEmptyTable(file.handle()));
    }
    const LoadedFile beforeInitialisation("x.ini");
    EXPECT_TRUE(isUsableEmptyTable(beforeInitialisation.handle()));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GFileInitTable, MissingFileIsReportedByNameAndPath) {
    const Settings ini("KR_BIN = /opt/p/bin\n");
    const LogCapture log;
    const LoadedFile file("x.ini");
    expectOneError(log, "../src/EnvSettings", 27, "can't read file x.ini\t/opt/p/bin/x.ini");
    EXPECT_TRUE(isUsableEmptyTable(file.handle()));
}

TEST(GFileInitTable, PathIsComposedAsItStands) {
    const Settings ini("KR_BIN = /opt/p/bin/\n");
    const LogCapture log;
    const LoadedFile file("/x.ini");
    expectOneError(log, "../src/EnvSettings", 27, "can't read file /x.ini\t/opt/p/bin///x.ini");
}

TEST(GFileInitTable, FileThatCannotBeParsedIsReported) {
    const TempDir bin;
    bin.writeFile("x.ini", "GOOD = 1\nno equals sign\n");
    const Settings ini("KR_BIN = " + bin.path() + "\n");
    const LogCapture log;
    const LoadedFile file("x.ini");
    expectOneError(log, "../src/EnvSettings", 27, "can't read file x.ini\t" + bin.path() + "/x.ini");
    EXPECT_TRUE(isUsableEmptyTable(file.handle()));
}

TEST(GFileInitTable, WritesNothingWhileErrorsAreDisabled) {
    const Settings ini("KR_BIN = /opt/p/bin\n");
    const LogCapture log;
    nLogging::gEnable(Level::Error, false);
    const LoadedFile file("x.ini");
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GFileInitTable, ValuesAreStoredAsTheFileGivesThem) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = ${HOME} #{OTHER} $(HOME) #(OTHER)\nB = #{B}\n");
    const Settings ini("OTHER = other\nKR_BIN = " + bin.path() + "\n");
    const LoadedFile file("x.ini");
    EXPECT_STREQ("${HOME} #{OTHER} $(HOME) #(OTHER)", file["A"]);
    EXPECT_STREQ("#{B}", file["B"]);
}

TEST(GFileInitTable, PathOverTheLimitIsReportedAndNotLoaded) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = 1\n");
    const Settings ini("KR_BIN = " + bin.path() + "\n");
    const auto named = [&](std::size_t pathLength) {
        return std::string(pathLength - bin.path().size() - 1 - 5, '/') + "x.ini";
    };
    const LogCapture log;
    EXPECT_STREQ("1", LoadedFile(named(4095).c_str())["A"]);
    EXPECT_THAT(log.entries(), IsEmpty());
    for (const std::size_t length : {4096u, 4097u, 100'000u}) {
        const LogCapture inner;
        const int before = loads;
        const LoadedFile file(named(length).c_str());
        EXPECT_EQ(before, loads);
        EXPECT_TRUE(isUsableEmptyTable(file.handle()));
        expectOneError(inner, "../src/EnvSettings", 27,
                       "can't read file " + named(length) + "\t" + bin.path() + "/" + named(length));
    }
}

TEST(GFileInitTable, NullNameIsAFileThatCannotBeRead) {
    const Settings ini("KR_BIN = /opt/p/bin\n");
    const LogCapture log;
    const LoadedFile file(nullptr);
    EXPECT_TRUE(isUsableEmptyTable(file.handle()));
    expectOneError(log, "../src/EnvSettings", 27, "can't read file <NullChar*>\t/opt/p/bin/");
}

TEST(GFileInitTable, NameMayBeAValueThatTheContainerHasRead) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = 1\n");
    const Settings ini("KR_BIN = " + bin.path() + "\nFILE = x.ini\nMISSING = y.ini\n");
    KREnvContainerClass env;
    int handle = 0;
    nEnvSettings::gFileInitTable(env, env.KREGetEnv("FILE"), handle);
    EXPECT_STREQ("1", KRSGetValue(handle, "A"));
    KRSDestroyTable(handle);

    const LogCapture log;
    nEnvSettings::gFileInitTable(env, env.KREGetEnv("MISSING"), handle);
    expectOneError(log, "../src/EnvSettings", 27, "can't read file y.ini\t" + bin / "y.ini");
    KRSDestroyTable(handle);
}

// --- gGetPropertyString ---------------------------------------------------------------------------------------------

TEST(GGetPropertyString, HoldsTheExpandedValue) {
    const ScopedEnv process("KRENV_TEST_VALUE", "from the process");
    const Settings ini("X = from the settings\n");
    const ScopedTable values("A = <$(KRENV_TEST_VALUE)> <#(X)> <#(MISSING)>\nEMPTY =\n");
    const LogCapture log;
    OptionalValue<std::string> out;
    gGetPropertyString(out, values.handle(), "A");
    ASSERT_TRUE(out.has());
    EXPECT_EQ("<from the process> <from the settings> <>", out.get());
    OptionalValue<std::string> empty;
    gGetPropertyString(empty, values.handle(), "EMPTY");
    ASSERT_TRUE(empty.has());
    EXPECT_EQ("", empty.get());
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GGetPropertyString, ReferencesNeverResolveAgainstTheValuesOwnTable) {
    const Settings ini("SHARED = settings\n");
    const ScopedTable values("A = #(SHARED)#(OWN)\nSHARED = own\nOWN = own\n");
    OptionalValue<std::string> out;
    gGetPropertyString(out, values.handle(), "A");
    ASSERT_TRUE(out.has());
    EXPECT_EQ("settings", out.get());
}

TEST(GGetPropertyString, RunTimeTableDoesNotCount) {
    const Settings ini("X = settings\n");
    const ScopedTable values("A = #(X)\n");
    KREnvContainerClass env;
    ASSERT_NE(nullptr, env.KRESetEnvValue("X", "run-time"));
    OptionalValue<std::string> out;
    gGetPropertyString(out, values.handle(), "A");
    g_uTableSize = 0;
    EXPECT_EQ("settings", out.get());
}

TEST(GGetPropertyString, BraceReferencesStay) {
    const Settings ini("X = settings\n");
    const ScopedTable values("A = ${HOME}#{X}\n");
    OptionalValue<std::string> out;
    gGetPropertyString(out, values.handle(), "A");
    EXPECT_EQ("${HOME}#{X}", out.get());
}

TEST(GGetPropertyString, WhatCannotBeReadLeavesTheHolderAloneWithoutARecord) {
    const Settings ini("X = #(Y)\nY = #(X)\n");
    const ScopedTable values("CYCLE = #(X)\nLONG = " + std::string(2048, 'n') + "\n");
    const LogCapture log;
    OptionalValue<std::string> empty;
    OptionalValue<std::string> full;
    full.set("kept");
    const struct {
        int handle;
        const char* key;
    } rows[] = {{values.handle(), "MISSING"},
                {values.handle(), "cycle"},
                {values.handle(), nullptr},
                {values.handle(), "CYCLE"},
                {values.handle(), "LONG"},
                {0, "CYCLE"},
                {-1, "CYCLE"}};
    for (const auto& row : rows) {
        gGetPropertyString(empty, row.handle, row.key);
        EXPECT_FALSE(empty.has());
        gGetPropertyString(full, row.handle, row.key);
        EXPECT_EQ("kept", full.get());
    }
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GGetPropertyString, LongestValueArrivesWhole) {
    const ScopedTable values("A = " + std::string(2047, 'n') + "\n");
    OptionalValue<std::string> out;
    gGetPropertyString(out, values.handle(), "A");
    ASSERT_TRUE(out.has());
    EXPECT_EQ(std::string(2047, 'n'), out.get());
}

TEST(GGetPropertyString, FullHolderIsReportedAndReplaced) {
    const ScopedTable values("A = new\n");
    const LogCapture log;
    OptionalValue<std::string> out;
    out.set("old");
    gGetPropertyString(out, values.handle(), "A");
    EXPECT_EQ("new", out.get());
    ASSERT_EQ(1u, log.entries().size());
    EXPECT_EQ(Level::Error, log.entries()[0].level);
}

// --- gGetPropertyStream ---------------------------------------------------------------------------------------------

TEST(GGetPropertyStream, IsTheExpandedValue) {
    const TempDir bin;
    const ScopedEnv process("KR_BIN", bin.path().c_str());
    const ScopedTable values("LIB = $(KR_BIN)/lib\nEMPTY =\n");
    const LogCapture log;
    EXPECT_EQ(bin.path() + "/lib", gGetPropertyStream(values.handle(), "LIB"));
    EXPECT_EQ("", gGetPropertyStream(values.handle(), "EMPTY"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(GGetPropertyStream, ReadsPressmarkIni) {
    const Settings ini("A = #(B)!\nB = value\n");
    EXPECT_EQ("value!", gGetPropertyStream(gPressmarkIniTable(), "A"));
}

TEST(GGetPropertyStream, ReadsTheFileThatWasLoadedFromKrBin) {
    const TempDir bin;
    bin.writeFile("x.ini", "A = #(KR_BIN)/lib\n");
    const Settings ini("KR_BIN = " + bin.path() + "\n");
    const LoadedFile file("x.ini");
    EXPECT_STREQ("#(KR_BIN)/lib", file["A"]);
    EXPECT_EQ(bin.path() + "/lib", gGetPropertyStream(file.handle(), "A"));
}

TEST(GGetPropertyStream, MissingKeyIsEmptyAndReportedOnce) {
    const ScopedTable values("A = 1\n");
    const LogCapture log;
    EXPECT_EQ("", gGetPropertyStream(values.handle(), "MISSING"));
    expectOneError(log, "../src/EnvSettings", 47, "can't find MISSING");
}

TEST(GGetPropertyStream, WhatCannotBeReadIsReported) {
    const Settings ini("X = #(X)\n");
    const ScopedTable values("CYCLE = #(X)\nLONG = " + std::string(2048, 'n') + "\n");
    const struct {
        int handle;
        const char* key;
        const char* text;
    } rows[] = {
        {values.handle(), "CYCLE", "can't find CYCLE"},
        {values.handle(), "LONG", "can't find LONG"},
        {values.handle(), "", "can't find "},
        {values.handle(), nullptr, "can't find <NullChar*>"},
        {0, "A", "can't find A"},
    };
    for (const auto& row : rows) {
        const LogCapture log;
        EXPECT_EQ("", gGetPropertyStream(row.handle, row.key));
        expectOneError(log, "../src/EnvSettings", 47, row.text);
    }
}

TEST(GGetPropertyStream, WritesNothingWhileErrorsAreDisabled) {
    const LogCapture log;
    nLogging::gEnable(Level::Error, false);
    EXPECT_EQ("", gGetPropertyStream(0, "A"));
    EXPECT_THAT(log.entries(), IsEmpty());
}

// --- threads --------------------------------------------------------------------------------------------------------

TEST(GGetPropertyStream, ManyThreadsMayReadOneTable) {
    const Settings ini("X = settings\n");
    const ScopedTable values("A = <#(X)>\n");
    std::vector<int> good(4);
    std::vector<std::thread> readers;
    for (int& count : good) {
        readers.emplace_back([&] {
            for (int i = 0; i < 500; ++i) count += gGetPropertyStream(values.handle(), "A") == "<settings>" ? 1 : 0;
        });
    }
    for (std::thread& reader : readers) reader.join();
    EXPECT_THAT(good, testing::Each(500));
}

namespace {

// What one property read is promised to need, and beside it what a thread needs to start and log. Sanitizers widen
// every frame.
constexpr std::size_t kSmallStack = (kSanitized ? 512 : 40 + 24) * 1024;

}  // namespace

TEST(GGetPropertyStream, ReadsOnAThreadWithASmallStack) {
    const Settings ini("X = <#(Y)>\nY = settings\n");
    const ScopedTable values("A = #(X)\n");
    std::string value;
    onThread(kSmallStack, [&] { value = gGetPropertyStream(values.handle(), "A"); });
    EXPECT_EQ("<settings>", value);
}

TEST(GGetPropertyStream, ReadsTheLongestChainOnAThreadWithASmallStack) {
    std::string chain = "C1 = end\n";
    for (int i = 2; i <= 511; ++i) chain += "C" + std::to_string(i) + " = #(C" + std::to_string(i - 1) + ")\n";
    const Settings ini(chain);
    std::string value;
    onThread(kSmallStack, [&] { value = gGetPropertyStream(IniTable, "C511"); });
    EXPECT_EQ("end", value);
}

TEST(GGetPropertyStream, ReportsOnAThreadWithASmallStack) {
    const LogCapture log;
    onThread(kSmallStack, [] { gGetPropertyStream(0, "MISSING"); });
    expectOneError(log, "../src/EnvSettings", 47, "can't find MISSING");
}
