// Settings whose file changes between their load and the second look at it, which tells where they stand.
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EnvSettings.h"
#include "explain/observedSettings.h"
#include "failure.h"
#include "krs.h"
#include "support/TempDir.h"

namespace {

std::function<void()> beforeTheSecondLook;

}  // namespace

int realReadLines(const char* path,
                  const KRSLineVisitor& visitor) __asm__("__real__Z12KRSReadLinesPKcRKSt8functionIFvRK7KRSLineEE");
int wrapReadLines(const char* path,
                  const KRSLineVisitor& visitor) __asm__("__wrap__Z12KRSReadLinesPKcRKSt8functionIFvRK7KRSLineEE");
int wrapReadLines(const char* path, const KRSLineVisitor& visitor) {
    if (beforeTheSecondLook) beforeTheSecondLook();
    return realReadLines(path, visitor);
}

namespace {

// What is said of a file that holds "A = 1" and "B = 2" when it is loaded, and this when it is looked at again.
std::string saidOfOneThatBecomes(const std::string& text) {
    const TempDir directory;
    const std::string file = directory.writeFile("pressmark.ini", "A = 1\nB = 2\n");
    beforeTheSecondLook = [&] { directory.writeFile("pressmark.ini", text); };
    std::string said;
    try {
        const ObservedSettings settings(file);
    } catch (const Failure& failure) {
        said = failure.what();
    }
    beforeTheSecondLook = nullptr;
    KRSDestroyTable(nEnvSettings::gPressmarkIniTable());
    return said;
}

TEST(ObservedFile, ThatChangesMeanwhileIsNotExplained) {
    for (const char* const text :
         {"A = 1\n", "", "A = 1\nB = 2\nC = 3\n", "A = 1\nB = 3\n", "A = 1\nX = 2\n", "Y = 1\nB = 2\nC = 3\n"}) {
        EXPECT_THAT(saidOfOneThatBecomes(text),
                    testing::EndsWith("/pressmark.ini: the file has changed while it was read; try again"))
            << text;
    }
    EXPECT_EQ(saidOfOneThatBecomes("; the same\n\nA = 1\nB = 2\n"), "");
}

}  // namespace
