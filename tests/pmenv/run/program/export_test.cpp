// export as its users run it, and a real Prometheus that answers with what was recorded.
#include <cmath>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pmenv/PmenvTest.h"
#include "pmenv/run/judgement/Runs.h"
#include "pmenv/run/recording/Recordings.h"
#include "support/PrometheusServer.h"

using json = nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class PmenvExport : public Pmenv {
protected:
    ProgramResult exported(const std::string& file) const { return run({"export", file, "--openmetrics"}); }
};

// Ten seconds; from second 4 on, the engine has more to do than it can.
std::vector<Evidence> spoiledRun() {
    std::vector<Evidence> evidences;
    MadeRun().each(10, [&](Evidence& evidence) {
        evidence.engines.push_back(engineThat(evidence.from < 4 ? Did{5} : Did{100}, evidence.from));
        evidence.machine.busy = 0.4;
        evidence.machine.idle = 0.1;
        evidences.push_back(asRecorded(evidence));
    });
    return evidences;
}

TEST_F(PmenvExport, PrintsARecordingAsMetrics) {
    record(directory_ / "gen1.pmrec", spoiledRun());
    run({"mark", "more users", "--record", "gen1.pmrec"});
    const ProgramResult result = exported("gen1.pmrec");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out,
                AllOf(StartsWith("# HELP pmenv_machine_processors Processors that are online.\n"),
                      HasSubstr("\npmenv_engine_held_back_seconds_total{host=\"gen1\",name=\"PMLoadEngineMai\",pid="
                                "\"100\"} 6 1795309834.123\n"),
                      HasSubstr("\npmenv_run_verdict{host=\"gen1\",verdict=\"clean\"} 1 1795309834.123\n"),
                      EndsWith("\n# EOF\n")));
    EXPECT_EQ(exported("gen1.pmrec").out, result.out);
}

TEST_F(PmenvExport, ARecordingThatBreaksOffHasNoVerdictAndSaysSo) {
    record(directory_ / "gen1.pmrec", spoiledRun(), someHeader(), false);
    const ProgramResult result = exported("gen1.pmrec");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, StartsWith("pmenv: warning: gen1.pmrec: the recording breaks off at second 10"));
    EXPECT_EQ(result.out.find("pmenv_run_verdict"), std::string::npos);
    EXPECT_THAT(result.out, EndsWith("\n# EOF\n"));
}

TEST_F(PmenvExport, WhatCannotBeReadIsAnErrorAndPrintsNothing) {
    record(directory_ / "gen1.pmrec", spoiledRun());
    directory_.writeFile("damaged.pmrec", readFileText(directory_ / "gen1.pmrec") + "what?\n");
    const struct {
        Words words;
        int status;
        const char* error;
    } rows[] = {
        {{"export", "gen1.pmrec"}, 2, "pmenv: a format is needed: --openmetrics; see 'pmenv export --help'"},
        {{"export", "--openmetrics"}, 2, "pmenv: 'export' needs FILE"},
        {{"export", "none.pmrec", "--openmetrics"}, 1, "pmenv: cannot read none.pmrec: No such file or directory"},
        {{"export", "damaged.pmrec", "--openmetrics"}, 1, "pmenv: damaged.pmrec:43:1: Invalid value."},
    };
    for (const auto& row : rows) {
        const ProgramResult result = run(row.words);
        EXPECT_EQ(result.status, row.status) << row.error;
        EXPECT_THAT(result.err, StartsWith(row.error));
        EXPECT_EQ(result.out, "") << row.error;
    }
}

// --- Prometheus -----------------------------------------------------------------------------------------------------

using Moments = std::map<std::int64_t, double>;    // values by milliseconds
using AllSeries = std::map<std::string, Moments>;  // by series

// One text for each set of labels, the name of the metric among them.
std::string seriesOf(const json& labels) { return labels.dump(-1, ' ', true); }

