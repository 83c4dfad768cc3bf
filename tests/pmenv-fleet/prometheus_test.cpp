// The program against a real Prometheus, which has collected figures of load generators of all kinds.
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "pmenv-fleet/FleetProgram.h"
#include "support/PrometheusServer.h"
#include "support/Schema.h"

using json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// --- what the exporters have told -----------------------------------------------------------------------------------

constexpr double kBegin = 1795310000, kLength = 600, kInterval = 15, kRestarts = 300;
constexpr int kEngines = 2;

// A load generator with two engines. Times are seconds from the beginning of the run.
struct Exporter {
    const char* instance;
    const char* job = "pmenv";
    double heldBack = 0.002;  // of the first engine: shares of the time
    double inDoubt = 0;
    double running = 0.5;
    double throttled = 0;
    double late = 0;
    std::optional<double> expected = {};
    std::optional<double> begins = {};      // the second engine
    double secondHeldBack = 0;              // share of its time
    bool secondIsHidden = false;            // its accounts cannot be read
    std::optional<double> ends = {};        // the second engine
    bool killed = false;                    // when it ends
    double from = -1e9, to = 1e9;           // the exporter runs
    double goneFrom = 1e9, goneTo = 1e9;    // the server cannot reach it
    std::optional<double> lostByRestart{};  // seconds without a watch, after which it counts from 0
    bool hasEngines = true;
    bool hasEvidence = true;
};

// The exposition wants all samples of a metric together.
class Samples {
public:
    void add(const std::string& family, const std::string& labels, double time, double value) {
        const bool isCounter = family.size() > 6 && family.compare(family.size() - 6, 6, "_total") == 0;
        const std::string name = isCounter ? family.substr(0, family.size() - 6) : family;
        std::string& text = families_[name];
        if (text.empty()) text = "# TYPE " + name + (isCounter ? " counter\n" : " gauge\n");
        char numbers[64];
        std::snprintf(numbers, sizeof numbers, "} %.6f %.3f\n", value, kBegin + time);
        series_[name][family + "{" + labels] += family + "{" + labels + numbers;
    }

    std::string text() const {
        std::string all;
        for (const auto& [name, heading] : families_) {
            all += heading;
            for (const auto& [series, lines] : series_.at(name)) all += lines;
        }
        return all + "# EOF\n";
    }

private:
    std::map<std::string, std::string> families_;
    std::map<std::string, std::map<std::string, std::string>> series_;
};

void addEngine(const Exporter& exporter, int i, const std::string& target, double time, double watched,
               Samples* samples) {
    const bool first = i == 0;
    if (!first && time < exporter.begins.value_or(-1e9)) return;
    if (!first && exporter.begins) watched = time - *exporter.begins;
    const std::string engine = target + ",name=\"PMLoadEngineMai\",pid=\"" + std::to_string(11 + i) + "\"";
    samples->add("pmenv_engine_memory_bytes", engine, time, 1e6);
    samples->add("pmenv_engine_descriptors_ratio", engine, time, 0.1);
    if (!exporter.hasEvidence || (!first && exporter.secondIsHidden)) return;
    samples->add("pmenv_engine_held_back_seconds_total", engine, time,
                 (first ? exporter.heldBack : exporter.secondHeldBack) * watched);
    samples->add("pmenv_engine_in_doubt_seconds_total", engine, time, first ? exporter.inDoubt * watched : 0);
    samples->add("pmenv_engine_busiest_thread_seconds_total", engine + ",state=\"running\"", time,
                 exporter.running * watched);
    samples->add("pmenv_engine_busiest_thread_seconds_total", engine + ",state=\"throttled\"", time,
                 first ? exporter.throttled * watched : 0);
}

