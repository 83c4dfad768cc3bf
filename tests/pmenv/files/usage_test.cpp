// What the commands about files take.
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using testing::StartsWith;

namespace {

using PmenvFilesUsage = Pmenv;

TEST_F(PmenvFilesUsage, TellsTheArguments) {
    const std::pair<Words, const char*> rows[] = {
        {{"find"}, " FILE VAR..."},
        {{"identity"}, " FILE"},
        {{"path", "abs"}, " PATH"},
        {{"path", "make"}, " DIR NAME [EXT]"},
        {{"path", "shorten"}, " PATH WIDTH"},
        {{"path", "split"}, " PATH"},
        {{"resolve"}, " VAR"},
        {{"walk"}, " DIR"},
    };
    for (const auto& [command, arguments] : rows) {
        std::string call = "pmenv";
        for (const std::string& word : command) call += " " + word;
        Words words = command;
        EXPECT_EQ(run(words).status, 2) << call;
        words.emplace_back("--help");
        EXPECT_THAT(run(words).out, StartsWith("Usage: " + call + arguments + " [OPTION]...\n"));
    }
}

}  // namespace
