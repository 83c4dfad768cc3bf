// The product's identity and the directory walk.
#include "krenv.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "krs.h"
#include "support/LogCapture.h"
#include "support/OnThread.h"
#include "support/OpenDescriptors.h"
#include "support/ScopedEnv.h"
#include "support/ScopedTable.h"
#include "support/TempDir.h"

using testing::ElementsAre;
using testing::IsEmpty;

// --- the C library's border -----------------------------------------------------------------------------------------

namespace {

std::string refusedDirectory;           // opendir answers EACCES for it; empty: for none
std::vector<std::string>* openedPaths;  // gathers opendir's arguments; null: nobody listens

}  // namespace

extern "C" {

DIR* __real_opendir(const char* path);
DIR* __wrap_opendir(const char* path);

DIR* __wrap_opendir(const char* path) {
    if (openedPaths != nullptr) openedPaths->push_back(path);
    if (refusedDirectory.empty() || path != refusedDirectory) return __real_opendir(path);
    errno = EACCES;
    return nullptr;
}

// The walk leaves directory streams open on purpose.
const char* __lsan_default_suppressions();
__attribute__((visibility("default"))) const char* __lsan_default_suppressions() { return "leak:src/krenv.cpp\n"; }
}

// --- product identity -----------------------------------------------------------------------------------------------

namespace {

const int tableAtLoad = table;

/// A settings table in the place of the product's identity for the length of a scope.
class ScopedIdentity {
public:
    explicit ScopedIdentity(const std::string& text) : table_(text), before_(table) { table = table_.handle(); }
    ~ScopedIdentity() { table = before_; }
    ScopedIdentity(const ScopedIdentity&) = delete;
    ScopedIdentity& operator=(const ScopedIdentity&) = delete;

