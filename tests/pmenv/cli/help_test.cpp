// help: the texts that are made from the grammar.
#include <gtest/gtest.h>

#include "help.h"

namespace {

const Grammar& shownGrammar() {
    using Kind = Option::Kind;
    static const Grammar all{
        {{"ini", Kind::File, "FILE", "reads these settings"}, {"help", Kind::Flag, nullptr, "prints this"}},
        {{"get", "prints a setting", {{"NAME", "its name"}}, {}, "pmenv get A   prints it", nullptr},
         {"path make",
          "composes a path",
          {{"DIR", "a directory"}, {"NAME", "a name", true, true}},
          {{"null", Kind::Flag, nullptr, "ends with a NUL"}},
          "pmenv path make a b\npmenv path make a",
          nullptr},
         {"pathology", "is no path", {}, {}, "pmenv pathology", nullptr}}};
    return all;
}

TEST(Help, OfACommand) {
    EXPECT_EQ(commandHelp(shownGrammar(), shownGrammar().commands[1]),
              "Usage: pmenv path make DIR [NAME...] [OPTION]...\n"
              "\n"
              "composes a path\n"
              "\n"
              "Arguments:\n"
              "  DIR    a directory\n"
              "  NAME   a name\n"
              "\n"
              "Options:\n"
              "  --null   ends with a NUL\n"
              "\n"
              "Options of all commands:\n"
              "  --ini FILE   reads these settings\n"
              "  --help       prints this\n"
              "\n"
              "Examples:\n"
              "  pmenv path make a b\n"
              "  pmenv path make a\n");
}

TEST(Help, OfACommandWithoutArgumentsAndOptions) {
    EXPECT_EQ(commandHelp(shownGrammar(), shownGrammar().commands[2]),
              "Usage: pmenv pathology [OPTION]...\n"
              "\n"
              "is no path\n"
              "\n"
              "Options of all commands:\n"
              "  --ini FILE   reads these settings\n"
              "  --help       prints this\n"
              "\n"
              "Examples:\n"
              "  pmenv pathology\n");
}

TEST(Help, OfAGroupHasItsCommandsAndTheirExamples) {
    const std::string text = overviewHelp(shownGrammar(), "path");
    EXPECT_NE(text.find("\nUsage: pmenv path COMMAND [ARGUMENT]... [OPTION]...\n"
                        "\n"
                        "Commands:\n"
                        "  path make   composes a path\n"
                        "\n"
                        "Options of all commands:\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\nExamples:\n  pmenv path make a b\n  pmenv path make a\n\n'pmenv COMMAND"), std::string::npos)
        << text;
}

TEST(Help, OverviewHasAllCommands) {
    const std::string text = overviewHelp(shownGrammar(), "");
    EXPECT_NE(text.find("\nUsage: pmenv COMMAND [ARGUMENT]... [OPTION]...\n"
                        "\n"
                        "Commands:\n"
                        "  get         prints a setting\n"
                        "  path make   composes a path\n"
                        "  pathology   is no path\n"
                        "\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("\nExamples:\n  pmenv list "), std::string::npos) << text;
    EXPECT_EQ(text.find("pmenv path make a"), std::string::npos) << "examples of its own";
}

}  // namespace
