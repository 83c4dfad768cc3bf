// Known keys: the file that describes them, values against it, and the commands that use it.
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/check.h"
#include "check/keysDraft.h"
#include "failure.h"
#include "knownKeys/knownKeys.h"
#include "pmenv/PmenvTest.h"
#include "support/repeated.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// --- the file -------------------------------------------------------------------------------------------------------

class KnownKeysFile : public testing::Test {
protected:
    KnownKeys read(const std::string& text) const { return readKnownKeys(directory_.writeFile("k.keys", text)); }
    // "LINE:COLUMN text" of each mistake.
    Words mistakesIn(const std::string& text) const {
        const std::string file = directory_.writeFile("k.keys", text);
        Words mistakes;
        try {
            readKnownKeys(file);
        } catch (const Failure& failure) {
            std::string rest = failure.what();
            const std::string mark = "\n" + file + ":";
            EXPECT_EQ(0U, rest.find("cannot use the known keys:" + mark)) << rest;
            for (std::size_t at = rest.find(mark); at != std::string::npos;) {
                const std::size_t begin = at + mark.size();
                at = rest.find(mark, begin);
                std::string line = rest.substr(begin, at - begin);
                const std::string severity = ": error: ";
                line.replace(line.find(severity), severity.size(), " ");
                mistakes.push_back(line);
            }
        }
        return mistakes;
    }

    const TempDir directory_;
};

TEST_F(KnownKeysFile, DescribesASettingInEachSection) {
    const KnownKeys keys = read(
        "; a comment\n[A]\n[s.B]\ntype = integer\nleast = 1\nmost = 65535\nunit = seconds\nrequired = yes\n"
        "help = how long; it takes\n[c d]\ntype=choice\nvalues = a, b c ,,d,ee,\nsecret = yes\nrequired = no\n");
    EXPECT_THAT(keys.names(), ElementsAre("A", "s.B", "c d"));
    EXPECT_EQ(nullptr, keys.find("B"));
    const KnownKey& plain = *keys.find("A");
    EXPECT_EQ(KnownKey::Type::Text, plain.type);
    EXPECT_FALSE(plain.isRequired || plain.isSecret || plain.least || plain.most);
    EXPECT_EQ("a text", plain.helpText());
    const KnownKey& number = *keys.find("s.B");
    EXPECT_TRUE(number.isRequired);
    EXPECT_EQ("how long; it takes (an integer from 1 to 65535, in seconds)", number.helpText());
    const KnownKey& choice = *keys.find("c d");
    EXPECT_TRUE(choice.isSecret);
    EXPECT_FALSE(choice.isRequired);
    EXPECT_THAT(choice.values, ElementsAre("a", "b c", "d", "ee"));
    EXPECT_EQ("one of a, b c, d, ee", choice.typeText());
}

TEST_F(KnownKeysFile, TypeTextsTellTheRange) {
    EXPECT_EQ("a number of at least -0.5", read("[A]\ntype = number\nleast = -0.5\n").find("A")->typeText());
    EXPECT_EQ("an integer of at most 7, in users",
              read("[A]\ntype = integer\nmost = 7\nunit = users\n").find("A")->typeText());
    EXPECT_EQ("a file that must exist", read("[A]\ntype = file\n").find("A")->typeText());
    EXPECT_EQ("a path", read("[A]\ntype = path\n").find("A")->typeText());
}

TEST_F(KnownKeysFile, TellsEachMistakeWithItsPlace) {
    EXPECT_THAT(
        mistakesIn("type = text\n[A]\ntyp = text\ntype = nubmer\n[B]\ntype = colour\nrequired = maybe\n"),
        ElementsAre("1:1 'type' stands outside of a section; a [NAME] begins the description of the setting NAME",
                    "3:1 a setting has no property 'typ'; did you mean 'type'?",
                    "4:8 there is no type 'nubmer'; did you mean 'number'?",
                    "6:8 there is no type 'colour'; the types are text, integer, number, boolean, path, file "
                    "and choice",
                    "7:12 required is yes or no"));
    EXPECT_THAT(
        mistakesIn("[A]\n[]\nhelp = x\n[B\n[A]\nhelp = x\nhelp = y\nnonsense\n"),
        ElementsAre("3:1 'help' stands outside of a section; a [NAME] begins the description of the setting NAME",
                    "4:1 missing ']' after the section name, expected [name]", "5:2 'A' is described on line 1 already",
                    "7:1 'help' of 'A' is set again", "8:1 missing '=', expected KEY = value"));
    EXPECT_THAT(mistakesIn("[A]\nleast = 1\nunit = s\nvalues = a\n[B]\ntype = integer\nleast = 5\nmost = 4\n[C]\n"
                           "type = number\nleast = one\nmost = 1e3\n[D]\ntype = choice\nvalues = ,\n"),
                ElementsAre("2:1 only a setting of type integer or number has least",
                            "3:1 only a setting of type integer or number has unit",
                            "4:1 only a setting of type choice has values",
                            "8:8 4 is less than 5, the least value of 'B'", "11:9 'one' is no number",
                            "12:8 '1e3' is no number", "13:2 'D' is a choice without values; write values = A, B"));
}