void addScrape(const Exporter& exporter, double time, Samples* samples) {
    const std::string target =
        "job=\"" + std::string(exporter.job) + "\",instance=\"" + std::string(exporter.instance) + "\"";
    const bool isGone = time >= exporter.goneFrom && time < exporter.goneTo;
    const bool isUp = time >= exporter.from && time < exporter.to && !isGone;
    samples->add("up", target, time, isUp ? 1 : 0);
    if (!isUp) return;
    double watched = time + 100;
    if (exporter.lostByRestart && time >= kRestarts) watched = time - kRestarts - *exporter.lostByRestart;
    if (watched < 0) return;
    const bool hasEnded = exporter.ends && time >= *exporter.ends;
    const std::string name = target + ",name=\"PMLoadEngineMai\"";
    samples->add("pmenv_watch_seconds_total", target, time, watched);
    samples->add("pmenv_watch_wakes_total", target, time, 100 * watched);
    samples->add("pmenv_watch_late_wakes_total", target, time, 100 * exporter.late * watched);
    const bool hasBegun = time >= exporter.begins.value_or(-1e9);
    samples->add("pmenv_engines", name, time, exporter.hasEngines ? kEngines - hasEnded - !hasBegun : 0);
    samples->add("pmenv_engines_ended_total", name, time, hasEnded);
    samples->add("pmenv_engines_killed_total", name, time, hasEnded && exporter.killed);
    if (exporter.expected) samples->add("pmenv_engines_expected", target, time, *exporter.expected);
    for (int i = 0; exporter.hasEngines && i < kEngines; ++i) addEngine(exporter, i, target, time, watched, samples);
}

std::string expositionOf(const std::vector<Exporter>& exporters) {
    Samples samples;
    for (const Exporter& exporter : exporters) {
        for (double time = 7 - 4 * kInterval; time < kLength + 4 * kInterval; time += kInterval) {
            addScrape(exporter, time, &samples);
        }
    }
    return samples.text();
}

// --- what is expected of each ---------------------------------------------------------------------------------------

struct Row {
    Exporter exporter;
    const char* verdict;
    const char* kind;  // of the finding; "" for none
    std::optional<double> believed;
    const char* engines;  // in the table
};

Exporter with(const char* instance, const std::function<void(Exporter&)>& change) {
    Exporter exporter{instance};
    change(exporter);
    return exporter;
}

// The worst first, as the program shows them.
const std::vector<Row>& rows() {
    static const std::vector<Row> all{
        {with("busy:9815", [](Exporter& e) { e.heldBack = 0.3; }), "spoiled", "ownWork", 70, "2"},
        {with("quota:9815", [](Exporter& e) { e.heldBack = 0.05, e.throttled = 0.04; }), "spoiled", "quota", 95, "2"},
        {with("ended:9815", [](Exporter& e) { e.ends = 300; }), "spoiled", "ended", std::nullopt, "1..2"},
        {with("killed:9815", [](Exporter& e) { e.ends = 300, e.killed = true, e.expected = 2; }), "spoiled",
         "ended missing", std::nullopt, "1/2"},
        {with("missing:9815", [](Exporter& e) { e.expected = 3; }), "spoiled", "missing", std::nullopt, "2/3"},
        {with("doubt:9815", [](Exporter& e) { e.inDoubt = 0.05; }), "cannot tell", "inDoubt", std::nullopt, "2"},
        {with("gone:9815", [](Exporter& e) { e.to = 300; }), "cannot tell", "gap", std::nullopt, "2"},
        {with("late:9815", [](Exporter& e) { e.late = 0.05; }), "cannot tell", "late", std::nullopt, "2"},
        {with("down:9815", [](Exporter& e) { e.to = -1e9; }), "cannot tell", "noFigures", std::nullopt, "-"},
        {with("idle:9815", [](Exporter& e) { e.hasEngines = false; }), "cannot tell", "noEngine", std::nullopt, "0"},
        {with("hidden:9815", [](Exporter& e) { e.hasEvidence = false; }), "cannot tell", "noEvidence", std::nullopt,
         "2"},
        {with("good:9815", [](Exporter& e) { e.expected = 2; }), "clean", "", 99.8, "2/2"},
        {with("unreachable:9815", [](Exporter& e) { e.goneFrom = 200, e.goneTo = 400; }), "clean", "", 99.8, "2"},
        {with("restarted:9815", [](Exporter& e) { e.lostByRestart = 10; }), "clean", "", 99.8, "2"},
    };
    return all;
}

const std::vector<Exporter>& otherJobs() {
    static const std::vector<Exporter> all{
        with("gen1", [](Exporter& e) { e.job = "good"; }),
        with("gen2", [](Exporter& e) { e.job = "good", e.heldBack = 0.009; }),
        with("gen1", [](Exporter& e) { e.job = "beginning", e.begins = 480, e.secondHeldBack = 0.03; }),
        with("gen1", [](Exporter& e) { e.job = "hidden", e.begins = 480, e.secondIsHidden = true; }),
        with("gen1", [](Exporter& e) { e.job = "doubtful"; }),
        with("gen2", [](Exporter& e) { e.job = "doubtful", e.inDoubt = 0.05; }),
        with("gen\xc3\xa4 1\x01", [](Exporter& e) { e.job = "a\xc3\xa4 {job}"; }),
    };
    return all;
}

