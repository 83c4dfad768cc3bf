// text: how wide a text is, where it is cut, and what a terminal must not get.
#include <clocale>
#include <set>

#include <gtest/gtest.h>

#include "text.h"

namespace {

class TextTest : public testing::Test {
protected:
    TextTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
};

TEST_F(TextTest, WidthCountsColumns) {
    EXPECT_EQ(displayWidth("abc"), 3u);
    EXPECT_EQ(displayWidth("grüße"), 5u);
    EXPECT_EQ(displayWidth("日本"), 4u);
    EXPECT_EQ(displayWidth("a\xcc\x81"), 1u) << "a combining accent takes no column";
    EXPECT_EQ(displayWidth("\xff"), 1u);
    EXPECT_EQ(displayWidth("\xff"
                           "a"),
              2u);
    EXPECT_EQ(displayWidth("a\xc3"), 2u) << "the first byte of a character that is not there";
    EXPECT_EQ(displayWidth(std::string("a\0b", 3)), 2u);
}

TEST_F(TextTest, CutsBetweenCharacters) {
    EXPECT_EQ(cutToWidth("abcdef", 6), "abcdef");
    EXPECT_EQ(cutToWidth("abcdef", 5), "abcd…");
    EXPECT_EQ(cutToWidth("日本語", 5), "日本…");
    EXPECT_EQ(cutToWidth("日本語", 4), "日…");
    EXPECT_EQ(cutToWidth("abc", 1), "…");
    EXPECT_EQ(cutToWidth("abc", 0), "");
}

TEST_F(TextTest, PrintableShowsWhatATerminalWouldObey) {
    EXPECT_EQ(printable("a\tb\nc\r"), "a\\tb\\nc\\r");
    EXPECT_EQ(printable("\x1b[31m\x7f"), "\\x1b[31m\\x7f");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b") << "the one-character form of ESC [";
    EXPECT_EQ(printable("grüße \xff"), "grüße \\xff");
    EXPECT_EQ(printable("\xff"
                        "a\xc3"),
              "\\xffa\\xc3");
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a\\x00b");
}

TEST_F(TextTest, UnmistakableTextsAreQuotedWhereTheyCouldBeAnother) {
    for (const char* const plain : {"a", "C:\\temp", "a b", "a\"b\"", "x(y)", "grüße", "'"}) {
        EXPECT_EQ(unmistakable(plain), plain);
    }
    EXPECT_EQ(unmistakable(""), "\"\"");
    EXPECT_EQ(unmistakable(" a"), "\" a\"");
    EXPECT_EQ(unmistakable("a "), "\"a \"");
    EXPECT_EQ(unmistakable("(empty)"), "\"(empty)\"");
    EXPECT_EQ(unmistakable("\"a\""), "\"\\\"a\\\"\"");
    EXPECT_EQ(unmistakable("C:\\temp\t"), "\"C:\\\\temp\\t\"");
    EXPECT_EQ(unmistakable("\x1b\\"), "\"\\x1b\\\\\"");
    EXPECT_EQ(unmistakable("\xff"), "\"\\xff\"");
}

TEST_F(TextTest, Utf16LengthCountsCodeUnits) {
    EXPECT_EQ(utf16Length(""), 0U);
    EXPECT_EQ(utf16Length("abc\t"), 4U);
    EXPECT_EQ(utf16Length("ä日\uffff"), 3U);
    EXPECT_EQ(utf16Length("𐀀𝄞"), 4U) << "each is a pair";
    EXPECT_EQ(utf16Length("\xff\xc3"), 2U) << "bytes that begin no character";
    EXPECT_EQ(utf16Length(std::string_view("a\0b", 3)), 3U);
    EXPECT_EQ(utf16Length(std::string_view("a𐀀").substr(0, 4)), 4U) << "the last byte of the pair is not in the text";
}

}  // namespace