TEST_F(KnownKeysFile, TellsMistakesInTheOrderOfTheLines) {
    EXPECT_THAT(mistakesIn("[A]\ncolour = red\nnonsense\n[A]\ntype = choice\n"),
                ElementsAre("2:1 a setting has no property 'colour'", "3:1 missing '=', expected KEY = value",
                            "4:2 'A' is described on line 1 already",
                            "4:2 'A' is a choice without values; write values = A, B"));
}

TEST_F(KnownKeysFile, TheLeastValueMayBeTheMost) {
    EXPECT_EQ("an integer from 5 to 5", read("[A]\ntype = integer\nleast = 5\nmost = 5\n").find("A")->typeText());
}

TEST_F(KnownKeysFile, TellsTheFirstFiftyMistakes) {
    std::string text = "[A]\n";
    for (int i = 0; i < 60; ++i) text += "x" + std::to_string(i) + " = 1\n";
    const Words mistakes = mistakesIn(text);
    ASSERT_EQ(50U, mistakes.size());
    EXPECT_THAT(mistakes.back(), testing::EndsWith("\nand 10 more"));
    for (const auto& [count, end] : {std::pair(51, "\nand 1 more"), std::pair(50, "no property 'x49'")}) {
        text = "[A]\n";
        for (int i = 0; i < count; ++i) text += "x" + std::to_string(i) + " = 1\n";
        EXPECT_THAT(mistakesIn(text).back(), testing::EndsWith(end));
    }
}

TEST_F(KnownKeysFile, ThatCannotBeReadIsAFailure) {
    try {
        readKnownKeys("/no/such.keys");
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_STREQ("cannot read the known keys: /no/such.keys: cannot open the file: No such file or directory",
                     failure.what());
    }
}

// --- values ---------------------------------------------------------------------------------------------------------

KnownKey keyOf(KnownKey::Type type) { return {"A", type}; }

TEST(KnownKeyValues, AreOfTheirType) {
    using Type = KnownKey::Type;
    const struct {
        Type type;
        Words good;
        Words bad;
    } rows[] = {
        {Type::Text, {"", "a", " "}, {}},
        {Type::Integer,
         {"0", "-1", "+1", "9", "90", "007", "12345678901234567890"},
         {"", "-", "1.0", "1s", "1/", "1:", " 1", "1 ", "0x10", "1e3", "--1", "+-1", "inf", "nan", "1,000", "a"}},
        {Type::Number, {"0", "-1.5", "+0.25", "10"}, {"", ".", ".5", "5.", "1.2.3", "1e3", "inf", "-nan", "1 s"}},
        {Type::Boolean, {"yes", "No", "TRUE", "false", "on", "Off", "1", "0"}, {"", "y", "2", "yes "}},
        {Type::Path, {"/a", "a", "C:\\x"}, {""}},
        {Type::File, {"/a"}, {""}},
    };
    for (const auto& row : rows) {
        for (const std::string& value : row.good) EXPECT_EQ("", typeProblem(keyOf(row.type), value)) << value;
        for (const std::string& value : row.bad) EXPECT_NE("", typeProblem(keyOf(row.type), value)) << value;
    }
    KnownKey choice = keyOf(Type::Choice);
    choice.values = {"recorded", "none"};
    EXPECT_EQ("", typeProblem(choice, "none"));
    EXPECT_EQ("'recroded', but A is one of recorded, none; did you mean 'recorded'?", typeProblem(choice, "recroded"));
    EXPECT_EQ("an empty value, but A is one of recorded, none", typeProblem(choice, ""));
    EXPECT_EQ("(hidden), but A is one of recorded, none", typeProblem(choice, "recroded", HiddenParts(8)));
}

