// What pmenv explain tells is what the library does: observation and explanation against the library's own answers.
#include <algorithm>
#include <filesystem>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "EnvSettings.h"
#include "explain/explanation.h"
#include "explain/observedSettings.h"
#include "failure.h"
#include "krenv.h"
#include "krs.h"
#include "libraryLog.h"
#include "support/Sanitized.h"
#include "support/ScopedEnv.h"
#include "support/TempDir.h"
#include "support/repeated.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// --- explanations against the library's answers ---------------------------------------------------------------------

// Settings loaded as pmenv explain does it, released at the end of the scope.
class Loaded {
public:
    explicit Loaded(const std::string& file) : settings_(file) {}
    ~Loaded() { KRSDestroyTable(nEnvSettings::gPressmarkIniTable()); }
    Loaded(const Loaded&) = delete;
    Loaded& operator=(const Loaded&) = delete;

    const ObservedSettings& operator*() const { return settings_; }

private:
    ObservedSettings settings_;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// True when each reference stands where the explanation says.
bool stepsStandInFile(const ExplainedValue& value, const std::vector<std::string>& lines) {
    for (const ExplainedValue& step : value.steps) {
        if (step.writtenAt && step.writtenAt->line > 0 && step.reference->isWhole()) {
            const std::string& line = lines.at(static_cast<std::size_t>(step.writtenAt->line) - 1);
            const std::string& written = step.reference->text;
            if (line.compare(step.writtenAt->column - 1, written.size(), written) != 0) return false;
        }
        if (!stepsStandInFile(step, lines)) return false;
    }
    return true;
}

// What was compared, so that a test can see that there was something.
struct Compared {
    std::size_t values = 0;
    std::size_t failures = 0;
    std::size_t steps = 0;

    Compared& operator+=(const Compared& other) {
        values += other.values;
        failures += other.failures;
        steps += other.steps;
        return *this;
    }
};

// Explains every key of the file and compares the final text with KREGetEnvValue's.
Compared compareWithLibrary(const std::string& file) {
    const Loaded loaded(file);
    std::string text = readFileText(file);
    if (text.compare(0, 3, "\xef\xbb\xbf") == 0) text.erase(0, 3);
    const std::vector<std::string> lines = linesOf(text);
    Compared compared;
    KREnvContainerClass env;
    for (const ObservedEntry& entry : (*loaded).entries()) {
        const Explanation explanation = explainSetting(*loaded, entry.key);
        const char* const answer = env.KREGetEnvValue(entry.key.c_str());
        const std::optional<std::string> expected =
            answer != nullptr ? std::optional<std::string>(answer) : std::nullopt;
        EXPECT_EQ(expected, explanation.value) << entry.key << " of\n" << text;
        EXPECT_EQ(!expected, explanation.failure.has_value()) << entry.key << " of\n" << text;
        EXPECT_TRUE(stepsStandInFile(explanation.root, lines)) << entry.key << " of\n" << text;
        compared += {expected ? 1U : 0U, expected ? 0U : 1U, explanation.root.steps.size()};
    }
    return compared;
}

TEST(Explanation, EqualsTheLibrarysAnswerForEveryKeyOfEverySample) {
    const ScopedEnv home("HOME", "/home/user");
    Compared compared = compareWithLibrary(EXAMPLES_DIR "/pressmark.ini");
    EXPECT_EQ(0U, compared.failures);
    EXPECT_GT(compared.steps, 20U);
    compared += compareWithLibrary(GOLDEN_DIR "/explain/pressmark.ini");
    std::size_t rejected = 0;
    for (const auto& sample : std::filesystem::directory_iterator(CORPUS_DIR)) {
        SCOPED_TRACE(sample.path());
        try {
            compared += compareWithLibrary(sample.path());
        } catch (const Failure&) {
            ++rejected;  // krs_corpus_test says which
        }
    }
    EXPECT_GT(compared.values, 100U);
    EXPECT_GT(rejected, 10U);
}

// Composes settings files out of a few keys and pieces, so that references meet, nest, repeat and go round in circles.
class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string file() {
        std::string text;
        for (std::size_t entries = 1 + below(12); entries > 0; --entries) {
            if (below(12) == 0) text += below(3) == 0 ? "[]\n" : "[s]\n";
            text += anyOf({"", " ", "\t"}) + name() + anyOf({"=", " = ", "=  "}) + value() + "\n";
        }
        return text;
    }

private:
    std::size_t below(std::size_t end) { return static_cast<std::size_t>(random_()) % end; }
    std::string anyOf(const std::vector<std::string>& texts) { return texts[below(texts.size())]; }
    std::string name() { return anyOf({"A", "B", "C", "D", "E", "F", "G", "s.A", "s.B"}); }
    std::string variable() { return anyOf({"EXPLAIN_1", "EXPLAIN_2", "EXPLAIN_3", "EXPLAIN_4", "EXPLAIN_NONE"}); }

