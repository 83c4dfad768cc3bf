// Results of load tools.
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chart/csv.h"
#include "chart/results.h"
#include "failure.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows rowsOf(const std::string& text) {
    std::istringstream input(text);
    CsvReader reader(input);
    Rows rows;
    std::vector<std::string> fields;
    while (reader.next(&fields) == CsvReader::Result::Row) rows.push_back(fields);
    return rows;
}

TEST(Csv, ReadsFieldsAndRows) {
    const struct {
        const char* text;
        Rows rows;
    } rows[] = {
        {"", {}},
        {"a,b\n1,2\n", {{"a", "b"}, {"1", "2"}}},
        {"a,b\r\n1,2", {{"a", "b"}, {"1", "2"}}},
        {"\xEF\xBB\xBF"
         "a\n",
         {{"a"}}},
        {"\n\na\n\n\nb\n", {{"a"}, {"b"}}},
        {",\n", {{"", ""}}},
        {"\"a,b\",\"c\nd\",\"e\"\"f\",\"\"\n", {{"a,b", "c\nd", "e\"f", ""}}},
        {"a\"b,c\n", {{"a\"b", "c"}}},
        {"\"open,\n", {{"open,\n"}}},
        {"\"a\r\nb\"\r\n", {{"a\r\nb"}}},
        {"a\rb\n", {{"a\rb"}}},
    };
    for (const auto& row : rows) EXPECT_EQ(rowsOf(row.text), row.rows) << row.text;
}

TEST(Csv, TellsInWhichLineARowBegan) {
    std::istringstream input("a\n\n\"b\nc\"\nd\n");
    CsvReader reader(input);
    std::vector<std::string> fields;
    std::vector<std::size_t> lines;
    while (reader.next(&fields) == CsvReader::Result::Row) lines.push_back(reader.line());
    EXPECT_THAT(lines, ElementsAre(1u, 3u, 5u));
}

TEST(Csv, ARowHasAnEnd) {
    const std::string longest(CsvReader::kLongestRow - 1, 'x');
    std::istringstream input(longest + "\n\"" + longest + "xx");
    CsvReader reader(input);
    std::vector<std::string> fields;
    EXPECT_EQ(reader.next(&fields), CsvReader::Result::Row);
    EXPECT_EQ(fields[0].size(), longest.size());
    EXPECT_EQ(reader.next(&fields), CsvReader::Result::TooLong);
}

TEST(Results, ReadsMomentsOfManyKinds) {
    const struct {
        const char* text;
        double seconds;
    } rows[] = {
        {"0", 0},
        {"1763764568", 1763764568},
        {"1763764568.25", 1763764568.25},
        {"1763764568250", 1763764568.25},
        {"1763764568250000", 1763764568.25},
        {"1763764568250000000", 1763764568.25},
        {"1970-01-01T00:00:00Z", 0},
        {"2000-02-29T12:00:00Z", 951825600},
        {"2000-03-01T00:00:00Z", 951868800},
        {"2025-01-01T00:00:00Z", 1735689600},
        {"2025-12-31T23:59:60Z", 1767225600},
        {"2100-03-01T00:00:00Z", 4107542400},  // of a century's year without a leap day
        {"99999999999", 99999999999},
        {"100000000000", 100000000},
        {"2025-11-21T22:36:08.9Z", 1763764568.9},
        {"2025-11-21T22:36:08.250Z", 1763764568.25},
        {"2025-11-21T22:36:08,250Z", 1763764568.25},
        {"2025/11/21 22:36:08.250", 1763764568.25},
        {"2025-11-22T00:06:08.25+01:30", 1763764568.25},
        {"2025-11-21T17:36:08.25-0500", 1763764568.25},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(parseMoment(row.text)) << row.text;
        EXPECT_NEAR(*parseMoment(row.text), row.seconds, 1e-5) << row.text;
    }
    EXPECT_NEAR(parseMoment("1763764568250000000000").value_or(0), 1763764568250, 1) << "finer than nanoseconds";
    for (const char* text : {"",
                             "-1",
                             "nan",
                             "inf",
                             "1e999",
                             "12x",
                             "soon",
                             "2025-11-21",
                             "2025-11-21T22:36",
                             "2025-13-01T00:00:00Z",
                             "2025-11-21T24:00:00Z",
                             "2025-11-21T22:36:08.Z",
                             "2025-11-21T22:36:08Zx",
                             "2025-11-21T22:36:08+1",
                             "2025-11-21T22:36:08+01",
                             "2025-11-21T22:36:08+:30",
                             "2025-00-21T22:36:08Z",
                             "2025-11-00T22:36:08Z",
                             "2025-11-32T22:36:08Z",
                             "2025-11-21T22:60:08Z",
                             "2025-11-21T22:36:61Z",
                             "2025-1/-21T22:36:08Z",
                             "2025-0:-21T22:36:08Z",
                             "202511-21T22:36:08Z",
                             "2025-1121T22:36:08Z",
                             "2025-11-2122:36:08Z",
                             "2025-11-21T2236:08Z",
                             "2025-11-21T22:3608Z",
                             "-11-21T22:36:08Z",
                             "2025--21T22:36:08Z",
                             "2025-11-T22:36:08Z",
                             "2025-11-21T:36:08Z",
                             "2025-11-21T22::08Z",
                             "2025-11-21T22:36:Z"}) {
        EXPECT_FALSE(parseMoment(text)) << text;
    }
}

