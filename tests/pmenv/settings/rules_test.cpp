// The rules of pmenv check: each finds what it is about, where it is, and leaves alone what only looks like it.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/check.h"
#include "check/findings.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "support/repeated.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Rules : public testing::Test {
protected:
    // What the rule finds in the text: "LINE:COLUMN+LENGTH text".
    std::vector<std::string> find(const std::string& rule, const std::string& text, bool further = false) const {
        const std::string file = directory_.writeFile(further ? "engine.ini" : "pressmark.ini", text);
        const std::string pressmark = directory_.writeFile("settings.ini", "KR_VERSION = 1\nBOTH = 1\n");
        std::vector<std::string> found;
        const KnownKeys* const keys = needsKeys(rule) ? &keys_ : nullptr;
        for (const CheckFinding& finding : checkFile({file, "", further ? pressmark : "", {}, keys}).findings) {
            if (finding.rule->name != rule) continue;
            found.push_back(std::to_string(finding.line) + ":" + std::to_string(finding.column) + "+" +
                            std::to_string(finding.length) + " " + finding.text);
        }
        return found;
    }

    static bool needsKeys(const std::string& name) {
        return std::any_of(allRules().begin(), allRules().end(),
                           [&](const Rule& rule) { return rule.name == name && rule.needs == Rule::Needs::KnownKeys; });
    }

    // The same without the texts.
    std::vector<std::string> placesOf(const std::string& rule, const std::string& text) const {
        std::vector<std::string> places;
        for (const std::string& found : find(rule, text)) places.push_back(found.substr(0, found.find(' ')));
        return places;
    }

    const TempDir directory_;
    // What the examples of the rules about known keys say of them.
    const KnownKeys keys_ = readKnownKeys(
        directory_.writeFile("rule.keys",
                             "[http.TIMEOUT_SEC]\ntype = integer\nleast = 1\nmost = 3600\nrequired = yes\n"
                             "[http.HOSTS]\ntype = file\n"));
    const ScopedEnv home_{"HOME", "/home/user"};
    const ScopedEnv unset_{"PM_NOT_SET", nullptr};
    const ScopedEnv base_{"BASE", nullptr};
};

// --- all of them ----------------------------------------------------------------------------------------------------

TEST_F(Rules, EachFindsItsExampleAndNotWhatIsToBeWrittenInstead) {
    for (const Rule& rule : allRules()) {
        SCOPED_TRACE(rule.name);
        if (std::string(rule.name) == "too-much-work") continue;
        ASSERT_NE(nullptr, rule.example);
        ASSERT_NE(nullptr, rule.instead);
        const bool further = find(rule.name, rule.example).empty();  // what is looked for in such files only
        EXPECT_FALSE(find(rule.name, rule.example, further).empty());
        EXPECT_THAT(find(rule.name, rule.instead, further), IsEmpty());
    }
}

TEST_F(Rules, DescriptionsAreWrappedAtEightyColumns) {
    const auto described = [](const std::string& description) {
        const Rule rule{"name",     Rule::Severity::Warning, description.c_str(), "Repair it.", nullptr, nullptr,
                        FileCheck()};
        return ruleText(rule, Style(-1));
    };
    const std::string half(38, 'x'), shorter(37, 'y'), longest(90, 'z');
    EXPECT_EQ("name (warning)\n    " + half + " " + shorter + "\n    z\n    Repair it.\n",
              described(half + " " + shorter + " z"));
    EXPECT_EQ("name (warning)\n    " + half + "\n    " + half + "\n    Repair it.\n", described(half + " " + half));
    EXPECT_EQ("name (warning)\n    " + longest + "\n    Repair it.\n", described(longest));
}

TEST_F(Rules, HaveNamesOfTheirOwn) {
    std::set<std::string> names;
    for (const Rule& rule : allRules()) names.insert(rule.name);
    EXPECT_EQ(allRules().size(), names.size());
}

TEST_F(Rules, AtOnePlaceComeInTheOrderOfTheList) {
    const std::string file = directory_.writeFile("a.ini", "a b = 1\nA B = 1\na b = 2\n");
    std::vector<std::string> names;
    for (const CheckFinding& finding : checkFile({file, "", "", {}}).findings) {
        names.push_back(std::to_string(finding.line) + " " + finding.rule->name);
    }
    EXPECT_THAT(names, ElementsAre("1 unreachable-name", "2 differs-by-case", "2 unreachable-name", "3 duplicate-key",
                                   "3 unreachable-name"));
}

