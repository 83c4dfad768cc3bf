// No command shows a secret: every command is run on settings that are full of them.
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commandLine.h"
#include "commands.h"
#include "pmenv/PmenvTest.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// The settings, further settings and environment that the examples of the commands ask for, with a secret in each.
class PmenvCanary : public Pmenv {
protected:
    PmenvCanary() {
        for (const char* const directory : {"bin", "conf", "logs", "home", "other"})
            directory_.makeDirectory(directory);
        const std::string secret = kCanary;
        const std::string secrets =
            "API_TOKEN = " + secret + "\nSECRET_LOADED = #{API_TOKEN}${PM_CANARY_TOKEN}\n" +
            "LOG_DIR = $(HOME)/#(API_TOKEN)\nURL = http://user:" + secret + "@host/\nUSERS = $(PM_CANARY_TOKEN)\n" +
            "THROUGH = #(LOG_DIR)#{SECRET_LOADED}\nFORMED = #(#(API_TOKEN))#(#(SECRET_LOADED))\n" +
            "LOOP_TOKEN = " + secret + "#(LOOP)\nLOOP = #(LOOP_TOKEN)\nLEFT_TOKEN = " + secret + "#{LEFT_TOKEN}\n" +
            "LEFT_TOKEN = " + secret + "#{LEFT}\nBAD_TOKEN = " + secret + "$(" + secret + " #(" + secret + ") ; " +
            secret + "\n" + "CALL = #(BAD_TOKEN)\nBAD_TOKEN = \"" + secret + "\n; PASSWORD = " + secret +
            "\xef\xbb\xbf\nLINES = 1\rTOKEN=" + secret + "\n" + "INCLUDE_PATH = /usr/include:" + directory_.path() +
            ":/#(API_TOKEN)\n";
        const std::string settings =
            "KR_VERSION = 12.#(API_TOKEN)\nKR_BUILD = #{PM}345\nKR_BIN = " + directory_ / "bin" + "\n" + secrets +
            "PMENV_KEYS = " + directory_ / "product.keys" + "\nPIN = " + secret +
            "\nPORT = <#(PIN)>\nMODE = #{API_TOKEN}\n" + "CERT = /none/#(PIN)\nOF_PIN = #(#(PIN))\n" +
            "[engine]\nTHREADS = 8\nTOKEN = " + secret + "\n";
        directory_.writeFile(
            "product.keys",
            "[PIN]\nsecret = yes\ntype = integer\n[PORT]\ntype = integer\n[MODE]\ntype = choice\nvalues = "
            "a, b\n[CERT]\ntype = file\n[API_TOKEN]\ntype = boolean\n[USERS]\ntype = number\n");
        directory_.writeFile("no.keys", "[db]\nsecret = " + secret + "\nTOKEN = " + secret + "\n");
        for (const char* const file : {"pressmark.ini", "new.ini", "conf/a.ini", "bin/engine.ini"}) {
            directory_.writeFile(file, settings + "TIMEOUT = #(API_TOKEN)\n");
        }
        directory_.writeFile("other/pressmark.ini", "[]\nAPI_TOKEN = 2" + secret +
                                                        "\nLOG_DIR = <#(API_TOKEN)>\nONLY_TOKEN = " + secret + "\n");
        directory_.writeFile("refused.ini", "PASSWORD = " + secret + "\nPASSWORD " + secret + "\n");
        directory_.writeFile("product.ini",
                             "PRODUCT_NAME = http://u:" + secret + "@h\nPRODUCT_TOKEN = " + secret + "\n");
        directory_.writeFile("bad.env", "TOKEN = " + secret + "\n");
        directory_.writeFile("engine.cfg");
        directory_.writeFile("stdio.h");
    }

    ProgramResult runLine(const std::string& line) const {
        const ScopedCwd here(directory_.path());
        const std::string script = "pmenv() { \"$0\" \"$@\" </dev/null; }; " + line;
        return runProgram({"/bin/bash", "-c", script, PMENV_BINARY},
                          environmentOf({{"HOME", directory_ / "home"}, {"KR_BIN", directory_.path()}}));
    }

    // Of a line that is not run because it shows what was asked for, 0.
    std::size_t linesWithoutSecret(const std::string& line) const {
        SCOPED_TRACE(line);
        const ProgramResult outcome = runLine(line);
        EXPECT_THAT(outcome.out, Not(HasSubstr(kCanary)));
        EXPECT_THAT(outcome.err, Not(HasSubstr(kCanary)));
        return outcome.out.empty() && outcome.err.empty() ? 0 : 1;
    }
};

