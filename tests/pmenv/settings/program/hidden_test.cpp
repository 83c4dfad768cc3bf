// What is secret is hidden in what list, explain and check show, and in messages.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pmenv/PmenvTest.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string kSecret = kCanary;

class PmenvHidden : public Pmenv {
protected:
    void write(const std::string& text) const { directory_.writeFile("pressmark.ini", text); }

    // The guard in Pmenv::run looks for the secret in each output.
    ProgramResult list(const std::string& text, Words more = {}) const {
        write(text);
        more.insert(more.begin(), "list");
        return runHere(more);
    }
    ProgramResult explain(const std::string& text, Words more) const {
        write(text);
        more.insert(more.begin(), "explain");
        return runHere(more);
    }
    ProgramResult check(const std::string& text, Words more = {}) const {
        directory_.writeFile("a.ini", text);
        more.insert(more.begin(), {"check", "a.ini"});
        return run(more);
    }
    std::string head() const { return ini() + "\n\n"; }
};

// --- list -----------------------------------------------------------------------------------------------------------

TEST_F(PmenvHidden, ListHidesValuesOfSecretNames) {
    const std::string text = "DB_PASSWORD = " + kSecret + "\nEMPTY_TOKEN =\nLITERAL = (hidden)\n";
    EXPECT_EQ(list(text).out, head() +
                                  "KEY          STORED      EXPANDED\n"
                                  "DB_PASSWORD  (hidden)    (hidden)\n"
                                  "EMPTY_TOKEN\n"
                                  "LITERAL      \"(hidden)\"  \"(hidden)\"\n");
    const json settings = json::parse(list(text, {"--json"}).out).at("settings");
    EXPECT_EQ(
        settings[0],
        (json{
            {"key", "DB_PASSWORD"}, {"line", 1}, {"stored", "(hidden)"}, {"expanded", "(hidden)"}, {"hidden", true}}));
    EXPECT_FALSE(settings[2].contains("hidden"));
    EXPECT_THAT(list(text, {"--show-secrets"}).out, HasSubstr("DB_PASSWORD  " + kSecret + "  " + kSecret + "\n"));
}

TEST_F(PmenvHidden, ListHidesWhatASecretBecomesInOtherValues) {
    const ProgramResult outcome = list("API_KEY = " + kSecret +
                                       "\n"
                                       "LOADED = <#{API_KEY}>\n"
                                       "READ = <#(API_KEY)>\n"
                                       "NESTED = a#(READ)b#(LOADED)c\n"
                                       "FROM_ENV = $(PM_CANARY_TOKEN)!\n"
                                       "LOADED_ENV = ${PM_CANARY_TOKEN}\n"
                                       "BYE = #{LOADED} #(LOADED_ENV)\n"
                                       "NAME = #(#(API_KEY))\n");
    EXPECT_EQ(outcome.out, head() +
                               "KEY         STORED                    EXPANDED\n"
                               "API_KEY     (hidden)                  (hidden)\n"
                               "LOADED      <(hidden)>                <(hidden)>\n"
                               "READ        <#(API_KEY)>              <(hidden)>\n"
                               "NESTED      a#(READ)b#(LOADED)c       a<(hidden)>b<(hidden)>c\n"
                               "FROM_ENV    $(PM_CANARY_TOKEN)!       \"(hidden)!\"\n"
                               "LOADED_ENV  (hidden)                  (hidden)\n"
                               "BYE         <(hidden)> #(LOADED_ENV)  <(hidden)> (hidden)\n"
                               "NAME        #(#(API_KEY))\n");
}

TEST_F(PmenvHidden, ListHidesPasswordsOfUrls) {
    const std::string text = "DB = postgres://app:" + kSecret + "@db/main\nLATER = http://u:#(PART)@h\nPART = " + "x\n";
    EXPECT_EQ(list(text).out, head() +
                                  "KEY    STORED                           EXPANDED\n"
                                  "DB     postgres://app:(hidden)@db/main  postgres://app:(hidden)@db/main\n"
                                  "LATER  http://u:(hidden)@h              http://u:(hidden)@h\n"
                                  "PART   x                                x\n");
}