AllSeries historyOf(const json& matrix) {
    AllSeries history;
    for (const json& series : matrix) {
        Moments& moments = history[seriesOf(series.at("metric"))];
        for (const json& sample : series.at("values")) {
            moments[std::llround(1000 * sample[0].get<double>())] = std::stod(sample[1].get<std::string>());
        }
    }
    return history;
}

// What the exposition says, read without the code that wrote it.
AllSeries historyOf(const std::string& text) {
    AllSeries history;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '#') continue;
        json labels{{"__name__", line.substr(0, line.find('{'))}};
        std::size_t at = line.find('{');
        while (line[at++] != '}') {
            const std::size_t equals = line.find('=', at);
            const std::string name = line.substr(at, equals - at);
            std::string value;
            for (at = equals + 2; line[at] != '"'; ++at) {
                if (line[at] == '\\') ++at;
                value += line[at - 1] == '\\' && line[at] == 'n' ? '\n' : line[at];
            }
            labels[name] = value;
            ++at;
        }
        std::istringstream numbers(line.substr(at));
        double value = 0, time = 0;
        numbers >> value >> time;
        history[seriesOf(labels)][std::llround(1000 * time)] = value;
    }
    return history;
}

double numberIn(const json& answer) {
    EXPECT_EQ(answer.size(), 1U) << answer;
    return answer.size() == 1 ? std::stod(answer[0].at("value")[1].get<std::string>()) : std::nan("");
}

class PmenvExportToPrometheus : public PmenvExport {
protected:
    void SetUp() override { ASSERT_TRUE(PrometheusServer::isInstalled()); }

    // Exports the recordings and takes them in.
    std::string takenIn(const std::vector<std::string>& recordings) const {
        std::string all;
        for (const std::string& file : recordings) {
            const std::string text = exported(file).out;
            PrometheusServer::takeIn(directory_.writeFile(file + ".om", text), directory_ / "data");
            all += text;
        }
        return all;
    }
};

// A run in which anything happens, with names of any bytes, and one of which is known what to expect.
TEST_F(PmenvExportToPrometheus, AnswersWithWhatWasRecorded) {
    RecordingHeader hostile = someHeader();
    hostile.host.clear();
    for (int byte = 1; byte < 256; ++byte) hostile.host += static_cast<char>(byte);
    std::vector<Evidence> anything = RandomRun(11).of(120);
    for (Evidence& evidence : anything) evidence.engines.resize(1), evidence.engines[0].name = hostile.host;
    record(directory_ / "anything.pmrec", anything, hostile);
    record(directory_ / "spoiled.pmrec", spoiledRun());
    const std::string text = takenIn({"anything.pmrec", "spoiled.pmrec"});

    const PrometheusServer server(directory_.path());
    ASSERT_TRUE(server.isReady());
    const AllSeries answered = historyOf(server.query("{__name__=~\"pmenv_.+\"}[1h]", "1795310000"));
    const AllSeries printed = historyOf(text);
    EXPECT_GT(printed.size(), 50U);
    EXPECT_EQ(answered, printed);

    EXPECT_EQ(numberIn(server.query("pmenv_engine_held_back_seconds_total{host=\"gen1\"}", "1795309835")), 6);
    EXPECT_EQ(json::parse(run({"judge", "spoiled.pmrec", "--json"}).out).at("engines")[0].at("heldBackSeconds"), 6);

    // As docs/recordings.md asks.
    const std::string held = "rate(pmenv_engine_held_back_seconds_total{host=\"gen1\"}[4s])";
    EXPECT_NEAR(numberIn(server.query(held, "1795309834")), 1, 0.01);
    const std::string idle = "rate(pmenv_machine_cpu_seconds_total{mode=\"idle\",host=\"gen1\"}[4s])";
    EXPECT_NEAR(numberIn(server.query("1 - " + idle + " / on (host) pmenv_machine_processors", "1795309834")), 0.8,
                0.01);
    EXPECT_EQ(server.query("pmenv_run_verdict{verdict=\"clean\"} == 1", "1795309900").size(), 2U);
}

}  // namespace