// --- one server for all tests ---------------------------------------------------------------------------------------

class FleetOfPrometheus : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!PrometheusServer::isInstalled()) return;
        directory_ = new TempDir;
        std::vector<Exporter> exporters = otherJobs();
        for (const Row& row : rows()) exporters.push_back(row.exporter);
        PrometheusServer::takeIn(directory_->writeFile("run.om", expositionOf(exporters)), *directory_ / "data");
        server_ = new PrometheusServer(directory_->path());
        ASSERT_TRUE(server_->isReady());
    }

    static void TearDownTestSuite() {
        delete server_;
        delete directory_;
    }

    void SetUp() override {
        ASSERT_TRUE(PrometheusServer::isInstalled());
        ASSERT_NE(server_, nullptr);
    }

    static ProgramResult run(Words words) {
        const Words asked{"--prometheus", server_->address() + "/", "--from", "1795310000",
                          "--to",         "2026-11-22T01:23:20Z"};
        words.insert(words.begin(), asked.begin(), asked.end());
        return fleet(words);
    }

private:
    static inline TempDir* directory_ = nullptr;
    static inline PrometheusServer* server_ = nullptr;
};

TEST_F(FleetOfPrometheus, JudgesEachGenerator) {
    const ProgramResult result = run({"--json"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "");
    const json run = json::parse(result.out);
    expectAsDescribed(run, FLEET_SCHEMA);
    EXPECT_EQ(run.at("verdict"), "spoiled");
    EXPECT_EQ(run.at("from"), "2026-11-22T01:13:20.000Z");
    EXPECT_EQ(run.at("to"), "2026-11-22T01:23:20.000Z");
    ASSERT_EQ(run.at("generators").size(), rows().size());
    std::map<std::string, json> generators;
    for (const json& generator : run.at("generators")) generators[generator.at("generator")] = generator;
    for (const Row& row : rows()) {
        const json& generator = generators[row.exporter.instance];
        ASSERT_TRUE(generator.is_object()) << row.exporter.instance;
        std::string kinds;
        for (const json& finding : generator.at("findings")) {
            kinds += (kinds.empty() ? "" : " ") + finding.at("kind").get<std::string>();
        }
        EXPECT_EQ(generator.at("verdict"), row.verdict) << generator;
        EXPECT_EQ(kinds, row.kind) << generator;
        EXPECT_EQ(generator.at("believedPercentile"), row.believed ? json(*row.believed) : json()) << generator;
    }
}

// What Prometheus adds at the ends of the window cancels out.
TEST_F(FleetOfPrometheus, SharesAreThoseThatWereCounted) {
    const json run = json::parse(FleetOfPrometheus::run({"--json"}).out);
    int compared = 0;
    for (const json& generator : run.at("generators")) {
        for (const Row& row : rows()) {
            const bool isThis = generator.at("generator") == row.exporter.instance;
            if (!isThis || generator.at("worstEngine").is_null()) continue;
            EXPECT_NEAR(generator.at("worstEngine").at("heldBackShare"), row.exporter.heldBack, 1e-6) << generator;
            EXPECT_NEAR(generator.at("worstEngine").at("heldBackShareAtMost"),
                        row.exporter.heldBack + row.exporter.inDoubt, 1e-6)
                << generator;
            ++compared;
        }
    }
    EXPECT_EQ(compared, 11);
}

// The engine ran for a fifth of the run. In the whole run 0.6 % are no reason; in its own time 3 % are.
TEST_F(FleetOfPrometheus, AnEngineThatBeganLateIsJudgedByItsOwnTime) {
    const ProgramResult result = run({"--json", "--job", "beginning"});
    EXPECT_EQ(result.status, 3);
    const json worst = json::parse(result.out).at("generators").at(0).at("worstEngine");
    EXPECT_EQ(worst.at("pid"), "12");
    EXPECT_NEAR(worst.at("heldBackShare"), 0.03, 0.03 / 8) << "as exactly as the scrapes tell its beginning";
}

TEST_F(FleetOfPrometheus, CannotTellOfAnEngineThatBeganLateAndCouldNotBeRead) {
    const ProgramResult result = run({"--json", "--job", "hidden"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(json::parse(result.out).at("generators").at(0).at("findings").at(0).at("kind"), "noEvidence");
}

TEST_F(FleetOfPrometheus, ShowsATable) {
    const ProgramResult result = run({});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.out, StartsWith("spoiled: 5 of 14 load generators spoiled the run: busy:9815 (own work), "
                                       "quota:9815 (quota), ended:9815 (engine ended), killed:9815 (engine ended), "
                                       "missing:9815 (engine missing)\n\nGENERATOR         VERDICT      BELIEVED  HELD "
                                       "BACK  ENGINES  WHY\n"));
    for (const Row& row : rows()) {
        const std::size_t begin = result.out.find(std::string("\n") + row.exporter.instance + " ") + 1;
        ASSERT_NE(begin, 0U) << row.exporter.instance;
        const std::string line = result.out.substr(begin, result.out.find('\n', begin) - begin);
        EXPECT_THAT(line, HasSubstr(std::string(row.verdict) + " "));
        EXPECT_THAT(line + " ", HasSubstr(std::string(" ") + row.engines + " "));
    }
    EXPECT_THAT(result.out, HasSubstr("\nquota:9815        spoiled           p95      5.0 %        2  load engine 11 "
                                      "(PMLoadEngineMai) was held back for 5.0 % of the time: the quota of its control "
                                      "group was used up (raise the quota"));
    EXPECT_THAT(result.out, HasSubstr("there are figures of only 49.9 % of the time (look"));
}

TEST_F(FleetOfPrometheus, TheExitCodeIsThatOfTheWorst) {
    EXPECT_EQ(run({"--job", "good"}).status, 0);
    EXPECT_EQ(run({"--job", "good", "--percentile", "99.5"}).status, 3);
    EXPECT_EQ(run({"--job", "doubtful"}).status, 4);
    EXPECT_EQ(run({"--job", "doubtful", "--percentile", "94"}).status, 0);
    EXPECT_EQ(run({"--job", "none"}).status, 4);
    EXPECT_THAT(run({"--job", "none"}).out,
                StartsWith("cannot tell: there was no load generator of the job 'none' in this time\n"));
    EXPECT_THAT(
        run({"--job", "good"}).out,
        StartsWith("clean: all 2 load generators kept their schedule; percentiles up to p99.1 can be believed"));
}

TEST_F(FleetOfPrometheus, NamesOfAnyBytesAreAskedForAndShown) {
    const ProgramResult result = run({"--job", "a\xc3\xa4 {job}"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\ngen\xc3\xa4 1\\x01  clean "));
    EXPECT_EQ(run({"--job", "\"} or up{job!=\""}).status, 4) << "it is a name, not a part of the query";
}

// Before the run the engines were as good; the window decides.
TEST_F(FleetOfPrometheus, JudgesTheTimeThatIsGiven) {
    const auto verdictOn = [](const char* from, const char* to) { return run({"--json", "--from", from, "--to", to}); };
    const auto of = [](const ProgramResult& result, const char* instance) {
        const json judged = json::parse(result.out);
        for (const json& generator : judged.at("generators")) {
            if (generator.at("generator") == instance) return generator.at("verdict").get<std::string>();
        }
        return std::string("missing");
    };
    const ProgramResult firstHalf = verdictOn("1795310000", "1795310280.5");
    EXPECT_EQ(of(firstHalf, "ended:9815"), "clean");
    EXPECT_EQ(of(firstHalf, "gone:9815"), "clean");
    EXPECT_EQ(of(firstHalf, "busy:9815"), "spoiled");
    const ProgramResult secondHalf = verdictOn("1795310320", "1795310600");
    EXPECT_EQ(of(secondHalf, "ended:9815"), "clean") << "it had ended before";
    EXPECT_EQ(of(secondHalf, "gone:9815"), "cannot tell");
    EXPECT_EQ(of(secondHalf, "killed:9815"), "spoiled") << "two were to run";
    EXPECT_EQ(verdictOn("1795300000", "1795300600").status, 4) << "there was no run";
}

}  // namespace
