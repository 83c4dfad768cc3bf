// literalTexts: what looks like a reference and is none.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/literalText.h"
#include "support/repeated.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> literalsIn(const std::string& value, const std::string& expanded) {
    std::vector<std::string> written;
    for (const LiteralText& literal : literalTexts(value, expanded)) {
        written.push_back(value.substr(literal.position, literal.length));
    }
    return written;
}

TEST(literalTexts, AreWhatStillStandsInTheExpandedForm) {
    EXPECT_THAT(literalsIn("$(A $(B)", "$(A b"), ElementsAre("$(A"));
    EXPECT_THAT(literalsIn("$(A$(B))", "ab"), IsEmpty());
    EXPECT_THAT(literalsIn("$(A $(A$(B))", "$(A ab"), ElementsAre("$(A"));
    EXPECT_THAT(literalsIn("$(\t X)$( )${", "$(\t X)$( )${"), ElementsAre("$(\t X)", "$( )", "${"));
}

TEST(literalTexts, BareVariablesAreSpelledLikeOnes) {
    const std::string value = "$HOME $A $AB $AB1 $5 $$ $ab $1AB $";
    EXPECT_THAT(literalsIn(value, value), ElementsAre("$HOME", "$AB", "$AB1"));
}

TEST(literalTexts, AreNotTextsForAShell) {
    for (const char* const value : {"$(date +%F)", "$((1+2))", "${A:-b c}", "\\$HOME", "$$HOME", "$(a b)"}) {
        EXPECT_THAT(literalsIn(value, value), IsEmpty()) << value;
    }
}

TEST(literalTexts, AreBounded) { EXPECT_EQ(20U, literalsIn(repeated("$( ", 1000), repeated("$( ", 1000)).size()); }

}  // namespace
