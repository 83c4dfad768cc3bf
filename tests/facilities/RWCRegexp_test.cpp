#include "RWCRegexp.h"

#include <random>
#include <regex>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>

#include "support/Sanitized.h"
#include "support/repeated.h"

namespace {

constexpr std::size_t npos = RWCRegexp::npos;
constexpr char kRuntimeReference[] = "[$#]([^ \t\n()]+)";
constexpr char kLoadReference[] = "[$#]{[^ \t\n()]+}";

struct Match {
    std::size_t position;
    std::size_t length;
    bool operator==(const Match& other) const { return position == other.position && length == other.length; }
};

std::ostream& operator<<(std::ostream& out, const Match& match) {
    return out << "{" << static_cast<std::ptrdiff_t>(match.position) << ", " << match.length << "}";
}

Match searchIn(const std::string& text, const char* pattern, std::size_t start = 0) {
    std::size_t length = 4711;
    const std::size_t position = RWCRegexp(pattern).search(text.data(), text.size(), &length, start);
    return {position, length};
}

// What the definition says, found by trying: every beginning from the left, every end from the right.
Match searchByTrying(const std::string& text, const std::regex& pattern, std::size_t start) {
    for (std::size_t begin = start; begin < text.size(); ++begin) {
        for (std::size_t end = text.size(); end > begin; --end) {
            if (std::regex_match(text.begin() + static_cast<std::ptrdiff_t>(begin),
                                 text.begin() + static_cast<std::ptrdiff_t>(end), pattern)) {
                return {begin, end - begin};
            }
        }
    }
    return {npos, 0};
}

std::string randomText(std::mt19937* random, const char* alphabet, std::size_t letters, std::size_t maxLength) {
    std::string text(std::uniform_int_distribution<std::size_t>(0, maxLength)(*random), ' ');
    for (char& character : text)
        character = alphabet[std::uniform_int_distribution<std::size_t>(0, letters - 1)(*random)];
    return text;
}

}  // namespace

TEST(RWCRegexpSearch, FindsLeftmostMatchWithLongestRun) {
    const struct {
        const char* pattern;
        const char* text;
        Match match;
    } rows[] = {
        {"a", "a", {0, 1}},
        {"a", "", {npos, 0}},
        {"a", "bcd", {npos, 0}},
        {"a", "bca", {2, 1}},
        {"ab", "aab", {1, 2}},
        {"a+", "baaab aaaa", {1, 3}},
        {"a+b", "aaac aab", {5, 3}},
        {"[ab]+", "xabbay", {1, 4}},
        {"[^ab]+", "abxyza", {2, 3}},
        {"[^a]", "\xff", {0, 1}},
        {"[a^]+", "x^a^", {1, 3}},
        {"[^a^]+", "^axy^", {2, 2}},
        {"[ab]+b", "ababx", {0, 4}},
        {"ab+c+", "xabbbccccd", {1, 8}},
        {"(a)", "((a))", {1, 3}},
        {"{}", "a{}", {1, 2}},
        {".*", "a.*", {1, 2}},
        {"a]", "a]", {0, 2}},
        {"[+]", "a+", {1, 1}},
        {"[a[]+", "x[a[", {1, 3}},
        // The second attempt is further than the first where the first fails.
        {"aab", "aaab", {1, 3}},
        {"a+b+a+b", "aabbaab", {0, 7}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.match, searchIn(row.text, row.pattern)) << row.pattern << " in " << row.text;
    }
}

TEST(RWCRegexpSearch, FindsRuntimeReferences) {
    const struct {
        const char* text;
        Match match;
    } rows[] = {
        {"$(A)", {0, 4}},      {"x#(A)y$(B)", {1, 4}}, {"$()", {npos, 0}},      {"$( A)", {npos, 0}},
        {"$(A", {npos, 0}},    {"$HOME", {npos, 0}},   {"$$(A)", {1, 4}},       {"$(A$(B)", {3, 4}},
        {"$(A B)", {npos, 0}}, {"${A}", {npos, 0}},    {"$({A})", {0, 6}},      {"#($#)", {0, 5}},
        {"$(A^B)", {0, 6}},    {"$(^)", {0, 4}},       {"$(A\tB)$(C)", {6, 4}}, {"$((A))", {npos, 0}},
        {"(A)", {npos, 0}},    {"$(A))", {0, 4}},      {"$(A\nB)", {npos, 0}},  {"$(\xc3\xa4)", {0, 5}},
        {"a$(b)c)", {1, 4}},
    };
    for (const auto& row : rows) EXPECT_EQ(row.match, searchIn(row.text, kRuntimeReference)) << row.text;
}