    int handle() const { return table_.handle(); }

private:
    ScopedTable table_;
    int before_;
};

struct TextAccessor {
    const char* key;
    const char* (*read)();
};

const TextAccessor kTextAccessors[] = {
    {"PRODUCT_NAME", KRVProductName},          {"PRODUCT_NAME_DISPLAY", KRVProductNameDisplay},
    {"PRODUCTS_LIST", KRVProductsList},        {"PRODUCT_FILE_NAME", KRVProductFileName},
    {"PRODUCT_VERSION", KRVProductVersion},    {"PRODUCT_VERSION_NAME", KRVProductVersionName},
    {"PRODUCT_MESSAGE", KRVProductMessage},    {"PRODUCT_ERROR_MESSAGE", KRVProductErrorMessage},
    {"PRODUCT_QUERY", KRVProductQuery},        {"EDITOR_TITLE", KRVEditorTitle},
    {"PRODUCT_INI_FILE", KRVProductIniFile},   {"PRODUCT_INI_BACKUP", KRVProductIniBackup},
    {"PRODUCT_HELP_FILE", KRVProductHelpFile}, {"PRODUCT_FRM_FILE", KRVProductFrmFile},
};

struct NumberAccessor {
    const char* key;
    int (*read)();
};

const NumberAccessor kNumberAccessors[] = {
    {"BMP_X_SIZE", KRVProductCoverX},
    {"BMP_Y_SIZE", KRVProductCoverY},
    {"PRODUCT_ICON_NUMBER", KRVProductIconNumber},
    {"PRODUCT_TYPE", KRVProductType},
};

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

TEST(ProductIdentity, TableIsZeroWhenTheLibraryIsLoaded) { EXPECT_EQ(0, tableAtLoad); }

TEST(ProductIdentity, EachTextAccessorReadsItsKey) {
    std::string text;
    for (const auto& accessor : kTextAccessors)
        text += std::string(accessor.key) + " = value of " + accessor.key + "\n";
    const ScopedIdentity identity(text);
    for (const auto& accessor : kTextAccessors) {
        EXPECT_EQ(std::string("value of ") + accessor.key, accessor.read());
    }
}

TEST(ProductIdentity, TextsAreHandedOutAsTheTableHoldsThem) {
    const ScopedIdentity identity("PRODUCT_NAME = $(HOME) #(X) ${HOME} \t end\n");
    EXPECT_STREQ("$(HOME) #(X) ${HOME} \t end", KRVProductName());
    EXPECT_EQ(KRSGetValue(identity.handle(), "PRODUCT_NAME"), KRVProductName());
    EXPECT_EQ(KRVProductName(), KRVersionInfo("PRODUCT_NAME"));
}

TEST(ProductIdentity, MissingTextIsNullButAnEmptyListIsText) {
    const ScopedIdentity identity("OTHER = x\n");
    for (const auto& accessor : kTextAccessors) {
        if (accessor.read == KRVProductsList) continue;
        EXPECT_EQ(nullptr, accessor.read()) << accessor.key;
    }
    EXPECT_STREQ("", KRVProductsList());
}

TEST(ProductIdentity, EmptyValueIsNotMissing) {
    const ScopedIdentity identity("PRODUCT_NAME =\nPRODUCTS_LIST =\nPRODUCT_TYPE =\n");
    EXPECT_STREQ("", KRVProductName());
    EXPECT_EQ(KRSGetValue(identity.handle(), "PRODUCTS_LIST"), KRVProductsList());
    EXPECT_EQ(0, KRVProductType());
}

TEST(ProductIdentity, KeysAreExact) {
    std::string text;
    for (const auto& accessor : kTextAccessors) text += lowerCase(accessor.key) + " = 1\n";
    for (const auto& accessor : kNumberAccessors) text += lowerCase(accessor.key) + " = 1\n";
    text += "PRODUCT_X_SIZE = 1\nPRODUCT_Y_SIZE = 1\nPRODUCT_NAME_ = 1\n";
    const ScopedIdentity identity(text);
    for (const auto& accessor : kTextAccessors) EXPECT_EQ(KRVProductsList == accessor.read, accessor.read() != nullptr);
    for (const auto& accessor : kNumberAccessors) EXPECT_EQ(0, accessor.read()) << accessor.key;
}

TEST(ProductIdentity, EachNumberAccessorReadsItsKey) {
    const ScopedIdentity identity("BMP_X_SIZE=640\nBMP_Y_SIZE=480\nPRODUCT_ICON_NUMBER=-7\nPRODUCT_TYPE=3\n");
    EXPECT_EQ(640, KRVProductCoverX());
    EXPECT_EQ(480, KRVProductCoverY());
    EXPECT_EQ(-7, KRVProductIconNumber());
    EXPECT_EQ(3, KRVProductType());
}

TEST(ProductIdentity, NumbersAreReadFromTheStartOfTheText) {
    const struct {
        const char* value;  // as the file has it
        int number;
    } rows[] = {
        {"640px", 640},
        {"\" 12\"", 12},
        {"\" \t\v\f\r+12 13\"", 12},
        {"abc", 0},
        {"\"\"", 0},
        {"\" \"", 0},
        {"-", 0},
        {"- 5", 0},
        {"--5", 0},
        {"-5", -5},
        {"+5", 5},
        {"0x10", 0},
        {"010", 10},
        {"1e3", 1},
        {"3.9", 3},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"4294967296", INT_MAX},
        {"9223372036854775808", INT_MAX},
        {"99999999999999999999999999999999", INT_MAX},
        {"-2147483648", INT_MIN},
        {"-2147483649", INT_MIN},
        {"-4294967297", INT_MIN},
        {"-99999999999999999999999999999999", INT_MIN},
    };
    for (const auto& row : rows) {
        std::string text;
        for (const auto& accessor : kNumberAccessors) text += std::string(accessor.key) + " = " + row.value + "\n";
        const ScopedIdentity identity(text);
        for (const auto& accessor : kNumberAccessors) {
            EXPECT_EQ(row.number, accessor.read()) << accessor.key << " = " << row.value;
        }
    }
}

TEST(ProductIdentity, MissingNumberIsZero) {
    const ScopedIdentity identity("OTHER = 5\n");
    for (const auto& accessor : kNumberAccessors) EXPECT_EQ(0, accessor.read()) << accessor.key;
}

TEST(ProductIdentity, HandleIsReadAtEachCall) {
    const ScopedIdentity first("PRODUCT_NAME = one\nPRODUCT_TYPE = 1\n");
    EXPECT_STREQ("one", KRVProductName());
    {
        const ScopedIdentity second("PRODUCT_NAME = two\nPRODUCT_TYPE = 2\n");
        EXPECT_STREQ("two", KRVProductName());
        EXPECT_EQ(2, KRVProductType());
        EXPECT_EQ(second.handle(), table);
    }
    EXPECT_STREQ("one", KRVProductName());
    EXPECT_EQ(1, KRVProductType());
}