TEST(KnownKeyValues, LieInTheirRange) {
    KnownKey key = keyOf(KnownKey::Type::Number);
    EXPECT_EQ("", rangeProblem(key, "-1000"));
    key.least = {{-0.5, "-0.5"}};
    key.most = {{10, "10"}};
    for (const char* const good : {"-0.5", "0", "10", "10.0", "no number"})
        EXPECT_EQ("", rangeProblem(key, good)) << good;
    EXPECT_EQ("'-0.51' is out of range: A is a number from -0.5 to 10", rangeProblem(key, "-0.51"));
    EXPECT_NE("", rangeProblem(key, "10.01"));
    EXPECT_EQ("(hidden) is out of range: A is a number from -0.5 to 10", rangeProblem(key, "11", HiddenParts(2)));
    EXPECT_EQ("", rangeProblem(keyOf(KnownKey::Type::Text), "11"));
    key.type = KnownKey::Type::Integer;
    EXPECT_EQ("", rangeProblem(key, "10.5")) << "it is no integer in the first place";
}

TEST(KnownKeyValues, LongOnesAreShownToTheirEightiethCharacter) {
    EXPECT_EQ("'" + repeated("x", 80) + "'", shownValue(repeated("x", 80), HiddenParts()));
    EXPECT_EQ("'" + repeated("x", 80) + "...'", shownValue(repeated("x", 80) + "y", HiddenParts()));
}

// --- check ----------------------------------------------------------------------------------------------------------

class PmenvKeys : public Pmenv {
protected:
    PmenvKeys() {
        directory_.writeFile("k.keys",
                             "[PORT]\ntype = integer\nleast = 1\nmost = 65535\nhelp = where it listens\n"
                             "[NAME]\nrequired = yes\n[DIR]\ntype = path\n[CERT]\ntype = file\n"
                             "[run.MODE]\ntype = choice\nvalues = fast, slow\n");
    }
    ProgramResult check(const std::string& text, Words words = {"--keys", "k.keys"}) const {
        directory_.writeFile("a.ini", text);
        words.insert(words.begin(), {"check", "a.ini"});
        return run(words);
    }
    // The first lines of the findings, without the file's name.
    Words findings(const std::string& text) const {
        Words found;
        const json answer = json::parse(check(text, {"--keys", "k.keys", "--json"}).out);
        for (const json& finding : answer.at(0).at("findings")) {
            found.push_back(std::to_string(finding.at("line").get<int>()) + ":" +
                            std::to_string(finding.at("column").get<int>()) + "+" +
                            std::to_string(finding.at("length").get<int>()) + " " +
                            finding.at("rule").get<std::string>() + ": " + finding.at("text").get<std::string>());
        }
        return found;
    }
};

TEST_F(PmenvKeys, CheckComparesTheFileWithWhatIsKnown) {
    EXPECT_THAT(findings("NAME = x\nPROT = 1\n[run]\nMODE = fats\nSPEED = 2\n"),
                ElementsAre("2:1+4 unknown-key: 'PROT' is no setting that the product knows; did you mean 'PORT'?",
                            "4:8+4 wrong-type: 'fats', but run.MODE is one of fast, slow; did you mean 'fast'?",
                            "5:1+5 unknown-key: 'run.SPEED' is no setting that the product knows"));
    EXPECT_THAT(findings("PORT = 65536\n"),
                ElementsAre("1:1+1 missing-key: 'NAME' is required, but not set; it is a text",
                            "1:8+5 out-of-range: '65536' is out of range: PORT is an integer from 1 to 65535"));
    EXPECT_THAT(findings("NAME =\nPORT = 65535\nDIR = x\nCERT = a.ini\nrun.MODE = slow\n"), IsEmpty());
    EXPECT_EQ(0, check("NAME = x\nPROT = 1\n").status) << "an unknown key is a warning";
    EXPECT_EQ(1, check("NAME = x\nPORT = 0\n").status);
}

