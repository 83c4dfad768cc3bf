// chart as its users run it.
#include <string>

#include "pmenv/PmenvTest.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class PmenvChart : public Pmenv {
protected:
    // Ten seconds; from second 4 on, the engine has more to do than it can.
    std::string recorded(const std::string& name, const RecordingHeader& header = someHeader(),
                         bool toItsEnd = true) const {
        std::vector<Evidence> evidences;
        MadeRun().each(10, [&](Evidence& evidence) {
            evidence.engines.push_back(engineThat(evidence.from < 4 ? Did{5} : Did{100}, evidence.from));
            evidences.push_back(asRecorded(evidence));
        });
        record(directory_ / name, evidences, header, toItsEnd);
        return directory_ / name;
    }
};

TEST_F(PmenvChart, DrawsARecordingWithItsVerdictTheSameEachTime) {
    recorded("gen1.pmrec");
    run({"mark", "users are there", "--record", "gen1.pmrec"});
    const ProgramResult result = run({"chart", "gen1.pmrec"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr(">Spoiled</h1>"),
                                  HasSubstr("Percentiles up to p40 can be believed; p99 was asked for."),
                                  HasSubstr("<dt>kernel</dt><dd>Linux 6.1.0 x86_64</dd>"),
                                  HasSubstr("<dt>tolerance</dt><dd>10 ms</dd>"), HasSubstr("</html>")));
    EXPECT_EQ(run({"chart", "gen1.pmrec"}).out, result.out);
    EXPECT_THAT(run({"judge", "gen1.pmrec"}).out, HasSubstr("percentiles up to p40 can be believed"));
}

TEST_F(PmenvChart, TellsWhatTheVerdictLeavesOut) {
    RecordingHeader header = someHeader();
    header.limits.skip = 3;
    recorded("gen1.pmrec", header);
    EXPECT_THAT(run({"chart", "gen1.pmrec"}).out, AllOf(HasSubstr("The first 3 s are left out of the verdict."),
                                                        HasSubstr("<dt>left out at the beginning</dt><dd>3 s</dd>")));
}

TEST_F(PmenvChart, DrawsSeveralGeneratorsAndResults) {
    RecordingHeader later = someHeader();
    later.host = "gen2";
    later.start += std::chrono::seconds(5);
    recorded("gen1.pmrec");
    recorded("gen2.pmrec", later);
    directory_.writeFile("a.csv", "time,value\n1795309826,12\n");
    directory_.writeFile("b.csv", "time,value\n1795309827,12\n1795309000,12\n");
    const ProgramResult result = run({"chart", "gen1.pmrec", "gen2.pmrec", "--results", "a.csv", "--results", "b.csv"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, AllOf(HasSubstr("2 of 2 load generators: spoiled."), HasSubstr("gen1: spoiled</h2>"),
                                  HasSubstr("gen2: spoiled</h2>"), HasSubstr("2 responses.")));
    EXPECT_EQ(result.err, "pmenv: warning: b.csv: 1 row outside the time of the recordings\n");
}

TEST_F(PmenvChart, ARecordingThatBreaksOffIsDrawnAndSaysSo) {
    recorded("gen1.pmrec", someHeader(), false);
    const ProgramResult result = run({"chart", "gen1.pmrec"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, StartsWith("pmenv: warning: gen1.pmrec: the recording breaks off at second 10"));
    EXPECT_THAT(result.out, HasSubstr("Note: gen1.pmrec: the recording breaks off at second 10"));
}

TEST_F(PmenvChart, WhatCannotBeReadIsAnErrorAndPrintsNothing) {
    recorded("gen1.pmrec");
    directory_.writeFile("empty.csv");
    directory_.writeFile("other.csv", "a,b\n");
    const struct {
        Words words;
        int status;
        const char* error;
    } rows[] = {
        {{"chart"}, 2, "FILE"},
        {{"chart", "none.pmrec"}, 1, "pmenv: cannot read none.pmrec: "},
        {{"chart", "other.csv"}, 1, "pmenv: other.csv:1:1: "},
        {{"chart", "gen1.pmrec", "--results", "none.csv"}, 1, "pmenv: none.csv: No such file or directory"},
        {{"chart", "gen1.pmrec", "--results", "."}, 1, "pmenv: .: Is a directory"},
        {{"chart", "gen1.pmrec", "--results", "empty.csv"}, 1, "pmenv: empty.csv:1: there is no header"},
        {{"chart", "gen1.pmrec", "--results", "other.csv"}, 1, "pmenv: other.csv:1: this is not the header of results"},
    };
    for (const auto& row : rows) {
        const ProgramResult result = run(row.words);
        EXPECT_EQ(result.status, row.status) << row.error;
        EXPECT_THAT(result.err, HasSubstr(row.error));
        EXPECT_EQ(result.out, "") << row.error;
    }
}

TEST_F(PmenvChart, RunsInWhichAnythingHappensStayWellFormed) {
    ASSERT_TRUE(isInstalled("/usr/bin/xmllint"));
    for (unsigned seed = 1; seed <= 5; ++seed) {
        record(directory_ / "gen1.pmrec", RandomRun(seed).of(200));
        const ProgramResult result = run({"chart", "gen1.pmrec"});
        EXPECT_EQ(result.status, 0) << result.err;
        const ProgramResult checked =
            runProgram({"/usr/bin/xmllint", "--noout", "--nonet", directory_.writeFile("page.xml", result.out)});
        EXPECT_EQ(checked.status, 0) << "seed " << seed << ": " << checked.err;
    }
}

}  // namespace
