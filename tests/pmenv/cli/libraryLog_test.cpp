// libraryLog: what users see of the library's log.
#include <cstdio>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Logging.h"
#include "libraryLog.h"
#include "support/InChild.h"

using nLogging::Level;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void record(Level level, const char* text) { PM_LOG_RECORD(level, "test", "libraryLog_test", 1) << text; }

void recordAll() {
    record(Level::Error, "an error");
    record(Level::Warning, "a warning");
    record(Level::Execution, "a message");
    record(Level::Error, "");
    record(Level::Warning, "a warning");
}

// What is printed to standard error meanwhile.
std::string printedBy(void (*work)()) {
    return inChild([work] {
        testing::internal::CaptureStderr();
        nLogging::gEnable(Level::Error, false);
        nLogging::gEnable(Level::Warning, false);
        nLogging::gEnable(Level::Execution, true);
        work();
        return testing::internal::GetCapturedStderr();
    });
}

TEST(LibraryLog, ShowsErrorsAndWarningsWithATextWhateverPmLogSays) {
    EXPECT_EQ(printedBy([] {
                  showLibraryLog();
                  recordAll();
              }),
              "pmenv: error: an error\n"
              "pmenv: warning: a warning\n"
              "pmenv: warning: a warning\n");
}

TEST(LibraryLog, APauseGathersThem) {
    EXPECT_EQ(printedBy([] {
                  showLibraryLog();
                  {
                      const LogPause pause;
                      EXPECT_FALSE(pause.sawErrors());
                      EXPECT_THAT(pause.texts(), IsEmpty());
                      recordAll();
                      EXPECT_TRUE(pause.sawErrors());
                      EXPECT_THAT(pause.texts(), ElementsAre("an error", "a warning"));
                      if (testing::Test::HasFailure()) record(Level::Error, "a check above has failed");
                  }
                  if (testing::Test::HasFailure()) record(Level::Error, "a check above has failed");
                  record(Level::Error, "behind");
              }),
              "pmenv: error: behind\n");
}

TEST(LibraryLog, AnErrorWithoutATextIsSeen) {
    EXPECT_EQ(printedBy([] {
                  showLibraryLog();
                  const LogPause pause;
                  record(Level::Warning, "a warning");
                  EXPECT_FALSE(pause.sawErrors());
                  record(Level::Error, "");
                  EXPECT_TRUE(pause.sawErrors());
                  if (testing::Test::HasFailure()) std::fputs("a check above has failed\n", stderr);
              }),
              "");
}

}  // namespace
