#include "CommandLineArguments.h"

#include <climits>
#include <cstdlib>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

using nCommandLineArguments::gCount;
using nCommandLineArguments::gGet;
using nCommandLineArguments::gSet;

namespace {

std::string ownPath() {
    char path[PATH_MAX];
    return realpath("/proc/self/exe", path) != nullptr ? path : "";
}

void set(const std::vector<const char*>& arguments) {
    std::vector<const char*> ended = arguments;
    ended.push_back(nullptr);
    gSet(static_cast<int>(arguments.size()), ended.data());
}

}  // namespace

TEST(CommandLineArguments, AnswersWhatWasRecorded) {
    set({"/bin/program", "", "last"});
    EXPECT_EQ(3, gCount());
    EXPECT_EQ("/bin/program", gGet(0));
    EXPECT_EQ("", gGet(1));
    EXPECT_EQ("last", gGet(2));
}

TEST(CommandLineArguments, AnswersEmptyForNoArgument) {
    set({"/bin/program"});
    for (const int index : {1, 2, INT_MAX, -1, INT_MIN}) EXPECT_EQ("", gGet(index)) << index;
}

TEST(CommandLineArguments, LaterRecordReplaces) {
    set({"/bin/program", "one", "two"});
    set({"/bin/other"});
    EXPECT_EQ(1, gCount());
    EXPECT_EQ("/bin/other", gGet(0));
    EXPECT_EQ("", gGet(1));
}

TEST(CommandLineArguments, KeepsCopies) {
    char program[] = "/bin/program";
    set({program});
    program[5] = 'X';
    EXPECT_EQ("/bin/program", gGet(0));
}

TEST(CommandLineArguments, RecordsNoneForNullOrNegative) {
    const char* const arguments[] = {"/bin/program", "one", nullptr};
    gSet(2, nullptr);
    EXPECT_EQ(0, gCount());
    gSet(-1, arguments);
    EXPECT_EQ(0, gCount());
    EXPECT_EQ("", gGet(1));
}

TEST(CommandLineArguments, TakesNoMoreThanTheGivenNumber) {
    const char* const arguments[] = {"/bin/program", "one", "behind", nullptr};
    gSet(2, arguments);
    EXPECT_EQ(2, gCount());
    EXPECT_EQ("one", gGet(1));
    EXPECT_EQ("", gGet(2));
}

TEST(CommandLineArguments, StopsAtNullArgument) {
    const char* const arguments[] = {"/bin/program", nullptr, "behind"};
    gSet(3, arguments);
    EXPECT_EQ(1, gCount());
}

TEST(CommandLineArguments, PathWithSlashIsTakenAsItStands) {
    for (const char* const path : {"./program", "dir/program", "/no/such/program", "../x"}) {
        set({path});
        EXPECT_EQ(path, gGet(0));
    }
}

TEST(CommandLineArguments, ProgramFoundThroughPathIsTheKernelsName) {
    ASSERT_NE("", ownPath());
    for (const char* const name : {"program", "", "-program", "."}) {
        set({name, "second"});
        EXPECT_EQ(ownPath(), gGet(0)) << name;
        EXPECT_EQ("second", gGet(1));
    }
    gSet(0, nullptr);
    EXPECT_EQ(ownPath(), gGet(0));
    EXPECT_EQ(0, gCount());
}

TEST(CommandLineArguments, ThreadsMayRecordAndRead) {
    std::thread writer([] {
        for (int i = 0; i < 1000; ++i) set({"/bin/program", i % 2 == 0 ? "even" : "odd"});
    });
    for (int i = 0; i < 1000; ++i) EXPECT_THAT(gGet(1), testing::AnyOf("", "even", "odd", "last", "one", "second"));
    writer.join();
}