TEST_F(PmenvKeys, CheckLooksAtExpandedValues) {
    EXPECT_THAT(findings("NAME = x\nPORT = #(B)0\nB = 1\n"),
                ElementsAre("3:1+1 unknown-key: 'B' is no setting that the product knows"));
    EXPECT_THAT(findings("NAME = x\nPORT = #(NAME)1\n"),
                ElementsAre("2:8+8 wrong-type: 'x1', but PORT is an integer from 1 to 65535"));
    EXPECT_THAT(findings("NAME = 1\nPORT = x\nPORT = #{NAME}\n"),
                ElementsAre("3:1+4 duplicate-key: 'PORT' is set again; its value from line 2 is lost"))
        << "the value that counts is looked at";
    EXPECT_THAT(findings("NAME = x\nPORT = #(PORT)\n"), ElementsAre(HasSubstr(" cycle: "))) << "there is no value";
}

TEST_F(PmenvKeys, CheckLooksForFiles) {
    EXPECT_THAT(findings("NAME = x\nCERT = none.pem\n"),
                ElementsAre("2:8+8 missing-file: CERT needs a file: 'none.pem': No such file or directory"));
    EXPECT_THAT(findings("NAME = x\nCERT = /\n"),
                ElementsAre("2:8+1 missing-file: CERT needs a file: '/': it is a directory"));
    EXPECT_THAT(findings("NAME = x\nCERT = " + directory_ / "k.keys" + "\n"), IsEmpty());
}

TEST_F(PmenvKeys, TheSettingNamesThemBesideItsFile) {
    directory_.makeDirectory("conf");
    directory_.writeFile("conf/k.keys", "[ONLY]\n");
    directory_.writeFile("conf/a.ini", "PMENV_KEYS = #(K).keys\nK = k\nONLY = 1\n");
    EXPECT_THAT(run({"check", "conf/a.ini"}).out,
                StartsWith("conf/a.ini:2:1: warning: 'K' is no setting that the product knows [unknown-key]\n"));
    EXPECT_THAT(run({"check", "conf/a.ini", "--keys", "k.keys"}).out, HasSubstr("'ONLY' is no setting"))
        << "--keys counts";
    directory_.writeFile("conf/a.ini", "PMENV_KEYS = " + directory_ / "k.keys" + "\nNAME = 1\n");
    EXPECT_EQ("0 errors, 0 warnings\n", run({"check", "conf/a.ini"}).err);
    directory_.writeFile("conf/a.ini", "PMENV_KEYS =\nX = 1\n");
    EXPECT_EQ("", run({"check", "conf/a.ini", "--strict"}).out) << "an empty name is none";
}

TEST_F(PmenvKeys, WrongKnownKeysAreToldWithTheirPlaces) {
    directory_.writeFile("bad.keys", "[A]\ntype = txt\n");
    const ProgramResult option = check("A = 1\n", {"--keys", "bad.keys"});
    EXPECT_EQ(1, option.status);
    EXPECT_EQ("pmenv: cannot use the known keys:\nbad.keys:2:8: error: there is no type 'txt'; did you mean 'text'?\n",
              option.err);
    const ProgramResult setting = check("PMENV_KEYS = bad.keys\nA\n", {});
    EXPECT_EQ(1, setting.status);
    EXPECT_THAT(setting.err, HasSubstr("\nbad.keys:2:8: error: there is no type 'txt'"));
    EXPECT_THAT(setting.err, HasSubstr("1 file not read\n"));
    EXPECT_EQ("pmenv: --keys needs a file, not an empty text\n", check("A = 1\n", {"--keys", ""}).err);
}

TEST_F(PmenvKeys, FindingsCanBeAllowed) {
    EXPECT_EQ("0 errors, 0 warnings, 1 allowed\n", check("NAME = x\n; pmenv: allow unknown-key\nX = 1\n").err);
    EXPECT_THAT(check("NAME = x\n; pmenv: allow unknown-key\nPORT = 1\n").out, HasSubstr("[needless-allow]"));
    EXPECT_THAT(check("NAME = x\n; pmenv: allow unknown-key\nPORT = 1\n", {}).out, Not(HasSubstr("[needless-allow]")))
        << "without known keys nobody can tell";
    EXPECT_THAT(check("NAME = x\n; pmenv: allow missing-file\nCERT = a.ini\n").out, IsEmpty());
}

