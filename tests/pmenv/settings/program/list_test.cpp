// pmenv list: every setting as a table and as JSON.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"
#include "support/TerminalRun.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using PmenvList = Pmenv;

TEST_F(PmenvList, ShowsTheFileAndEverySettingAligned) {
    directory_.writeFile("pressmark.ini",
                         "KR_BUILD = 345\nLOG = $(HOME)/logs\n[a]\nb = grüße\nb = grüße!\ntab = 1\t2\n");
    const ProgramResult outcome = runHere({"list"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, ini() +
                               "\n\n"
                               "KEY       STORED        EXPANDED\n"
                               "KR_BUILD  345           345\n"
                               "LOG       $(HOME)/logs  /home/user/logs\n"
                               "a.b       grüße!        grüße!\n"
                               "a.tab     \"1\\t2\"        \"1\\t2\"\n");
}

TEST_F(PmenvList, CutsNothingOnAPipe) {
    const std::string longValue(5000, 'v');
    directory_.writeFile("pressmark.ini", "LONG = " + longValue + "\nSHORT = s\n");
    const ProgramResult outcome = runHere({"list"});
    EXPECT_THAT(outcome.out, HasSubstr("LONG   " + longValue));
    EXPECT_THAT(outcome.out, HasSubstr("\nSHORT  s" + std::string(61, ' ') + "s\n")) << "and moves no other line far";
}

TEST_F(PmenvList, CutsLongValuesOnATerminal) {
    directory_.writeFile(
        "pressmark.ini", "LONG = " + std::string(500, 'v') + "\nSHORT = s\nWIDE = " + [] {
            std::string wide;
            for (int i = 0; i < 100; ++i) wide += "日";
            return wide;
        }() + "\n");
    TerminalRun terminal(pmenv({"--ini", ini(), "list"}), environmentOf({}), 50, 24);
    EXPECT_EQ(terminal.finish(), 0);
    EXPECT_THAT(terminal.output(), HasSubstr("\x1b[1mKEY"));
    EXPECT_THAT(terminal.output(),
                HasSubstr("\r\nLONG   " + std::string(19, 'v') + "…  " + std::string(20, 'v') + "…\r\n"));
    EXPECT_THAT(terminal.output(), HasSubstr("\r\nWIDE   日日日日日日日日日…"));
}

TEST_F(PmenvList, HasNoColourUnderNoColor) {
    TerminalRun terminal(pmenv({"--ini", ini(), "list"}), environmentOf({{"NO_COLOR", "1"}}), 80, 24);
    EXPECT_EQ(terminal.finish(), 1) << "one setting cannot be expanded";
    EXPECT_THAT(terminal.output(), HasSubstr("KR_VERSION"));
    EXPECT_THAT(terminal.output(), Not(HasSubstr("\x1b")));
}

TEST_F(PmenvList, NamesWhatCannotBeExpanded) {
    const ProgramResult outcome = runHere({"list"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\nLOOP            #(LOOP2)      (cannot be expanded)\n"));
    EXPECT_THAT(outcome.err, StartsWith("pmenv: " + ini() + ":7: LOOP: cannot be expanded: "));
}

TEST_F(PmenvList, JsonGivesEachKeyWithItsLine) {
    directory_.writeFile("pressmark.ini", "A = #(A)\nB = 1\nB = $(HOME)\n");
    const ProgramResult outcome = runHere({"list", "--json"});
    EXPECT_EQ(outcome.status, 1);
    const json list = json::parse(outcome.out);
    EXPECT_EQ(list.at("file"), ini());
    ASSERT_EQ(list.at("settings").size(), 2u);
    EXPECT_EQ(list["settings"][0].at("expanded"), nullptr);
    EXPECT_THAT(list["settings"][0].at("problem").get<std::string>(), StartsWith("cannot be expanded"));
    EXPECT_EQ(list["settings"][1],
              (json{{"key", "B"}, {"line", 3}, {"stored", "$(HOME)"}, {"expanded", "/home/user"}}));
}

TEST_F(PmenvList, PatternChoosesNames) {
    const std::string head = ini() + "\n\nKEY             STORED  EXPANDED\n";
    EXPECT_EQ(runHere({"list", "engine.*"}).out, head + "engine.threads  8       8\n");
    EXPECT_EQ(runHere({"list", "*thr??d[s]"}).out, head + "engine.threads  8       8\n");
    EXPECT_EQ(runHere({"list", "KR_*"}).out,
              ini() + "\n\nKEY         STORED  EXPANDED\nKR_VERSION  12      12\nKR_BUILD    345     345\n");
    EXPECT_EQ(runHere({"list", "BASE"}).status, 0) << "the one that cannot be expanded was not asked for";
    EXPECT_EQ(json::parse(runHere({"list", "BASE", "--json"}).out).at("settings").size(), 1u);

    const ProgramResult none = runHere({"list", "base"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "pmenv: " + ini() + ": no setting matches 'base'\n");
}

TEST_F(PmenvList, OfAFurtherFile) {
    directory_.makeDirectory("bin");
    directory_.writeFile("pressmark.ini", "KR_BIN = " + directory_ / "bin" + "\nBASE = /opt\n");
    const std::string file = directory_.writeFile("bin/engine.ini", "BASE = #{BASE}\nDIR = #(BASE)/x\nEMPTY =\n");
    EXPECT_EQ(runHere({"list", "--file", "engine.ini"}).out, file +
                                                                 "\n\n"
                                                                 "KEY    STORED     EXPANDED\n"
                                                                 "BASE   #{BASE}    #{BASE}\n"
                                                                 "DIR    #(BASE)/x  /opt/x\n"
                                                                 "EMPTY\n");
    const json list = json::parse(runHere({"list", "D*", "--file", "engine.ini", "--json"}).out);
    EXPECT_EQ(list.at("file"), file);
    EXPECT_EQ(list.at("settings"),
              (json::array({{{"key", "DIR"}, {"line", 2}, {"stored", "#(BASE)/x"}, {"expanded", "/opt/x"}}})));
}

TEST_F(PmenvList, ValuesCannotBeMistaken) {
    directory_.writeFile("pressmark.ini", "A = C:\\temp\nB = C:\\temp\t\"\nC = (cannot be expanded)\nD = \" x\"\n");
    EXPECT_EQ(runHere({"list"}).out, ini() +
                                         "\n\n"
                                         "KEY  STORED                  EXPANDED\n"
                                         "A    C:\\temp                 C:\\temp\n"
                                         "B    \"C:\\\\temp\\t\\\"\"          \"C:\\\\temp\\t\\\"\"\n"
                                         "C    \"(cannot be expanded)\"  \"(cannot be expanded)\"\n"
                                         "D    \" x\"                    \" x\"\n");
}

}  // namespace