TEST_F(PmenvHidden, ListHidesInAFurtherFile) {
    directory_.makeDirectory("bin");
    directory_.writeFile("bin/engine.ini", "AUTH_TOKEN = " + kSecret + "\nUSES = <#(DB_PASSWORD)>\nRAW = #{X}\n");
    const std::string text = "KR_BIN = " + directory_ / "bin" + "\nDB_PASSWORD = " + kSecret + "\n";
    EXPECT_EQ(list(text, {"--file", "engine.ini"}).out, directory_ / "bin/engine.ini" +
                                                            "\n\n"
                                                            "KEY         STORED            EXPANDED\n"
                                                            "AUTH_TOKEN  (hidden)          (hidden)\n"
                                                            "USES        <#(DB_PASSWORD)>  <(hidden)>\n"
                                                            "RAW         #{X}              #{X}\n");
}

TEST_F(PmenvHidden, GetShowsTheValuesThatItIsAskedFor) {
    write("DB_PASSWORD = " + kSecret + "\nDSN = pw=#(DB_PASSWORD)\n");
    EXPECT_EQ(runHere({"get", "DB_PASSWORD", "DSN"}).out, kSecret + "\npw=" + kSecret + "\n");
}

// --- explain --------------------------------------------------------------------------------------------------------

TEST_F(PmenvHidden, ExplainHidesTheSecretAtEachStep) {
    const std::string text = "DB_PASSWORD = ${PM_CANARY_TOKEN}\nDSN = pw=#(DB_PASSWORD);\n";
    EXPECT_EQ(explain(text, {"DSN"}).out, head() +
                                              "DSN: setting at 2:7\n"
                                              "│ text    pw=#(DB_PASSWORD);\n"
                                              "├─ #(DB_PASSWORD) at 2:10, when read: setting at 1:15\n"
                                              "│  │ text    (hidden)\n"
                                              "│  ├─ ${PM_CANARY_TOKEN} at 1:15, when loaded: process environment\n"
                                              "│  │  └ value   (hidden)\n"
                                              "│  │ stored  (hidden)\n"
                                              "│  └ value   (hidden)\n"
                                              "└ value   pw=(hidden);\n");
    const json answer = json::parse(explain(text, {"DSN", "--json"}).out);
    EXPECT_EQ(answer.at("value"), "pw=(hidden);");
    EXPECT_EQ(answer.at("explanation").at("valueHidden"), true);
    EXPECT_THAT(explain(text, {"DSN", "--show-secrets"}).out, HasSubstr("└ value   pw=" + kSecret + ";\n"));
}

TEST_F(PmenvHidden, ExplainHidesNamesThatAreSecretTexts) {
    const std::string formed = "TOKEN = " + kSecret + "\n" + kSecret + " = x\nA = #(#(TOKEN))\n";
    EXPECT_THAT(explain(formed, {"A"}).out, HasSubstr("├─ (hidden), from a substitution, when read: setting at 2:"));
    const std::string undefined = "TOKEN = ab#(" + kSecret + ")c\n";
    EXPECT_THAT(explain(undefined, {"TOKEN"}).out, HasSubstr("├─ (hidden) at 1:11, when read: not defined anywhere\n"));
    const std::string loaded = "TOKEN = " + kSecret + "\nPASSWORD = #(#{TOKEN})\n" + kSecret + " = x\n";
    EXPECT_THAT(explain(loaded, {"PASSWORD"}).out, HasSubstr("├─ (hidden), from a substitution, when read: "));
}