// --- what people mistype --------------------------------------------------------------------------------------------

TEST_F(Rules, TrailingComment) {
    const char* const rule = "trailing-comment";
    EXPECT_THAT(find(rule, "A = 80 ; the port\n"),
                ElementsAre("1:8+10 this belongs to the value; a comment stands on a line of its own"));
    EXPECT_THAT(placesOf(rule, "A = 80\t# x\nB = 1 ;x\nC = ; x\nD = a (b) ; c\nE = \"a\" ; b\n"),
                ElementsAre("1:8+3", "2:7+2", "3:5+3", "4:11+3", "5:9+3"));
    for (const char* const value :
         {"a;b", "a#b", "a #fff", "a #(B)", "(a ; b)", "{a ; b}", "\"a ; b\"", "\"a\" \"; b\" c", "\"a\" \"b ; c\" d",
          "-x \"a # b\" -y", ";", "#", "a ;", "a #", ""}) {
        EXPECT_THAT(find(rule, std::string("A = ") + value + "\n"), IsEmpty()) << value;
    }
}

TEST_F(Rules, OneSidedQuote) {
    const char* const rule = "one-sided-quote";
    EXPECT_THAT(find(rule, "A = \"a b\n"), ElementsAre("1:5+1 a quote at one end only belongs to the value"));
    EXPECT_THAT(placesOf(rule, "A = a b\"\nB = \"\nC = \"a\" \"b\n"), ElementsAre("1:8+1", "2:5+1", "3:5+1"));
    EXPECT_THAT(placesOf(rule, "A = \"a b\"\nB = \"a b\" -c\nC = -c \"a b\"\nD = a\"b\nE =\nF = \"\"\n"), IsEmpty());
}

TEST_F(Rules, CarriageReturn) {
    EXPECT_THAT(placesOf("carriage-return", "A = 1\rB = 2\r; c\r"), ElementsAre("1:6+1"));
    EXPECT_THAT(placesOf("carriage-return", "; a\rA = 1\r\nB = 2\r\n"), ElementsAre("1:4+1"));
    EXPECT_THAT(placesOf("carriage-return", "A = 1\r\nB = 2\r\n"), IsEmpty());
}

TEST_F(Rules, ByteOrderMark) {
    EXPECT_THAT(placesOf("byte-order-mark",
                         "\xef\xbb\xbf"
                         "A = 1\n\xef\xbb\xbf"
                         "B = \xef\xbb\xbf\n"),
                ElementsAre("2:1+3"));
    EXPECT_THAT(placesOf("byte-order-mark",
                         "\xef\xbb\xbf\xef\xbb\xbf"
                         "A = 1\n"),
                ElementsAre("1:1+3"));
    EXPECT_THAT(placesOf("byte-order-mark", "A = 1\n  \xef\xbb\xbf[b]\n"), ElementsAre("2:3+3"));
    EXPECT_THAT(placesOf("byte-order-mark",
                         "\xef\xbb\xbf"
                         "A = \xef\xbb\xbe\n"),
                IsEmpty());
}

TEST_F(Rules, NotAReferenceToAKeyOfASection) {
    EXPECT_THAT(placesOf("not-a-reference", "A = #( sec1.K) #(sec-1.K ) #(s.K\n"),
                ElementsAre("1:5+10", "1:16+11", "1:28+5"));
    EXPECT_THAT(placesOf("not-a-reference", "A = $HOME.txt $HOME-x\n"), ElementsAre("1:5+5", "1:15+5"));
    EXPECT_THAT(placesOf("not-a-reference", "A = $(date -u)\n"), IsEmpty());
}

TEST_F(Rules, NotAReferenceToldOfBracesInAFurtherFile) {
    EXPECT_THAT(find("not-a-reference", "A = #{B}\nC = #{}\n", true),
                ElementsAre("1:5+4 '#{B}' stays as it stands, braces are expanded in pressmark.ini only; write '#(B)'",
                            "2:5+3 '#{}' is no reference and stays as it stands; a reference is written #(NAME), "
                            "without blanks"));
}

// --- names ----------------------------------------------------------------------------------------------------------