TEST_F(PmenvKeys, OfAFurtherFileAreItsOwn) {
    directory_.makeDirectory("bin");
    directory_.writeFile("pressmark.ini", "KR_BIN = bin\nPMENV_KEYS = none.keys\nP = 0\n");
    directory_.writeFile("bin/engine.ini", "NAME = 1\nPORT = #(P)\n");
    EXPECT_THAT(run({"check", "--ini", ".", "--file", "engine.ini", "--keys", "k.keys"}).out,
                HasSubstr("bin/engine.ini:2:8: error: '0' is out of range"));
    EXPECT_EQ("", run({"check", "--ini", ".", "--file", "engine.ini"}).out);
}

TEST_F(PmenvKeys, TheExampleDescribesTheExample) {
    const ProgramResult result =
        run({"check", EXAMPLES_DIR "/pressmark.ini", "--keys", EXAMPLES_DIR "/pressmark.keys", "--strict"});
    EXPECT_EQ("", result.out);
    EXPECT_EQ(0, result.status) << result.err;
    const json list = json::parse(
        run({"list", "--ini", EXAMPLES_DIR, "--json", "--help-texts", "--keys", EXAMPLES_DIR "/pressmark.keys"}).out);
    EXPECT_EQ(readKnownKeys(EXAMPLES_DIR "/pressmark.keys").all().size(), list.at("settings").size());
    for (const json& setting : list.at("settings")) EXPECT_NE("", setting.at("known").at("help")) << setting;
}

// --- help texts -----------------------------------------------------------------------------------------------------

TEST_F(PmenvKeys, ListShowsHelp) {
    directory_.writeFile("pressmark.ini", "PORT = 80\nOTHER = 1\n");
    EXPECT_EQ(
        "./pressmark.ini\n"
        "\n"
        "KEY    STORED  EXPANDED  HELP\n"
        "PORT   80      80        where it listens (an integer from 1 to 65535)\n"
        "OTHER  1       1         (unknown)\n",
        run({"list", "--ini", ".", "--help-texts", "--keys", "k.keys"}).out);
    const json list = json::parse(run({"list", "--ini", ".", "--help-texts", "--keys", "k.keys", "--json"}).out);
    EXPECT_EQ((json{{"type", "an integer from 1 to 65535"}, {"help", "where it listens"}}),
              list.at("settings").at(0).at("known"));
    EXPECT_EQ(nullptr, list.at("settings").at(1).at("known"));
    EXPECT_EQ(0U, json::parse(run({"list", "--ini", ".", "--json"}).out).at("settings").at(0).count("known"));
    const ProgramResult without = run({"list", "--ini", ".", "--help-texts"});
    EXPECT_EQ(2, without.status);
    EXPECT_EQ("pmenv: --help-texts needs known keys; name their file with --keys or with the setting PMENV_KEYS\n",
              without.err);
    directory_.writeFile("pressmark.ini", "PMENV_KEYS = k.keys\nPORT = 80\n");
    EXPECT_THAT(run({"list", "--ini", ".", "--help-texts"}).out, HasSubstr("where it listens"));
}

TEST_F(PmenvKeys, ExplainShowsHelp) {
    directory_.writeFile("pressmark.ini", "PORT = 80\nOTHER = 1\nKR_BIN = .\n");
    EXPECT_EQ(
        "./pressmark.ini\n"
        "\n"
        "PORT: setting at 1:8\n"
        "│ help    where it listens (an integer from 1 to 65535)\n"
        "└ value   80\n",
        run({"explain", "PORT", "--ini", ".", "--keys", "k.keys"}).out);
    EXPECT_EQ(run({"explain", "OTHER", "--ini", "."}).out,
              run({"explain", "OTHER", "--ini", ".", "--keys", "k.keys"}).out);
    EXPECT_EQ((json{{"type", "an integer from 1 to 65535"}, {"help", "where it listens"}}),
              json::parse(run({"explain", "PORT", "--ini", ".", "--keys", "k.keys", "--json"}).out).at("known"));
    directory_.writeFile("engine.ini", "PORT = 81\nPMENV_KEYS = k.keys\n");
    EXPECT_THAT(run({"explain", "PORT", "--ini", ".", "--file", "engine.ini"}).out, HasSubstr("where it listens"));

    directory_.writeFile("pressmark.ini", "PORT = 80\nPMENV_KEYS = none.keys\n");
    const ProgramResult warned = run({"explain", "PORT", "--ini", "."});
    EXPECT_EQ(0, warned.status);
    EXPECT_THAT(warned.out, HasSubstr("└ value   80\n"));
    EXPECT_THAT(warned.err, StartsWith("pmenv: warning: cannot read the known keys: ./none.keys: "));
    EXPECT_EQ(2, run({"explain", "--text", "a", "--keys", "k.keys", "--ini", "."}).status);
}

