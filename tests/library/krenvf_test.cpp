// The variable tables: what the host sets, what pressmark.ini holds, and how they are looked up.
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "krenv.h"
#include "krenvState.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/Settings.h"

namespace {

// Where in the object a result lies.
std::ptrdiff_t offsetIn(const KREnvContainerClass& object, const char* result) {
    return result - reinterpret_cast<const char*>(&object);
}

constexpr std::ptrdiff_t kBuffers = sizeof(char*);  // behind the pointer

TEST(KREnvContainerClass, HasTheSizeThatProgramsKnow) {
    EXPECT_EQ(sizeof(char*) + 9 * 4096 + 2048, sizeof(KREnvContainerClass));
    EXPECT_FALSE(std::is_polymorphic_v<KREnvContainerClass>);
    EXPECT_FALSE(std::is_copy_constructible_v<KREnvContainerClass>);
}

TEST(KREnvContainerClass, ConstructorClearsThePointerAndTheFirstCharacterOfEachBuffer) {
    alignas(KREnvContainerClass) static unsigned char memory[sizeof(KREnvContainerClass)];
    std::memset(memory, 'x', sizeof memory);
    auto* const object = new (memory) KREnvContainerClass;
    std::vector<std::size_t> cleared;
    for (std::size_t i = 0; i < sizeof memory; ++i) {
        if (memory[i] == 0) cleared.push_back(i);
    }
    std::vector<std::size_t> expected;
    for (std::size_t i = 0; i < sizeof(char*); ++i) expected.push_back(i);
    for (std::size_t i = 0; i < 8; ++i) expected.push_back(sizeof(char*) + i * 4096);
    for (std::size_t i = 0; i < 2; ++i) expected.push_back(sizeof(char*) + 7 * 4096 + 2048 + i * 4096);
    EXPECT_EQ(expected, cleared);
    object->~KREnvContainerClass();
}

TEST(KREnvContainerClass, ResultsLieInTheDocumentedBuffers) {
    const Settings settings("A = v\n");
    const ScopedEnv home("HOME", "/home/u");
    const ScopedEnv documents("MYDOCUMENTS", "/docs");
    KREnvContainerClass env;
    EXPECT_EQ(kBuffers, offsetIn(env, env.searchInPath("passwd", "/etc")));
    EXPECT_EQ(kBuffers + 1 * 4096, offsetIn(env, env.KRPGetUserDir()));
    EXPECT_EQ(kBuffers + 2 * 4096, offsetIn(env, env.KRPGetCwd()));
    EXPECT_EQ(kBuffers + 3 * 4096, offsetIn(env, env.KRPGetPathDirectory("a/b.c")));
    EXPECT_EQ(kBuffers + 4 * 4096, offsetIn(env, env.KRPGetPathName("a/b.c")));
    EXPECT_EQ(kBuffers + 5 * 4096, offsetIn(env, env.KRPGetPathExt("a/b.c")));
    EXPECT_EQ(kBuffers + 6 * 4096, offsetIn(env, env.KRPMakePath("a", "b", "c")));
    EXPECT_EQ(kBuffers + 7 * 4096, offsetIn(env, env.KREGetEnv("A")));
    EXPECT_EQ(kBuffers + 7 * 4096 + 2048, offsetIn(env, env.KRPGetMyDocuments()));
}

// --- KRESetEnvValue -------------------------------------------------------------------------------------------------

class RunTimeTable : public testing::Test {
protected:
    ~RunTimeTable() override { g_uTableSize = 0; }
    KREnvContainerClass env;
};

TEST_F(RunTimeTable, StartsEmpty) { EXPECT_EQ(0U, g_uTableSize); }

TEST_F(RunTimeTable, EntriesAreTwoFieldsOf256CharactersInOneArray) {
    EXPECT_EQ(1024U * 512, sizeof g_volatileEnvTable);
    EXPECT_EQ(256U, offsetof(VolatileEnvEntry, value));
    env.KRESetEnvValue("A", "1");
    env.KRESetEnvValue("B", "2");
    const char* const raw = reinterpret_cast<const char*>(g_volatileEnvTable);
    EXPECT_STREQ("A", raw);
    EXPECT_STREQ("1", raw + 256);
    EXPECT_STREQ("B", raw + 512);
    EXPECT_STREQ("2", raw + 768);
}

TEST_F(RunTimeTable, SetReturnsTheStoredValue) {
    const char value[] = "v";
    const char* const stored = env.KRESetEnvValue("A", value);
    EXPECT_STREQ("v", stored);
    EXPECT_EQ(g_volatileEnvTable[0].value, stored);
}

TEST_F(RunTimeTable, SettingTwiceKeepsOneEntryWithTheSecondValue) {
    const char* const first = env.KRESetEnvValue("A", "a longer first value");
    const char* const second = env.KRESetEnvValue("A", "second");
    EXPECT_EQ(first, second);
    EXPECT_STREQ("second", env.KREGetEnvValue("A"));
    EXPECT_EQ(1U, g_uTableSize);
}

TEST_F(RunTimeTable, EntriesStayInTheOrderOfTheirFirstSetting) {
    env.KRESetEnvValue("A", "1");
    env.KRESetEnvValue("B", "2");
    env.KRESetEnvValue("A", "3");
    EXPECT_EQ(2U, g_uTableSize);
    EXPECT_STREQ("A", g_volatileEnvTable[0].name);
    EXPECT_STREQ("B", g_volatileEnvTable[1].name);
}

TEST_F(RunTimeTable, NamesAreCaseSensitive) {
    env.KRESetEnvValue("Path", "1");
    env.KRESetEnvValue("PATH", "2");
    EXPECT_EQ(2U, g_uTableSize);
    EXPECT_STREQ("1", env.KREGetEnvValue("Path"));
    EXPECT_STREQ("2", env.KREGetEnvValue("PATH"));
    EXPECT_EQ(nullptr, env.KREGetEnvValue("path"));
}

TEST_F(RunTimeTable, IsSharedByAllObjectsAndOutlivesThem) {
    {
        KREnvContainerClass other;
        other.KRESetEnvValue("A", "1");
    }
    EXPECT_STREQ("1", env.KREGetEnvValue("A"));
}

TEST_F(RunTimeTable, TakesNamesAndValuesOf255Characters) {
    const std::string name(255, 'n'), value(255, 'v');
    EXPECT_STREQ(value.c_str(), env.KRESetEnvValue(name.c_str(), value.c_str()));
    EXPECT_STREQ(value.c_str(), env.KREGetEnvValue(name.c_str()));
    EXPECT_STREQ(name.c_str(), g_volatileEnvTable[0].name);
}

TEST_F(RunTimeTable, RefusesLongerNamesAndValuesSilentlyAndUnchanged) {
    LogCapture log;
    env.KRESetEnvValue("A", "1");
    const std::string tooLong(256, 'x');
    EXPECT_EQ(nullptr, env.KRESetEnvValue(tooLong.c_str(), "v"));
    EXPECT_EQ(nullptr, env.KRESetEnvValue("B", tooLong.c_str()));
    EXPECT_EQ(nullptr, env.KRESetEnvValue("A", tooLong.c_str()));
    EXPECT_EQ(1U, g_uTableSize);
    EXPECT_STREQ("1", env.KREGetEnvValue("A"));
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(RunTimeTable, RefusesNullArguments) {
    EXPECT_EQ(nullptr, env.KRESetEnvValue(nullptr, "v"));
    EXPECT_EQ(nullptr, env.KRESetEnvValue("A", nullptr));
    EXPECT_EQ(nullptr, env.KREGetEnvValue(nullptr));
    EXPECT_EQ(0U, g_uTableSize);
}

TEST_F(RunTimeTable, IsToldApartFromSettings) {
    const Settings settings("A = stored\nB = stored\n");
    const char* const set = env.KRESetEnvValue("A", "#(B)");
    EXPECT_EQ(set, KREGetRuntimeValue("A"));
    EXPECT_EQ(nullptr, KREGetRuntimeValue("B"));
    EXPECT_EQ(nullptr, KREGetRuntimeValue(nullptr));
}

TEST_F(RunTimeTable, RefusesName1025AndStillOverwritesTheOthers) {
    for (int i = 0; i < 1024; ++i) ASSERT_NE(nullptr, env.KRESetEnvValue(("N" + std::to_string(i)).c_str(), "v"));
    EXPECT_EQ(nullptr, env.KRESetEnvValue("one more", "v"));
    EXPECT_EQ(1024U, g_uTableSize);
    EXPECT_STREQ("new", env.KRESetEnvValue("N1023", "new"));
    EXPECT_STREQ("new", env.KREGetEnvValue("N1023"));
    EXPECT_EQ(nullptr, env.KREGetEnvValue("one more"));
}

TEST_F(RunTimeTable, SettingANameToItsOwnStoredTextIsHarmless) {
    const char* const stored = env.KRESetEnvValue("A", "abcdef");
    EXPECT_STREQ("abcdef", env.KRESetEnvValue("A", stored));
    EXPECT_STREQ("cdef", env.KRESetEnvValue("A", stored + 2));
    EXPECT_STREQ("cdef", env.KRESetEnvValue("B", stored));
}

TEST_F(RunTimeTable, AnEmptyNameAndAnEmptyValueAreKept) {
    EXPECT_STREQ("", env.KRESetEnvValue("A", ""));
    EXPECT_STREQ("v", env.KRESetEnvValue("", "v"));
    EXPECT_STREQ("", env.KREGetEnvValue("A"));
    EXPECT_STREQ("v", env.KREGetEnvValue(""));
}

// --- KREGetEnvValue, KREGetEnv --------------------------------------------------------------------------------------

TEST(KREGetEnvValue, PrefersTheRunTimeValueWhichKREGetEnvDoesNotSee) {
    const Settings settings("A = from file\n");
    KREnvContainerClass env;
    env.KRESetEnvValue("A", "from host");
    EXPECT_STREQ("from host", env.KREGetEnvValue("A"));
    EXPECT_STREQ("from file", env.KREGetEnv("A"));
}

TEST(KREGetEnvValue, FallsBackToTheInitFile) {
    const Settings settings("A = from file\n");
    KREnvContainerClass env;
    EXPECT_STREQ("from file", env.KREGetEnvValue("A"));
    EXPECT_EQ(nullptr, env.KREGetEnvValue("B"));
}

TEST(KREGetEnvValue, ReturnsARunTimeValueUnexpanded) {
    const Settings settings;
    KREnvContainerClass env;
    env.KRESetEnvValue("A", "$(HOME)");
    EXPECT_STREQ("$(HOME)", env.KREGetEnvValue("A"));
}

TEST(KREGetEnvValue, IsNullWhenTheExpansionFails) {
    const Settings settings("A = #(A)\n");
    KREnvContainerClass env;
    EXPECT_EQ(nullptr, env.KREGetEnvValue("A"));
}

TEST(KREGetEnv, ExpandsParenthesisReferences) {
    const Settings settings("BASE = /opt/p\nA = #(BASE)/$(KRENV_TEST_X)\n");
    const ScopedEnv variable("KRENV_TEST_X", "bin");
    KREnvContainerClass env;
    EXPECT_STREQ("/opt/p/bin", env.KREGetEnv("A"));
}

TEST(KREGetEnv, SecondCallOnAnObjectReturnsTheSamePointerWithTheSecondValue) {
    const Settings settings("A = 1\nB = 2\n");
    KREnvContainerClass env;
    const char* const first = env.KREGetEnv("A");
    const char* const second = env.KREGetEnv("B");
    EXPECT_EQ(first, second);
    EXPECT_STREQ("2", first);
}

TEST(KREGetEnv, ResultsOfTwoObjectsDoNotDisturbEachOther) {
    const Settings settings("A = 1\nB = 2\n");
    KREnvContainerClass one, two;
    const char* const first = one.KREGetEnv("A");
    EXPECT_STREQ("2", two.KREGetEnv("B"));
    EXPECT_STREQ("1", first);
}

TEST(KREGetEnv, MissingNameIsNullAndNothingIsLogged) {
    const Settings settings("A = 1\nLOOP = #(LOOP)\n");
    LogCapture log;
    KREnvContainerClass env;
    EXPECT_EQ(nullptr, env.KREGetEnv("B"));
    EXPECT_EQ(nullptr, env.KREGetEnv("a"));
    EXPECT_EQ(nullptr, env.KREGetEnv(""));
    EXPECT_EQ(nullptr, env.KREGetEnv(nullptr));
    EXPECT_EQ(nullptr, env.KREGetEnv("LOOP"));
    EXPECT_TRUE(log.entries().empty());
}

TEST(KREGetEnv, WithoutAnInitFileNothingIsDefined) {
    KREnvContainerClass env;
    ASSERT_EQ(0, IniTable);
    EXPECT_EQ(nullptr, env.KREGetEnv("A"));
    EXPECT_EQ(nullptr, env.KREGetEnvValue("A"));
    EXPECT_FALSE(env.KREEnvDefined("A", "", false));
}

TEST(KREGetEnv, TheProcessEnvironmentIsNoSourceOfNames) {
    const Settings settings;
    const ScopedEnv variable("KRENV_TEST_X", "v");
    KREnvContainerClass env;
    EXPECT_EQ(nullptr, env.KREGetEnvValue("KRENV_TEST_X"));
}

TEST(KREGetEnv, ThreadsWithObjectsOfTheirOwnReadSideBySide) {
    const Settings settings("A = x#(B)\nB = y\n");
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&right] {
            KREnvContainerClass env;
            for (int n = 0; n < 500; ++n) right += std::strcmp("xy", env.KREGetEnvValue("A")) == 0 ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(4 * 500, right);
}

// --- KREEnvDefined --------------------------------------------------------------------------------------------------

TEST(KREEnvDefined, TellsDefinedAndContaining) {
    const Settings settings("A = /opt/bin\nEMPTY =\nREF = #(A)/x\nHIGH = \xc4\xd6\nUPPER = /OPT/BIN\nLOOP = #(LOOP)\n");
    KREnvContainerClass env;
    const struct {
        const char* name;
        const char* text;
        bool ignoreCase;
        bool expected;
    } rows[] = {
        {"A", "", false, true},          {"A", "", true, true},
        {"A", "bin", false, true},       {"A", "BIN", false, false},
        {"A", "BIN", true, true},        {"A", "/OPT/BIN", true, true},
        {"A", "/opt/bin", false, true},  {"A", "/opt/bin/", false, false},
        {"A", "/opt/bin/", true, false}, {"A", "opt bin", true, false},
        {"A", "oPt", true, true},        {"A", "n", true, true},
        {"A", "N", false, false},        {"EMPTY", "", false, true},
        {"EMPTY", "", true, true},       {"EMPTY", "x", false, false},
        {"EMPTY", "x", true, false},     {"MISSING", "", false, false},
        {"MISSING", "", true, false},    {"REF", "bin/x", false, true},
        {"REF", "BIN/X", true, true},    {"REF", "#(A)", false, false},
        {"HIGH", "\xc4", false, true},   {"HIGH", "\xc4\xd6", true, true},
        {"HIGH", "\xe4", true, false},   {"LOOP", "", false, false},
        {"UPPER", "bin", true, true},    {"UPPER", "bIn", true, true},
        {"a", "", true, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, env.KREEnvDefined(row.name, row.text, row.ignoreCase))
            << row.name << " contains '" << row.text << "'" << (row.ignoreCase ? ", ignoring case" : "");
    }
}

// No value is that long, so nothing needs to be copied. (The address sanitizer sees whether it is.)
TEST(KREEnvDefined, ATextAsLongAsTheBufferOrLongerIsNotContained) {
    const Settings settings("A = x\n");
    KREnvContainerClass env;
    for (const std::size_t length : {2047U, 2048U, 2049U, 100000U}) {
        EXPECT_FALSE(env.KREEnvDefined("A", std::string(length, 'x').c_str(), false)) << length;
    }
}

TEST(KREEnvDefined, DoesNotConsultTheRunTimeTable) {
    const Settings settings("A = file\n");
    KREnvContainerClass env;
    env.KRESetEnvValue("B", "host");
    env.KRESetEnvValue("A", "host");
    EXPECT_FALSE(env.KREEnvDefined("B", "", false));
    EXPECT_TRUE(env.KREEnvDefined("A", "file", false));
    EXPECT_FALSE(env.KREEnvDefined("A", "host", false));
}

TEST(KREEnvDefined, RefusesNullArguments) {
    const Settings settings("A = v\n");
    KREnvContainerClass env;
    EXPECT_FALSE(env.KREEnvDefined(nullptr, "", false));
    EXPECT_FALSE(env.KREEnvDefined("A", nullptr, false));
    EXPECT_FALSE(env.KREEnvDefined("A", nullptr, true));
}

}  // namespace