TEST(ProductIdentity, WithoutATableNothingIsThereAndNothingIsLogged) {
    const LogCapture log;
    const int before = table;
    table = 0;
    EXPECT_EQ(nullptr, KRVProductName());
    EXPECT_EQ(nullptr, KRVersionInfo("PRODUCT_NAME"));
    EXPECT_EQ(nullptr, KRVersionInfo(nullptr));
    EXPECT_STREQ("", KRVProductsList());
    EXPECT_EQ(0, KRVProductCoverX());
    table = before;
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST(ProductIdentity, ManyThreadsMayRead) {
    const ScopedIdentity identity("PRODUCT_NAME = shared\nBMP_X_SIZE = 640\n");
    std::vector<std::thread> readers;
    std::vector<int> good(4);
    for (int& count : good) {
        readers.emplace_back([&count] {
            for (int i = 0; i < 1000; ++i) {
                if (std::strcmp(KRVProductName(), "shared") == 0 && KRVProductCoverX() == 640) ++count;
            }
        });
    }
    for (std::thread& reader : readers) reader.join();
    EXPECT_THAT(good, testing::Each(1000));
}

// --- directory walk -------------------------------------------------------------------------------------------------

namespace {

/// Gathers what it is handed; `onPath` decides whether to go on.
class Gatherer final : public CFindFileFunctor {
public:
    Gatherer() = default;
    explicit Gatherer(std::function<bool(const char*)> onPath) : onPath_(std::move(onPath)) {}

    bool operator()(const char* path) override {
        paths.push_back(path);
        return !onPath_ || onPath_(path);
    }

    std::vector<std::string> paths;

private:
    std::function<bool(const char*)> onPath_;
};

/// Changes a limit of the process for the length of a scope.
class ScopedDescriptorLimit {
public:
    explicit ScopedDescriptorLimit(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit changed{std::min(limit, before_.rlim_max), before_.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &changed) != 0) throw std::runtime_error("cannot change the descriptor limit");
    }
    ~ScopedDescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    ScopedDescriptorLimit(const ScopedDescriptorLimit&) = delete;
    ScopedDescriptorLimit& operator=(const ScopedDescriptorLimit&) = delete;

private:
    rlimit before_;
};

class FindFileTest : public testing::Test {
protected:
    // At the first call of a functor the sanitizer's check of its type opens descriptors; some tests leave none for it.
    FindFileTest() {
        Gatherer first;
        static_cast<CFindFileFunctor&>(first)("");
    }

    // "a" in the list means DIR/a of the test's directory.
    std::vector<std::string> inDir(std::vector<std::string> names) const {
        for (std::string& name : names) name = name.empty() ? dir.path() : dir / name;
        return names;
    }

    TempDir dir;
    OpenDescriptors descriptors;
};

/// The entries of a directory in the system's order.
std::vector<std::filesystem::path> listed(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> entries;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) entries.push_back(entry.path());
    return entries;
}

/// What a complete walk of a tree without links reports: the directory's files, then each subdirectory's.
void expectWalk(const std::filesystem::path& directory, std::vector<std::string>* expected) {
    const auto entries = listed(directory);
    for (const auto& entry : entries) {
        if (!is_directory(entry)) expected->push_back(entry);
    }
    for (const auto& entry : entries) {
        if (is_directory(entry)) expectWalk(entry, expected);
    }
}

std::vector<std::string> sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

constexpr std::size_t kDefaultStack = 8 * 1024 * 1024;

}  // namespace

TEST_F(FindFileTest, WithoutRecursionReportsTheFilesOfTheDirectory) {
    dir.writeFile("a.txt");
    dir.writeFile("b.txt");
    dir.makeDirectory("s");
    dir.writeFile("s/c.txt");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", false, &found));
    EXPECT_EQ(inDir({"a.txt", "b.txt"}), sorted(found.paths));
}

TEST_F(FindFileTest, KeepsTheSystemsOrder) {
    for (int i = 0; i < 40; ++i) dir.writeFile(std::to_string(i * 7919 % 101));
    std::vector<std::string> expected;
    expectWalk(dir.path(), &expected);
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", false, &found));
    EXPECT_EQ(expected, found.paths);
}

