#include "RWCString.h"

#include <random>
#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>

namespace {

std::string plain(const RWCString& text) { return std::string(text.data(), text.length()); }

RWCString ofLength(std::size_t length, char character) { return RWCString(std::string(length, character).c_str()); }

}  // namespace

TEST(RWCStringConstruct, CopiesTextAndTakesNullAsEmpty) {
    EXPECT_EQ("", plain(RWCString()));
    EXPECT_EQ("", plain(RWCString(nullptr)));
    EXPECT_EQ("", plain(RWCString("")));
    char text[] = "abc";
    const RWCString copy(text);
    text[0] = 'x';
    EXPECT_EQ("abc", plain(copy));
    EXPECT_STREQ("abc", copy.data());
}

TEST(RWCStringCopy, IsDeep) {
    RWCString original("abcdef");
    original.replace(0, 2, "");  // leaves room at the front
    RWCString copy(original);
    RWCString assigned;
    assigned = original;
    original.replace(0, 1, "XYZ");
    EXPECT_EQ("cdef", plain(copy));
    EXPECT_EQ("cdef", plain(assigned));
    EXPECT_EQ("XYZdef", plain(original));
}

TEST(RWCStringCopy, SelfAssignmentKeepsText) {
    RWCString text("abcdef");
    text.replace(0, 2, "");
    const RWCString& same = text;
    text = same;
    EXPECT_EQ("cdef", plain(text));
}

TEST(RWCStringMove, LeavesEmptyUsableText) {
    RWCString from("abcdef");
    from.replace(0, 2, "");
    RWCString to(std::move(from));
    EXPECT_EQ("cdef", plain(to));
    EXPECT_STREQ("", from.data());
    from += "new";
    EXPECT_EQ("new", plain(from));
}

TEST(RWCStringData, EndsWithNulAfterEveryChange) {
    RWCString text("0123456789");
    text.replace(1, 2, "");
    EXPECT_STREQ("03456789", text.data());
    text.replace(6, 1, "");
    EXPECT_STREQ("0345679", text.data());
    EXPECT_EQ('0', text[0]);
    EXPECT_EQ('9', text[6]);
    EXPECT_EQ('\0', text[7]);
}

TEST(RWCStringPart, IsATextOfItsOwn) {
    RWCString text("abcdef");
    text.replace(0, 1, "");
    const RWCString part = text(1, 3);
    text.replace(0, 5, "");
    EXPECT_EQ("cde", plain(part));
    EXPECT_EQ("", plain(RWCString("abc")(3, 1)));
    EXPECT_EQ("bc", plain(RWCString("abc")(1, 99)));
    EXPECT_THROW(RWCString("abc")(4, 0), std::out_of_range);
}

TEST(RWCStringIndex, SearchesBehindTheRoomAtTheFront) {
    RWCString text("$(A)$(B)");
    text.replace(0, 4, "");
    std::size_t matched = 0;
    EXPECT_EQ(0U, text.index(RWCRegexp("$(B)"), &matched));
    EXPECT_EQ(4U, matched);
    EXPECT_EQ(RWCRegexp::npos, text.index(RWCRegexp("A"), &matched));
    EXPECT_EQ(RWCRegexp::npos, text.index(RWCRegexp("$(B)"), &matched, 1));
}

TEST(RWCStringConcatenate, Appends) {
    RWCString text("a");
    text += "bc";
    EXPECT_EQ("abc", plain(text));
    EXPECT_EQ("abcd", plain(text + "d"));
    EXPECT_EQ("abc", plain(text));
    text += nullptr;
    text += text.data();
    EXPECT_EQ("abcabc", plain(text));
}

TEST(RWCStringCompare, LooksAtTheTextAlone) {
    RWCString left("xxabc");
    left.replace(0, 2, "");
    EXPECT_TRUE(left == RWCString("abc"));
    EXPECT_FALSE(left == RWCString("abcd"));
    EXPECT_FALSE(left == RWCString(""));
}

TEST(RWCStringReplace, PutsReplacementInPlace) {
    const struct {
        std::size_t position;
        std::size_t count;
        const char* replacement;
        const char* result;
    } rows[] = {
        {0, 0, "", "0123456789"},
        {0, 10, "", ""},
        {0, 1, "", "123456789"},
        {0, 1, "ab", "ab123456789"},
        {9, 1, "ab", "012345678ab"},
        {10, 0, "a", "0123456789a"},
        {10, 5, "a", "0123456789a"},
        {4, 2, "ab", "0123ab6789"},
        {2, 2, "abcdef", "01abcdef456789"},
        {7, 2, "abcdef", "0123456abcdef9"},
        {5, 99, "x", "01234x"},
        {0, 0, "x", "x0123456789"},
    };
    for (const auto& row : rows) {
        RWCString text("0123456789");
        EXPECT_EQ(&text, &text.replace(row.position, row.count, row.replacement));
        EXPECT_EQ(row.result, plain(text)) << row.position << " " << row.count << " " << row.replacement;
    }
}

TEST(RWCStringReplace, RefusesPositionBehindTheEnd) {
    RWCString text("abc");
    text.replace(0, 1, "");
    EXPECT_THROW(text.replace(3, 0, "x"), std::out_of_range);
    EXPECT_EQ("bc", plain(text));
}

TEST(RWCStringReplace, TakesItselfAsReplacement) {
    for (std::size_t position = 0; position <= 4; ++position) {
        for (std::size_t count = 0; count <= 4 - position; ++count) {
            RWCString text("xabcd");
            text.replace(0, 1, "");
            std::string expected = "abcd";
            expected.replace(position, count, "abcd");
            text.replace(position, count, text);
            EXPECT_EQ(expected, plain(text)) << position << " " << count;
        }
    }
}

TEST(RWCStringReplace, AgreesWithStdStringOnRandomChanges) {
    std::mt19937 random(42);
    const auto below = [&](std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit)(random); };
    for (int round = 0; round < 200; ++round) {
        RWCString text("start");
        std::string expected = "start";
        for (int step = 0; step < 200; ++step) {
            const std::size_t position = below(expected.size());
            const std::size_t count = below(expected.size() - position);
            const std::string replacement(below(12), static_cast<char>('a' + below(25)));
            text.replace(position, count, replacement.c_str());
            expected.replace(position, count, replacement);
            ASSERT_EQ(expected, plain(text));
            ASSERT_EQ('\0', text[expected.size()]);
        }
    }
}

// With the tail always moved, 65,536 replacements at the front of a megabyte moved 64 GiB.
TEST(RWCStringReplace, LeavesTheLongerSideWhereItIs) {
    RWCString text = ofLength(1U << 20, 'x');
    const char* const end = text.data() + text.length();
    for (int i = 0; i < 65536; ++i) {
        text.replace(3, 5, "ab");
        ASSERT_EQ(end, text.data() + text.length());
    }
    const char* const begin = text.data();
    for (int i = 0; i < 65536; ++i) {
        text.replace(text.length() - 5, 2, "a");
        ASSERT_EQ(begin, text.data());
    }
}

TEST(RWCStringReplace, GrowsAtTheFrontInFewMoves) {
    RWCString text = ofLength(1U << 20, 'x');
    int moves = 0;
    for (int i = 0; i < 65536; ++i) {
        const char* const end = text.data() + text.length();
        text.replace(1, 2, "0123456789");
        if (text.data() + text.length() != end) ++moves;
    }
    EXPECT_EQ((1U << 20) + 8 * 65536U, text.length());
    EXPECT_EQ("x0123456789", plain(text).substr(0, 11));
    EXPECT_LE(moves, 3);
}