    std::string piece() {
        switch (below(12)) {
            case 0:
            case 1:
            case 2:
                return "#(" + name() + ")";
            case 3:
                return "#{" + name() + "}";
            case 4:
                return "$(" + variable() + ")";
            case 5:
                return "${" + variable() + "}";
            case 6:
                return " ";
            case 7:
                return anyOf({"#", "$", "(", ")", "{", "}", "#(", "${", "(A)", "{B}", "\t", "=", "\xc3\xa9"});
            case 8:
                return below(40) == 0 ? std::string(below(1500), 'x') : "x";
            default:
                return anyOf({"x", "yz", "/", "A", "B)"});
        }
    }

    std::string value() {
        std::string text;
        for (std::size_t pieces = below(7); pieces > 0; --pieces) text += piece();
        return below(8) == 0 ? "\" " + text + "\"" : text;
    }

    std::mt19937 random_;
};

constexpr std::size_t kFiles = kSanitized ? 1'000 : 10'000;

TEST(Explanation, EqualsTheLibrarysAnswerForEveryKeyOfGeneratedFiles) {
    const LogPause quiet;
    const ScopedEnv one("EXPLAIN_1", "value");
    const ScopedEnv two("EXPLAIN_2", "<#(A)${EXPLAIN_3}>");
    const ScopedEnv three("EXPLAIN_3", "(B)");
    const ScopedEnv four("EXPLAIN_4", "${EXPLAIN_4}#{A}");
    const ScopedEnv none("EXPLAIN_NONE", nullptr);
    const TempDir dir;
    Generator generator(20261121);
    Compared compared;
    for (std::size_t i = 0; i < kFiles && !HasFailure(); ++i) {
        const std::string file = dir.writeFile(std::to_string(i), generator.file());
        compared += compareWithLibrary(file);
        std::filesystem::remove(file);  // a file written anew under its name would be flushed to the disk
    }
    EXPECT_GT(compared.values, 3 * kFiles);
    EXPECT_GT(compared.failures, kFiles / 3);
    EXPECT_GT(compared.steps, 3 * kFiles);
}

// --- what an explanation holds --------------------------------------------------------------------------------------

class ExplanationTest : public testing::Test {
protected:
    const ObservedSettings& load(const std::string& text) {
        loaded_.emplace(directory_.writeFile("pressmark.ini", text));
        return **loaded_;
    }

    const LogPause quiet_;
    TempDir directory_;
    std::optional<Loaded> loaded_;
};

std::vector<std::string> namesIn(const std::vector<ExplainedFailure::Link>& chain) {
    std::vector<std::string> names;
    for (const ExplainedFailure::Link& link : chain) names.push_back(link.name.text);
    return names;
}

// B's text comes again under the name of D, so B -> C -> D is not the whole circle.
TEST_F(ExplanationTest, CycleWhoseTextComesBackUnderAnotherNameIsClosed) {
    const Explanation explanation = explainSetting(load("A = x#(B)\nB = #(C)\nC = -#(D)\nD = #(C)\n"), "A");
    ASSERT_TRUE(explanation.failure);
    EXPECT_EQ(ExplainedFailure::Reason::Cycle, explanation.failure->reason);
    EXPECT_THAT(namesIn(explanation.failure->chain), ElementsAre("C", "D", "C"));
}