TEST_F(FindFileTest, RecursionReportsFilesFirstThenEachSubdirectoryInDepth) {
    for (const char* const name : {"s1", "s1/deep/deeper", "s2", "empty", "s1/other"}) dir.makeDirectory(name);
    for (const char* const name : {"a", "z", "s1/b", "s1/deep/c", "s1/deep/deeper/d", "s2/e", "s1/other/f", "s1/y"}) {
        dir.writeFile(name);
    }
    std::vector<std::string> expected;
    expectWalk(dir.path(), &expected);
    ASSERT_EQ(8u, expected.size());
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(expected, found.paths);
}

TEST_F(FindFileTest, SkipNameLeavesOutFilesOfExactlyThatName) {
    for (const char* const name : {"b.txt", "b.txt2", "b", "B.TXT", "xb.txt"}) dir.writeFile(name);
    dir.makeDirectory("s");
    dir.writeFile("s/b.txt");
    dir.writeFile("s/c.txt");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "b.txt", true, &found));
    EXPECT_EQ(sorted(inDir({"B.TXT", "b", "b.txt2", "s/c.txt", "xb.txt"})), sorted(found.paths));
}

TEST_F(FindFileTest, SkipNameIsNoPattern) {
    dir.writeFile("b.txt");
    dir.writeFile("*");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "*", false, &found));
    EXPECT_EQ(inDir({"b.txt"}), found.paths);
}

TEST_F(FindFileTest, DirectoryNamedLikeSkipNameIsEntered) {
    dir.makeDirectory("b.txt");
    dir.writeFile("b.txt/inside");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "b.txt", true, &found));
    EXPECT_EQ(inDir({"b.txt/inside"}), found.paths);
}

TEST_F(FindFileTest, DotEntriesAreLeftOutAndOnlyThose) {
    for (const char* const name : {".hidden", "..more", "..."}) dir.writeFile(name);
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(sorted(inDir({"...", "..more", ".hidden"})), sorted(found.paths));
}

TEST_F(FindFileTest, NamesOfAnyBytesArriveAsTheyAre) {
    const std::vector<std::string> names = {"a b", "new\nline", "\xff\x01", "\xc3\xa4", std::string(255, 'n')};
    for (const std::string& name : names) dir.writeFile(name);
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", false, &found));
    EXPECT_EQ(sorted(inDir(names)), sorted(found.paths));
}

TEST_F(FindFileTest, TrailingSlashIsDoubled) {
    dir.makeDirectory("s");
    dir.writeFile("s/f");
    Gatherer found;
    EXPECT_TRUE(FindFile((dir.path() + "/").c_str(), "", true, &found));
    EXPECT_THAT(found.paths, ElementsAre(dir.path() + "//s/f"));
}

TEST_F(FindFileTest, RelativeDirectoryGivesRelativePaths) {
    dir.writeFile("f");
    const ScopedCwd cwd(dir.path());
    Gatherer found;
    EXPECT_TRUE(FindFile(".", "", true, &found));
    EXPECT_THAT(found.paths, ElementsAre("./f"));
}

TEST_F(FindFileTest, NothingToWalkIsTrueWithoutACall) {
    dir.writeFile("file");
    dir.makeDirectory("empty");
    Gatherer found;
    for (const bool recurse : {false, true}) {
        for (const char* const name : {"missing", "file", "empty", "file/below"}) {
            EXPECT_TRUE(FindFile((dir / name).c_str(), "", recurse, &found)) << name;
        }
        EXPECT_TRUE(FindFile("", "", recurse, &found));
    }
    EXPECT_THAT(found.paths, IsEmpty());
    EXPECT_THAT(descriptors.addedTargets(), IsEmpty());
}

TEST_F(FindFileTest, NullArgumentsAreRefused) {
    dir.writeFile("f");
    Gatherer found;
    EXPECT_TRUE(FindFile(nullptr, "", true, &found));
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, nullptr));
    EXPECT_THAT(found.paths, IsEmpty());
    EXPECT_TRUE(FindFile(dir.path().c_str(), nullptr, true, &found));
    EXPECT_EQ(inDir({"f"}), found.paths);
}

