// manualPage: entries of the manual page, from a grammar of its own.
#include <gtest/gtest.h>

#include "pages/manualPage.h"

namespace {

const Grammar& grammar() {
    using Kind = Option::Kind;
    static const Grammar all{
        {{"ini", Kind::File, "FILE|DIR", "read FILE"}},
        {{"get", "print one setting", {{"NAME", "its name"}}, {}, "pmenv get 'a'   what's it", nullptr},
         {"path make",
          "'compose' a path",
          {{"DIR", "a directory"}, {"EXT", "the last of --it", true, true}},
          {{"null", Kind::Flag, nullptr, "end with \\0, as --zero does; see --other"}},
          "pmenv path make a b-c",
          nullptr,
          ".begins with a dot\nand has --null, --x; two lines\n\nanother paragraph"}}};
    return all;
}

TEST(ManualPage, Commands) {
    EXPECT_EQ(manualCommands(grammar()),
              ".TP\n"
              "\\fBpmenv get\\fP \\fINAME\\fP\n"
              "\\&Print one setting.\n"
              ".br\n"
              "\\fINAME\\fP: its name\n"
              ".TP\n"
              "\\fBpmenv path make\\fP [\\fIOPTION\\fP]... \\fIDIR\\fP [\\fIEXT\\fP...]\n"
              "\\&\\(aqcompose\\(aq a path.\n"
              ".br\n"
              "\\fIDIR\\fP: a directory\n"
              ".br\n"
              "\\fIEXT\\fP: the last of \\fB\\-\\-it\\fP\n"
              ".IP\n"
              "\\&.begins with a dot and has \\fB\\-\\-null\\fP, \\fB\\-\\-x\\fP; two lines\n"
              ".IP\n"
              "\\&another paragraph\n");
}

TEST(ManualPage, Options) {
    EXPECT_EQ(manualOptions(grammar()),
              ".SS Of all commands\n"
              ".TP\n"
              "\\fB\\-\\-ini\\fP \\fIFILE|DIR\\fP\n"
              "\\&Read FILE.\n"
              ".SS Of path make\n"
              ".TP\n"
              "\\fB\\-\\-null\\fP\n"
              "\\&End with \\e0, as \\fB\\-\\-zero\\fP does; see \\fB\\-\\-other\\fP.\n");
}

TEST(ManualPage, Examples) {
    EXPECT_EQ(manualExamples(grammar()), "pmenv get \\(aqa\\(aq   what\\(aqs it\npmenv path make a b\\-c\n");
}

}  // namespace
