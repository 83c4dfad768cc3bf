// How references inside values are expanded, at load time and when a value is read.
#include "krresolve.h"

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "krenv.h"
#include "support/Allocations.h"
#include "support/LogCapture.h"
#include "support/ScopedEnv.h"
#include "support/Settings.h"
#include "support/TempDir.h"
#include "support/repeated.h"

namespace {

using testing::ElementsAre;

using Resolver = bool (*)(AddDelSet&, RWCString&);

// The expanded text, or "<failed>".
std::string resolved(Resolver resolver, const std::string& text) {
    AddDelSet set;
    RWCString result(text.c_str());
    return resolver(set, result) ? std::string(result.data(), result.length()) : "<failed>";
}
std::string atRunTime(const std::string& text) { return resolved(KRSRuntimeResolve, text); }
std::string atLoad(const std::string& text) { return resolved(KRSLoadResolve, text); }

// --- AddDel ---------------------------------------------------------------------------------------------------------

TEST(AddDel, HoldsACopyInTheSetForItsScope) {
    AddDelSet set;
    RWCString text("a");
    {
        const AddDel guard(set, text);
        text += "changed";
        EXPECT_FALSE(guard.isDuplicate());
        EXPECT_EQ(1U, set.entries());
        EXPECT_TRUE(AddDel(set, RWCString("a")).isDuplicate());
    }
    EXPECT_EQ(0U, set.entries());
}

TEST(AddDel, OtherTextsAreNoDuplicates) {
    AddDelSet set;
    const AddDel a(set, RWCString("a"));
    const AddDel b(set, RWCString("b"));
    EXPECT_FALSE(a.isDuplicate());
    EXPECT_FALSE(b.isDuplicate());
    EXPECT_EQ(2U, set.entries());
}

TEST(AddDel, AnEndingDuplicateTakesTheEqualTextOutOfTheSet) {
    AddDelSet set;
    const AddDel first(set, RWCString("a"));
    { const AddDel second(set, RWCString("a")); }
    EXPECT_EQ(0U, set.entries());
    EXPECT_FALSE(AddDel(set, RWCString("a")).isDuplicate());
}

// --- both resolvers -------------------------------------------------------------------------------------------------

TEST(KRSRuntimeResolve, ExpandsAndLeavesAlone) {
    const Settings settings("A = #(B)\nB = v\nP = (B)\nEMPTY =\nQUOTED = \" v \"\nP2 = B)\nS = #\nA-b.c/d = odd\n");
    const ScopedEnv x("KRENV_TEST_X", "env");
    const ScopedEnv ref("KRENV_TEST_REF", "<#(B)>");
    const ScopedEnv unset("KRENV_TEST_UNSET", nullptr);
    const struct {
        const char* text;
        const char* expected;
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"$(KRENV_TEST_X)/x", "env/x"},
        {"$(KRENV_TEST_UNSET)/x", "/x"},
        {"#(A)", "v"},
        {"#(MISSING)", ""},
        {"[#(EMPTY)]", "[]"},
        {"[#(QUOTED)]", "[ v ]"},
        {"a#(B)b#(B)c", "avbvc"},
        {"#(A)#(A)", "vv"},
        {"#(B)$(KRENV_TEST_X)", "venv"},
        {"$(KRENV_TEST_REF)", "<v>"},
        // what does not fit the pattern stays
        {"$()", "$()"},
        {"$( A)", "$( A)"},
        {"#(A", "#(A"},
        {"#(A B)", "#(A B)"},
        {"#(A\tB)", "#(A\tB)"},
        {"#(A\nB)", "#(A\nB)"},
        {"#((A)", "#((A)"},
        {"$HOME", "$HOME"},
        {"#", "#"},
        {"(B)", "(B)"},
        {"${B}#{B}", "${B}#{B}"},
        {"# (B)", "# (B)"},
        {"%(B)", "%(B)"},
        // a name is everything but blanks and parentheses
        {"#(A-b.c/d)", "odd"},
        {"#({B})", ""},
        {"#($B)", ""},
        // an opening that is none does not hide the reference behind it
        {"$(a#(B)", "$(av"},
        {"#(#(B)", "#(v"},
        {"##(B)", "#v"},
        {"$$$(KRENV_TEST_X)", "$$env"},
        // a substitution forms a reference with the text around it
        {"##(P)", "v"},
        {"#(#(B)", "#(v"},
        {"#(S)(B)", "v"},
        {"#(#(P2)", "v"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.expected, atRunTime(row.text)) << row.text;
}

// $$(A) with A = (HOME): in the process environment.
TEST(KRSRuntimeResolve, RestartsAtTheBeginningAfterASubstitution) {
    const ScopedEnv a("KRENV_TEST_A", "(KRENV_TEST_X)");
    const ScopedEnv x("KRENV_TEST_X", "/home/u");
    EXPECT_EQ("/home/u", atRunTime("$$(KRENV_TEST_A)"));
}

TEST(KRSLoadResolve, ExpandsAndLeavesAlone) {
    const Settings settings("B = v\nR = $(HOME)\nBASE = /opt\nA}${B = joined\nA}x = brace\n");
    const ScopedEnv x("KRENV_TEST_X", "env");
    const ScopedEnv ref("KRENV_TEST_REF", "<#{B}>");
    const struct {
        const char* text;
        const char* expected;
    } rows[] = {
        {"${KRENV_TEST_X}/x", "env/x"},
        {"#{B}", "v"},
        {"#{MISSING}.", "."},
        {"#{BASE}/$(HOME)", "/opt/$(HOME)"},
        {"#{R}", "$(HOME)"},
        {"${KRENV_TEST_REF}", "<v>"},
        {"#{B} #{B}", "v v"},
        {"#{B}\t#{B}", "v\tv"},
        {"#{B}(#{B})", "v(v)"},
        // braces may stand in a name, and the longest run counts
        {"${A}${B}", ""},
        {"#{A}${B}", "joined"},
        {"#{B}}", ""},
        {"#{A}x}", "brace"},
        {"#{B}x", "vx"},
        {"#{B}x}y", "y"},
        // what does not fit the pattern stays
        {"${}", "${}"},
        {"#{B", "#{B"},
        {"#{ B}", "#{ B}"},
        {"#{B }", "#{B }"},
        {"#{(B)}", "#{(B)}"},
        {"#{(B}", "#{(B}"},
        {"#{B)}", "#{B)}"},
        {"#{B\t}", "#{B\t}"},
        {"#{B\n}", "#{B\n}"},
        {"$(B)#(B)", "$(B)#(B)"},
        {"{B}", "{B}"},
        {"${{B}", ""},
        {"${x #{B}", "${x v"},
        {"#{}}", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(row.expected, atLoad(row.text)) << row.text;
}

TEST(KRSRuntimeResolve, ACycleFailsAndLeavesTheTextPartlyExpanded) {
    const Settings settings("A = x#(A)\nB = v\nONE = #(TWO)\nTWO = #(ONE)\nSELF = #(SELF)\n");
    for (const char* const text : {"#(A)", "#(SELF)", "#(ONE)", "y#(TWO)"})
        EXPECT_EQ("<failed>", atRunTime(text)) << text;

    AddDelSet set;
    RWCString text("#(B) #(SELF)");
    EXPECT_FALSE(KRSRuntimeResolve(set, text));
    EXPECT_STREQ("v #(SELF)", text.data());
    EXPECT_EQ(0U, set.entries()) << "a failed resolution leaves nothing in the set";
}

TEST(KRSRuntimeResolve, TextInProgressIsACycle) {
    AddDelSet set;
    const AddDel outer(set, RWCString("plain"));
    RWCString text("plain");
    EXPECT_FALSE(KRSRuntimeResolve(set, text));
    EXPECT_STREQ("plain", text.data());
}

// The guard compares whole texts: ##(A) with A = (A) becomes #(A), then (A).
TEST(KRSRuntimeResolve, AVariableMetAgainInAnotherTextIsNoCycle) {
    const Settings settings("A = (A)\n");
    EXPECT_EQ("(A)", atRunTime("##(A)"));
}

TEST(KRSRuntimeResolve, ManySubstitutionsAtOneLevelAreNoCycle) {
    const Settings settings("B = v\n");
    EXPECT_EQ(std::string(1000, 'v'), atRunTime(repeated("#(B)", 1000)));
}

// --- limits ---------------------------------------------------------------------------------------------------------

TEST(KRSRuntimeResolve, ASubstitutionThatFeedsItselfFails) {
    const Settings settings("P = (P)(P)##\n");
    EXPECT_EQ("<failed>", atRunTime("##(P)"));
}

TEST(KRSRuntimeResolve, ThirtyLevelsOfDoublingAroundNothingFail) {
    std::string ini = "A0 =\n";
    for (int i = 1; i <= 30; ++i) {
        const std::string below = "#(A" + std::to_string(i - 1) + ")";
        ini += "A" + std::to_string(i) + " = " + below + below + "\n";
    }
    const Settings settings(ini);
    EXPECT_EQ("<failed>", atRunTime("#(A30)"));
    EXPECT_EQ("", atRunTime("#(A12)"));
}

TEST(KRSRuntimeResolve, ADoublingTextFails) {
    std::string ini = "A0 = 0123456789\n";
    for (int i = 1; i <= 30; ++i) {
        const std::string below = "#(A" + std::to_string(i - 1) + ")";
        ini += "A" + std::to_string(i) + " = " + below + below + "\n";
    }
    const Settings settings(ini);
    EXPECT_EQ("<failed>", atRunTime("#(A30)"));
    EXPECT_EQ(repeated("0123456789", 32), atRunTime("#(A5)"));
}

std::string chainOf(int length) {
    std::string ini = "C1 = end\n";
    for (int i = 2; i <= length; ++i) ini += "C" + std::to_string(i) + " = #(C" + std::to_string(i - 1) + ")\n";
    return ini;
}

TEST(KRSRuntimeResolve, AChainOf512LevelsIsTheLongest) {
    const Settings settings(chainOf(513));
    EXPECT_EQ("end", atRunTime("#(C511)")) << "the text itself is the first level";
    EXPECT_EQ("<failed>", atRunTime("#(C512)"));
}

TEST(KRSRuntimeResolve, AChainOf100000EndsQuickly) {
    const Settings settings(chainOf(100'000));
    EXPECT_EQ("<failed>", atRunTime("#(C100000)"));
    EXPECT_EQ("end", atRunTime("#(C100)"));
}

TEST(KRSRuntimeResolve, SubstitutionsUpTo65536AreTheMost) {
    const Settings settings("E =\n");
    EXPECT_EQ("", atRunTime(repeated("#(E)", 65'536)));
    EXPECT_EQ("<failed>", atRunTime(repeated("#(E)", 65'537)));
}

TEST(KRSRuntimeResolve, OneMebibyteOfTextIsTheMost) {
    const std::string half(512 * 1024, 'h');
    const Settings settings("H = " + half + "\nX = x\n");
    EXPECT_EQ(half + half, atRunTime("#(H)#(H)"));
    EXPECT_EQ("<failed>", atRunTime("#(H)#(H)x"));
    EXPECT_EQ("<failed>", atRunTime("#(X)" + half + half));
}

TEST(KRSRuntimeResolve, ALongTextWithoutReferencesIsNoExpansion) {
    const std::string longText(3 * 1024 * 1024, 'x');
    EXPECT_EQ(longText, atRunTime(longText));
    EXPECT_EQ(longText, atLoad(longText));
}

// Each substitution searches a quarter of a mebibyte again: the 1025th search is too much.
TEST(KRSRuntimeResolve, SearchingIsLimitedInAll) {
    const Settings settings("E =\n");
    const std::string padding(256 * 1024, 'x');
    EXPECT_EQ(padding, atRunTime(padding + repeated("#(E)", 1000)));
    EXPECT_EQ("<failed>", atRunTime(padding + repeated("#(E)", 1100)));
}

TEST(KRSRuntimeResolve, ASetThatHasSearchedTooMuchFailsAlsoWithoutReferences) {
    AddDelSet set;
    set.searched = std::size_t{256} << 20;
    RWCString text("text");
    EXPECT_FALSE(KRSRuntimeResolve(set, text));
}

TEST(KRSRuntimeResolve, LongNamesAndLongIntermediateTextsWork) {
    const std::string name(100'000, 'n');
    const std::string value(500'000, 'v');
    const Settings settings(name + " = short\nLONG = #(V)" + value + "\nV = v\n");
    EXPECT_EQ("short", atRunTime("#(" + name + ")"));
    EXPECT_EQ("v" + value, atRunTime("#(LONG)"));
}

TEST(KRSRuntimeResolve, HalfAMillionOpeningsThatNeverCloseAreSearchedInLinearTime) {
    const std::string openings = repeated("#(", 500'000);
    EXPECT_EQ(openings, atRunTime(openings));
    const std::string braces = repeated("${", 500'000);
    EXPECT_EQ(braces, atLoad(braces));
}

// --- KREnvContainerClass::KRERuntimeResolve -------------------------------------------------------------------------

TEST(KRERuntimeResolve, ExpandsIntoTheObjectsBuffer) {
    const Settings settings("A = v\n");
    const ScopedEnv home("HOME", "/home/u");
    KREnvContainerClass env;
    const char* const first = env.KRERuntimeResolve("$(HOME)/x");
    EXPECT_STREQ("/home/u/x", first);
    EXPECT_EQ(first, env.KRERuntimeResolve("plain"));
    EXPECT_STREQ("plain", first);
}

TEST(KRERuntimeResolve, UnsetVariableExpandsToNothing) {
    const ScopedEnv home("HOME", nullptr);
    KREnvContainerClass env;
    EXPECT_STREQ("/x", env.KRERuntimeResolve("$(HOME)/x"));
}

TEST(KRERuntimeResolve, NullTextAndFailuresGiveNullSilentlyAndKeepTheBuffer) {
    const Settings settings("A = #(A)\nH = " + std::string(1024, 'h') + "\n");
    LogCapture log;
    KREnvContainerClass env;
    const char* const kept = env.KRERuntimeResolve("kept");
    EXPECT_EQ(nullptr, env.KRERuntimeResolve(nullptr));
    EXPECT_EQ(nullptr, env.KRERuntimeResolve("#(A)"));
    EXPECT_EQ(nullptr, env.KRERuntimeResolve("#(H)#(H)"));
    EXPECT_EQ(nullptr, env.KRERuntimeResolve(std::string(2048, 'x').c_str()));
    EXPECT_STREQ("kept", kept);
    EXPECT_TRUE(log.entries().empty());
}

TEST(KRERuntimeResolve, ResultsOf2047CharactersFit) {
    const Settings settings("H = " + std::string(1023, 'h') + "\n");
    KREnvContainerClass env;
    EXPECT_EQ(std::string(2047, 'x'), env.KRERuntimeResolve(std::string(2047, 'x').c_str()));
    EXPECT_EQ(std::string(2046, 'h') + "x", env.KRERuntimeResolve("#(H)#(H)x"));
    EXPECT_EQ(nullptr, env.KRERuntimeResolve("#(H)#(H)xx"));
}

TEST(KRERuntimeResolve, WithoutMemoryGivesNullAndKeepsTheBuffer) {
    const Settings settings("A = #(B)\nB = #(C)\nC = v\n");
    KREnvContainerClass env;
    const char* const kept = env.KRERuntimeResolve("kept");
    int failures = 0;
    for (;;) {
        const FailingAllocation failing(failures + 1);
        const char* const result = env.KRERuntimeResolve("#(A)");
        if (!failing.happened()) break;
        EXPECT_EQ(nullptr, result) << "allocation " << failures + 1;
        EXPECT_STREQ("kept", kept);
        ++failures;
    }
    EXPECT_GT(failures, 3);
    EXPECT_STREQ("v", kept) << "with memory it works";
}

TEST(KRERuntimeResolve, DoesNotExpandBraceReferences) {
    KREnvContainerClass env;
    EXPECT_STREQ("${HOME}", env.KRERuntimeResolve("${HOME}"));
}

TEST(KRERuntimeResolve, ItsOwnResultCanBeResolvedAgain) {
    const Settings settings("A = #\nB = v\n");
    KREnvContainerClass env;
    const char* const once = env.KRERuntimeResolve("$((B)");
    ASSERT_STREQ("$((B)", once);
    EXPECT_STREQ("((B)", env.KRERuntimeResolve(once + 1));
    EXPECT_STREQ("v", env.KRERuntimeResolve(env.KRERuntimeResolve("#(A)(B)")));
}

// --- observers ------------------------------------------------------------------------------------------------------

const char* nameOf(KRSResolveFailure why) {
    switch (why) {
        case KRSResolveFailure::Cycle:
            return "cycle";
        case KRSResolveFailure::Levels:
            return "levels";
        case KRSResolveFailure::Substitutions:
            return "substitutions";
        case KRSResolveFailure::TextLength:
            return "text length";
        case KRSResolveFailure::Searching:
            return "searching";
    }
    return "?";
}

// Writes down what it is told, a line a call.
class Notes : public KRSLoadObserver {
public:
    void found(const KRSReference& reference) override {
        lines.push_back("found " + reference.written() + " in " + reference.text +
                        (reference.isVariable() ? " $" : " #") + reference.name() + " = " +
                        (reference.value != nullptr ? reference.value : "(none)"));
    }
    void resolved(const char* value) override { lines.push_back(std::string("resolved ") + value); }
    void failed(KRSResolveFailure why, const char* text) override {
        lines.push_back(std::string("failed ") + nameOf(why) + " at " + text);
    }
    void begun(const char* key, const char* value) override { lines.push_back(std::string(key) + " = " + value); }
    void ended(const char* value) override {
        lines.push_back(std::string("stored ") + (value != nullptr ? value : "(nothing)"));
    }

    std::vector<std::string> lines;
};

bool observe(KRSResolveObserver& observer, const std::string& text) {
    AddDelSet set;
    set.observer = &observer;
    RWCString resolved(text.c_str());
    return KRSRuntimeResolve(set, resolved);
}

// Why the resolution of `text` fails, and where; the text's beginning will do.
std::string failureOf(const std::string& text) {
    struct : KRSResolveObserver {
        void found(const KRSReference&) override {}
        void resolved(const char*) override {}
        void failed(KRSResolveFailure why, const char* at) override {
            note = nameOf(why) + std::string(" at ") + std::string(at).substr(0, 10);
        }
        std::string note;
    } observer;
    EXPECT_FALSE(observe(observer, text));
    return observer.note;
}

// A value without references is on the chain as any other, though nothing remembers it.
TEST(KRSRuntimeResolve, ATextThatTheCallerHasInProgressIsACycle) {
    const Settings settings("B = b\n");
    AddDelSet set;
    const AddDel inProgress(set, RWCString("b"));
    RWCString text("#(B)");
    EXPECT_FALSE(KRSRuntimeResolve(set, text));
}

TEST(KRSRuntimeResolve, CountsWhatItSearchesAndReplaces) {
    const Settings settings("A = #(B)\nB = plain12\n");
    AddDelSet set;
    RWCString text("#(A)");
    EXPECT_TRUE(KRSRuntimeResolve(set, text));
    EXPECT_EQ(set.searched, 4U + 4 + 7 + 7 + 7)
        << "two references, the value without one, and both texts that it came into";
    EXPECT_EQ(set.substitutions, 2U);
    EXPECT_EQ(set.levels, 0U);
    EXPECT_EQ(set.entries(), 0U);
}

TEST(KRSResolveObserver, IsToldOfEachReferenceAndItsExpandedValue) {
    const Settings settings("A = <#(B)>\nB = b\n");
    const ScopedEnv x("KRENV_TEST_X", "env");
    Notes notes;
    EXPECT_TRUE(observe(notes, "1#(A)2$(KRENV_TEST_X)#(MISSING)"));
    EXPECT_THAT(notes.lines, ElementsAre("found #(A) in 1#(A)2$(KRENV_TEST_X)#(MISSING) #A = <#(B)>",  //
                                         "found #(B) in <#(B)> #B = b",                                //
                                         "resolved b",                                                 //
                                         "resolved <b>",                                               //
                                         "found $(KRENV_TEST_X) in 1<b>2$(KRENV_TEST_X)#(MISSING) $KRENV_TEST_X = env",
                                         "resolved env",                                              //
                                         "found #(MISSING) in 1<b>2env#(MISSING) #MISSING = (none)",  //
                                         "resolved "));
}

TEST(KRSResolveObserver, IsToldNothingOfATextWithoutReference) {
    Notes notes;
    EXPECT_TRUE(observe(notes, "plain"));
    EXPECT_THAT(notes.lines, ElementsAre());
}

TEST(KRSResolveObserver, IsToldWhyAResolutionFails) {
    std::string chain;
    for (int i = 0; i < 600; ++i) chain += "C" + std::to_string(i) + " = #(C" + std::to_string(i + 1) + ")\n";
    for (int i = 0; i < 511; ++i) chain += "D" + std::to_string(i) + " = #(D" + std::to_string(i + 1) + ")\n";
    const Settings settings(chain + "D511 = the end\nA = #(B)\nB = #(A)\nLONG = " + repeated("x", 600'000) +
                            "\nTOO_LONG = " + repeated("y", 1'200'000) + "\nNOTHING =\n");
    EXPECT_EQ("cycle at #(A)", failureOf("#(A)"));
    EXPECT_EQ("levels at #(C512)", failureOf("#(C0)"));
    EXPECT_EQ("levels at the end", failureOf("#(D0)"));
    EXPECT_EQ("text length at yyyyyyyyyy", failureOf("#(TOO_LONG)"));
    EXPECT_EQ("text length at xxxxxxxxxx", failureOf("#(LONG)#(LONG)"));
    EXPECT_EQ("text length at #(NOTHING)", failureOf(repeated("#(NOTHING)", 110'000)));
    EXPECT_EQ("substitutions at #(NOTHING)", failureOf(repeated("#(NOTHING)", 66'000)));
    EXPECT_EQ("searching at xxxxxxxxxx", failureOf(repeated("x", 500'000) + repeated("#(NOTHING)", 1'000)));
}

TEST(KRSResolveObserver, MayThrowAndLeavesTheResolverUsable) {
    class Thrower : public Notes {
        void found(const KRSReference&) override { throw std::runtime_error("enough"); }
    };
    const Settings settings("A = v\n");
    Thrower thrower;
    EXPECT_THROW(observe(thrower, "#(A)"), std::runtime_error);
    EXPECT_EQ("v", atRunTime("#(A)"));
}

TEST(KRSLoadObserver, IsToldOfEachEntryWhileAFileIsLoaded) {
    const Settings settings;
    const TempDir dir;
    LogCapture log;
    const ScopedEnv loop("KRENV_TEST_LOOP", "${KRENV_TEST_LOOP}");
    const std::string path = dir.writeFile("pressmark.ini", "[s]\nA = a\nB = #{s.A}$(X)\nA = ${KRENV_TEST_LOOP}\n");
    Notes notes;
    ASSERT_EQ(1, KRELoadIniFile(path.c_str(), &notes));
    EXPECT_THAT(notes.lines,
                ElementsAre("s.A = a", "stored a",                                                    //
                            "s.B = #{s.A}$(X)", "found #{s.A} in #{s.A}$(X) #s.A = a", "resolved a",  //
                            "stored a$(X)",                                                           //
                            "s.A = ${KRENV_TEST_LOOP}",                                               //
                            "found ${KRENV_TEST_LOOP} in ${KRENV_TEST_LOOP} $KRENV_TEST_LOOP = ${KRENV_TEST_LOOP}",
                            "failed cycle at ${KRENV_TEST_LOOP}", "stored (nothing)"));
}

TEST(KRSLoadObserver, WatchesOneLoadOnly) {
    const Settings settings;
    const TempDir dir;
    const std::string path = dir.writeFile("pressmark.ini", "A = a\nB = #{A}\n");
    Notes notes;
    ASSERT_EQ(1, KRELoadIniFile(path.c_str(), &notes));
    const std::size_t told = notes.lines.size();
    ASSERT_EQ(1, KRELoadIniFile(path.c_str()));
    EXPECT_STREQ("a", KRSLoadFilter("B", "#{A}"));
    EXPECT_EQ(told, notes.lines.size());
}

// The load inside took the observer away from the one outside, and its filter's text.
TEST(KRSLoadObserver, MayStartALoadOfItsOwn) {
    class Loader : public Notes {
    public:
        explicit Loader(std::string inner) : inner_(std::move(inner)) {}
        void found(const KRSReference& reference) override { Notes::found(reference), loadAnother(); }
        void resolved(const char* value) override { Notes::resolved(value), loadAnother(); }
        void begun(const char* key, const char* value) override {
            if (outer == 0) outer = IniTable;
            Notes::begun(key, value), loadAnother();
        }
        void ended(const char* value) override { Notes::ended(value), loadAnother(); }
        int outer = 0;

    private:
        void loadAnother() {
            Notes told;
            EXPECT_EQ(1, KRELoadIniFile(inner_.c_str(), loads_++ % 2 == 0 ? &told : nullptr));
            EXPECT_STREQ("[x]", KRSGetValue(IniTable, "N"));
            KRSDestroyTable(IniTable);
        }
        std::string inner_;
        int loads_ = 0;
    };
    const ScopedEnv x("KRENV_TEST_X", "x");
    const Settings settings;
    const TempDir dir;
    Loader loader(dir.writeFile("inner.ini", "N = [${KRENV_TEST_X}]\n"));
    const std::string outer = dir.writeFile("outer.ini", "A = <${KRENV_TEST_X}>\nB = plain\n");
    ASSERT_EQ(1, KRELoadIniFile(outer.c_str(), &loader));
    EXPECT_THAT(loader.lines,
                ElementsAre("A = <${KRENV_TEST_X}>", "found ${KRENV_TEST_X} in <${KRENV_TEST_X}> $KRENV_TEST_X = x",
                            "resolved x", "stored <x>", "B = plain", "stored plain"));
    EXPECT_STREQ("<x>", KRSGetValue(loader.outer, "A"));
    EXPECT_STREQ("plain", KRSGetValue(loader.outer, "B"));
    KRSDestroyTable(loader.outer);
}

TEST(KRSLoadObserver, IsToldOnThoughASinkLoadsAFile) {
    const ScopedEnv loop("KRENV_TEST_LOOP", "${KRENV_TEST_LOOP}");
    const Settings settings;
    const TempDir dir;
    const std::string inner = dir.writeFile("inner.ini", "N = inside\n");
    LogCapture log;
    log.onRecord = [&] {
        EXPECT_EQ(1, KRELoadIniFile(inner.c_str()));
        KRSDestroyTable(IniTable);
    };
    Notes notes;
    ASSERT_EQ(1, KRELoadIniFile(dir.writeFile("outer.ini", "A = ${KRENV_TEST_LOOP}\nB = b\n").c_str(), &notes));
    EXPECT_THAT(notes.lines, testing::IsSupersetOf({"stored (nothing)", "B = b", "stored b"}));
}

// It destroyed the table of the load that had come between.
TEST(KRSLoadObserver, AFailingLoadReleasesItsOwnTable) {
    class Failing : public Notes {
    public:
        explicit Failing(std::string inner) : inner_(std::move(inner)) {}
        void ended(const char*) override {
            EXPECT_EQ(1, KRELoadIniFile(inner_.c_str()));
            throw std::bad_alloc();
        }

    private:
        std::string inner_;
    };
    const Settings settings;
    const TempDir dir;
    Failing failing(dir.writeFile("inner.ini", "N = inside\n"));
    LogCapture log;
    EXPECT_EQ(0, KRELoadIniFile(dir.writeFile("outer.ini", "A = a\n").c_str(), &failing));
    EXPECT_STREQ("inside", KREnvContainerClass().KREGetEnv("N"));
}

TEST(KRSLoadObserver, WhatItThrowsPassesThroughAndEndsTheWatch) {
    class Thrower : public Notes {
        void begun(const char*, const char*) override { throw std::runtime_error("enough"); }
    };
    const Settings settings;
    const TempDir dir;
    const std::string path = dir.writeFile("pressmark.ini", "A = a\n");
    Thrower thrower;
    EXPECT_THROW(KRELoadIniFile(path.c_str(), &thrower), std::runtime_error);
    EXPECT_EQ(1, KRELoadIniFile(path.c_str()));
}

// --- KRSLoadFilter --------------------------------------------------------------------------------------------------

TEST(KRSLoadFilter, ExpandsBraceReferencesIntoItsOneText) {
    const Settings settings("B = v\n");
    const char* const first = KRSLoadFilter("ignored", "<#{B}>");
    EXPECT_STREQ("<v>", first);
    EXPECT_STREQ("plain", KRSLoadFilter(nullptr, "plain"));
    EXPECT_STREQ("$(A)", KRSLoadFilter("K", "$(A)"));
}

TEST(KRSLoadFilter, NullCountsAsTheEmptyText) { EXPECT_STREQ("", KRSLoadFilter("K", nullptr)); }

TEST(KRSLoadFilter, ACycleGivesNullAndOneErrorRecord) {
    const ScopedEnv loop("KRENV_TEST_LOOP", "x${KRENV_TEST_LOOP}");
    LogCapture log;
    EXPECT_EQ(nullptr, KRSLoadFilter("K", "${KRENV_TEST_LOOP}"));
    ASSERT_EQ(1U, log.entries().size());
    const LogCapture::Entry entry = log.entries().front();
    EXPECT_EQ(nLogging::Level::Error, entry.level);
    EXPECT_EQ("PMEnvironment", entry.category);
    EXPECT_EQ("../src/krenvf", entry.file);
    EXPECT_EQ("\n endless loop while resolving value ", entry.text);
}

TEST(KRSLoadFilter, LooksUpInTheTableBeingLoaded) {
    const Settings settings("BASE = /opt\nBIN = #{BASE}/bin\nEARLY = [#{LATE}]\nLATE = late\n");
    EXPECT_STREQ("/opt/bin", KRSGetValue(IniTable, "BIN"));
    EXPECT_STREQ("[]", KRSGetValue(IniTable, "EARLY")) << "what stands below is not there yet";
}

TEST(KRSLoadFilter, AValueThatFailsIsLeftOutAndTheRestIsLoaded) {
    const ScopedEnv loop("KRENV_TEST_LOOP", "x${KRENV_TEST_LOOP}");
    LogCapture log;
    const Settings settings("A = 1\nB = ${KRENV_TEST_LOOP}\nC = 3\n");
    EXPECT_STREQ("1", KRSGetValue(IniTable, "A"));
    EXPECT_EQ(nullptr, KRSGetValue(IniTable, "B"));
    EXPECT_STREQ("3", KRSGetValue(IniTable, "C"));
    EXPECT_THAT(log.texts(nLogging::Level::Error), ElementsAre("\n endless loop while resolving value "));
}

TEST(KRSLoadFilter, StoresLongValues) {
    const std::string value(100'000, 'v');
    const Settings settings("V = " + value + "\nW = #{V}w\nLONG = " + std::string(2 << 20, 'l') + "\n");
    EXPECT_EQ(value + "w", KRSGetValue(IniTable, "W"));
    EXPECT_EQ(std::string(2 << 20, 'l'), KRSGetValue(IniTable, "LONG"));
}

TEST(KRSRuntimeResolve, RunsOnSeveralThreadsAtOnce) {
    const Settings settings("A = #(B)#(B)\nB = v\n");
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&right] {
            for (int n = 0; n < 500; ++n) right += atRunTime("#(A)") == "vv" ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(4 * 500, right);
}

}  // namespace