TEST_F(Rules, UnreachableName) {
    const char* const rule = "unreachable-name";
    EXPECT_THAT(
        find(rule, "[a b]\nK = 1\n"),
        ElementsAre("1:2+3 no reference can name the keys of section 'a b'; a name in a reference has no blanks "
                    "and no parentheses"));
    EXPECT_THAT(find(rule, "[s]\nmy key = 1\n"),
                ElementsAre("2:1+6 no reference can name 's.my key'; a name in a reference has no blanks and no "
                            "parentheses"));
    EXPECT_THAT(placesOf(rule, "a(b = 1\n  a\tb = 1\n [  x)y ] ; z\n"), ElementsAre("1:1+3", "2:3+3", "3:5+3"));
    EXPECT_THAT(placesOf(rule, "[a-b.c]\nk.l_m{}$#;=1\n[]\n[ ]\n"), IsEmpty());
}

TEST_F(Rules, DiffersByCase) {
    const char* const rule = "differs-by-case";
    EXPECT_THAT(find(rule, "Ab = 1\nX = 1\nAB = 2\n"),
                ElementsAre("3:1+2 'AB' and 'Ab' on line 1 differ by case only and are two settings"));
    EXPECT_THAT(placesOf(rule, "[s]\na = 1\n[S]\na = 1\na = 2\n"), ElementsAre("4:1+1"));
    EXPECT_THAT(placesOf(rule, "A = 1\nA = 2\n[s]\na = 1\n"), IsEmpty());
}

TEST_F(Rules, DuplicateKeyWhoseValueWasUsed) {
    const char* const rule = "duplicate-key";
    EXPECT_THAT(
        find(rule, "A = 1\nB = #{A}\nC = #{A}\nA = 2\n"),
        ElementsAre("4:1+1 'A' is set again; its value from line 1 counts on line 2, which refers to it, and no "
                    "more from here on"));
    EXPECT_THAT(find(rule, "A = 1\nB = #(A)\nA = 2\nC = #{A}\n"),
                ElementsAre("3:1+1 'A' is set again; its value from line 1 is lost"));
    EXPECT_THAT(
        find(rule, "A = 1\nA = 2\nB = #{A}\nA = 3\n"),
        ElementsAre("2:1+1 'A' is set again; its value from line 1 is lost",
                    "4:1+1 'A' is set again; its value from line 2 counts on line 3, which refers to it, and no "
                    "more from here on"));
    EXPECT_THAT(find(rule, "A = 1\nA = #{A},2\n"), IsEmpty());
    EXPECT_THAT(placesOf(rule, "A = 1\nB = #{A}\nA = #{A},2\nA = 3\n"), ElementsAre("4:1+1"));
    EXPECT_THAT(find(rule, "HOME = 1\nB = ${HOME}\nHOME = 2\n"),
                ElementsAre("3:1+4 'HOME' is set again; its value from line 1 is lost"))
        << "the variable is meant";
}

// --- comments that allow a finding ---------------------------------------------------------------------------------

TEST_F(Rules, AllowTakesOneFindingFromTheNextLine) {
    const std::string twoOnALine = "A = #(X)#(Y)\n";
    EXPECT_THAT(placesOf("undefined-setting", twoOnALine), ElementsAre("1:5+4", "1:9+4"));
    EXPECT_THAT(placesOf("undefined-setting", "; pmenv: allow undefined-setting\n" + twoOnALine), ElementsAre("2:9+4"));
    const std::string both = "; pmenv: allow undefined-setting\n  #pmenv:allow\tundefined-setting - why\r\n";
    EXPECT_THAT(placesOf("undefined-setting", both + twoOnALine), IsEmpty());
    EXPECT_THAT(placesOf("needless-allow", both + twoOnALine), IsEmpty());
    EXPECT_THAT(placesOf("undefined-setting", both + "\n" + twoOnALine), ElementsAre("4:5+4", "4:9+4"));
    EXPECT_THAT(placesOf("undefined-setting", twoOnALine + both), ElementsAre("1:5+4", "1:9+4"));
}

TEST_F(Rules, EachAllowIsForTheLineBelowIt) {
    const std::string allow = "; pmenv: allow undefined-setting\n";
    EXPECT_THAT(placesOf("undefined-setting", allow + "A = #(X)\n" + allow + "B = #(Y)\n"), IsEmpty());
    EXPECT_THAT(placesOf("undefined-setting", allow + "\n" + allow + "B = #(Y)#(Z)\n"), ElementsAre("4:9+4"));
}

// What is expanded when the file is loaded is found before what is expanded when a value is read.
TEST_F(Rules, AllowTakesTheFirstFindingOfTheLine) {
    EXPECT_THAT(placesOf("undefined-setting", "A = #(NONE1)#{NONE2}\n"), ElementsAre("1:5+8", "1:13+8"));
    EXPECT_THAT(placesOf("undefined-setting", "; pmenv: allow undefined-setting\nA = #(NONE1)#{NONE2}\n"),
                ElementsAre("2:13+8"));
}