TEST_F(ExplanationTest, CycleOfOneSettingNamesItTwice) {
    EXPECT_THAT(namesIn(explainSetting(load("A = #(A)\n"), "A").failure->chain), ElementsAre("A", "A"));
    EXPECT_THAT(namesIn(explainText(load("A = #(A)\n"), "#(A)").failure->chain), ElementsAre("A", "A"));
}

TEST_F(ExplanationTest, EveryLimitHasItsReason) {
    const ObservedSettings& settings = load("LONG = " + repeated("x", 600'000) + "\nNOTHING =\n");
    const auto reasonOf = [&](const std::string& text) { return explainText(settings, text).failure->reason; };
    EXPECT_EQ(ExplainedFailure::Reason::TextLength, reasonOf("#(LONG)#(LONG)"));
    EXPECT_EQ(ExplainedFailure::Reason::Substitutions, reasonOf(repeated("#(NOTHING)", 66'000)));
    EXPECT_EQ(ExplainedFailure::Reason::Searching, reasonOf(repeated("x", 500'000) + repeated("#(NOTHING)", 1'000)));
    EXPECT_EQ(ExplainedFailure::Reason::TooLong, reasonOf("#(LONG)"));
    EXPECT_EQ(ExplainedFailure::Reason::NotDefined, explainSetting(settings, "NONE").failure->reason);
}

TEST_F(ExplanationTest, ReferenceAtLoadTookTheValueOfItsTime) {
    const Explanation explanation = explainSetting(load("A = 1\nB = #{A}\nA = 2\n"), "B");
    ASSERT_EQ(1U, explanation.root.steps.size());
    EXPECT_EQ(1, explanation.root.steps[0].place->line);
    EXPECT_EQ("1", explanation.value);
}

// A name of 100 letters is compared with others letter by letter; a hundred thousand of these would take minutes.
TEST_F(ExplanationTest, SuggestionsTakeLimitedTime) {
    std::string settings;
    const std::string stem = repeated("n", 95);
    for (int i = 0; i < 100'000; ++i) settings += stem + std::to_string(10'000 + i % 90'000) + "=\n";
    settings += "A = #(" + stem + "x)\n";
    const Explanation explanation = explainSetting(load(settings), "A");
    ASSERT_EQ(1U, explanation.root.steps.size());
    EXPECT_THAT(explanation.root.steps[0].nearest, IsEmpty());
}

// Ten thousand names are looked at for one of a hundred letters, and for no more.
TEST_F(ExplanationTest, SuggestionsAreMadeUpToALimitOfWork) {
    const std::string stem = repeated("n", 99);
    std::string settings = stem + " = 1\nA = #(" + stem + "x)\n";
    for (int i = 2; i < 10'000; ++i) settings += "S" + std::to_string(i) + "=\n";
    const Explanation explanation = explainSetting(load(settings), "A");
    ASSERT_EQ(1U, explanation.root.steps.size());
    EXPECT_THAT(explanation.root.steps[0].nearest, ElementsAre(stem));
    EXPECT_THAT(explainSetting(load(settings + "S =\n"), "A").root.steps.at(0).nearest, IsEmpty());
}

// --- what is left out -----------------------------------------------------------------------------------------------

struct Shown {
    std::size_t steps = 0;
    std::size_t leftOut = 0;
};

Shown shownIn(const ExplainedValue& value) {
    Shown shown{value.steps.size(), value.stepsLeftOut};
    for (const ExplainedValue& step : value.steps) {
        const Shown below = shownIn(step);
        shown.steps += below.steps;
        shown.leftOut += below.leftOut;
    }
    return shown;
}

// Twenty settings with twenty references each, which were replaced when the file was loaded.
TEST_F(ExplanationTest, TreeOfMoreThanTwoHundredReferencesCountsTheOthers) {
    std::string text = "N = 1\n";
    std::string all;
    for (int i = 0; i < 20; ++i) {
        text += "S" + std::to_string(i) + " = " + repeated("#{N} ", 20) + "\n";
        all += "#(S" + std::to_string(i) + ")";
    }
    const Shown shown = shownIn(explainSetting(load(text + "ALL = " + all + "\n"), "ALL").root);
    EXPECT_EQ(200U, shown.steps);
    EXPECT_EQ(220U, shown.leftOut);
}

// Of each setting's references only the first twenty are kept when the file is loaded.
TEST_F(ExplanationTest, SettingsOfMoreThanTwentyReferencesAreCountedWhole) {
    const ScopedEnv variable("EXPLAIN_1", "v");
    std::string text = "N = 1\n";
    std::string all;
    for (int i = 0; i < 20; ++i) {
        text += "S" + std::to_string(i) + " = " + repeated("#{N} ${EXPLAIN_1} ", 12) + "#{N}\n";
        all += "#(S" + std::to_string(i) + ")";
    }
    const Shown shown = shownIn(explainSetting(load(text + "ALL = " + all + "\n"), "ALL").root);
    EXPECT_EQ(200U, shown.steps);
    EXPECT_EQ(20U + 20U * 25U, shown.steps + shown.leftOut);
}

// The twenty-first reference is not kept, nor are those in what it stands for.
TEST_F(ExplanationTest, ReferencesBelowOneThatIsNotKeptAreCounted) {
    const ObservedSettings& settings = load("N = 1\nM = #(N)\nA = " + repeated("#(M)", 21) + "\n");
    const Explanation explanation = explainSetting(settings, "A");
    EXPECT_EQ(20U, explanation.root.steps.size());
    EXPECT_EQ(2U, explanation.root.stepsLeftOut);
    EXPECT_EQ(40U, shownIn(explanation.root).steps);
    EXPECT_EQ(repeated("1", 21), explanation.value);
}

// Of so many long texts no more are kept: that would take as much memory again and again.
TEST_F(ExplanationTest, ReferencesToLongTextsAreKeptUpToALimitOfMemory) {
    std::string text = "L = " + repeated("x", 2047) + "\n";
    const std::string value = " = " + repeated("#{L} ", 20) + "\n";
    for (int i = 0; i < 1700; ++i) text += "S" + std::to_string(i) + value;
    const ObservedSettings& settings = load(text);
    EXPECT_EQ(20U, explainSetting(settings, "S1500").root.steps.size());
    const Explanation last = explainSetting(settings, "S1699");
    EXPECT_THAT(last.root.steps, IsEmpty());
    EXPECT_EQ(20U, last.root.stepsLeftOut);
}

TEST_F(ExplanationTest, SettingThatRefersToItselfIsNotDefinedYetOnItsOwnLine) {
    const Explanation explanation = explainSetting(load("B = 1\nA = <#{A}>\n"), "A");
    ASSERT_EQ(1U, explanation.root.steps.size());
    EXPECT_EQ(2, explanation.root.steps[0].definedBelow);
    EXPECT_EQ("<>", explanation.value);
}

TEST_F(ExplanationTest, TreeOfMoreThanTwentyLevelsCountsTheOthers) {
    std::string text = "C0 = x\n";
    for (int i = 1; i <= 30; ++i) text += "C" + std::to_string(i) + " = #{C" + std::to_string(i - 1) + "}\n";
    const ObservedSettings& settings = load(text);
    EXPECT_EQ(20U, shownIn(explainSetting(settings, "C20").root).steps);
    EXPECT_EQ(0U, shownIn(explainSetting(settings, "C20").root).leftOut);
    EXPECT_EQ(20U, shownIn(explainSetting(settings, "C21").root).steps);
    EXPECT_EQ(1U, shownIn(explainSetting(settings, "C21").root).leftOut);
    EXPECT_EQ(20U, shownIn(explainSetting(settings, "C30").root).steps);
    EXPECT_EQ(10U, shownIn(explainSetting(settings, "C30").root).leftOut);
}

// Each has the one below it twice.
TEST_F(ExplanationTest, WideTreeCountsAllReferencesBelow) {
    std::string text = "D0 = x\n";
    for (int i = 1; i <= 18; ++i) {
        const std::string below = "#{D" + std::to_string(i - 1) + "}";
        text += "D" + std::to_string(i) + " = " + below + " " + below + "\n";
    }
    const Shown shown = shownIn(explainSetting(load(text), "D18").root);
    EXPECT_EQ(200U, shown.steps);
    EXPECT_EQ((std::size_t{1} << 19) - 2, shown.steps + shown.leftOut);
}

TEST_F(ExplanationTest, EntriesThatWereLeftOutAreNamedByTheirLines) {
    const ScopedEnv loop("EXPLAIN_1", "${EXPLAIN_1}");
    const ObservedSettings& settings =
        load("A = ${EXPLAIN_1}\nA = 2\nA = ${EXPLAIN_1}\nB = ${EXPLAIN_1}\nC = #(B)\nD = #{B}\n" +
             repeated("E = ${EXPLAIN_1}\n", 12));
    EXPECT_THAT(explainSetting(settings, "A").root.leftOut.lines, ElementsAre(1, 3));
    EXPECT_THAT(explainSetting(settings, "A").root.replaced.lines, IsEmpty());
    const Explanation absent = explainSetting(settings, "B");
    EXPECT_THAT(absent.root.leftOut.lines, IsEmpty()) << "the entry that is shown is not another one";
    ASSERT_TRUE(absent.failure);
    EXPECT_TRUE(absent.failure->atLoad);
    EXPECT_THAT(explainSetting(settings, "C").root.steps.at(0).leftOut.lines, ElementsAre(4));
    EXPECT_THAT(explainSetting(settings, "D").root.steps.at(0).leftOut.lines, ElementsAre(4));
    EXPECT_EQ(0, explainSetting(settings, "D").root.steps.at(0).definedBelow);
    const ExplainedValue many = explainSetting(settings, "E").root;
    EXPECT_EQ(10U, many.leftOut.lines.size());
    EXPECT_EQ(1U, many.leftOut.more);
}

// A environment variable that is not set has nothing to do with a setting of its name.
TEST_F(ExplanationTest, AnUnsetVariableIsNoSetting) {
    const ScopedEnv unset("EXPLAIN_NONE", nullptr);
    const ScopedEnv loop("EXPLAIN_1", "${EXPLAIN_1}");
    const ObservedSettings& settings =
        load("A = $(EXPLAIN_NONE)${EXPLAIN_NONE}\nEXPLAIN_NONE = ${EXPLAIN_1}\nEXPLAIN_NONE = 1\n");
    const Explanation explanation = explainSetting(settings, "A");
    ASSERT_EQ(2U, explanation.root.steps.size());
    for (const ExplainedValue& step : explanation.root.steps) {
        EXPECT_EQ(ExplainedValue::Source::Nowhere, step.source);
        EXPECT_EQ(0, step.definedBelow);
        EXPECT_THAT(step.leftOut.lines, IsEmpty());
    }
    EXPECT_EQ("", explanation.value);
}

// A variable's value has no line below which a setting could stand.
TEST_F(ExplanationTest, AMissingSettingInAVariableIsDefinedNowhere) {
    const ScopedEnv variable("EXPLAIN_1", "<#{LATER}>");
    const Explanation explanation = explainSetting(load("A = ${EXPLAIN_1}\nLATER = 1\n"), "A");
    ASSERT_EQ(1U, explanation.root.steps.size());
    ASSERT_EQ(1U, explanation.root.steps[0].steps.size());
    EXPECT_EQ(ExplainedValue::Source::Nowhere, explanation.root.steps[0].steps[0].source);
    EXPECT_EQ(0, explanation.root.steps[0].steps[0].definedBelow);
    EXPECT_EQ("<>", explanation.value);
}

TEST_F(ExplanationTest, FileThatIsRejectedIsAFailure) {
    EXPECT_THROW(load("A = 1\nnonsense\n"), Failure);
    EXPECT_THROW(ObservedSettings("/no/such/file"), Failure);
}

}  // namespace
