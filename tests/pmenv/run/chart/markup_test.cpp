// Texts of any bytes in a page.
#include <string>

#include <gtest/gtest.h>

#include "chart/markup.h"

namespace {

TEST(Markup, EscapesAndShowsWhatAPageCannotHold) {
    const struct {
        std::string text;
        const char* shown;
    } rows[] = {
        {"load engine", "load engine"},
        {"<b>&\"'</b>", "&lt;b&gt;&amp;&quot;&#39;&lt;/b&gt;"},
        {"größer 試験 😀", "größer 試験 😀"},
        {std::string("a\0b", 3), "a␀b"},
        {"a\nb\tc\x1b[31m\x7f", "a␊b␉c␛[31m␡"},
        {"\xff\xc3", "��"},
        {"\xc0\xaf", "��"},                        // a slash in two bytes
        {"\xc1\xbf", "��"},                        // the last of two bytes that one could hold
        {"\xe0\x9f\xbf", "���"},                   // of three
        {"\xf0\x8f\xbf\xbf", "����"},              // of four
        {"\xe0\xa0\x80", "\xe0\xa0\x80"},          // the first that needs three
        {"\xf0\x90\x80\x80", "\xf0\x90\x80\x80"},  // the first that needs four
        {"\xed\x9f\xbf", "\xed\x9f\xbf"},          // the last before the halves
        {"\xed\xa0\x80", "���"},                   // half of a pair of 16 bits
        {"\xed\xbf\xbf", "���"},                   // the last of the halves
        {"\xee\x80\x80", "\xee\x80\x80"},
        {"\xf4\x8f\xbf\xbf", "[U+10FFFF]"},  // the last character
        {"\xf4\x90\x80\x80", "����"},        // beyond the last character
        {"\xf8\x90\x80\x80\x80", "�����"},   // begins no character
        {"\xe2\x82", "��"},                  // cut off
        {"\xc2\x80\xc2\x9f\xc2\xa0", "[U+0080][U+009F]\xc2\xa0"},
        {"\xc2\x85", "[U+0085]"},                            // a control character of the second row
        {"user\xe2\x80\xaegnp.exe", "user[U+202E]gnp.exe"},  // turns the direction of writing
        {"\xef\xbf\xbf", "[U+FFFF]"},                        // may not stand in XML
        {"\xef\xbb\xbf", "[U+FEFF]"},
    };
    for (const auto& row : rows) EXPECT_EQ(escaped(row.text), row.shown) << row.shown;
}

TEST(Markup, ShortensByCharactersNotBytes) {
    EXPECT_EQ(shortened("größer", 10), "größer");
    EXPECT_EQ(shortened("größer", 3), "grö…");
    EXPECT_EQ(shortened("", 3), "");
}

TEST(Markup, WritesNoMoreDigitsThanTell) {
    const struct {
        double number;
        const char* text;
    } rows[] = {{0, "0"},         {-0.00001, "0"},     {1, "1"},        {1.5, "1.5"},       {12.34, "12.3"},
                {1234.5, "1234"}, {0.12345, "0.1235"}, {1000, "1000"},  {100.4, "100"},     {99.94, "99.9"},
                {10.44, "10.4"},  {9.876, "9.88"},     {1.234, "1.23"}, {0.98766, "0.9877"}};
    for (const auto& row : rows) EXPECT_EQ(shortNumber(row.number), row.text);
    EXPECT_EQ(shortNumber(1e300).size(), 301u);
    for (const auto& [number, text] : {std::pair(10.25, "10.25"), {101.75, "101.75"}, {86400.5, "86400.5"}, {3, "3"}}) {
        EXPECT_EQ(exactNumber(number), text);
    }
    EXPECT_EQ(coordinate(12.04), "12");
    EXPECT_EQ(place(0.5), "50%");
    EXPECT_EQ(place(0.1234567), "12.346%");
    EXPECT_EQ(place(-3), "0%");
    EXPECT_EQ(place(7), "100%");
}

TEST(Markup, WritesElementsWithAndWithoutAttributes) {
    EXPECT_EQ(element("p", "", "<b>x</b>"), "<p><b>x</b></p>");
    EXPECT_EQ(element("p", "id=\"a\"", "x"), "<p id=\"a\">x</p>");
    EXPECT_EQ(element("p", " id=\"a\"", "x"), "<p id=\"a\">x</p>");
    EXPECT_EQ(textElement("li", "a < b"), "<li>a &lt; b</li>");
}

}  // namespace