TEST(ResponseTimes, PercentilesAreAtMostOnePerCentOff) {
    ResponseTimes times;
    for (int i = 1; i <= 1000; ++i) times.add(i);
    EXPECT_NEAR(times.percentile(50), 500, 5.1);
    EXPECT_NEAR(times.percentile(99), 990, 10);
    EXPECT_NEAR(times.percentile(100), 1000, 10.1);
    EXPECT_NEAR(times.percentile(0), 1, 0.02);
    ResponseTimes extremes;
    extremes.add(0);
    extremes.add(1e300);
    EXPECT_LT(extremes.percentile(50), 0.02);
    EXPECT_NEAR(extremes.percentile(100), 1e8, 1e6);
}

Results read(const std::string& text, double start = 1763764568, double seconds = 10) {
    Results results(start, seconds);
    std::istringstream input(text);
    results.read(input, "results.csv");
    return results;
}

std::string failureOf(const std::string& text) {
    try {
        read(text);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "no failure";
}

TEST(Results, ReadsTimeAndValue) {
    const Results results = read("time,value\n1763764568,12\n1763764570.5,20\n1763764570900,22\n");
    EXPECT_EQ(results.used(), 3u);
    ASSERT_EQ(results.columns().size(), 10u);
    EXPECT_NEAR(results.columns()[0].percentile(50), 12, 0.12);
    EXPECT_EQ(results.columns()[1].count(), 0u);
    EXPECT_EQ(results.columns()[2].count(), 2u);
    EXPECT_TRUE(results.remarks().empty());
}

TEST(Results, ReadsJMetersCsv) {
    const Results results = read(
        "timeStamp,elapsed,label,responseCode,responseMessage,threadName,dataType,success,failureMessage,bytes\n"
        "1763764568100,31,\"GET /a,b\",200,OK,Thread Group 1-1,text,true,,512\n"
        "1763764569100,35,GET /,500,\"a\nmessage\",Thread Group 1-1,text,false,\"said \"\"no\"\"\",0\n");
    EXPECT_EQ(results.used(), 2u);
    EXPECT_EQ(results.failed(), 1u);
    EXPECT_NEAR(results.columns()[1].percentile(50), 35, 0.36);
}

TEST(Results, ReadsTheDurationsOfK6sCsv) {
    const Results results = read(
        "metric_name,timestamp,metric_value,check,error,error_code,expected_response,group,method\n"
        "http_reqs,1763764568,1.000000,,,,true,,GET\n"
        "http_req_duration,1763764568,14.250000,,,,true,,GET\n"
        "http_req_duration,1763764569,99.000000,,,1050,false,,GET\n"
        "vus,1763764569,1.000000,,,,,,\n");
    EXPECT_EQ(results.used(), 2u);
    EXPECT_EQ(results.failed(), 1u);
    EXPECT_TRUE(results.remarks().empty());
}

TEST(Results, CountsThoseThatFailedAndTakesShortTimes) {
    const Results results =
        read("timeStamp,elapsed,success\n1763764568100,0,true\n1763764568100,0.5,false\n1763764568100,1,true\n");
    EXPECT_EQ(results.used(), 3u);
    EXPECT_EQ(results.failed(), 1u);
}

TEST(Results, HaveAtMostThreeHundredColumnsOfWholeSeconds) {
    EXPECT_EQ(Results(0, 300).columns().size(), 300u);
    EXPECT_EQ(Results(0, 300).width(), 1);
    EXPECT_EQ(Results(0, 301).columns().size(), 151u);
    EXPECT_EQ(Results(0, 301).width(), 2);
    EXPECT_EQ(read("time,value\n1763765068,12\n", 1763764568, 600).columns()[250].count(), 1u);
}

TEST(Results, OfSeveralFilesAreToldOfEach) {
    Results results(1763764568, 10);
    for (const std::string name : {"a.csv", "b.csv"}) {
        std::istringstream input("time,value\n1763764568,12\n1763764578,12\n");
        results.read(input, name);
    }
    EXPECT_EQ(results.outside(), 2u);
    EXPECT_THAT(results.remarks(), ElementsAre("a.csv: 1 row outside the time of the recordings",
                                               "b.csv: 1 row outside the time of the recordings"));
}

TEST(Results, BadRowsAreCountedAndTold) {
    const Results results = read(
        "time,value\n1763764568,12\nsoon,12\n1763764568,-1\n1763764568,x\n1763764568\n1763764560,9\n1763764578,9\n");
    EXPECT_EQ(results.used(), 1u);
    EXPECT_EQ(results.outside(), 2u);
    EXPECT_THAT(results.remarks(),
                ElementsAre("results.csv:3: 4 rows could not be used; this is the first: its time cannot be read",
                            "results.csv: 2 rows outside the time of the recordings"));
}

// JMeter appends to a file of an earlier run, header and all; a run that was ended leaves half a row.
TEST(Results, ReadsOnAfterASecondHeaderAndTellsOfACutRow) {
    const Results results =
        read("timeStamp,elapsed,label\n1763764568100,31,a\ntimeStamp,elapsed,label\n1763764568100,31,a\n17637645");
    EXPECT_EQ(results.used(), 2u);
    EXPECT_THAT(results.remarks(),
                ElementsAre(HasSubstr("results.csv:5: 1 row could not be used; this is the first: it has 1 of 3")));
}

TEST(Results, AFileWithNothingToUseIsAnErrorWithWhatToDo) {
    const struct {
        const char* text;
        const char* failure;
    } rows[] = {
        {"", "results.csv:1: there is no header; the first line must name the columns: time,value"},
        {"\n\n<?xml version=\"1.0\"?>\n", "results.csv:3: this is not the header of results; the first line must name"},
        {"1763764568,12\n", "results.csv:1: this is not the header"},
        {"time,latency\n1763764568,12\n", "results.csv:1: this is not the header"},
        {"timestamp,metric_value\n1763764568,12\n", "results.csv:1: this is not the header"},
        {"time,value\n", "results.csv:1: there is no row below the header"},
        {"time,value\nx,1\n",
         "results.csv:2: no row can be used, and this is the first: its time cannot be read; repair"},
        {"time,value\n1,1\n",
         "results.csv:2: none of its 1 row lies in the time of the recordings; are these of the same run"},
        {"metric_name,timestamp,metric_value\nvus,1763764568,1\n",
         "results.csv:1: there is no row of the metric http_req_duration"},
    };
    for (const auto& row : rows) EXPECT_THAT(failureOf(row.text), HasSubstr(row.failure)) << row.text;
    EXPECT_THAT(failureOf("time,value\n1763764568,\"" + std::string(CsvReader::kLongestRow, 'x')),
                HasSubstr("results.csv:2: this row is longer than a mebibyte"));
}

TEST(Results, MillionsOfRowsTakeNoMoreMemory) {
    std::string text = "time,value\n";
    for (int i = 0; i < 200000; ++i) text += std::to_string(1763764568 + i % 10) + "," + std::to_string(i % 100) + "\n";
    const Results results = read(text);
    EXPECT_EQ(results.used(), 200000u);
    EXPECT_EQ(results.columns().size(), 10u);
    EXPECT_LE(Results(0, 1e9).columns().size(), 300u);
}

}  // namespace
