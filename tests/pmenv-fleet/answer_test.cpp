// What a server answers: samples, errors, and everything that is neither.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"
#include "support/Sanitized.h"
#include "support/repeated.h"
#include "verdict/answer.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

std::string withResult(const std::string& result) {
    return R"({"status":"success","data":{"resultType":"vector","result":)" + result + "}}";
}

std::string withValue(const std::string& value) { return withResult(R"([{"metric":{},"value":[1,)" + value + "]}]"); }

std::string failureOf(const std::string& text, long status = 200) {
    try {
        readAnswer(text, status);
        return "";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.exitCode(), kExitWrong);
        return failure.what();
    }
}

TEST(ReadAnswer, HasSamplesWithTheirLabels) {
    const Answer answer =
        readAnswer(withResult(R"([{"metric":{"instance":"gen1:9815","pid":"7"},"value":[1795309835.781,"0.05"]},)"
                              R"({"metric":{"instance":"g\u00e4n2\u001b"},"value":[1795309835,"-1e-3"]}])"),
                   200);
    ASSERT_EQ(answer.samples.size(), 2U);
    EXPECT_EQ(answer.samples[0].labels, (Labels{{"instance", "gen1:9815"}, {"pid", "7"}}));
    EXPECT_EQ(answer.samples[0].value, 0.05);
    EXPECT_EQ(answer.samples[1].labels, (Labels{{"instance", "g\xc3\xa4n2\x1b"}}));
    EXPECT_EQ(answer.samples[1].value, -0.001);
    EXPECT_TRUE(readAnswer(withResult("[]"), 200).samples.empty());
}

TEST(ReadAnswer, WhatIsNoNumberIsUnknown) {
    for (const char* const value : {"\"NaN\"", "\"+Inf\"", "\"-Inf\""}) {
        EXPECT_EQ(readAnswer(withValue(value), 200).samples.at(0).value, std::nullopt) << value;
    }
}

TEST(ReadAnswer, HasWarnings) {
    const Answer answer = readAnswer(
        R"({"status":"success","data":{"resultType":"vector","result":[]},"warnings":["one","t\u001bwo"]})", 200);
    EXPECT_THAT(answer.warnings, ElementsAre("one", "t\\x1bwo"));
}

TEST(ReadAnswer, TellsTheErrorOfTheServer) {
    const std::string error = R"({"status":"error","errorType":"bad_data","error":"no\n \u001b[2J"})";
    EXPECT_EQ(failureOf(error, 400), "the server says: bad_data: no\\n \\x1b[2J");
    EXPECT_EQ(failureOf(error, 200), "the server says: bad_data: no\\n \\x1b[2J");
    EXPECT_EQ(failureOf(R"({"status":"error"})", 503), "the server says: (no text): (no text)");
    const std::string longText =
        failureOf(R"({"status":"error","errorType":"x","error":")" + repeated("e", 100000) + "\"}");
    EXPECT_LT(longText.size(), 500U);
}

TEST(ReadAnswer, TellsTheStatusOfAServerThatIsNoPrometheus) {
    EXPECT_EQ(failureOf("<html>Not Found</html>", 404),
              "it answers with HTTP status 404; is the URL right, with the path in front of /api?");
    EXPECT_EQ(failureOf("", 401), "it answers with HTTP status 401: it wants a user who may ask it");
    EXPECT_THAT(failureOf(withResult("[]"), 500), StartsWith("it answers with HTTP status 500"));
}

TEST(ReadAnswer, RefusesWhatIsNoAnswer) {
    const struct {
        std::string text;
        const char* what;
    } rows[] = {
        {"", "it is no JSON"},
        {"<html></html>", "it is no JSON"},
        {withResult("[]").substr(0, 40), "it is no JSON"},
        {withResult("[]") + "x", "it is no JSON"},
        {std::string(R"({"status":"success)") + '\0', "it is no JSON"},
        {"\xff", "it is no JSON"},
        {"null", "it has no 'status'"},
        {"[]", "it has no 'status'"},
        {"{}", "it has no 'status'"},
        {R"({"status":1})", "'status' is neither success nor error"},
        {R"({"status":"success"})", "it has no 'data'"},
        {R"({"status":"success","data":[]})", "it has no 'resultType'"},
        {R"({"status":"success","data":{"resultType":1}})", "'resultType' is no text"},
        {R"({"status":"success","data":{"resultType":"matrix","result":[]}})", "'resultType' is not vector"},
        {R"({"status":"success","data":{"resultType":"vector"}})", "it has no 'result'"},
        {withResult("{}"), "'result' is no list"},
        {withResult("[1]"), "it has no 'metric'"},
        {withResult(R"([{"metric":[],"value":[1,"1"]}])"), "'metric' is no object"},
        {withResult(R"([{"metric":{"a":1},"value":[1,"1"]}])"), "'metric' is no text"},
        {withResult(R"([{"metric":{}}])"), "it has no 'value'"},
        {withResult(R"([{"metric":{},"value":"1"}])"), "'value' is no list"},
        {withResult(R"([{"metric":{},"value":["1"]}])"), "'value' is no time with a number"},
        {withValue("1"), "'value' is no text"},
        {withValue("\"\""), "a value is no number"},
        {withValue("\"1x\""), "a value is no number"},
        {withValue("\" 1\""), "a value is no number"},
        {withValue("\"nan\""), "a value is no number"},
        {withValue("\"inf\""), "a value is no number"},
        {withValue("\"1e999\""), "a value is no number"},
        {withValue("\"0x10\""), "a value is no number"},
        {R"({"status":"success","data":{"resultType":"vector","result":[]},"warnings":1})", "'warnings' is no list"},
        {R"({"status":"success","data":{"resultType":"vector","result":[]},"warnings":[1]})", "'warnings' is no text"},
        {R"({"status":"error","errorType":"x","error":1})", "'error' is no text"},
        {repeated("[", 100000), "it is nested too deeply"},
        {repeated("{\"a\":", 100000), "it is nested too deeply"},
        {withResult(repeated("[", 20) + repeated("]", 20)), "it is nested too deeply"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(failureOf(row.text), "the answer is not one of Prometheus: " + std::string(row.what) +
                                           "; is the URL right, with the path in front of /api?")
            << row.text.substr(0, 100);
    }
}

// A type that keeps the order of members took minutes for this.
// With sanitizers it is a tenth.
TEST(ReadAnswer, AMillionMembersAreReadInTime) {
    std::string members;
    for (int i = 0; i < (kSanitized ? 100000 : 1000000); ++i) members += "\"" + std::to_string(i) + "\":1,";
    EXPECT_THAT(failureOf("{" + members + "\"x\":1}"), HasSubstr("it has no 'status'"));
}

}  // namespace