// --- drafts ---------------------------------------------------------------------------------------------------------

TEST_F(PmenvKeys, DraftGuessesTypesFromAllFiles) {
    directory_.writeFile("a.ini",
                         "I = 1\nN = 1\nB = yes\nP = #(D)/x\nD = /opt\nV = $(HOME)\nE =\nL = /a:/b\nC = #(C)\n");
    directory_.writeFile("b.ini",
                         "[]\nI = 22\nN = 1.5\nB = OFF\nP = /y\nD = 1\nMORE = 0\n[s]\nK = a\nPMENV_KEYS = x\n");
    const ProgramResult result = run({"check", "--write-keys", "a.ini", "b.ini"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(result.out, StartsWith("; The settings that the product knows, drafted from a.ini b.ini.\n"));
    const KnownKeys keys = readKnownKeys(directory_.writeFile("draft.keys", result.out));
    std::map<std::string, std::string> types;
    for (const KnownKey& key : keys.all()) types[key.name] = key.typeText();
    const std::map<std::string, std::string> expected{
        {"I", "an integer"},    {"N", "a number"}, {"B", "yes or no (true or false, on or off, 1 or 0)"},
        {"P", "a path"},        {"D", "a text"},   {"V", "a path"},
        {"E", "a text"},        {"L", "a text"},   {"C", "a text"},
        {"MORE", "an integer"}, {"s.K", "a text"}, {"s.PMENV_KEYS", "a text"}};
    EXPECT_EQ(expected, types);
    EXPECT_THAT(keys.names(), ElementsAre("I", "N", "B", "P", "D", "V", "E", "L", "C", "MORE", "s.K", "s.PMENV_KEYS"));
    EXPECT_EQ("pmenv: --write-keys needs a FILE; see 'pmenv check --help'\n", run({"check", "--write-keys"}).err);
}

TEST_F(PmenvKeys, DraftGuessesNoNumberFromAVariable) {
    directory_.writeFile("a.ini", "A = ${DRAFTED_NUMBER}\nB = $(DRAFTED_NUMBER)\nC = 1\n");
    EXPECT_THAT(
        run({"check", "--write-keys", "a.ini"}, {{"DRAFTED_NUMBER", "1"}}).out,
        AllOf(HasSubstr("[A]\ntype = text\n"), HasSubstr("[B]\ntype = text\n"), HasSubstr("[C]\ntype = integer\n")));
}

// Whatever the files say, what is drafted from them can be read and has nothing to say against them.
TEST_F(PmenvKeys, DraftAcceptsTheFilesThatItCameFrom) {
    std::mt19937 random(20261122);
    const Words names{"A", "B.c", "long name", "x]y", "[z", "ä", "PMENV_KEYS", ";no", "k;", "#k"};
    const Words values{"1",     "-2.5", "007",      "yes",   "/opt/x", "#(A)",    "#{A}1", "$(HOME)",
                       "a ; b", "",     "\"  q \"", "/a:/b", "#(B.c)", "${NONE}", "1e5"};
    const auto any = [&](const Words& words) { return words[random() % words.size()]; };
    std::size_t described = 0;
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (int line = 0; line < 12; ++line) {
            text += random() % 5 == 0 ? "[" + std::string(random() % 2 == 0 ? "s" : "") + "]\n"
                                      : any(names) + " = " + any(values) + "\n";
        }
        SCOPED_TRACE(text);
        const std::string file = directory_.writeFile("f.ini", text);
        KeysDraft draft;
        draft.add(file, "f.ini");
        const KnownKeys keys = readKnownKeys(directory_.writeFile("draft.keys", draft.text()));
        described += keys.all().size();
        for (const CheckFinding& finding : checkFile({file, "", "", {}, &keys}).findings) {
            const bool isAboutKeys = finding.rule->needs == Rule::Needs::KnownKeys;
            EXPECT_TRUE(!isAboutKeys || finding.text.find(']') != std::string::npos) << finding.text;
        }
    }
    EXPECT_GT(described, 1000U);
}

}  // namespace