TEST_F(Rules, AllowTakesOnlyTheFindingsOfItsRule) {
    const std::string text = "A = 1\n; pmenv: allow duplicate-key\nA = #(X) ; y\n";
    EXPECT_THAT(placesOf("duplicate-key", text), IsEmpty());
    EXPECT_THAT(placesOf("undefined-setting", text), ElementsAre("3:5+4"));
    EXPECT_THAT(placesOf("trailing-comment", text), ElementsAre("3:10+3"));
}

TEST_F(Rules, AllowedFindingsAreCounted) {
    const std::string file = directory_.writeFile("a.ini", "A = 1\n; pmenv: allow duplicate-key\nA = 2\nA = 3\n");
    const CheckedFile checked = checkFile({file, "", "", {}});
    EXPECT_EQ(1U, checked.allowed);
    EXPECT_EQ(1U, checked.findings.size());
}

TEST_F(Rules, NeedlessAllow) {
    const char* const rule = "needless-allow";
    EXPECT_THAT(
        find(rule, "; pmenv: allow duplicate-key\nA = 1\n"),
        ElementsAre("1:10+19 line 2 has no finding of 'duplicate-key' that this comment could allow; remove the "
                    "comment"));
    EXPECT_THAT(find(rule, "; pmenv: allow duplicate-keys\nA = 1\n"),
                ElementsAre("1:10+20 there is no rule 'duplicate-keys'; did you mean 'duplicate-key'?"));
    EXPECT_THAT(find(rule, ";pmenv: alow cycle\n# pmenv: allow \t\n; pmenv:"),
                ElementsAre("1:9+10 write ; pmenv: allow RULE", "2:10+5 write ; pmenv: allow RULE",
                            "3:9+1 write ; pmenv: allow RULE"));
    const std::string twice = "; pmenv: allow cycle\n; pmenv: allow cycle\n";
    EXPECT_THAT(placesOf(rule, twice + "A = #(A)\n"), ElementsAre("2:10+11")) << "one finding, two comments";
    EXPECT_THAT(placesOf(rule, "A = 1\n" + twice), ElementsAre("2:10+11", "3:10+11"));
    EXPECT_THAT(placesOf(rule, "; pmenv: allow needless-allow\n; pmenv: allow cycle\nA = 1\n"),
                ElementsAre("1:10+20", "2:10+11"));
    EXPECT_THAT(placesOf(rule, "; pmenv is a tool\n; see pmenv: allow cycle\nA = ; pmenv: allow cycle\n[a]\n"),
                IsEmpty());
    EXPECT_THAT(placesOf(rule, "Xpmenv: allow cycle = 1\n"), IsEmpty()) << "no comment";
}

// Otherwise the comment would be needed on one host and needless on the next.
TEST_F(Rules, AllowOfWhatDependsOnTheHostIsNeverNeedless) {
    EXPECT_THAT(find("needless-allow", "; pmenv: allow unset-variable\nA = $(HOME)\n"), IsEmpty());
    EXPECT_THAT(find("unset-variable", "; pmenv: allow unset-variable\nA = $(PM_NOT_SET)\n"), IsEmpty());
}

TEST_F(Rules, AllowOfARuleThatIsSwitchedOffIsNotNeedless) {
    const std::string file = directory_.writeFile("a.ini", "; pmenv: allow duplicate-key\nA = 2\n");
    EXPECT_THAT(checkFile({file, "", "", {"duplicate-key"}}).findings, IsEmpty());
    EXPECT_THAT(checkFile({file, "", "", {"needless-allow"}}).findings, IsEmpty());
}

// --- references -----------------------------------------------------------------------------------------------------

TEST_F(Rules, CircleOfSevenToTwelveLinksIsToldWhole) {
    for (int links = 2; links <= 14; ++links) {
        std::string text;
        for (int i = 1; i <= links; ++i) {
            text += "C" + std::to_string(i) + " = #(C" + std::to_string(i % links + 1) + ")\n";
        }
        std::string chain = "C1 (line 1)";
        for (int i = 2; i <= links; ++i) {
            if (links > 11 && i > 6 && i <= links - 5) continue;  // thirteen names or more
            if (links > 11 && i == links - 4) chain += " -> ... " + std::to_string(links - 11) + " more ...";
            chain += " -> C" + std::to_string(i) + " (line " + std::to_string(i) + ")";
        }
        EXPECT_EQ("1:6+5 the references form a cycle: " + chain + " -> C1 (line 1); the setting cannot be read",
                  find("cycle", text).at(0))
            << links;
    }
}