TEST_F(FindFileTest, LinksToDirectoriesAreFollowedOthersAreFiles) {
    dir.makeDirectory("real");
    dir.writeFile("real/f");
    std::filesystem::create_symlink("real", dir / "link");
    std::filesystem::create_symlink("real/f", dir / "toFile");
    std::filesystem::create_symlink("nowhere", dir / "dangling");
    std::filesystem::create_symlink("itself", dir / "itself");
    ASSERT_EQ(0, mkfifo((dir / "fifo").c_str(), 0600));
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(sorted(inDir({"dangling", "fifo", "itself", "link/f", "real/f", "toFile"})), sorted(found.paths));
}

TEST_F(FindFileTest, DirectoryThatMayNotBeOpenedIsAFile) {
    dir.makeDirectory("locked");
    dir.writeFile("locked/f");
    refusedDirectory = dir / "locked";
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    refusedDirectory.clear();
    EXPECT_EQ(inDir({"locked"}), found.paths);
    EXPECT_THAT(descriptors.addedTargets(), IsEmpty());
}

TEST_F(FindFileTest, EachLevelOpensItsDirectoryTwiceAndProbesEachEntry) {
    dir.writeFile("f");
    dir.makeDirectory("s");
    std::vector<std::string> opened;
    openedPaths = &opened;
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", false, &found));
    EXPECT_EQ(sorted(inDir({"", "f", "s"})), sorted(opened));
    opened.clear();
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    openedPaths = nullptr;
    // The file is probed in both passes; the directory too, and then listed twice itself.
    EXPECT_EQ(sorted(inDir({"", "", "f", "f", "s", "s", "s", "s"})), sorted(opened));
}

TEST_F(FindFileTest, FirstPassFailingDoesNotKeepTheSecondFromTrying) {
    dir.makeDirectory("s");
    dir.writeFile("s/f");
    std::vector<std::string> opened;
    openedPaths = &opened;
    Gatherer found;
    EXPECT_TRUE(FindFile((dir / "missing").c_str(), "", false, &found));
    EXPECT_TRUE(FindFile((dir / "missing").c_str(), "", true, &found));
    openedPaths = nullptr;
    EXPECT_EQ(inDir({"missing", "missing", "missing"}), opened);
}

// --- what the walk leaves open

TEST_F(FindFileTest, WithoutRecursionNothingStaysOpen) {
    dir.writeFile("f");
    dir.makeDirectory("s");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", false, &found));
    EXPECT_THAT(descriptors.addedTargets(), IsEmpty());
}

TEST_F(FindFileTest, EachDirectoryEnteredStaysOpenOnce) {
    for (const char* const name : {"s1", "s1/deep", "s2"}) dir.makeDirectory(name);
    dir.writeFile("s1/f");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(inDir({"s1", "s1/deep", "s2"}), descriptors.addedTargets());
}

TEST_F(FindFileTest, StoppingLeavesTheDirectoryBeingListedOpen) {
    dir.writeFile("a");
    dir.writeFile("b");
    Gatherer found([](const char*) { return false; });
    EXPECT_FALSE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(1u, found.paths.size());
    EXPECT_EQ(inDir({""}), descriptors.addedTargets());
}

TEST_F(FindFileTest, StoppingBelowClosesTheListingsAbove) {
    dir.makeDirectory("s/t");
    dir.writeFile("s/t/a");
    dir.writeFile("s/t/b");
    Gatherer found([](const char*) { return false; });
    EXPECT_FALSE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(1u, found.paths.size());
    EXPECT_EQ(inDir({"s", "s/t", "s/t"}), descriptors.addedTargets());
}

TEST_F(FindFileTest, StoppingBelowEndsTheWholeWalk) {
    for (const char* const name : {"s1", "s2", "s3"}) {
        dir.makeDirectory(name);
        dir.writeFile(std::string(name) + "/f");
    }
    Gatherer found([](const char*) { return false; });
    EXPECT_FALSE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(1u, found.paths.size());
}

TEST_F(FindFileTest, StoppingAtTheLastFileIsStillFalse) {
    dir.makeDirectory("s");
    dir.writeFile("a");
    dir.writeFile("s/b");
    Gatherer found([this](const char* path) { return path != dir / "s/b"; });
    EXPECT_FALSE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_EQ(inDir({"a", "s/b"}), found.paths);
}

