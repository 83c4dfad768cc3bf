// The JUnit report: what a pipeline shows of a verdict.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "junit.h"
#include "pmenv/run/judgement/Runs.h"

using testing::HasSubstr;
using testing::Not;

namespace {

JudgedRun runOn(const std::string& host, const Judged& judged) {
    JudgedRun run;
    run.context.host = host;
    run.judged = judged;
    return run;
}

Judged clean() { return MadeRun().engine(10, {5, 0}).judged(); }
Judged spoiledJudged() { return MadeRun().engine(10, {100, 0}).judged(); }
Judged unknown() { return MadeRun().engine(1, {5, 0}).judged(); }

TEST(Junit, ACleanRunIsATestThatPasses) {
    EXPECT_EQ(junitXml({runOn("loadhost", clean())}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<testsuites tests=\"1\" failures=\"0\" errors=\"0\">\n"
              "  <testsuite name=\"pmenv judge\" tests=\"1\" failures=\"0\" errors=\"0\">\n"
              "    <testcase classname=\"pmenv.judge\" name=\"loadhost\" time=\"10.000\"/>\n"
              "  </testsuite>\n"
              "</testsuites>\n");
}

TEST(Junit, ASpoiledRunFailsWithItsReasonAndFindings) {
    EXPECT_THAT(junitXml({runOn("loadhost", spoiledJudged())}),
                HasSubstr("    <testcase classname=\"pmenv.judge\" name=\"loadhost\" time=\"10.000\">\n"
                          "      <failure message=\"percentiles up to p0 can be believed; p99 was asked for\" "
                          "type=\"spoiled\">\n"
                          "from second 0, for 10 s: load engine 100 (PMLoadEngineMai): its thread 100 (sender) ran "
                          "without a pause\n"
                          "  one thread cannot do more: spread its users over more engines; if this thread sends no "
                          "load, leave it out with --ignore-thread\n"
                          "</failure>\n"
                          "    </testcase>\n"));
}

TEST(Junit, WhatCannotBeToldIsAnErrorAndNoSuccess) {
    EXPECT_THAT(junitXml({runOn("loadhost", unknown())}),
                HasSubstr("      <error message=\"the watch was too short: 1 s\" type=\"cannot tell\"></error>\n"));
}

TEST(Junit, SeveralGeneratorsAreATestEach) {
    const std::string xml =
        junitXml({runOn("a", clean()), runOn("b", spoiledJudged()), runOn("c", unknown()), runOn("d", clean())});
    EXPECT_THAT(xml, HasSubstr("<testsuites tests=\"4\" failures=\"1\" errors=\"1\">"));
    for (const char* const name : {"a", "b", "c", "d"}) {
        EXPECT_THAT(xml, HasSubstr(std::string("name=\"") + name + "\" time="));
    }
}

// A process may have any name. What XML does not allow would make the whole report unreadable.
TEST(Junit, NamesOfAnyBytesAreEscaped) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    bytes += "\xEF\xBF\xBE \xEF\xBF\xBF \xED\xA0\x80 \xC3\xA4";
    Judged judged = spoiledJudged();
    judged.engines.at(0).name = judged.engines.at(0).thread = bytes;
    const std::string xml = junitXml({runOn(bytes, judged)});
    for (const char c : xml) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << int(c);
    EXPECT_THAT(xml, HasSubstr("name=\"\\x01\\x02"));
    EXPECT_THAT(xml, HasSubstr(" !&quot;#$%&amp;'()*+"));
    EXPECT_THAT(xml, HasSubstr(":;&lt;=&gt;?@"));
    EXPECT_THAT(xml, HasSubstr("~\\x7f\\x80\\x81"));
    EXPECT_THAT(xml, HasSubstr("\\xfe\\xff\xEF\xBF\xBD \xEF\xBF\xBD \\xed\\xa0\\x80 \xC3\xA4"));
    EXPECT_THAT(xml, Not(HasSubstr("\xEF\xBF\xBE")));
    EXPECT_THAT(junitXml({runOn("<<a>", clean())}), HasSubstr(" name=\"&lt;&lt;a&gt;\" "));
    EXPECT_THAT(junitXml({runOn("&&", clean())}), HasSubstr(" name=\"&amp;&amp;\" "));
}

}  // namespace