TEST_F(Rules, CircleThatIsNotWrittenInTheValueIsToldOfTheWholeValue) {
    EXPECT_THAT(
        find("cycle", "NAME = A\nA = x#(#(NAME))\n"),
        ElementsAre("2:5+11 the references form a cycle: A (line 2) -> A (line 2); the setting cannot be read"));
    EXPECT_THAT(find("cycle", "O = #{\nA = #{O}A}\n"), IsEmpty());
}

TEST_F(Rules, VariableThatASettingIsNamedLike) {
    EXPECT_THAT(find("unset-variable", "BASE = 1\nA = $(BASE)\nB = ${BASE}\nC = $(PM_NOT_SET)\n"),
                ElementsAre("2:5+7 the environment variable 'BASE' is not set; did you mean the setting, '#(BASE)'?",
                            "3:5+7 the environment variable 'BASE' is not set; did you mean the setting, '#{BASE}'?",
                            "4:5+13 the environment variable 'PM_NOT_SET' is not set"));
}

TEST_F(Rules, WhatOneSettingsReferenceLacksIsToldOnce) {
    EXPECT_THAT(find("undefined-setting", "A = #(B)\nB = #(C)\nC = #(NONE_LIKE_IT)\n"),
                ElementsAre("3:5+15 the setting 'NONE_LIKE_IT' is not defined"));
    EXPECT_THAT(placesOf("undefined-setting", "C = #(NONE_LIKE_IT)\nB = #(C)\nA = #(B)#(C)\n"), ElementsAre("1:5+15"));
    EXPECT_THAT(placesOf("undefined-setting", "A = #(B)#(NONE)\nB = #(NONE)\n"), ElementsAre("1:9+7", "2:5+7"));
}

// B has got the reference when the file was loaded. What is wrong is told where it is written.
TEST_F(Rules, WhatTheLoadHasPutInIsNotToldAgain) {
    EXPECT_THAT(placesOf("undefined-setting", "C = #(NONE)\nB = #{C}\n"), ElementsAre("1:5+7"));
    EXPECT_THAT(placesOf("undefined-setting", "C = #(NONE)\nB = #{C}\nA = #(B)\n"), ElementsAre("1:5+7"));
}

TEST_F(Rules, OfALongNameTheBeginningIsTold) {
    const std::string longest(80, 'n');
    EXPECT_THAT(find("undefined-setting", "A = #(" + longest + ")#(m" + longest + ")\n"),
                ElementsAre("1:5+83 the setting '" + longest + "' is not defined",
                            "1:88+84 the setting 'm" + longest.substr(1) + "...' is not defined"));
}

// Five hundred unknown names are compared with the thousand that there are.
TEST_F(Rules, SuggestionsAreMadeUpToALimitOfWork) {
    std::string text = "TARGET = 1\n";
    for (int i = 1; i < 1000; ++i) {
        text += "SETTING_NUMBER_" + std::to_string(i) + " = " + (i <= 501 ? "#(TARGETT)" : "") + "\n";
    }
    const std::vector<std::string> found = find("undefined-setting", text);
    ASSERT_EQ(501U, found.size());
    EXPECT_EQ(500, std::count_if(found.begin(), found.end(), [](const std::string& each) {
                  return each.find("did you mean 'TARGET'?") != std::string::npos;
              }));
}

TEST_F(Rules, LimitOfASettingThatOthersReferTo) {
    const std::string half = repeated("x", 1024);
    EXPECT_THAT(find("limit", "A = #(B)\nB = #(C)#(C)\nC = " + half + "\n"),
                ElementsAre("1:5+4 the expanded value has 2048 characters, the limit is 2047",
                            "2:5+8 the expanded value has 2048 characters, the limit is 2047"));
    EXPECT_THAT(find("limit", "A = #(B)\nB = #(C)" + half.substr(1) + "\nC = " + half + "\n"), IsEmpty());
}

TEST_F(Rules, MissingReleaseIsOfPressmarkIniOnly) {
    EXPECT_THAT(find("missing-release", ""), ElementsAre("1:1+1 KR_VERSION is not set", "1:1+1 KR_BUILD is not set"));
    EXPECT_THAT(find("missing-release", "", true), IsEmpty());
}

}  // namespace