TEST_F(FindFileTest, WhatTheFunctorThrowsPassesThroughAndLeavesAllOpen) {
    dir.makeDirectory("s");
    dir.writeFile("s/f");
    Gatherer found([](const char* path) -> bool { throw std::runtime_error(path); });
    try {
        FindFile(dir.path().c_str(), "", true, &found);
        FAIL() << "the exception was lost";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(dir / "s/f", error.what());
    }
    // The subdirectory's proof and listing, and the listing above it.
    EXPECT_EQ(inDir({"", "s", "s"}), descriptors.addedTargets());
}

TEST_F(FindFileTest, LogsNothing) {
    dir.makeDirectory("s");
    dir.writeFile("s/f");
    const LogCapture log;
    Gatherer found([](const char*) { return false; });
    EXPECT_FALSE(FindFile(dir.path().c_str(), "", true, &found));
    EXPECT_TRUE(FindFile((dir / "missing").c_str(), "", true, &found));
    EXPECT_THAT(log.entries(), IsEmpty());
}

// --- the functor

TEST(CFindFileFunctor, CallOperatorIsTheFirstSlotOfTheTable) {
    static_assert(sizeof(CFindFileFunctor) == sizeof(void*), "a functor is its table and nothing else");
    Gatherer functor([](const char*) { return false; });
    CFindFileFunctor* const base = &functor;
    using Slot = bool (*)(CFindFileFunctor*, const char*);
    Slot* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(base), sizeof slots);
    EXPECT_FALSE(slots[0](base, "by slot"));
    EXPECT_THAT(functor.paths, ElementsAre("by slot"));
}

TEST_F(FindFileTest, FunctorMayWalkItself) {
    dir.makeDirectory("s");
    dir.writeFile("s/f");
    dir.writeFile("a");
    Gatherer inner;
    Gatherer outer([&](const char*) { return FindFile((dir / "s").c_str(), "", false, &inner); });
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &outer));
    EXPECT_EQ(inDir({"a", "s/f"}), outer.paths);
    EXPECT_EQ(inDir({"s/f", "s/f"}), inner.paths);
}

TEST_F(FindFileTest, WalksOnSeveralThreadsAreIndependent) {
    for (int i = 0; i < 8; ++i) {
        dir.makeDirectory("s" + std::to_string(i));
        dir.writeFile("s" + std::to_string(i) + "/f");
    }
    std::vector<std::string> expected;
    expectWalk(dir.path(), &expected);
    std::vector<Gatherer> found(4);
    std::vector<std::thread> walkers;
    for (Gatherer& gatherer : found) {
        walkers.emplace_back([&] {
            for (int i = 0; i < 5; ++i) FindFile(dir.path().c_str(), "", true, &gatherer);
        });
    }
    for (std::thread& walker : walkers) walker.join();
    for (const Gatherer& gatherer : found) {
        ASSERT_EQ(5 * expected.size(), gatherer.paths.size());
        for (std::size_t i = 0; i < gatherer.paths.size(); ++i) {
            EXPECT_EQ(expected[i % expected.size()], gatherer.paths[i]);
        }
    }
}

// --- hostile trees

