// A settings table with a million keys: right answers, and memory taken in few pieces. With sanitizers it has a tenth.
#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "krs.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

// In front of the library's too: all allocations of the process are counted.
void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

constexpr int kKeys = kSanitized ? 100'000 : 1'000'000;

const char* unchanged(const char*, const char* value) { return value; }
const char* changed(const char*, const char*) { return "changed"; }

// A quarter of the keys stand in each of four sections.
std::string manyKeys() {
    std::string text;
    text.reserve(static_cast<std::size_t>(kKeys) * 32);
    for (int i = 0; i < kKeys; ++i) {
        if (i % (kKeys / 4) == 0) text += "[section " + std::to_string(i / (kKeys / 4)) + "]\n";
        text += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    }
    return text;
}

std::string keyOf(int i) { return "section " + std::to_string(i / (kKeys / 4)) + ".key" + std::to_string(i); }

struct ManyKeysTest : testing::Test {
    ~ManyKeysTest() override { KRSDestroyTable(table); }
    const TempDir dir;
    const int table = KRSCreateTable();
    const std::string path = dir.writeFile("many.ini", manyKeys());
};

}  // namespace

TEST_F(ManyKeysTest, AreAllFound) {
    ASSERT_NE(0, KRSLoad(path.c_str(), table, unchanged)) << KRSLoadError();
    ASSERT_EQ(static_cast<std::size_t>(kKeys), KRSEntryCount(table));
    for (int i = 0; i < kKeys; ++i) {
        const char* const value = KRSGetValue(table, keyOf(i).c_str());
        ASSERT_NE(nullptr, value) << i;
        ASSERT_EQ("value " + std::to_string(i), value);
        ASSERT_EQ(nullptr, KRSGetValue(table, (keyOf(i) + "x").c_str())) << i;
    }
}

TEST_F(ManyKeysTest, AreEnumeratedInFileOrder) {
    ASSERT_NE(0, KRSLoad(path.c_str(), table, nullptr)) << KRSLoadError();
    KRSEntry entry{};
    for (int i = 0; i < kKeys; ++i) {
        ASSERT_TRUE(KRSGetEntry(table, static_cast<std::size_t>(i), &entry));
        ASSERT_EQ(keyOf(i), entry.key);
        ASSERT_EQ(i + i / (kKeys / 4) + 2, entry.line);
    }
}

TEST_F(ManyKeysTest, TextsStayWhenAMillionMoreAreLoaded) {
    ASSERT_NE(0, KRSLoad(path.c_str(), table, nullptr)) << KRSLoadError();
    std::vector<const char*> before;
    for (int i = 0; i < kKeys; i += 1000) before.push_back(KRSGetValue(table, keyOf(i).c_str()));

    ASSERT_NE(0, KRSLoad(path.c_str(), table, changed)) << KRSLoadError();
    for (int i = 0; i < kKeys; i += 1000) {
        ASSERT_EQ("value " + std::to_string(i), before[static_cast<std::size_t>(i / 1000)]);
        ASSERT_STREQ("changed", KRSGetValue(table, keyOf(i).c_str()));
    }
    EXPECT_EQ(2U * kKeys, KRSEntryCount(table));
}

TEST_F(ManyKeysTest, TakeMemoryInFewPieces) {
    const std::size_t before = allocations;
    ASSERT_NE(0, KRSLoad(path.c_str(), table, changed)) << KRSLoadError();
    const std::size_t taken = allocations - before;
    EXPECT_GT(taken, 0U);  // the counter sees the library
    EXPECT_LT(taken, static_cast<std::size_t>(kKeys) / 500);
}

TEST_F(ManyKeysTest, LookUpsAllocateNothing) {
    ASSERT_NE(0, KRSLoad(path.c_str(), table, nullptr)) << KRSLoadError();
    const std::string key = keyOf(4711);
    const std::size_t before = allocations;
    for (int i = 0; i < 1000; ++i) ASSERT_NE(nullptr, KRSGetValue(table, key.c_str()));
    EXPECT_EQ(before, allocations);
}

// Keys that simple hashes (sums, or a few characters of the key) throw together.
TEST(SimilarKeys, AreToldApart) {
    const TempDir dir;
    std::vector<std::string> keys;
    for (int i = 0; i < 1 << 14; ++i) {
        std::string key(14, 'A');
        for (std::size_t bit = 0; bit < key.size(); ++bit) {
            if ((i >> bit & 1) != 0) key[bit] = 'B';
        }
        keys.push_back(key);
    }
    for (std::size_t length = 1; length <= 64; ++length) keys.push_back(std::string(length, 'a'));

    std::string text;
    for (const std::string& key : keys) text += key + "=<" + key + ">\n";
    const int table = KRSCreateTable();
    ASSERT_NE(0, KRSLoad(dir.writeFile("similar.ini", text).c_str(), table, nullptr)) << KRSLoadError();
    for (const std::string& key : keys) ASSERT_EQ("<" + key + ">", KRSGetValue(table, key.c_str()));
    EXPECT_EQ(nullptr, KRSGetValue(table, "AAAAAAAAAAAAA"));
    KRSDestroyTable(table);
}