std::vector<std::string> exampleLines(const Command& command) {
    std::vector<std::string> lines;
    std::istringstream examples(command.examples);
    for (std::string line; std::getline(examples, line);) lines.push_back(line.substr(0, line.find("  ")));
    return lines;
}

// Commands that measure know no settings.
TEST_F(PmenvCanary, IsInNoOutputOfAnyExampleOfAnyCommand) {
    const std::set<std::string> measure{"stats", "judge", "mark", "chart", "export", "fleet"};
    const std::set<std::string> answer{"get", "resolve"};  // the value that they are asked for
    std::size_t lines = 0;
    for (const Command& command : pmenvGrammar().commands) {
        const std::string name = command.name;
        if (measure.count(name) + answer.count(name) > 0) continue;
        std::size_t shown = 0;
        for (const std::string& line : exampleLines(command)) {
            shown += linesWithoutSecret(line);
            shown += linesWithoutSecret(line + " --json");
        }
        EXPECT_GT(shown, 0U) << name << " has shown nothing";
        lines += shown;
    }
    EXPECT_GT(lines, 40U);
}

TEST_F(PmenvCanary, IsInNoExplanationOfAnySetting) {
    for (const char* const name :
         {"API_TOKEN",  "SECRET_LOADED", "LOG_DIR",    "URL",       "USERS",        "THROUGH",      "FORMED",
          "LOOP_TOKEN", "LOOP",          "LEFT_TOKEN", "BAD_TOKEN", "CALL",         "PIN",          "PORT",
          "MODE",       "CERT",          "OF_PIN",     "LINES",     "INCLUDE_PATH", "engine.TOKEN", "TOKEN"}) {
        for (const char* const form : {"", " --json", " --file engine.ini", " --file engine.ini --json"}) {
            EXPECT_EQ(1U, linesWithoutSecret(std::string("pmenv explain ") + name + form));
        }
    }
}

TEST_F(PmenvCanary, IsInNoErrorOfAnyCommand) {
    for (const char* const line : {"pmenv list --ini refused.ini",
                                   "pmenv get PASSWORD --ini refused.ini",
                                   "pmenv check refused.ini",
                                   "pmenv check --file engine.ini",
                                   "pmenv check --file engine.ini --keys product.keys --json",
                                   "pmenv check --keys no.keys",
                                   "pmenv list --keys no.keys",
                                   "pmenv explain PIN --keys no.keys",
                                   "pmenv explain A --set TOKEN:c4n4ry-5ecre7",
                                   "pmenv path abs no-such-file",
                                   "PROXY=http://u:c4n4ry-5ecre7@h pmenv find none '$PROXY'",
                                   "pmenv find none '#CERT' '#OF_PIN' --json",
                                   "pmenv check --strict --json",
                                   "pmenv explain NONE",
                                   "pmenv check --format sarif",
                                   "pmenv check --format github",
                                   "pmenv check --write-keys new.ini",
                                   "pmenv find none '#INCLUDE_PATH' '#LOOP'",
                                   "pmenv find none '#INCLUDE_PATH' --json",
                                   "pmenv resolve '#LOOP'",
                                   "pmenv diff pressmark.ini other/pressmark.ini",
                                   "pmenv diff pressmark.ini other/pressmark.ini --json",
                                   "pmenv diff pressmark.ini other/pressmark.ini --raw",
                                   "pmenv diff refused.ini pressmark.ini",
                                   "pmenv diff other/pressmark.ini pressmark.ini",
                                   "pmenv diff conf other",
                                   "pmenv diff pressmark.ini new.ini --env-a bad.env",
                                   "pmenv list --file engine.ini",
                                   "pmenv list --file engine.ini --json"}) {
        EXPECT_EQ(1U, linesWithoutSecret(line)) << line;
    }
}

// The examples would pass as well if there were no secrets to be seen.
TEST_F(PmenvCanary, IsShownOnDemand) {
    for (const char* const line :
         {"pmenv list --show-secrets", "pmenv explain THROUGH --show-secrets", "pmenv check --show-secrets",
          "pmenv diff pressmark.ini other/pressmark.ini --show-secrets", "pmenv get API_TOKEN"}) {
        EXPECT_THAT(runLine(line).out, HasSubstr(kCanary)) << line;
    }
}

}  // namespace