TEST_F(FindFileTest, PathsOverTheLimitAreLeftOut) {
    dir.writeFile("f1");
    dir.writeFile("f22");
    dir.makeDirectory("s1");
    dir.writeFile("s1/x");
    dir.makeDirectory("s");
    dir.writeFile("s/y");
    // DIR with slashes behind it, so that it has `length` characters.
    const auto padded = [this](std::size_t length) {
        return dir.path() + std::string(length - dir.path().size(), '/');
    };
    Gatherer found;
    EXPECT_TRUE(FindFile(padded(4095 - 3).c_str(), "", true, &found));
    EXPECT_THAT(found.paths, ElementsAre(padded(4092) + "/f1"));
    found.paths.clear();
    EXPECT_TRUE(FindFile(padded(4095 - 4).c_str(), "", true, &found));
    EXPECT_EQ(sorted({padded(4091) + "/f1", padded(4091) + "/f22", padded(4091) + "/s/y"}), sorted(found.paths));
    found.paths.clear();
    for (const std::size_t length : {4094u, 4095u, 4096u, 5000u, 100'000u}) {
        EXPECT_TRUE(FindFile(padded(length).c_str(), "", true, &found)) << length;
    }
    EXPECT_THAT(found.paths, IsEmpty());
}

TEST_F(FindFileTest, LoopThroughALinkEndsWhereTheSystemEndsIt) {
    dir.writeFile("f");
    std::filesystem::create_symlink(".", dir / "self");
    Gatherer found;
    EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    // The system follows 40 links in one path; one more cannot be opened and is a file.
    std::vector<std::string> expected;
    std::string at = dir.path();
    for (int links = 0; links <= 40; ++links, at += "/self") expected.push_back(at + "/f");
    expected.push_back(at);
    EXPECT_EQ(sorted(expected), sorted(found.paths));
    EXPECT_EQ(40u, descriptors.addedTargets().size());
}

TEST_F(FindFileTest, LinksThatMultiplyEndWithTheDescriptors) {
    dir.writeFile("f");
    for (const char* const name : {"a", "b", "c"}) std::filesystem::create_symlink(".", dir / name);
    Gatherer found;
    {
        const ScopedDescriptorLimit limit(200);
        EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    }
    EXPECT_THAT(found.paths, testing::Contains(dir / "f"));
    EXPECT_GT(descriptors.addedTargets().size(), 150u);
}

TEST_F(FindFileTest, MoreDirectoriesThanDescriptorsEndsWithAResult) {
    for (int i = 0; i < 300; ++i) dir.makeDirectory("d" + std::to_string(i) + "/e");
    Gatherer found;
    // The sanitizer needs a descriptor to look at an object of a class for the first time.
    dir.writeFile("f");
    FindFile(dir.path().c_str(), "", false, &found);
    {
        const ScopedDescriptorLimit limit(100);
        EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    }
    EXPECT_LT(descriptors.addedTargets().size(), 100u);
    EXPECT_GT(descriptors.addedTargets().size(), 50u);
}

TEST_F(FindFileTest, WithoutASingleDescriptorNothingIsFound) {
    dir.writeFile("f");
    Gatherer found;
    {
        const ScopedDescriptorLimit limit(0);
        EXPECT_TRUE(FindFile(dir.path().c_str(), "", true, &found));
    }
    EXPECT_THAT(found.paths, IsEmpty());
}

namespace {

/// A chain of directories with a file in each, deeper than a path can be long, and removed without naming it.
class DeepTree {
public:
    static constexpr int kLevels = 2100;

    explicit DeepTree(const std::string& top) : top_(top) {
        int at = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int level = 0; level < kLevels; ++level) {
            fillLevel(at, level);
            const int below = openat(at, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            close(at);
            at = below;
        }
        if (at < 0) throw std::runtime_error("cannot make a deep tree");
        close(at);
    }
    ~DeepTree() {
        if (std::system(("rm -rf '" + top_ + "'").c_str()) != 0) ADD_FAILURE() << "cannot remove " << top_;
    }
    DeepTree(const DeepTree&) = delete;
    DeepTree& operator=(const DeepTree&) = delete;

private:
    // Near the path limit, where they cannot multiply for long, links lead to the level itself and to the tree's top.
    void fillLevel(int directory, int level) const {
        close(openat(directory, "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        const bool linked =
            level != 2020 || (symlinkat(".", directory, "l") == 0 && symlinkat(top_.c_str(), directory, "t") == 0);
        if (mkdirat(directory, "d", 0700) != 0 || !linked) throw std::runtime_error("cannot make a deep tree");
    }

    std::string top_;
};

}  // namespace

TEST_F(FindFileTest, TreeDeeperThanThePathLimitNeedsNoMoreThanAnOrdinaryStack) {
    const DeepTree tree(dir.makeDirectory("deep"));
    bool result = false;
    Gatherer found;
    {
        const ScopedDescriptorLimit limit(20'000);
        onThread(kDefaultStack, [&] { result = FindFile((dir / "deep").c_str(), "", true, &found); });
    }
    EXPECT_TRUE(result);
    std::size_t longest = 0;
    for (const std::string& path : found.paths) longest = std::max(longest, path.size());
    EXPECT_LE(longest, 4095u);
    rlimit allowed;
    getrlimit(RLIMIT_NOFILE, &allowed);
    if (allowed.rlim_max >= 20'000) {
        EXPECT_GE(longest, 4094u);
    }
}