TEST(RWCRegexpSearch, LoadReferenceSwallowsNeighbour) {
    EXPECT_EQ((Match{0, 8}), searchIn("${A}${B}", kLoadReference));
    EXPECT_EQ((Match{0, 4}), searchIn("${A} ${B}", kLoadReference));
    EXPECT_EQ((Match{1, 10}), searchIn("x#{A}}}}}}}y", kLoadReference));
    EXPECT_EQ((Match{npos, 0}), searchIn("${}", kLoadReference));
    EXPECT_EQ((Match{0, 4}), searchIn("${}}", kLoadReference));
    EXPECT_EQ((Match{npos, 0}), searchIn("$(A)", kLoadReference));
}

TEST(RWCRegexpSearch, BeginsAtStart) {
    EXPECT_EQ((Match{0, 3}), searchIn("aaa", "a+", 0));
    EXPECT_EQ((Match{2, 1}), searchIn("aaa", "a+", 2));
    EXPECT_EQ((Match{npos, 0}), searchIn("aaa", "a+", 3));
    EXPECT_EQ((Match{npos, 0}), searchIn("aaa", "a+", 4));
    EXPECT_EQ((Match{npos, 0}), searchIn("aaa", "a+", npos));
}

TEST(RWCRegexpSearch, TextMayHoldNul) {
    const std::string text("\0$(\0A)", 6);
    EXPECT_EQ((Match{1, 5}), searchIn(text, kRuntimeReference));
}

TEST(RWCRegexpSearch, AgreesWithDefinitionOnRandomTexts) {
    std::mt19937 random(20261121);
    const char* const patterns[] = {"a+b",     "[ab]+b",        "[ab]a+[bc]", "a[ab]+c",          "[^a]+a+[^b]",
                                    "ab+c+",   "[ab]+[bc]+[a]", "aab",        "[ab][ab]+[bc]b+c", "a+b+a+b",
                                    "[abc]+c", "[ab]c[ab]+c+a", "[^c]+",      "ca+[^a]b"};
    for (const char* const pattern : patterns) {
        const std::regex reference(pattern);
        const RWCRegexp compiled(pattern);
        for (int i = 0; i < 400; ++i) {
            const std::string text = randomText(&random, "abc", 3, 14);
            const std::size_t start = std::uniform_int_distribution<std::size_t>(0, 3)(random);
            std::size_t length = 0;
            const std::size_t position = compiled.search(text.data(), text.size(), &length, start);
            ASSERT_EQ(searchByTrying(text, reference, start), (Match{position, length})) << pattern << " in " << text;
        }
    }
}

// Openings that never close took quadratic time when each was tried to the end: the test would run into its limit.
TEST(RWCRegexpSearch, TimeIsLinear) {
    constexpr std::size_t kUnits = kSanitized ? 1U << 18 : 1U << 20;
    for (const char* const pattern : {kRuntimeReference, kLoadReference, "[ab]+[ab]+[ab]+c"}) {
        for (const char* const unit : {"$(", "${", "$$", "(", "ab", "$(a", "${a"}) {
            EXPECT_EQ((Match{npos, 0}), searchIn(repeated(unit, kUnits), pattern)) << pattern << " in many " << unit;
        }
    }
    EXPECT_EQ((Match{0, 2 * kUnits + 1}), searchIn(repeated("${", kUnits) + "}", kLoadReference));
    EXPECT_EQ((Match{0, 2 * kUnits + 1}), searchIn(repeated("ab", kUnits) + "c", "[ab]+[ab]+[ab]+c"));
}

TEST(RWCRegexpCompile, RefusesWhatIsNoPattern) {
    const char* const patterns[] = {nullptr, "", "+", "+a", "a++", "[", "[a", "[^", "a[b", "[a]++"};
    for (const char* const pattern : patterns) {
        EXPECT_THROW(RWCRegexp{pattern}, std::invalid_argument) << (pattern != nullptr ? pattern : "null");
    }
}

TEST(RWCRegexpCompile, HoldsThirtyTwoPieces) {
    const std::string most(32, 'a');
    EXPECT_EQ((Match{1, 32}), searchIn("b" + most + "a", most.c_str()));
    EXPECT_THROW(RWCRegexp((most + "a").c_str()), std::invalid_argument);
    EXPECT_EQ((Match{0, 34}), searchIn(most + "aa", (most + "+").c_str()));
}

TEST(RWCRegexpCompile, EmptySetAcceptsNothingAndItsComplementAll) {
    EXPECT_EQ((Match{npos, 0}), searchIn("abc", "[]"));
    EXPECT_EQ((Match{0, 3}), searchIn("abc", "[^]+"));
}