TEST_F(PmenvHidden, ExplainHidesSecretsInCycles) {
    const std::string text = "TOKEN = " + kSecret + "#(A)\nA = #(TOKEN)\n";
    const ProgramResult outcome = explain(text, {"A"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("  A -> TOKEN -> A\n"));
    EXPECT_THAT(outcome.out, HasSubstr("  TOKEN at 1:9: (hidden)\n"));
    explain(text, {"A", "--json"});
    explain("TOKEN = " + kSecret + "#{TOKEN}\nTOKEN = x\n", {"TOKEN"});
}

TEST_F(PmenvHidden, ExplainHidesTextsAndRunTimeValues) {
    EXPECT_THAT(explain("A = 1\n", {"--text", "$(PM_CANARY_TOKEN) http://u:" + kSecret + "@h"}).out,
                HasSubstr("└ value   \"(hidden) http://u:(hidden)@h\"\n"));
    EXPECT_THAT(explain("A = 1\n", {"API_KEY", "--set", "API_KEY=" + kSecret}).out, HasSubstr("└ value   (hidden)\n"));
    EXPECT_THAT(explain("A = 1\n", {"A", "--set", "A=http://u:" + kSecret + "@h"}).out,
                HasSubstr("└ value   http://u:(hidden)@h\n"));
    directory_.makeDirectory("bin");
    directory_.writeFile("bin/engine.ini", "TOKEN = " + kSecret + "\nA = #(DB_PASSWORD)\n");
    const std::string text = "KR_BIN = " + directory_ / "bin" + "\nDB_PASSWORD = " + kSecret + "\n";
    EXPECT_THAT(explain(text, {"TOKEN", "--file", "engine.ini"}).out, HasSubstr("└ value   (hidden)\n"));
    EXPECT_THAT(explain(text, {"A", "--file", "engine.ini"}).out, HasSubstr("└ value   (hidden)\n"));
}

TEST_F(PmenvHidden, ExplainTellsHowLongAValueIsThatIsTooLong) {
    const std::string text = "TOKEN = " + std::string(1500, 'x') + "\nA = #(TOKEN)#(TOKEN)\n";
    EXPECT_THAT(explain(text, {"A"}).out, HasSubstr("no value: it has 3,000 characters, the limit is 2,047\n"));
}

// --- check ----------------------------------------------------------------------------------------------------------

TEST_F(PmenvHidden, CheckHidesTheLineAndWhatWouldBeQuotedFromIt) {
    EXPECT_EQ(check("DB_PASSWORD = " + kSecret + "#(" + kSecret + ")\n").out,
              "a.ini:1:15: error: this is in a value that is hidden; --show-secrets tells more [undefined-setting]\n"
              "    1 | DB_PASSWORD = (hidden)\n"
              "      |               ^~~~~~~~\n");
    EXPECT_EQ(check("TOKEN = a ; " + kSecret + "\n").out,
              "a.ini:1:9: warning: this belongs to the value; a comment stands on a line of its own "
              "[trailing-comment]\n"
              "    1 | TOKEN = (hidden)\n"
              "      |         ^~~~~~~~\n");
    const json findings = json::parse(check("TOKEN = " + kSecret + "$(A\n", {"--json"}).out).at(0).at("findings");
    EXPECT_EQ(findings[0].at("source"), "TOKEN = (hidden)");
    EXPECT_EQ(findings[0].at("sourceHidden"), true);
    EXPECT_EQ(findings[0].at("column"), 9);
    EXPECT_EQ(findings[0].at("length"), kSecret.size() + 3);
    EXPECT_THAT(check("TOKEN = " + kSecret + "$(A\n", {"--show-secrets"}).out,
                HasSubstr("TOKEN = " + kSecret + "$(A\n"));
}

TEST_F(PmenvHidden, CheckShowsOtherFindingsOfASecretSetting) {
    EXPECT_EQ(check("TOKEN = a\nTOKEN = " + kSecret + "\n").out,
              "a.ini:2:1: warning: 'TOKEN' is set again; its value from line 1 is lost [duplicate-key]\n"
              "    2 | TOKEN = (hidden)\n"
              "      | ^~~~~\n");
    EXPECT_THAT(check("TOKEN = " + kSecret + "#(TOKEN)\n").out,
                HasSubstr("a.ini:1:9: error: the references form a cycle: TOKEN (line 1) -> TOKEN (line 1); "));
}

TEST_F(PmenvHidden, CheckHidesInLinesThatAreNoSettings) {
    EXPECT_THAT(check("PASSWORD " + kSecret + "\n").out, HasSubstr("    1 | PASSWORD(hidden)\n"));
    EXPECT_THAT(check("[PASSWORD " + kSecret + "\n").out, HasSubstr("    1 | [PASSWORD(hidden)\n"));
    EXPECT_THAT(check("; TOKEN = " + kSecret + "\xef\xbb\xbf\n").out, HasSubstr("    1 | ; TOKEN(hidden)\n"));
    EXPECT_THAT(check("A = 1\rTOKEN = " + kSecret + "\n").out, HasSubstr("    1 | A = 1\\rTOKEN =(hidden)\n"));
}

TEST_F(PmenvHidden, EveryFormatOfFindingsHides) {
    for (const char* const format : {"text", "json", "sarif", "github"}) {
        const ProgramResult outcome =
            check("TOKEN = " + kSecret + "$(A #(" + kSecret + ") ; " + kSecret + "\n", {"--format", format});
        EXPECT_THAT(outcome.out, HasSubstr("this is in a value that is hidden")) << format;
    }
}

TEST_F(PmenvHidden, KnownKeysTellWhatIsSecret) {
    directory_.writeFile("product.keys", "[PIN]\nsecret = yes\ntype = integer\n[SIZE]\n");
    const std::string text = "PMENV_KEYS = product.keys\nPIN = " + kSecret + "\nSIZE = <#(PIN)>\n";
    EXPECT_THAT(list(text).out,
                HasSubstr("\nPIN         (hidden)      (hidden)\nSIZE        <#(PIN)>      <(hidden)>\n"));
    EXPECT_THAT(explain(text, {"SIZE"}).out, HasSubstr("└ value   <(hidden)>\n"));
    EXPECT_THAT(check(text).out, HasSubstr("    2 | PIN = (hidden)\n"));
    directory_.writeFile("b.ini", "PIN = 1\nSIZE = <#(PIN)>\n");
    EXPECT_THAT(run({"diff", "a.ini", "b.ini"}).out, HasSubstr("PIN\n  A  (hidden)\n"));
    EXPECT_THAT(explain("PIN = " + kSecret + "\n", {"PIN", "--keys", directory_ / "product.keys"}).out,
                HasSubstr("(hidden)"));
}

TEST_F(PmenvHidden, CheckHidesNamesThatFormOfSecrets) {
    EXPECT_THAT(
        check("TOKEN = " + kSecret + "\nA = #(#(TOKEN))\n").out,
        HasSubstr(
            "a.ini:2:5: error: this is in a value that is hidden; --show-secrets tells more [undefined-setting]"));
    EXPECT_THAT(check("TOKEN = " + kSecret + "\nA = $(#{TOKEN})\n").out, Not(HasSubstr(kSecret)));
    EXPECT_THAT(check("A = 1$(PM_CANARY_TOKEN)#(B)\n").out, HasSubstr("the setting 'B' is not defined"));
    directory_.writeFile("a.ini", "A = $(DB_PASSWORD)\n");
    EXPECT_THAT(run({"check", "a.ini"}, {{"DB_PASSWORD", "x#(" + kSecret + ")"}}).out,
                HasSubstr("(in the value of the environment variable DB_PASSWORD)"));
}

// A value that is compared with the known keys is another text than its line.
TEST_F(PmenvHidden, CheckHidesInTheValuesThatItCompares) {
    directory_.writeFile("k.keys",
                         "[PORT]\ntype = integer\n[MODE]\ntype = choice\nvalues = c4n4ry, slow\n[CERT]\ntype = file\n"
                         "[USERS]\ntype = integer\nmost = 3\n[API_TOKEN]\ntype = integer\n[N_TOKEN]\n");
    const std::string text = "API_TOKEN = " + kSecret +
                             "\nN_TOKEN = 42\nPORT = <#(API_TOKEN)>\nMODE = #{API_TOKEN}\n"
                             "CERT = /none/#(API_TOKEN)\nUSERS = #(N_TOKEN)\n";
    const json answer = json::parse(check(text, {"--keys", "k.keys", "--json"}).out).at(0).at("findings");
    Words texts;
    for (const json& finding : answer) texts.push_back(finding.at("text"));
    EXPECT_THAT(texts,
                testing::ElementsAre("(hidden), but API_TOKEN is an integer", "'<(hidden)>', but PORT is an integer",
                                     "(hidden), but MODE is one of c4n4ry, slow",
                                     "CERT needs a file: '/none/(hidden)': No such file or directory",
                                     "(hidden) is out of range: USERS is an integer of at most 3"));
    for (const char* const format : {"text", "sarif", "github"}) check(text, {"--keys", "k.keys", "--format", format});
    EXPECT_THAT(check(text, {"--keys", "k.keys", "--show-secrets"}).out,
                HasSubstr("'" + kSecret + "', but API_TOKEN is an integer"));
}

// A setting that a secret refers to is read on the way, where all is hidden.
TEST_F(PmenvHidden, CheckShowsWhatASecretIsMadeOf) {
    directory_.writeFile("k.keys", "[A_TOKEN]\n[PORT]\ntype = integer\n");
    EXPECT_THAT(check("A_TOKEN = #(PORT)\nPORT = eighty\n", {"--keys", "k.keys"}).out,
                HasSubstr("'eighty', but PORT is an integer"));
}

TEST_F(PmenvHidden, CheckHidesSecretsOfPressmarkInAFurtherFile) {
    directory_.makeDirectory("bin");
    write("KR_BIN = bin\nPMENV_KEYS = p.keys\nAPI_TOKEN = " + kSecret + "\nX = <#{API_TOKEN}>\nPIN = " + kSecret +
          "\n");
    directory_.writeFile("p.keys", "[PIN]\nsecret = yes\n");
    directory_.writeFile("bin/e.keys", "[PORT]\ntype = integer\n[A]\n[B]\n[C]\n[OWN]\nsecret = yes\n");
    directory_.writeFile("bin/engine.ini", "PMENV_KEYS = e.keys\nPORT = #(X)\nA = #(#(X))\nB = #(#(PIN))\nOWN = " +
                                               kSecret + "#(" + kSecret + ")\n");
    for (const Words& more : {Words{}, Words{"--json"}, Words{"--keys", "bin/e.keys"}}) {
        Words words{"check", "--file", "engine.ini"};
        words.insert(words.end(), more.begin(), more.end());
        EXPECT_THAT(runHere(words).out, HasSubstr("'<(hidden)>', but PORT is an integer"));
    }
}

// --- known keys -----------------------------------------------------------------------------------------------------

TEST_F(PmenvHidden, AnyKnownKeysMayCallASettingSecret) {
    directory_.makeDirectory("bin");
    directory_.writeFile("p.keys", "[PIN]\nsecret = yes\n");
    directory_.writeFile("other.keys", "[PIN]\n[OTHER]\nsecret = yes\n");
    directory_.writeFile("bin/e.keys", "[OWN]\nsecret = yes\n");
    directory_.writeFile("bin/engine.ini", "PMENV_KEYS = e.keys\nOWN = " + kSecret + "\nUSES = <#(PIN)>\n");
    const std::string text = "KR_BIN = bin\nPMENV_KEYS = p.keys\nPIN = " + kSecret + "\nOTHER = " + kSecret + "\n";
    const Words keys{"--keys", "other.keys"};
    const auto with = [&keys](Words words) {
        words.insert(words.end(), keys.begin(), keys.end());
        return words;
    };
    EXPECT_THAT(list(text, keys).out, HasSubstr("PIN         (hidden)  (hidden)\nOTHER       (hidden)  (hidden)\n"));
    directory_.writeFile("a.ini", text);
    EXPECT_THAT(run(with({"check", "a.ini"})).out, HasSubstr("no setting that the product knows"));
    write("KR_BIN = bin\nPMENV_KEYS = p.keys\nPIN = " + kSecret + "\n");
    EXPECT_THAT(runHere({"list", "--file", "engine.ini"}).out,
                HasSubstr("OWN         (hidden)  (hidden)\nUSES        <#(PIN)>  <(hidden)>\n"));
    EXPECT_THAT(runHere({"explain", "OWN", "--file", "engine.ini"}).out, HasSubstr("└ value   (hidden)\n"));
    EXPECT_THAT(runHere({"explain", "USES", "--file", "engine.ini"}).out, HasSubstr("└ value   <(hidden)>\n"));
}

TEST_F(PmenvHidden, WhatIsLeftOutIsWarnedOfOnce) {
    directory_.writeFile("p.keys", "[PIN]\nsecret = yes\n");
    const ProgramResult outcome = list("PMENV_KEYS = p.keys\nL = ${PM_LOOP}\n");
    EXPECT_EQ(outcome.err, "");
    write("PMENV_KEYS = p.keys\nL = ${PM_LOOP}\n");
    EXPECT_EQ(runHere({"list"}, {{"PM_LOOP", "${PM_LOOP}"}}).err,
              "pmenv: warning: " + ini() +
                  ":2: L is left out: its references lead back to themselves, or expanding them takes more than the "
                  "limits allow\n");
}

// --- messages -------------------------------------------------------------------------------------------------------

TEST_F(PmenvHidden, PlacesOfASearchAreHidden) {
    directory_.writeFile("p.keys", "[PIN]\nsecret = yes\n");
    write("PMENV_KEYS = p.keys\nPIN = " + kSecret + "\nINCLUDE_PATH = /none:/#(PIN)\n");
    const std::string hidden = "#INCLUDE_PATH, (hidden): no such directory";
    EXPECT_THAT(runHere({"find", "x", "#INCLUDE_PATH"}).err, HasSubstr(hidden));
    EXPECT_THAT(runHere({"find", "x", "#INCLUDE_PATH", "--json"}).out, HasSubstr("\"(hidden)\""));
    EXPECT_THAT(runHere({"path", "abs", "no-such-file"}).err, HasSubstr(hidden));
    EXPECT_THAT(run({"find", "x", "$PROXY"}, {{"PROXY", "http://u:" + kSecret + "@h"}}).err,
                HasSubstr("$PROXY, (hidden)"));
}

TEST_F(PmenvHidden, ReportHidesTheRelease) {
    directory_.writeFile("p.keys", "[PIN]\nsecret = yes\n");
    write("PMENV_KEYS = p.keys\nPIN = " + kSecret + "\nKR_VERSION = 12.#(PIN)\nKR_BUILD = #(PIN)\n");
    const json report = json::parse(runHere({"report", "--json"}).out);
    EXPECT_EQ(report.at("version"), "12.(hidden)");
    EXPECT_EQ(report.at("build"), "(hidden)");
}

TEST_F(PmenvHidden, MistakesInTheCommandLineAndInKnownKeysAreNotQuoted) {
    EXPECT_EQ(run({"explain", "A", "--set", "TOKEN:" + kSecret}).status, 2);
    directory_.writeFile("settings.ini", "[db]\nsecret = " + kSecret + "\n");
    EXPECT_THAT(run({"check", "pressmark.ini", "--keys", "settings.ini"}).err,
                HasSubstr("2:10: error: secret is yes or no"));
}

}  // namespace
